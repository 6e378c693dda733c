#include "groom/number_arrays.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <algorithm>
#include <limits>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "core/parallel.h"

namespace tressora {

namespace {

constexpr std::string_view kMarkerPrefix = "@tressora.floats:";
// Floats per formatting chunk: large enough to pay for a task, small enough to spread.
constexpr std::size_t kChunk = 16384;
// The longest text writeFloatText makes is a double's shortest form (24 characters).
constexpr std::size_t kMaxNumberText = 32;

[[noreturn]] void failNonFinite(std::string_view path, std::size_t index) {
    throw GroomFileError("groom file: '" + std::string(path) + "' holds a non-finite value at index " +
                         std::to_string(index));
}

// Formats `count` values given by at(i) with write(out, value) into "[...]", in parallel
// chunks joined in order. `check(i)` answers whether value i may be written; the first index
// that may not is reported through fail.
template <class At, class Write, class Check, class Fail>
std::string formatArray(std::size_t count, At&& at, Write&& write, Check&& check, Fail&& fail) {
    const std::size_t chunks = (count + kChunk - 1) / kChunk;
    std::vector<std::string> texts(chunks);
    std::vector<std::size_t> firstBad(chunks, std::numeric_limits<std::size_t>::max());
    parallelRange(0, chunks, 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t c = lo; c < hi; ++c) {
            const std::size_t begin = c * kChunk, end = std::min(count, begin + kChunk);
            std::string& text = texts[c];
            text.resize((end - begin) * (kMaxNumberText + 1));
            char* out = text.data();
            for (std::size_t i = begin; i < end; ++i) {
                if (!check(i)) {
                    firstBad[c] = i;
                    break;
                }
                if (i != 0) *out++ = ',';
                out = write(out, at(i));
            }
            text.resize(static_cast<std::size_t>(out - text.data()));
        }
    });
    for (std::size_t c = 0; c < chunks; ++c)
        if (firstBad[c] != std::numeric_limits<std::size_t>::max()) fail(firstBad[c]);

    std::size_t size = 2;
    for (const std::string& t : texts) size += t.size();
    std::string result;
    result.reserve(size);
    result += '[';
    for (const std::string& t : texts) result += t;
    result += ']';
    return result;
}

std::string floatsText(const float* values, std::size_t count, std::string_view path) {
    return formatArray(
        count, [values](std::size_t i) { return values[i]; }, writeFloatText,
        [values](std::size_t i) { return std::isfinite(values[i]); },
        [path](std::size_t i) { failNonFinite(path, i); });
}

[[noreturn]] void failTuples(const std::string& path, std::size_t tuple) {
    throw GroomFileError("groom file: '" + path + "' must be an array of " + std::to_string(tuple) + "-tuples");
}

template <std::size_t N>
std::vector<std::array<float, N>> readTuples(const nlohmann::json& value, const std::string& path) {
    const std::vector<float> flat = readFloats(value, path, N);
    std::vector<std::array<float, N>> out(flat.size() / N);
    if (!flat.empty()) std::memcpy(out.data(), flat.data(), flat.size() * sizeof(float));
    return out;
}

template <class Index>
std::string indicesText(const Index* values, std::size_t count) {
    return formatArray(
        count, [values](std::size_t i) { return values[i]; },
        [](char* out, Index v) { return std::to_chars(out, out + kMaxNumberText, v).ptr; },
        [](std::size_t) { return true; }, [](std::size_t) {});
}

template <class Index>
std::vector<std::array<Index, 3>> readTriples(const nlohmann::json& value, const std::string& meshPath,
                                              std::size_t pointCount) {
    const GroomFileError bad("groom file: bad " + meshPath + ".triangles");
    if (!value.is_array() || value.size() % 3 != 0) throw bad;
    const auto& elements = value.get_ref<const nlohmann::json::array_t&>();
    const std::uint64_t limit =
        std::min<std::uint64_t>(pointCount, static_cast<std::uint64_t>(std::numeric_limits<Index>::max()) + 1);
    std::vector<std::array<Index, 3>> out(elements.size() / 3);
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const nlohmann::json& e = elements[i];
        // Negative or fractional numbers are no indices.
        if (!e.is_number_unsigned() || e.get_ref<const std::uint64_t&>() >= limit) throw bad;
        out[i / 3][i % 3] = static_cast<Index>(e.get_ref<const std::uint64_t&>());
    }
    return out;
}

}  // namespace

char* writeFloatText(char* out, float value) {
    if (value == 0.0f && std::signbit(value)) {
        std::memcpy(out, "-0.0", 4);
        return out + 4;
    }
    char* end = std::to_chars(out, out + kMaxNumberText, value).ptr;
    // A reader parses the text as a double and rounds that to float: check the short form
    // survives both steps, else write the double, which reads back exactly.
    double back = 0.0;
    std::from_chars(out, end, back);
    if (std::bit_cast<std::uint32_t>(static_cast<float>(back)) == std::bit_cast<std::uint32_t>(value)) return end;
    return std::to_chars(out, out + kMaxNumberText, static_cast<double>(value)).ptr;
}

