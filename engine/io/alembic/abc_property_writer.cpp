// Scalar, array and compound property writers.

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "core/parallel.h"
#include "io/alembic/abc_hashes.h"
#include "io/alembic/abc_writer.h"

namespace tressora::abc {

namespace {

// Joins strings as the format stores them: each followed by one NUL.
std::vector<std::byte> joinStrings(std::span<const std::string> values, const std::string& path) {
    std::vector<std::byte> out;
    for (const std::string& s : values) {
        if (s.find('\0') != std::string::npos)
            throw std::invalid_argument("a string written to '" + path + "' holds a NUL character");
        appendText(out, s);
        out.push_back(std::byte{0});
    }
    return out;
}

void checkName(const std::string& name, const std::string& where) {
    if (name.empty()) throw std::invalid_argument("a property of '" + where + "' needs a name");
    if (name.find('/') != std::string::npos)
        throw std::invalid_argument("the property name '" + name + "' of '" + where + "' contains '/'");
}

PropertyRecord compoundRecord(std::string name, MetaData metadata) {
    PropertyRecord record;
    record.name = std::move(name);
    record.metadata = std::move(metadata);
    return record;
}

// Samples at least this large are hashed and written at the same time.
constexpr std::size_t kOverlapBytes = 1 << 20;

}  // namespace

// ---- PropertyWriter --------------------------------------------------------------------------

PropertyWriter::PropertyWriter(WriterCore& core, std::string path, PropertyRecord record)
    : core_(core), path_(std::move(path)), record_(std::move(record)) {}

void PropertyWriter::requireOpen() const {
    if (closed_) throw std::logic_error("the property '" + path_ + "' is already closed");
}

// ---- SampledWriter ---------------------------------------------------------------------------

SampledWriter::SampledWriter(WriterCore& core, std::string path, PropertyRecord record)
    : PropertyWriter(core, std::move(path), std::move(record)) {}

void SampledWriter::checkTime() const {
    requireOpen();
    const TimeSampling& ts = core_.samplings.at(record_.timeSampling).sampling;
    if (ts.isAcyclic() && record_.numSamples >= ts.storedTimes.size())
        throw std::invalid_argument("'" + path_ + "' has a sample for each of its " +
                                    std::to_string(ts.storedTimes.size()) + " times already");
    if (record_.numSamples == UINT32_MAX)
        throw std::invalid_argument("'" + path_ + "' cannot hold more samples");
}

std::uint64_t SampledWriter::dimsEntry(std::uint64_t count) {
    // Numeric arrays leave their length to the payload size; string arrays store it.
    if (record_.kind == PropertyKind::Scalar) return 0;
    if (!isStringPod(record_.type.pod)) return kEmptyDataEntry;
    return core_.file.appendData(std::as_bytes(std::span(&count, 1)));
}

void SampledWriter::writeSample(std::span<const std::byte> payload, std::uint64_t count, std::uint8_t stringClass) {
    SampleKey key{payload.size(), stringClass, {}};
    // Large numeric samples are hashed while they are written (numeric arrays write nothing
    // else for a sample, so the block can still be taken back).
    std::uint64_t unkeyed = 0;
    if (payload.size() >= kOverlapBytes && stringClass == 0) {
        parallelRange(0, 2, 1, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t task = lo; task < hi; ++task) {
                if (task == 0)
                    key.digest = murmur3(payload);
                else
                    unkeyed = core_.writeUnkeyed(payload);
            }
        });
    } else {
        key.digest = murmur3(payload);
    }
    const bool isArray = record_.kind == PropertyKind::Array;
    if (record_.numSamples != 0 && key == previous_.key && unkeyed != 0) core_.discard(unkeyed);
    if (record_.numSamples == 0 || !(key == previous_.key)) {
        // Repeats since the last change get slots of their own once the values change again.
        if (record_.firstChanged != 0) {
            for (std::uint32_t i = record_.lastChanged + 1; i < record_.numSamples; ++i) {
                entries_.push_back(previous_.entry);
                if (isArray) entries_.push_back(dimsEntry(previousCount_));
            }
        }
        previous_ = unkeyed != 0 ? core_.keep(key, unkeyed, count * record_.type.extent)
                                 : core_.store(key, payload, count * record_.type.extent);
        previousCount_ = count;
        entries_.push_back(previous_.entry);
        if (isArray) entries_.push_back(dimsEntry(count));
        if (isArray && count != 1) record_.scalarLike = false;
        if (isArray && count != previous_.numValues) record_.homogenous = false;
        if (record_.firstChanged == 0) record_.firstChanged = record_.numSamples;
        record_.lastChanged = record_.numSamples;
    }
    foldDigest();
}

