#include "io/alembic/abc_types.h"

#include <cstring>
#include <stdexcept>

namespace tressora::abc {

namespace {

struct PodInfo {
    std::size_t size;
    std::string_view name;
};

constexpr PodInfo kPods[kPodCount] = {
    {1, "bool_t"},    {1, "uint8_t"},   {1, "int8_t"},    {2, "uint16_t"}, {2, "int16_t"},
    {4, "uint32_t"},  {4, "int32_t"},   {8, "uint64_t"},  {8, "int64_t"},  {2, "float16_t"},
    {4, "float32_t"}, {8, "float64_t"}, {0, "string"},    {0, "wstring"},
};

}  // namespace

std::size_t podSize(Pod pod) { return kPods[static_cast<int>(pod)].size; }

std::string_view podName(Pod pod) { return kPods[static_cast<int>(pod)].name; }

std::string Digest::hex() const {
    static constexpr char kDigits[] = "0123456789abcdef";
    unsigned char bytes[16];
    std::memcpy(bytes, words, 16);
    std::string out(32, '0');
    for (int i = 0; i < 16; ++i) {
        out[2 * i] = kDigits[bytes[i] >> 4];
        out[2 * i + 1] = kDigits[bytes[i] & 15];
    }
    return out;
}

MetaData MetaData::parse(std::string_view text) {
    MetaData md;
    while (!text.empty()) {
        const std::size_t end = text.find(';');
        const std::string_view piece = text.substr(0, end);
        const std::size_t eq = piece.find('=');
        if (eq != std::string_view::npos)
            md.set(std::string(piece.substr(0, eq)), std::string(piece.substr(eq + 1)));
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return md;
}

void MetaData::set(const std::string& key, const std::string& value) {
    if (value.empty())
        pairs_.erase(key);
    else
        pairs_[key] = value;
}

std::string MetaData::get(const std::string& key) const {
    const auto it = pairs_.find(key);
    return it == pairs_.end() ? std::string() : it->second;
}

std::string MetaData::serialize() const {
    std::string out;
    for (const auto& [key, value] : pairs_) {
        if (!out.empty()) out += ';';
        out += key;
        out += '=';
        out += value;
    }
    return out;
}

TimeSampling TimeSampling::uniform(double secondsPerSample, double startTime) {
    return {secondsPerSample, {startTime}};
}

TimeSampling TimeSampling::acyclic(std::vector<double> times) {
    return {kAcyclicTimePerCycle, std::move(times)};
}

std::string_view TimeSampling::kind() const {
    if (isAcyclic()) return "acyclic";
    return storedTimes.size() > 1 ? "cyclic" : "uniform";
}

double TimeSampling::sampleTime(std::uint64_t index) const {
    if (storedTimes.empty()) throw std::out_of_range("a time sampling without stored times");
    if (isAcyclic()) {
        if (index >= storedTimes.size())
            throw std::out_of_range("sample " + std::to_string(index) + " has no stored time");
        return storedTimes[index];
    }
    const std::uint64_t perCycle = storedTimes.size();
    return storedTimes[index % perCycle] + timePerCycle * static_cast<double>(index / perCycle);
}

}  // namespace tressora::abc