std::string floatArrayText(std::span<const float> values, std::string_view path) {
    return floatsText(values.data(), values.size(), path);
}

std::string floatArrayText(std::span<const Vec3f> values, std::string_view path) {
    static_assert(sizeof(Vec3f) == 3 * sizeof(float));
    return floatsText(reinterpret_cast<const float*>(values.data()), values.size() * 3, path);
}

std::string floatArrayText(std::span<const std::array<float, 2>> values, std::string_view path) {
    return floatsText(values.empty() ? nullptr : values.front().data(), values.size() * 2, path);
}

std::string floatArrayText(std::span<const std::array<float, 4>> values, std::string_view path) {
    return floatsText(values.empty() ? nullptr : values.front().data(), values.size() * 4, path);
}

std::string indexArrayText(std::span<const std::array<std::int32_t, 3>> triangles) {
    return indicesText(triangles.empty() ? nullptr : triangles.front().data(), triangles.size() * 3);
}

std::string indexArrayText(std::span<const std::array<std::uint32_t, 3>> triangles) {
    return indicesText(triangles.empty() ? nullptr : triangles.front().data(), triangles.size() * 3);
}

nlohmann::ordered_json ArraySplice::add(std::string text) {
    if (inline_) return nlohmann::ordered_json::parse(text);
    texts_.push_back(std::move(text));
    return std::string(kMarkerPrefix) + std::to_string(texts_.size() - 1);
}

bool ArraySplice::splice(std::string_view dumped, std::string& out) const {
    std::string quoted(1, '"');
    quoted += kMarkerPrefix;
    std::size_t found = 0, extra = 0;
    for (std::size_t at = dumped.find(quoted); at != std::string_view::npos; at = dumped.find(quoted, at + 1)) ++found;
    if (found != texts_.size()) return false;
    for (const std::string& t : texts_) extra += t.size();

    std::string result;
    result.reserve(dumped.size() + extra);
    std::size_t from = 0;
    for (std::size_t at = dumped.find(quoted); at != std::string_view::npos; at = dumped.find(quoted, from)) {
        result.append(dumped.substr(from, at - from));
        const std::size_t digits = at + quoted.size();
        std::size_t index = 0;
        const auto parsed = std::from_chars(dumped.data() + digits, dumped.data() + dumped.size(), index);
        if (parsed.ec != std::errc() || *parsed.ptr != '"' || index >= texts_.size()) return false;
        result += texts_[index];
        from = static_cast<std::size_t>(parsed.ptr - dumped.data()) + 1;
    }
    result.append(dumped.substr(from));
    out = std::move(result);
    return true;
}

std::vector<float> readFloats(const nlohmann::json& value, const std::string& path, std::size_t tuple) {
    if (!value.is_array() || value.size() % tuple != 0) failTuples(path, tuple);
    const auto& elements = value.get_ref<const nlohmann::json::array_t&>();
    std::vector<float> out(elements.size());
    // Above the largest float, numbers up to the rounding boundary still read as it.
    constexpr double kLargest = std::numeric_limits<float>::max();
    constexpr double kBoundary = 0x1.ffffffp127;
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const nlohmann::json& e = elements[i];
        double d = 0.0;
        if (e.is_number_float()) d = e.get_ref<const double&>();
        else if (e.is_number_unsigned()) d = static_cast<double>(e.get_ref<const std::uint64_t&>());
        else if (e.is_number_integer()) d = static_cast<double>(e.get_ref<const std::int64_t&>());
        else throw GroomFileError("groom file: '" + path + "' must hold numbers");
        if (!(std::fabs(d) < kBoundary))
            throw GroomFileError("groom file: '" + path + "' holds a number beyond single precision at index " +
                                 std::to_string(i));
        out[i] = static_cast<float>(std::clamp(d, -kLargest, kLargest));
    }
    return out;
}

std::vector<Vec3f> readPoints(const nlohmann::json& value, const std::string& path) {
    const std::vector<float> flat = readFloats(value, path, 3);
    std::vector<Vec3f> out(flat.size() / 3);
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = {flat[3 * i], flat[3 * i + 1], flat[3 * i + 2]};
    return out;
}

std::vector<std::array<float, 2>> readPairs(const nlohmann::json& value, const std::string& path) {
    return readTuples<2>(value, path);
}

std::vector<std::array<float, 4>> readQuads(const nlohmann::json& value, const std::string& path) {
    return readTuples<4>(value, path);
}

std::vector<std::array<std::int32_t, 3>> readTriangles(const nlohmann::json& value, const std::string& meshPath,
                                                       std::size_t pointCount) {
    return readTriples<std::int32_t>(value, meshPath, pointCount);
}

std::vector<std::array<std::uint32_t, 3>> readUnsignedTriangles(const nlohmann::json& value, const std::string& meshPath,
                                                                std::size_t pointCount) {
    return readTriples<std::uint32_t>(value, meshPath, pointCount);
}

}  // namespace tressora
