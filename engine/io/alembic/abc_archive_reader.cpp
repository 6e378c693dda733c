// Opening an archive: the root tables and the tree of objects and property headers.

#include <cmath>
#include <cstring>
#include <unordered_set>

#include "core/errors.h"
#include "io/alembic/abc_reader.h"
#include "io/alembic/abc_reader_data.h"

namespace tressora::abc {

namespace {

// Objects and compounds nest at most this deep; deeper files are refused rather than risk
// exhausting the stack on a crafted file.
constexpr int kMaxDepth = 256;

// Reads the numbers and strings of a header block, refusing to run past its end.
class Cursor {
public:
    Cursor(std::span<const std::byte> bytes, const OgawaFile& file, std::string what)
        : bytes_(bytes), file_(file), what_(std::move(what)) {}

    bool atEnd() const { return pos_ == bytes_.size(); }
    std::size_t left() const { return bytes_.size() - pos_; }

    template <class T>
    T read() {
        T value;
        std::memcpy(&value, take(sizeof(T)), sizeof(T));
        return value;
    }
    /// A number stored in 1, 2 or 4 bytes.
    std::uint32_t sized(std::uint32_t hint) {
        if (hint == 0) return read<std::uint8_t>();
        if (hint == 1) return read<std::uint16_t>();
        return read<std::uint32_t>();
    }
    std::string text(std::uint64_t size) {
        const auto* p = reinterpret_cast<const char*>(take(size));
        return std::string(p, p + size);
    }

private:
    const std::byte* take(std::uint64_t count) {
        if (count > left()) file_.damaged(what_ + " ends in the middle of a record");
        const std::byte* p = bytes_.data() + pos_;
        pos_ += count;
        return p;
    }

    std::span<const std::byte> bytes_;
    std::size_t pos_ = 0;
    const OgawaFile& file_;
    std::string what_;
};

std::string childPath(const std::string& parent, const std::string& name) { return parent + "/" + name; }

std::string quotedPath(const std::string& path) { return "'" + (path.empty() ? std::string("/") : path) + "'"; }

}  // namespace

// Builds an ArchiveData from an Ogawa file, checking everything it follows.
struct ArchiveParser {
    ArchiveData& archive;
    const OgawaFile& file;
    std::unordered_set<std::uint64_t> seenGroups;

    [[noreturn]] void damaged(const std::string& what) const { file.damaged(what); }

    // Every group is used once in a sound archive; a second use means a loop or a forged tree.
    void claim(std::uint64_t offset) {
        if (offset != 0 && !seenGroups.insert(offset).second)
            damaged("the group at offset " + std::to_string(offset) + " is used twice (the tree loops)");
    }

    std::span<const std::byte> dataOf(OgawaEntry entry, const std::string& what) const {
        if (!entry.isData()) damaged(what + " is a group where a data block belongs");
        return file.data(entry.offset());
    }

    void parse() {
        const std::vector<OgawaEntry> root = file.group(file.root());
        claim(file.root());
        if (root.size() < 6)
            damaged("its root group holds " + std::to_string(root.size()) + " entries where an archive has 6");
        const bool kindsOk = root[0].isData() && root[1].isData() && root[2].isGroup() && root[3].isData() &&
                             root[4].isData() && root[5].isData();
        if (!kindsOk) damaged("its root group does not have the entries of an Alembic archive");

        const std::int32_t layout = int32Block(root[0], "the layout version");
        if (layout != 0)
            throw AlembicError("'" + file.name() + "' uses Alembic layout version " + std::to_string(layout) +
                               "; only version 0 can be read");
        archive.libraryVersion = int32Block(root[1], "the library version");
        if (archive.libraryVersion < 9999)
            throw AlembicError("'" + file.name() + "' was written by Alembic library version " +
                               std::to_string(archive.libraryVersion) + ", older than any this program reads");

        const auto metadataBytes = file.data(root[3].offset());
        archive.metadata = MetaData::parse(
            std::string_view(reinterpret_cast<const char*>(metadataBytes.data()), metadataBytes.size()));
        parseTimeSamplings(file.data(root[4].offset()));
        parseMetadataTable(file.data(root[5].offset()));

        ObjectReader& top = archive.top;
        top.name_ = "ABC";
        top.fullName_ = "/";
        top.metadata_ = archive.metadata;
        parseObject(top, root[2], 0);
    }