// Folds the current sample's digest into the property's hash chain and counts the sample.
void SampledWriter::foldDigest() {
    Digest digest = previous_.key.digest;
    if (record_.kind == PropertyKind::Array) {
        // Arrays hash their dimensions (rank 1: the element count) with the key.
        std::byte bytes[24];
        std::memcpy(bytes, &previousCount_, 8);
        std::memcpy(bytes + 8, digest.words, 16);
        digest = spooky(bytes);
    }
    chain_ = record_.numSamples == 0 ? digest : spookyFold(chain_, digest);
    ++record_.numSamples;
}

void SampledWriter::writeRepeat() {
    checkTime();
    if (record_.numSamples == 0)
        throw std::logic_error("'" + path_ + "' has no sample to repeat");
    foldDigest();
}

void SampledWriter::close() {
    if (closed_) return;
    closed_ = true;
    // A property whose samples never changed counts as one sample for the archive's time range.
    const std::uint32_t counted =
        (record_.lastChanged == 0 && record_.numSamples > 0) ? 1 : record_.numSamples;
    core_.noteSamples(record_.timeSampling, counted);
    std::vector<std::byte> bytes = core_.headerHashBytes(record_);
    if (counted != 0) appendBytes(bytes, chain_.words, 16);
    hash_ = spooky(bytes);
    groupEntry_ = core_.file.appendGroup(entries_);
    entries_ = {};
}

// ---- ScalarWriter ----------------------------------------------------------------------------

ScalarWriter::ScalarWriter(WriterCore& core, std::string path, PropertyRecord record)
    : SampledWriter(core, std::move(path), std::move(record)) {}

void ScalarWriter::checkPod(Pod pod, std::size_t count) const {
    if (pod != type().pod || count != type().extent)
        throw std::invalid_argument("'" + path_ + "' takes " + std::to_string(type().extent) + " value(s) of " +
                                    std::string(podName(type().pod)) + " per sample, not " +
                                    std::to_string(count) + " of " + std::string(podName(pod)));
}

void ScalarWriter::write(std::span<const std::byte> value) {
    checkTime();
    if (isStringPod(type().pod))
        throw std::invalid_argument("'" + path_ + "' holds strings; write them with writeStrings");
    if (value.size() != podSize(type().pod) * type().extent)
        throw std::invalid_argument("a sample of '" + path_ + "' is " +
                                    std::to_string(podSize(type().pod) * type().extent) + " bytes, not " +
                                    std::to_string(value.size()));
    writeSample(value, 1, 0);
}

void ScalarWriter::writeStrings(std::span<const std::string> values) {
    checkTime();
    if (type().pod != Pod::String || values.size() != type().extent)
        throw std::invalid_argument("'" + path_ + "' takes " + std::to_string(type().extent) +
                                    " value(s) of " + std::string(podName(type().pod)) + " per sample");
    writeSample(joinStrings(values, path_), 1, 1);
}

// ---- ArrayWriter -----------------------------------------------------------------------------

ArrayWriter::ArrayWriter(WriterCore& core, std::string path, PropertyRecord record)
    : SampledWriter(core, std::move(path), std::move(record)) {}

void ArrayWriter::checkPod(Pod pod) const {
    if (pod != type().pod)
        throw std::invalid_argument("'" + path_ + "' holds " + std::string(podName(type().pod)) + ", not " +
                                    std::string(podName(pod)));
}

void ArrayWriter::write(std::span<const std::byte> bytes, std::uint64_t count) {
    checkTime();
    if (isStringPod(type().pod))
        throw std::invalid_argument("'" + path_ + "' holds strings; write them with writeStrings");
    const std::uint64_t elementBytes = podSize(type().pod) * type().extent;
    if (bytes.size() % elementBytes != 0 || bytes.size() / elementBytes != count)
        throw std::invalid_argument("a sample of '" + path_ + "' with " + std::to_string(count) +
                                    " element(s) needs " + std::to_string(count * elementBytes) +
                                    " bytes, not " + std::to_string(bytes.size()));
    writeSample(bytes, count, 0);
}

