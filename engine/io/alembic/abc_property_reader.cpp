// Reading the samples of a property: finding the stored slot, checking it against the file
// and decoding its values.

#include <bit>
#include <cstring>
#include <stdexcept>

#include "core/errors.h"
#include "io/alembic/abc_reader.h"
#include "io/alembic/abc_reader_data.h"

namespace tressora::abc {

namespace {

float halfToFloat(std::uint16_t h) {
    const std::uint32_t sign = static_cast<std::uint32_t>(h & 0x8000) << 16;
    const std::uint32_t exponent = (h >> 10) & 0x1F;
    std::uint32_t mantissa = h & 0x3FF;
    if (exponent == 0) {
        // Zero or subnormal: the value is mantissa * 2^-24.
        const float magnitude = static_cast<float>(mantissa) * (1.0f / 16777216.0f);
        return sign ? -magnitude : magnitude;
    }
    if (exponent == 31) return std::bit_cast<float>(sign | 0x7F800000u | (mantissa << 13));
    return std::bit_cast<float>(sign | ((exponent + 112) << 23) | (mantissa << 13));
}

template <class T>
double loadAs(const std::byte* p) {
    T v;
    std::memcpy(&v, p, sizeof(T));
    return static_cast<double>(v);
}

void appendUtf8(std::string& out, std::uint32_t cp) {
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// The number of strings in a payload: each ends with a zero unit of `unit` bytes.
std::uint64_t countTerminators(std::span<const std::byte> payload, std::size_t unit) {
    std::uint64_t count = 0;
    for (std::size_t i = 0; i + unit <= payload.size(); i += unit) {
        bool zero = true;
        for (std::size_t k = 0; k < unit; ++k) zero = zero && payload[i + k] == std::byte{0};
        count += zero ? 1 : 0;
    }
    return count;
}

}  // namespace

const PropertyReader* PropertyReader::find(std::string_view name) const {
    for (const PropertyReader& child : children_)
        if (child.header_.name == name) return &child;
    return nullptr;
}

const std::string& PropertyReader::fileName() const { return archive_->file->name(); }

const TimeSampling& PropertyReader::timeSampling() const {
    return archive_->samplings.at(header_.timeSampling).sampling;
}

double PropertyReader::sampleTime(std::uint32_t index) const {
    try {
        return timeSampling().sampleTime(index);
    } catch (const std::out_of_range&) {
        damaged("has sample " + std::to_string(index) + " but its time sampling stores no time for it");
    }
}

void PropertyReader::damaged(const std::string& what) const {
    archive_->file->damaged("'" + path_ + "' " + what);
}

void PropertyReader::wrongElement(std::size_t elementSize) const {
    throw std::invalid_argument("an element of " + std::to_string(elementSize) + " bytes cannot hold '" + path_ +
                                "', whose elements are " + std::to_string(header_.type.extent) + " x " +
                                std::string(podName(header_.type.pod)));
}

SampleView PropertyReader::sample(std::uint32_t index) const {
    if (isCompound()) throw std::invalid_argument("'" + path_ + "' is a compound property and has no samples");
    if (index >= header_.numSamples)
        throw std::out_of_range("'" + path_ + "' has " + std::to_string(header_.numSamples) +
                                " samples; there is no sample " + std::to_string(index));
    const PropertyHeader& h = header_;
    std::size_t slot = 0;
    if (index >= h.firstChanged && h.lastChanged != 0)
        slot = index >= h.lastChanged ? h.lastChanged - h.firstChanged + 1 : index - h.firstChanged + 1;
    const bool isArray = h.kind == PropertyKind::Array;
    const OgawaFile& file = *archive_->file;
    const std::string which = "sample " + std::to_string(index) + " ";

    SampleView view;
    const std::span<const std::byte> block = file.data(entries_[isArray ? 2 * slot : slot].offset());
    if (!block.empty()) {
        if (block.size() < 16) damaged(which + "is shorter than its 16-byte key");
        std::memcpy(view.key.words, block.data(), 16);
        view.payload = block.subspan(16);
    }
    if (isArray) {
        const std::span<const std::byte> dims = file.data(entries_[2 * slot + 1].offset());
        if (dims.size() % 8 != 0) damaged(which + "has dimensions of " + std::to_string(dims.size()) + " bytes");
        view.dims.resize(dims.size() / 8);
        if (!dims.empty()) std::memcpy(view.dims.data(), dims.data(), dims.size());
    }

    std::uint64_t count = 0;
    if (isStringPod(h.type.pod)) {
        const std::size_t unit = h.type.pod == Pod::String ? 1 : 4;
        if (view.payload.size() % unit != 0) damaged(which + "is not a whole number of wide characters");
        if (!view.payload.empty()) {
            for (std::size_t k = 0; k < unit; ++k)
                if (view.payload[view.payload.size() - 1 - k] != std::byte{0})
                    damaged(which + "has a string without its terminating NUL");
        }
        const std::uint64_t strings = countTerminators(view.payload, unit);
        if (strings % h.type.extent != 0)
            damaged(which + "holds " + std::to_string(strings) + " strings, not a multiple of its extent " +
                    std::to_string(h.type.extent));
        count = strings / h.type.extent;
    } else {
        const std::uint64_t elementBytes = podSize(h.type.pod) * h.type.extent;
        if (view.payload.size() % elementBytes != 0)
            damaged(which + "holds " + std::to_string(view.payload.size()) + " bytes, not whole elements of " +
                    std::to_string(elementBytes) + " bytes");
        count = view.payload.size() / elementBytes;
    }
    if (!isArray && count != 1) damaged(which + "holds " + std::to_string(count) + " values where a scalar holds 1");
    if (!view.dims.empty()) {
        std::uint64_t product = 1;
        for (std::uint64_t d : view.dims) {
            if (d != 0 && product > UINT64_MAX / d) damaged(which + "has impossibly large dimensions");
            product *= d;
        }
        if (product != count)
            damaged(which + "has dimensions for " + std::to_string(product) + " elements but holds " +
                    std::to_string(count));
    }
    view.count = count;
    return view;
}

SampleView PropertyReader::typedSample(std::uint32_t index, Pod expected) const {
    if (!isCompound() && header_.type.pod != expected)
        throw AlembicError("'" + fileName() + "': '" + path_ + "' holds " +
                           std::string(podName(header_.type.pod)) + " values where " +
                           std::string(podName(expected)) + " values were expected");
    return sample(index);
}

std::vector<double> decodeNumbers(Pod pod, std::span<const std::byte> bytes) {
    const std::size_t size = podSize(pod);
    if (size == 0) return {};
    std::vector<double> out(bytes.size() / size);
    const std::byte* p = bytes.data();
    for (std::size_t i = 0; i < out.size(); ++i, p += size) {
        switch (pod) {
            case Pod::Bool: out[i] = *p != std::byte{0} ? 1.0 : 0.0; break;
            case Pod::Uint8: out[i] = loadAs<std::uint8_t>(p); break;
            case Pod::Int8: out[i] = loadAs<std::int8_t>(p); break;
            case Pod::Uint16: out[i] = loadAs<std::uint16_t>(p); break;
            case Pod::Int16: out[i] = loadAs<std::int16_t>(p); break;
            case Pod::Uint32: out[i] = loadAs<std::uint32_t>(p); break;
            case Pod::Int32: out[i] = loadAs<std::int32_t>(p); break;
            case Pod::Uint64: out[i] = loadAs<std::uint64_t>(p); break;
            case Pod::Int64: out[i] = loadAs<std::int64_t>(p); break;
            case Pod::Float16: {
                std::uint16_t bits;
                std::memcpy(&bits, p, 2);
                out[i] = halfToFloat(bits);
                break;
            }
            case Pod::Float32: out[i] = loadAs<float>(p); break;
            case Pod::Float64: out[i] = loadAs<double>(p); break;
            default: break;
        }
    }
    return out;
}

std::vector<double> PropertyReader::numbers(std::uint32_t index) const {
    const SampleView view = sample(index);
    if (isStringPod(header_.type.pod))
        throw AlembicError("'" + fileName() + "': '" + path_ + "' holds strings, not numbers");
    return decodeNumbers(header_.type.pod, view.payload);
}

std::vector<std::string> PropertyReader::strings(std::uint32_t index) const {
    const SampleView view = sample(index);
    const Pod pod = header_.type.pod;
    if (!isStringPod(pod))
        throw AlembicError("'" + fileName() + "': '" + path_ + "' holds " +
                           std::string(podName(pod)) + " values, not strings");
    std::vector<std::string> out;
    std::string current;
    if (pod == Pod::String) {
        for (std::byte b : view.payload) {
            if (b == std::byte{0}) {
                out.push_back(std::move(current));
                current.clear();
            } else {
                current += static_cast<char>(b);
            }
        }
        return out;
    }
    for (std::size_t i = 0; i + 4 <= view.payload.size(); i += 4) {
        std::uint32_t unit;
        std::memcpy(&unit, view.payload.data() + i, 4);
        if (unit == 0) {
            out.push_back(std::move(current));
            current.clear();
        } else {
            appendUtf8(current, unit);
        }
    }
    return out;
}

}  // namespace tressora::abc
