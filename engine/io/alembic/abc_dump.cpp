#include "io/alembic/abc_dump.h"

#include <charconv>
#include <initializer_list>
#include <string_view>
#include <cstring>

namespace tressora::abc {

namespace {

std::string_view kindName(PropertyKind kind) {
    switch (kind) {
        case PropertyKind::Compound: return "compound";
        case PropertyKind::Scalar: return "scalar";
        case PropertyKind::Array: return "array";
    }
    return "?";
}

template <class T>
std::string shortest(T value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

template <class T>
std::string integerAt(const std::byte* p) {
    T v;
    std::memcpy(&v, p, sizeof(T));
    return std::to_string(v);
}

// One value of a numeric sample, by its stored type (floats keep their own precision).
std::string valueAt(Pod pod, const std::byte* p) {
    switch (pod) {
        case Pod::Bool: return *p != std::byte{0} ? "true" : "false";
        case Pod::Uint8: return integerAt<std::uint8_t>(p);
        case Pod::Int8: return integerAt<std::int8_t>(p);
        case Pod::Uint16: return integerAt<std::uint16_t>(p);
        case Pod::Int16: return integerAt<std::int16_t>(p);
        case Pod::Uint32: return integerAt<std::uint32_t>(p);
        case Pod::Int32: return integerAt<std::int32_t>(p);
        case Pod::Uint64: return integerAt<std::uint64_t>(p);
        case Pod::Int64: return integerAt<std::int64_t>(p);
        case Pod::Float16: return "half:" + integerAt<std::uint16_t>(p);
        case Pod::Float32: {
            float v;
            std::memcpy(&v, p, 4);
            return shortest(v);
        }
        case Pod::Float64: {
            double v;
            std::memcpy(&v, p, 8);
            return shortest(v);
        }
        default: return "?";
    }
}

class Dumper {
public:
    Dumper(const ArchiveReader& archive, const DumpOptions& options) : archive_(archive), options_(options) {}

    std::string run() {
        put({"archive libraryVersion=", std::to_string(archive_.libraryVersion()), "\n"});
        put({"metadata {", archive_.metadata().serialize(), "}\n"});
        const auto& samplings = archive_.timeSamplings();
        for (std::size_t i = 0; i < samplings.size(); ++i) {
            const TimeSampling& ts = samplings[i].sampling;
            put({"timeSampling ", std::to_string(i), " ", ts.kind(), " timePerCycle=", shortest(ts.timePerCycle),
                 " times=["});
            for (std::size_t k = 0; k < ts.storedTimes.size(); ++k) {
                if (k) out_ += ',';
                out_ += shortest(ts.storedTimes[k]);
            }
            put({"] maxSamples=", std::to_string(samplings[i].maxSamples), "\n"});
        }
        object(archive_.top(), 0);
        return std::move(out_);
    }

private:
    void put(std::initializer_list<std::string_view> pieces) {
        for (std::string_view piece : pieces) out_ += piece;
    }
    void indent(int depth) { out_.append(static_cast<std::size_t>(depth) * 2, ' '); }

    void object(const ObjectReader& obj, int depth) {
        indent(depth);
        put({"object ", obj.fullName(), " {", obj.metadata().serialize(), "} hashes=", obj.propertiesHash().hex(), "/",
             obj.childrenHash().hex(), "\n"});
        for (const PropertyReader& p : obj.properties().children()) property(p, depth + 1);
        for (const ObjectReader& child : obj.children()) object(child, depth + 1);
    }

    void property(const PropertyReader& p, int depth) {
        const PropertyHeader& h = p.header();
        indent(depth);
        put({kindName(h.kind), " ", h.name});
        if (h.kind != PropertyKind::Compound) {
            put({" ", podName(h.type.pod), "[", std::to_string(h.type.extent), "] ts=", std::to_string(h.timeSampling),
                 " samples=", std::to_string(h.numSamples), " changed=", std::to_string(h.firstChanged), "..",
                 std::to_string(h.lastChanged), h.scalarLike ? " scalarLike" : "", h.homogenous ? " homogenous" : ""});
        }
        put({" {", h.metadata.serialize(), "}\n"});
        if (h.kind == PropertyKind::Compound) {
            for (const PropertyReader& child : p.children()) property(child, depth + 1);
            return;
        }
        for (std::uint32_t i = 0; i < h.numSamples; ++i) sample(p, i, depth + 1);
    }

    void sample(const PropertyReader& p, std::uint32_t index, int depth) {
        const SampleView view = p.sample(index);
        indent(depth);
        put({"sample ", std::to_string(index), " key=", view.key.hex(), " count=", std::to_string(view.count)});
        if (!view.dims.empty()) {
            out_ += " dims=";
            for (std::size_t k = 0; k < view.dims.size(); ++k) {
                if (k) out_ += 'x';
                out_ += std::to_string(view.dims[k]);
            }
        }
        if (options_.values) {
            out_ += " values=[";
            const Pod pod = p.type().pod;
            const std::size_t limit = options_.maxValuesPerSample;
            if (isStringPod(pod)) {
                const std::vector<std::string> strings = p.strings(index);
                for (std::size_t k = 0; k < strings.size() && (limit == 0 || k < limit); ++k) {
                    if (k) out_ += ',';
                    out_ += '"';
                    out_ += strings[k];
                    out_ += '"';
                }
            } else {
                const std::size_t size = podSize(pod);
                const std::size_t n = view.payload.size() / size;
                for (std::size_t k = 0; k < n && (limit == 0 || k < limit); ++k) {
                    if (k) out_ += ',';
                    out_ += valueAt(pod, view.payload.data() + k * size);
                }
            }
            out_ += "]";
        }
        out_ += "\n";
    }

    const ArchiveReader& archive_;
    const DumpOptions& options_;
    std::string out_;
};

}  // namespace

std::string dumpArchive(const ArchiveReader& archive, const DumpOptions& options) {
    return Dumper(archive, options).run();
}

std::string formatNumber(double value) { return shortest(value); }
std::string formatNumber(float value) { return shortest(value); }

}  // namespace tressora::abc