    std::int32_t int32Block(OgawaEntry entry, const char* what) const {
        const auto bytes = file.data(entry.offset());
        if (bytes.size() != 4)
            damaged(std::string(what) + " is " + std::to_string(bytes.size()) + " bytes long instead of 4");
        std::int32_t value;
        std::memcpy(&value, bytes.data(), 4);
        return value;
    }

    void parseTimeSamplings(std::span<const std::byte> bytes) {
        Cursor in(bytes, file, "the time-sampling table");
        while (!in.atEnd()) {
            TimeSamplingRecord record;
            record.maxSamples = in.read<std::uint32_t>();
            record.sampling.timePerCycle = in.read<double>();
            const std::uint32_t count = in.read<std::uint32_t>();
            if (count == 0 || count > in.left() / 8)
                damaged("time sampling " + std::to_string(archive.samplings.size()) + " lists " +
                        std::to_string(count) + " times, which its table cannot hold");
            if (!(record.sampling.timePerCycle > 0) || !std::isfinite(record.sampling.timePerCycle))
                damaged("time sampling " + std::to_string(archive.samplings.size()) +
                        " has no positive time per cycle");
            record.sampling.storedTimes.resize(count);
            for (double& t : record.sampling.storedTimes) t = in.read<double>();
            archive.samplings.push_back(std::move(record));
        }
        if (archive.samplings.empty()) damaged("its time-sampling table is empty");
    }

    void parseMetadataTable(std::span<const std::byte> bytes) {
        Cursor in(bytes, file, "the metadata table");
        archive.metadataTable.assign(1, MetaData());
        while (!in.atEnd()) {
            const std::uint8_t size = in.read<std::uint8_t>();
            archive.metadataTable.push_back(MetaData::parse(in.text(size)));
        }
    }

    const MetaData& tableEntry(std::uint32_t index, const std::string& where) const {
        if (index >= archive.metadataTable.size())
            damaged(where + " uses metadata entry " + std::to_string(index) + " of a table of " +
                    std::to_string(archive.metadataTable.size() - 1));
        return archive.metadataTable[index];
    }

    void checkName(const std::string& name, const std::string& where, std::unordered_set<std::string>& seen) const {
        if (name.empty()) damaged(where + " has a child without a name");
        if (name.find('/') != std::string::npos) damaged(where + " has a child named '" + name + "' with a '/'");
        if (!seen.insert(name).second) damaged(where + " has two children named '" + name + "'");
    }

    void parseObject(ObjectReader& object, OgawaEntry entry, int depth) {
        const std::string where = "the object " + quotedPath(object.fullName_ == "/" ? "" : object.fullName_);
        if (depth > kMaxDepth) damaged(where + " is nested more than " + std::to_string(kMaxDepth) + " deep");
        if (!entry.isGroup() || entry.isEmpty()) damaged(where + " is not stored as a group");
        claim(entry.offset());
        const std::vector<OgawaEntry> entries = file.group(entry.offset());
        if (entries.size() < 2)
            damaged(where + " has " + std::to_string(entries.size()) + " entries; an object has at least 2");

        const auto records = dataOf(entries.back(), where + "'s child list");
        if (records.size() < 32) damaged(where + "'s child list is shorter than its 32-byte hash record");
        std::memcpy(object.propertiesHash_.words, records.data() + records.size() - 32, 16);
        std::memcpy(object.childrenHash_.words, records.data() + records.size() - 16, 16);

        Cursor in(records.first(records.size() - 32), file, where + "'s child list");
        std::unordered_set<std::string> names;
        while (!in.atEnd()) {
            ObjectReader child;
            child.name_ = in.text(in.read<std::uint32_t>());
            checkName(child.name_, where, names);
            const std::uint8_t mdIndex = in.read<std::uint8_t>();
            child.metadata_ = mdIndex == 255 ? MetaData::parse(in.text(in.read<std::uint32_t>()))
                                             : tableEntry(mdIndex, where + "'s child '" + child.name_ + "'");
            child.fullName_ = (object.fullName_ == "/" ? std::string() : object.fullName_) + "/" + child.name_;
            object.children_.push_back(std::move(child));
        }
        if (object.children_.size() != entries.size() - 2)
            damaged(where + " lists " + std::to_string(object.children_.size()) + " children but stores " +
                    std::to_string(entries.size() - 2));

        PropertyReader& properties = object.properties_;
        properties.archive_ = &archive;
        properties.path_ = object.fullName_ == "/" ? std::string() : object.fullName_;
        parseCompound(properties, entries[0], depth);
        for (std::size_t i = 0; i < object.children_.size(); ++i)
            parseObject(object.children_[i], entries[i + 1], depth + 1);
    }

