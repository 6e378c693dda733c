#include "io/alembic/abc_writer_core.h"

#include <algorithm>
#include <cstring>

#include "io/alembic/abc_hashes.h"

namespace tressora::abc {

namespace {

constexpr std::uint8_t kInlineMetadata = 255;
constexpr std::size_t kMaxTableEntries = 254;
constexpr std::size_t kMaxTableString = 255;

// Header numbers are stored in 1, 2 or 4 bytes, chosen by the largest of them.
void appendSized(std::vector<std::byte>& out, std::uint32_t value, std::uint32_t hint) {
    const std::size_t width = hint == 0 ? 1 : (hint == 1 ? 2 : 4);
    appendBytes(out, &value, width);
}

}  // namespace

void appendBytes(std::vector<std::byte>& out, const void* data, std::size_t count) {
    const auto* bytes = static_cast<const std::byte*>(data);
    out.insert(out.end(), bytes, bytes + count);
}

WriterCore::WriterCore(std::string tmpPath) : file(std::move(tmpPath)) {
    samplings.push_back({TimeSampling::identity(), 0});
    // Every empty sample, of whatever type, is the empty data entry.
    for (std::uint8_t cls = 0; cls < 3; ++cls) {
        const SampleKey empty{0, cls, {}};
        stored_[empty] = StoredSample{empty, kEmptyDataEntry, 0};
    }
}

StoredSample WriterCore::store(const SampleKey& key, std::span<const std::byte> payload, std::uint64_t numValues) {
    if (const auto it = stored_.find(key); it != stored_.end()) return it->second;
    const std::uint64_t entry = file.appendData({std::as_bytes(std::span(key.digest.words)), payload});
    StoredSample sample{key, entry, numValues};
    stored_.emplace(key, sample);
    return sample;
}

std::uint64_t WriterCore::writeUnkeyed(std::span<const std::byte> payload) {
    static constexpr std::byte kZeroKey[16] = {};
    return file.appendData({std::span(kZeroKey), payload});
}

StoredSample WriterCore::keep(const SampleKey& key, std::uint64_t entry, std::uint64_t numValues) {
    if (const auto it = stored_.find(key); it != stored_.end()) {
        discard(entry);
        return it->second;
    }
    file.patch((entry & ~kDataEntryBit) + 8, std::as_bytes(std::span(key.digest.words)));
    StoredSample sample{key, entry, numValues};
    stored_.emplace(key, sample);
    return sample;
}

void WriterCore::discard(std::uint64_t entry) { file.truncate(entry & ~kDataEntryBit); }

std::uint8_t WriterCore::metadataIndex(const std::string& serialized) {
    if (serialized.empty()) return 0;
    if (const auto it = metadataIndices_.find(serialized); it != metadataIndices_.end()) return it->second;
    if (serialized.size() > kMaxTableString || metadataOrder_.size() >= kMaxTableEntries) return kInlineMetadata;
    metadataOrder_.push_back(serialized);
    const auto index = static_cast<std::uint8_t>(metadataOrder_.size());
    metadataIndices_.emplace(serialized, index);
    return index;
}

std::vector<std::byte> WriterCore::metadataTable() const {
    std::vector<std::byte> out;
    for (const std::string& text : metadataOrder_) {
        out.push_back(static_cast<std::byte>(text.size()));
        appendText(out, text);
    }
    return out;
}

void WriterCore::noteSamples(std::uint32_t timeSampling, std::uint32_t count) {
    std::uint32_t& max = samplings.at(timeSampling).maxSamples;
    max = std::max(max, count);
}

void WriterCore::encodePropertyRecord(const PropertyRecord& record, std::vector<std::byte>& out) {
    const std::string metadata = record.metadata.serialize();
    std::uint64_t longest = std::max<std::uint64_t>(metadata.size(), record.name.size());
    if (record.kind != PropertyKind::Compound)
        longest = std::max<std::uint64_t>({longest, record.numSamples, record.timeSampling});
    const std::uint32_t hint = longest < 256 ? 0 : (longest < 65536 ? 1 : 2);
    const std::uint8_t mdIndex = metadataIndex(metadata);

    std::uint32_t info = (hint << 2) | (static_cast<std::uint32_t>(mdIndex) << 20);
    bool storeFirstLast = false;
    if (record.kind != PropertyKind::Compound) {
        info |= static_cast<std::uint32_t>(record.kind);
        if (record.scalarLike) info |= 1;
        info |= static_cast<std::uint32_t>(record.type.pod) << 4;
        if (record.timeSampling != 0) info |= 0x100;
        if (record.firstChanged == 0 && record.lastChanged == 0) {
            info |= 0x800;
        } else if (record.firstChanged != 1 || record.lastChanged + 1 != record.numSamples) {
            info |= 0x200;
            storeFirstLast = true;
        }
        info |= static_cast<std::uint32_t>(record.type.extent) << 12;
        if (record.homogenous) info |= 0x400;
    }
    appendValue(out, info);
    if (record.kind != PropertyKind::Compound) {
        appendSized(out, record.numSamples, hint);
        if (storeFirstLast) {
            appendSized(out, record.firstChanged, hint);
            appendSized(out, record.lastChanged, hint);
        }
        if (record.timeSampling != 0) appendSized(out, record.timeSampling, hint);
    }
    appendSized(out, static_cast<std::uint32_t>(record.name.size()), hint);
    appendText(out, record.name);
    if (mdIndex == kInlineMetadata) {
        appendSized(out, static_cast<std::uint32_t>(metadata.size()), hint);
        appendText(out, metadata);
    }
}

std::vector<std::byte> WriterCore::headerHashBytes(const PropertyRecord& record) const {
    return propertyHashPrefix(record.name, record.metadata.serialize(), record.kind, record.type,
                              samplings.at(record.timeSampling).sampling);
}

void WriterCore::encodeObjectRecord(const std::string& name, const MetaData& metadata, std::vector<std::byte>& out) {
    appendValue(out, static_cast<std::uint32_t>(name.size()));
    appendText(out, name);
    const std::string text = metadata.serialize();
    const std::uint8_t index = metadataIndex(text);
    out.push_back(static_cast<std::byte>(index));
    if (index == kInlineMetadata) {
        appendValue(out, static_cast<std::uint32_t>(text.size()));
        appendText(out, text);
    }
}

}  // namespace tressora::abc