void ArrayWriter::writeStrings(std::span<const std::string> values) {
    checkTime();
    if (type().pod != Pod::String)
        throw std::invalid_argument("'" + path_ + "' holds " + std::string(podName(type().pod)) + ", not strings");
    if (values.size() % type().extent != 0)
        throw std::invalid_argument("a sample of '" + path_ + "' needs a multiple of " +
                                    std::to_string(type().extent) + " strings");
    writeSample(joinStrings(values, path_), values.size() / type().extent, 1);
}

// ---- CompoundWriter --------------------------------------------------------------------------

CompoundWriter::CompoundWriter(WriterCore& core, std::string path, std::string name, MetaData metadata)
    : PropertyWriter(core, std::move(path), compoundRecord(std::move(name), std::move(metadata))) {}

PropertyRecord CompoundWriter::childRecord(std::string& name, PropertyKind kind, DataType type, MetaData metadata,
                                           std::uint32_t timeSampling) {
    requireOpen();
    checkName(name, path_);
    if (find(name)) throw std::invalid_argument("'" + path_ + "' already has a property named '" + name + "'");
    if (kind != PropertyKind::Compound) {
        if (type.extent == 0) throw std::invalid_argument("the property '" + name + "' needs an extent of 1 or more");
        if (timeSampling >= core_.samplings.size())
            throw std::invalid_argument("the property '" + name + "' names time sampling " +
                                        std::to_string(timeSampling) + ", which the archive does not have");
    }
    PropertyRecord record;
    record.name = name;
    record.kind = kind;
    record.metadata = std::move(metadata);
    record.type = type;
    record.timeSampling = timeSampling;
    return record;
}

ScalarWriter& CompoundWriter::addScalar(std::string name, DataType type, MetaData metadata,
                                        std::uint32_t timeSampling) {
    PropertyRecord record = childRecord(name, PropertyKind::Scalar, type, std::move(metadata), timeSampling);
    auto child = std::make_unique<ScalarWriter>(core_, path_ + "/" + name, std::move(record));
    ScalarWriter& ref = *child;
    children_.push_back(std::move(child));
    return ref;
}

ArrayWriter& CompoundWriter::addArray(std::string name, DataType type, MetaData metadata, std::uint32_t timeSampling) {
    PropertyRecord record = childRecord(name, PropertyKind::Array, type, std::move(metadata), timeSampling);
    auto child = std::make_unique<ArrayWriter>(core_, path_ + "/" + name, std::move(record));
    ArrayWriter& ref = *child;
    children_.push_back(std::move(child));
    return ref;
}

CompoundWriter& CompoundWriter::addCompound(std::string name, MetaData metadata) {
    childRecord(name, PropertyKind::Compound, {}, {}, 0);
    auto child = std::make_unique<CompoundWriter>(core_, path_ + "/" + name, name, std::move(metadata));
    CompoundWriter& ref = *child;
    children_.push_back(std::move(child));
    return ref;
}

PropertyWriter* CompoundWriter::find(std::string_view name) const {
    for (const auto& child : children_)
        if (child->name() == name) return child.get();
    return nullptr;
}

void CompoundWriter::closeChildren() {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) (*it)->close();
}

std::vector<std::byte> CompoundWriter::childHashes() const {
    std::vector<std::byte> out;
    for (const auto& child : children_) appendBytes(out, child->hash_.words, 16);
    return out;
}

std::uint64_t CompoundWriter::writeBody() {
    std::vector<std::uint64_t> entries;
    std::vector<std::byte> headers;
    for (const auto& child : children_) {
        entries.push_back(child->groupEntry_);
        core_.encodePropertyRecord(child->record_, headers);
    }
    if (!children_.empty()) entries.push_back(core_.file.appendData(headers));
    return core_.file.appendGroup(entries);
}

void CompoundWriter::close() {
    if (closed_) return;
    closeChildren();
    closed_ = true;
    const std::uint64_t body = writeBody();
    std::vector<std::byte> bytes = childHashes();
    const std::vector<std::byte> header = core_.headerHashBytes(record_);
    bytes.insert(bytes.end(), header.begin(), header.end());
    hash_ = spooky(bytes);
    groupEntry_ = body;
}

}  // namespace tressora::abc
