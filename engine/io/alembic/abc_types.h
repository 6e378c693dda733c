#pragma once
// Plain value types of the Alembic archive layer: element types, 16-byte digests,
// metadata strings and time samplings. Shared by the writer and the reader.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tressora::abc {

static_assert(std::endian::native == std::endian::little,
              "Alembic archives are little-endian and are read and written in place");

/// The element types an Alembic property can hold, with their on-disk codes.
enum class Pod : std::uint8_t {
    Bool = 0, Uint8, Int8, Uint16, Int16, Uint32, Int32, Uint64, Int64,
    Float16, Float32, Float64, String, Wstring
};
inline constexpr int kPodCount = 14;

/// Bytes per value; 0 for the two string types, whose values vary in length.
std::size_t podSize(Pod pod);
/// The library's name of the type ("float32_t", "string"...), used in geometry-param metadata.
std::string_view podName(Pod pod);
inline bool isStringPod(Pod pod) { return pod == Pod::String || pod == Pod::Wstring; }

/// A property's element: `extent` values of one Pod (a point is Float32 x 3).
struct DataType {
    Pod pod = Pod::Float32;
    std::uint8_t extent = 1;
    constexpr bool operator==(const DataType&) const = default;
};

/// The C++ value type of each numeric Pod, for typed reads and writes.
template <class T> struct PodOf;
template <> struct PodOf<bool> { static constexpr Pod value = Pod::Bool; };
template <> struct PodOf<std::uint8_t> { static constexpr Pod value = Pod::Uint8; };
template <> struct PodOf<std::int8_t> { static constexpr Pod value = Pod::Int8; };
template <> struct PodOf<std::uint16_t> { static constexpr Pod value = Pod::Uint16; };
template <> struct PodOf<std::int16_t> { static constexpr Pod value = Pod::Int16; };
template <> struct PodOf<std::uint32_t> { static constexpr Pod value = Pod::Uint32; };
template <> struct PodOf<std::int32_t> { static constexpr Pod value = Pod::Int32; };
template <> struct PodOf<std::uint64_t> { static constexpr Pod value = Pod::Uint64; };
template <> struct PodOf<std::int64_t> { static constexpr Pod value = Pod::Int64; };
template <> struct PodOf<float> { static constexpr Pod value = Pod::Float32; };
template <> struct PodOf<double> { static constexpr Pod value = Pod::Float64; };

/// A 128-bit hash as two little-endian 64-bit words, as stored in sample keys and object records.
struct Digest {
    std::uint64_t words[2] = {0, 0};
    constexpr bool operator==(const Digest&) const = default;
    bool isZero() const { return words[0] == 0 && words[1] == 0; }
    /// 32 lowercase hexadecimal digits of the 16 bytes in file order.
    std::string hex() const;
};

/// Object and property metadata: key=value pairs kept sorted by key, as the format stores them.
class MetaData {
public:
    MetaData() = default;
    /// Parses "k1=v1;k2=v2"; a piece without '=' is dropped, a later duplicate key wins.
    static MetaData parse(std::string_view text);

    /// Sets a key; an empty value removes it (the format never stores empty values).
    void set(const std::string& key, const std::string& value);
    /// The value of a key, or "" when absent.
    std::string get(const std::string& key) const;
    bool has(const std::string& key) const { return pairs_.count(key) != 0; }
    bool empty() const { return pairs_.empty(); }
    const std::map<std::string, std::string>& pairs() const { return pairs_; }

    /// "k1=v1;k2=v2" with keys in ascending byte order: the stored form, also hashed.
    std::string serialize() const;
    bool operator==(const MetaData&) const = default;

private:
    std::map<std::string, std::string> pairs_;
};

/// When the samples of a property were taken. Uniform: one stored time (the first sample's)
/// and a time per sample. Cyclic: several stored times repeating every timePerCycle.
/// Acyclic: every sample's time stored, timePerCycle is kAcyclicTimePerCycle.
struct TimeSampling {
    double timePerCycle = 1.0;
    std::vector<double> storedTimes{0.0};

    static constexpr double kAcyclicTimePerCycle = std::numeric_limits<double>::max() / 32.0;

    /// The default sampling every archive holds at index 0: start 0, one second per sample.
    static TimeSampling identity() { return {}; }
    /// Samples every `secondsPerSample`, the first at `startTime`.
    static TimeSampling uniform(double secondsPerSample, double startTime);
    /// Samples at the given times (strictly increasing, at least one).
    static TimeSampling acyclic(std::vector<double> times);

    bool isAcyclic() const { return timePerCycle == kAcyclicTimePerCycle; }
    bool isUniform() const { return !isAcyclic() && storedTimes.size() == 1; }
    bool isCyclic() const { return !isAcyclic() && storedTimes.size() > 1; }
    /// "uniform", "cyclic" or "acyclic".
    std::string_view kind() const;

    /// The time of sample `index`, computed as the library does (start + index * timePerCycle for
    /// uniform sampling). An acyclic index past the stored times throws std::out_of_range.
    double sampleTime(std::uint64_t index) const;
    bool operator==(const TimeSampling&) const = default;
};

/// A time sampling as an archive lists it: the sampling and the largest sample count of any
/// property using it.
struct TimeSamplingRecord {
    TimeSampling sampling;
    std::uint32_t maxSamples = 0;
};

/// What a property is.
enum class PropertyKind : std::uint8_t { Compound = 0, Scalar = 1, Array = 2 };

}  // namespace tressora::abc