    void parseCompound(PropertyReader& compound, OgawaEntry entry, int depth) {
        const std::string where = "the property " + quotedPath(compound.path_);
        if (depth > kMaxDepth) damaged(where + " is nested more than " + std::to_string(kMaxDepth) + " deep");
        if (!entry.isGroup()) damaged(where + " is a data block where a group belongs");
        claim(entry.offset());
        const std::vector<OgawaEntry> entries = file.group(entry.offset());
        if (entries.empty()) return;

        Cursor in(dataOf(entries.back(), where + "'s header list"), file, where + "'s header list");
        std::unordered_set<std::string> names;
        while (!in.atEnd()) {
            PropertyReader child;
            child.archive_ = &archive;
            child.header_ = parseHeader(in, where);
            checkName(child.header_.name, where, names);
            child.path_ = childPath(compound.path_, child.header_.name);
            compound.children_.push_back(std::move(child));
        }
        if (compound.children_.size() != entries.size() - 1)
            damaged(where + " lists " + std::to_string(compound.children_.size()) + " properties but stores " +
                    std::to_string(entries.size() - 1));
        for (std::size_t i = 0; i < compound.children_.size(); ++i) {
            PropertyReader& child = compound.children_[i];
            if (child.isCompound())
                parseCompound(child, entries[i], depth + 1);
            else
                parseSampled(child, entries[i]);
        }
    }

    PropertyHeader parseHeader(Cursor& in, const std::string& where) {
        PropertyHeader h;
        const auto info = in.read<std::uint32_t>();
        const std::uint32_t hint = (info >> 2) & 3;
        if (hint == 3) damaged(where + " has a property record with an unknown size code");
        const std::uint32_t kindBits = info & 3;
        if (kindBits != 0) {
            h.kind = kindBits == 1 ? PropertyKind::Scalar : PropertyKind::Array;
            h.scalarLike = (kindBits & 1) != 0;
            const std::uint32_t pod = (info >> 4) & 0xF;
            if (pod >= kPodCount) damaged(where + " has a property of unknown type " + std::to_string(pod));
            h.type.pod = static_cast<Pod>(pod);
            h.type.extent = static_cast<std::uint8_t>((info >> 12) & 0xFF);
            if (h.type.extent == 0) damaged(where + " has a property with an extent of 0");
            h.homogenous = (info & 0x400) != 0;
            h.numSamples = in.sized(hint);
            if (info & 0x200) {
                h.firstChanged = in.sized(hint);
                h.lastChanged = in.sized(hint);
            } else if (!(info & 0x800) && h.numSamples > 0) {
                h.firstChanged = 1;
                h.lastChanged = h.numSamples - 1;
            }
            if (info & 0x100) h.timeSampling = in.sized(hint);
        }
        h.name = in.text(in.sized(hint));
        const std::string what = where + "'s child '" + h.name + "'";
        const std::uint32_t mdIndex = (info >> 20) & 0xFF;
        h.metadata = mdIndex == 255 ? MetaData::parse(in.text(in.sized(hint))) : tableEntry(mdIndex, what);
        if (h.kind == PropertyKind::Compound) return h;

        if (h.timeSampling >= archive.samplings.size())
            damaged(what + " uses time sampling " + std::to_string(h.timeSampling) + ", which the archive lacks");
        const bool constant = h.firstChanged == 0 && h.lastChanged == 0;
        const bool changing = h.firstChanged >= 1 && h.firstChanged <= h.lastChanged && h.lastChanged < h.numSamples;
        if (!(constant || changing) || (h.numSamples == 0 && (info & 0x200) == 0 && (info & 0x800) == 0))
            damaged(what + " has changed-sample indices " + std::to_string(h.firstChanged) + " and " +
                    std::to_string(h.lastChanged) + " that do not fit its " + std::to_string(h.numSamples) +
                    " samples");
        return h;
    }

