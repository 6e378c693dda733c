#pragma once
// State shared by every writer of one archive: the Ogawa file, the map of samples already on
// disk (identical samples are stored once, whatever property or type they came from), the
// indexed-metadata table, the time samplings with their largest sample counts, and the
// encoders for the header records the format stores. Internal to the archive writer.

#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "io/alembic/abc_types.h"
#include "io/alembic/ogawa_writer.h"

namespace tressora::abc {

/// What identifies a stored sample: its byte count, whether it holds (w)strings, and the
/// MurmurHash3 of its payload. Numeric types share one class, so equal bytes are shared.
struct SampleKey {
    std::uint64_t numBytes = 0;
    std::uint8_t stringClass = 0;  // 0 numeric, 1 string, 2 wstring
    Digest digest;
    bool operator==(const SampleKey&) const = default;
};

/// A sample already in the file: its data entry and the value count recorded with it
/// (extent times elements of the first property that stored it).
struct StoredSample {
    SampleKey key;
    std::uint64_t entry = kEmptyDataEntry;
    std::uint64_t numValues = 0;
};

/// The fields of one property-header record (also what its hash covers).
struct PropertyRecord {
    std::string name;
    PropertyKind kind = PropertyKind::Compound;
    MetaData metadata;
    DataType type;
    std::uint32_t timeSampling = 0;
    std::uint32_t numSamples = 0;
    std::uint32_t firstChanged = 0;
    std::uint32_t lastChanged = 0;
    bool scalarLike = true;
    bool homogenous = true;
};

class WriterCore {
public:
    explicit WriterCore(std::string tmpPath);

    OgawaWriter file;
    std::vector<TimeSamplingRecord> samplings;

    /// The stored sample for `key`, writing `payload` (after its 16-byte key) the first time.
    StoredSample store(const SampleKey& key, std::span<const std::byte> payload, std::uint64_t numValues);

    /// Large samples are written while their key is computed: the block goes to the file with
    /// a zero key (writeUnkeyed), and once the key is known it is either kept, with the key
    /// written in place (keep), or removed again (discard) because an equal sample is stored.
    /// The file ends up byte-identical to store(). Nothing else may be appended in between.
    std::uint64_t writeUnkeyed(std::span<const std::byte> payload);
    StoredSample keep(const SampleKey& key, std::uint64_t entry, std::uint64_t numValues);
    void discard(std::uint64_t entry);

    /// The table index of a serialized metadata string: 0 for empty, 1..254 from the table
    /// (added on first use when shorter than 256 bytes and the table has room), 255 for inline.
    std::uint8_t metadataIndex(const std::string& serialized);
    /// The table as stored in the archive: for each entry, one length byte and its bytes.
    std::vector<std::byte> metadataTable() const;

    /// Raises the largest sample count of a time sampling.
    void noteSamples(std::uint32_t timeSampling, std::uint32_t count);

    /// Appends the header record of one property to `out`, as its parent compound stores it.
    void encodePropertyRecord(const PropertyRecord& record, std::vector<std::byte>& out);
    /// The bytes a property's hash starts with: name, metadata and, for scalars and arrays,
    /// type and time sampling.
    std::vector<std::byte> headerHashBytes(const PropertyRecord& record) const;
    /// Appends an object's header record (name and metadata) to `out`.
    void encodeObjectRecord(const std::string& name, const MetaData& metadata, std::vector<std::byte>& out);

private:
    struct KeyHash {
        std::size_t operator()(const SampleKey& k) const { return k.digest.words[0] ^ k.numBytes; }
    };
    std::unordered_map<SampleKey, StoredSample, KeyHash> stored_;
    std::unordered_map<std::string, std::uint8_t> metadataIndices_;
    std::vector<std::string> metadataOrder_;
};

/// Appends raw bytes of a trivially copyable value or string to a byte vector.
void appendBytes(std::vector<std::byte>& out, const void* data, std::size_t count);
inline void appendText(std::vector<std::byte>& out, const std::string& text) {
    appendBytes(out, text.data(), text.size());
}
template <class T>
void appendValue(std::vector<std::byte>& out, const T& value) {
    appendBytes(out, &value, sizeof(T));
}

}  // namespace tressora::abc
