// Object writers and the archive writer.

#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

#include "core/errors.h"
#include "core/file_replace.h"
#include "io/alembic/abc_hashes.h"
#include "io/alembic/abc_writer.h"

namespace tressora::abc {

const char* const kAlembicVersionText = "Alembic 1.8.12 (Tressora " TRESSORA_VERSION ")";

namespace {

// The current local time as ctime() prints it, without its line feed.
std::string nowText() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[64];
    std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", &local);
    return text;
}

}  // namespace

// ---- ObjectWriter ----------------------------------------------------------------------------

ObjectWriter::ObjectWriter(const Init& init, MetaData metadata)
    : core_(init.core),
      name_(init.name),
      fullName_(init.fullName),
      metadata_(std::move(metadata)),
      properties_(*init.core, init.fullName == "/" ? std::string() : init.fullName, std::string(), {}) {}

void ObjectWriter::requireOpen() const {
    if (closed_) throw std::logic_error("the object '" + fullName_ + "' is already closed");
}

ObjectWriter::Init ObjectWriter::childInit(std::string name) {
    requireOpen();
    if (name.empty()) throw std::invalid_argument("a child of '" + fullName_ + "' needs a name");
    if (name.find('/') != std::string::npos)
        throw std::invalid_argument("the object name '" + name + "' contains '/'");
    for (const auto& child : children_)
        if (child->name_ == name)
            throw std::invalid_argument("'" + fullName_ + "' already has a child named '" + name + "'");
    std::string fullName = (fullName_ == "/" ? std::string() : fullName_) + "/" + name;
    return Init(core_, std::move(name), std::move(fullName));
}

void ObjectWriter::close() {
    if (closed_) return;
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) (*it)->close();
    closeSchema();
    properties_.closeChildren();
    closed_ = true;
    groupEntry_ = writeBody();
}

std::uint64_t ObjectWriter::writeBody() {
    // The child records, then the hash record: the hash of the properties and of the children.
    std::vector<std::byte> records;
    std::vector<std::byte> childHashes;
    for (const auto& child : children_) {
        core_->encodeObjectRecord(child->name_, child->metadata_, records);
        appendBytes(childHashes, child->hash_.words, 16);
    }
    const Digest propertiesHash = spooky(properties_.childHashes());
    const Digest childrenHash = children_.empty() ? Digest{} : spooky(childHashes);
    appendBytes(records, propertiesHash.words, 16);
    appendBytes(records, childrenHash.words, 16);
    const std::uint64_t recordsEntry = core_->file.appendData(records);

    const std::uint64_t propertiesEntry = properties_.writeBody();
    properties_.closed_ = true;

    std::vector<std::uint64_t> entries{propertiesEntry};
    for (const auto& child : children_) entries.push_back(child->groupEntry_);
    entries.push_back(recordsEntry);
    const std::uint64_t group = core_->file.appendGroup(entries);

    // What the parent folds into its children hash.
    std::vector<std::byte> bytes = std::move(childHashes);
    appendBytes(bytes, propertiesHash.words, 16);
    appendText(bytes, metadata_.serialize());
    appendText(bytes, name_);
    hash_ = spooky(bytes);
    return group;
}

// ---- ArchiveWriter ---------------------------------------------------------------------------

ArchiveWriter::ArchiveWriter(std::string targetPath, ArchiveInfo info)
    : target_(std::move(targetPath)), tmp_(target_ + ".tmp"), tmpOnSignal_(tmp_) {
    metadata_ = info.extra;
    metadata_.set("_ai_Application", info.application);
    metadata_.set("_ai_Description", info.description);
    if (info.fps > 0) metadata_.set("_ai_DCC_FPS", std::to_string(info.fps));
    metadata_.set("_ai_DateWritten", info.dateWritten.empty() ? nowText() : info.dateWritten);
    metadata_.set("_ai_AlembicVersion", info.alembicVersion.empty() ? kAlembicVersionText : info.alembicVersion);

    core_ = std::make_unique<WriterCore>(tmp_);
    const std::int32_t layoutVersion = 0;
    const std::int32_t libraryVersion = kAlembicLibraryVersion;
    core_->file.appendData(std::as_bytes(std::span(&layoutVersion, 1)));
    core_->file.appendData(std::as_bytes(std::span(&libraryVersion, 1)));

    const ObjectWriter::Init init(core_.get(), std::string("ABC"), std::string("/"));
    top_ = std::make_unique<ObjectWriter>(init, metadata_);
}

ArchiveWriter::~ArchiveWriter() {
    if (closed_) return;
    top_.reset();
    core_.reset();
    std::remove(tmp_.c_str());
}

std::uint32_t ArchiveWriter::addTimeSampling(const TimeSampling& sampling) {
    if (closed_) throw std::logic_error("the archive '" + target_ + "' is already closed");
    if (sampling.storedTimes.empty() || !(sampling.timePerCycle > 0))
        throw std::invalid_argument("a time sampling needs a positive time per cycle and at least one time");
    for (std::size_t i = 1; i < sampling.storedTimes.size(); ++i)
        if (!(sampling.storedTimes[i] > sampling.storedTimes[i - 1]))
            throw std::invalid_argument("the times of a time sampling must increase");
    auto& list = core_->samplings;
    for (std::size_t i = 0; i < list.size(); ++i)
        if (list[i].sampling == sampling) return static_cast<std::uint32_t>(i);
    list.push_back({sampling, 0});
    return static_cast<std::uint32_t>(list.size() - 1);
}

ObjectWriter& ArchiveWriter::top() {
    if (closed_) throw std::logic_error("the archive '" + target_ + "' is already closed");
    return *top_;
}

void ArchiveWriter::close() {
    if (closed_) return;
    top_->close();
    OgawaWriter& file = core_->file;
    const std::string metadataText = metadata_.serialize();
    const std::uint64_t metadataEntry = file.appendData(std::as_bytes(std::span(metadataText)));

    std::vector<std::byte> samplings;
    for (const TimeSamplingRecord& record : core_->samplings) {
        appendValue(samplings, record.maxSamples);
        appendValue(samplings, record.sampling.timePerCycle);
        appendValue(samplings, static_cast<std::uint32_t>(record.sampling.storedTimes.size()));
        for (double t : record.sampling.storedTimes) appendValue(samplings, t);
    }
    const std::uint64_t samplingsEntry = file.appendData(samplings);
    const std::uint64_t tableEntry = file.appendData(core_->metadataTable());

    // The two version blocks are the first two blocks of the file, right after the header.
    const std::uint64_t root[6] = {dataEntry(16), dataEntry(28), top_->groupEntry_,
                                   metadataEntry, samplingsEntry, tableEntry};
    file.finish(file.appendGroup(root));

    if (const std::string error = replaceFile(tmp_, target_); !error.empty())
        throw AlembicError("cannot replace '" + target_ + "': " + error);
    closed_ = true;
}

}  // namespace tressora::abc