    void parseSampled(PropertyReader& property, OgawaEntry entry) {
        const std::string where = "the property " + quotedPath(property.path_);
        if (!entry.isGroup()) damaged(where + " is a data block where a group belongs");
        claim(entry.offset());
        property.entries_ = file.group(entry.offset());
        const PropertyHeader& h = property.header_;
        const std::uint64_t slots =
            h.numSamples == 0 ? 0 : (h.lastChanged == 0 ? 1 : std::uint64_t{h.lastChanged} - h.firstChanged + 2);
        const std::uint64_t perSlot = h.kind == PropertyKind::Array ? 2 : 1;
        if (property.entries_.size() < slots * perSlot)
            damaged(where + " has " + std::to_string(h.numSamples) + " samples but stores only " +
                    std::to_string(property.entries_.size() / perSlot) + " of the " + std::to_string(slots) +
                    " it needs");
        for (const OgawaEntry& e : property.entries_)
            if (!e.isData()) damaged(where + " stores a group where a sample belongs");
    }
};

// ---- ArchiveReader ---------------------------------------------------------------------------

ArchiveReader::ArchiveReader(const std::string& path) : data_(std::make_unique<ArchiveData>()) {
    data_->file = OgawaFile::open(path);
    ArchiveParser{*data_, *data_->file, {}}.parse();
}

ArchiveReader::ArchiveReader(std::string name, std::vector<std::byte> bytes) : data_(std::make_unique<ArchiveData>()) {
    data_->file = OgawaFile::fromBytes(std::move(name), std::move(bytes));
    ArchiveParser{*data_, *data_->file, {}}.parse();
}

ArchiveReader::~ArchiveReader() = default;
ArchiveReader::ArchiveReader(ArchiveReader&&) noexcept = default;
ArchiveReader& ArchiveReader::operator=(ArchiveReader&&) noexcept = default;

const std::string& ArchiveReader::fileName() const { return data_->file->name(); }
std::int32_t ArchiveReader::libraryVersion() const { return data_->libraryVersion; }
const MetaData& ArchiveReader::metadata() const { return data_->metadata; }
const std::vector<TimeSamplingRecord>& ArchiveReader::timeSamplings() const { return data_->samplings; }
const ObjectReader& ArchiveReader::top() const { return data_->top; }

const ObjectReader* ArchiveReader::findObject(std::string_view fullName) const {
    const ObjectReader* object = &data_->top;
    while (object && !fullName.empty()) {
        if (fullName.front() == '/') {
            fullName.remove_prefix(1);
            continue;
        }
        const std::size_t end = fullName.find('/');
        object = object->child(fullName.substr(0, end));
        fullName = end == std::string_view::npos ? std::string_view() : fullName.substr(end);
    }
    return object;
}

void ArchiveReader::forEachObject(const std::function<void(const ObjectReader&)>& fn) const {
    const std::function<void(const ObjectReader&)> walk = [&](const ObjectReader& object) {
        for (const ObjectReader& child : object.children()) {
            fn(child);
            walk(child);
        }
    };
    walk(data_->top);
}

const ObjectReader* ObjectReader::child(std::string_view name) const {
    for (const ObjectReader& c : children_)
        if (c.name_ == name) return &c;
    return nullptr;
}

}  // namespace tressora::abc
