// Damaged archives: each fault is refused with AlembicError naming the file, never a crash,
// a hang or another kind of exception.

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "core/errors.h"
#include "io/alembic/geom_reader.h"
#include "io/alembic/ogawa_reader.h"
#include "io/alembic_test_support.h"

namespace tressora::abc {
namespace {

using namespace testing;

// A small archive: /groom (transform) > /groom/shape (curves with a width and a string param),
// two frames whose points differ.
std::vector<std::byte> sampleArchive() {
    ScratchDir scratch;
    const std::string path = scratch.file("sample.abc");
    {
        ArchiveWriter archive(path);
        const std::uint32_t ts = archive.addTimeSampling(TimeSampling::uniform(1.0 / 24.0, 0.0));
        auto& groom = archive.top().addChild<XformWriter>("groom", ts);
        auto& shape = groom.addChild<CurvesWriter>("shape", ts);
        auto& label = shape.addArbGeomParam("label", GeomParamType::string(), GeometryScope::Constant);
        const std::vector<std::int32_t> counts{3};
        const std::vector<float> widths{0.1f, 0.2f, 0.3f};
        const std::vector<std::string> text{"hair"};
        for (int f = 0; f < 2; ++f) {
            const std::vector<Vec3f> points{{0, 0, float(f)}, {0, 1, 0}, {0, 2, 0}};
            CurvesSample sample;
            sample.positions = points;
            sample.vertexCounts = counts;
            sample.widths = GeomValues<float>{widths, GeometryScope::Vertex};
            groom.writeIdentity();
            shape.write(sample);
            label.writeStrings(text);
        }
        archive.close();
    }
    return readBytes(path);
}

// Opens bytes as an archive and reads every sample of every object through the readers.
void openAndReadAll(const std::vector<std::byte>& bytes) {
    const ArchiveReader archive("damaged.abc", bytes);
    const std::function<void(const PropertyReader&)> readAll = [&](const PropertyReader& p) {
        if (p.isCompound()) {
            for (const PropertyReader& child : p.children()) readAll(child);
            return;
        }
        for (std::uint32_t i = 0; i < p.numSamples(); ++i) {
            if (isStringPod(p.type().pod))
                p.strings(i);
            else
                p.numbers(i);
        }
    };
    archive.forEachObject([&](const ObjectReader& object) {
        readAll(object.properties());
        if (isCurves(object)) {
            const CurvesReader reader(object);
            for (std::uint32_t i = 0; i < reader.numSamples(); ++i) reader.read(i);
        }
        if (isXform(object)) {
            const XformReader reader(object);
            for (std::uint32_t i = 0; i < reader.numSamples(); ++i) reader.read(i);
        }
    });
}

// The AlembicError message for damaged bytes, or "" when they read without one.
std::string refusal(const std::vector<std::byte>& bytes) {
    try {
        openAndReadAll(bytes);
    } catch (const AlembicError& e) {
        return e.what();
    }
    return {};
}

// Finds blocks by their path of child indices from the root group.
class Archive {
public:
    Archive() : bytes(sampleArchive()) {}

    /// The file offset of the entry word for child `path.back()` of the group at `path` minus its last step.
    std::uint64_t entryPosition(std::vector<std::size_t> path) const {
        const std::size_t last = path.back();
        path.pop_back();
        return groupAt(path) + 8 + 8 * last;
    }
    /// The offset of the block at `path` (its size or count word).
    std::uint64_t blockAt(const std::vector<std::size_t>& path) const {
        const auto file = OgawaFile::fromBytes("x", bytes);
        std::uint64_t offset = file->root();
        for (std::size_t step : path) offset = file->group(offset).at(step).offset();
        return offset;
    }
    std::uint64_t groupAt(const std::vector<std::size_t>& path) const { return blockAt(path); }

    std::uint64_t u64(std::uint64_t at) const {
        std::uint64_t v;
        std::memcpy(&v, bytes.data() + at, 8);
        return v;
    }
    void setU64(std::uint64_t at, std::uint64_t v) { std::memcpy(bytes.data() + at, &v, 8); }
    void setU32(std::uint64_t at, std::uint32_t v) { std::memcpy(bytes.data() + at, &v, 4); }

    std::vector<std::byte> bytes;
};

// Paths in the sample archive (indices of group children from the root).
const std::vector<std::size_t> kTop{2};
const std::vector<std::size_t> kGroom{2, 1};
const std::vector<std::size_t> kShape{2, 1, 1};
const std::vector<std::size_t> kGeom{2, 1, 1, 0, 0};
const std::vector<std::size_t> kGeomHeaders{2, 1, 1, 0, 0, 6};
const std::vector<std::size_t> kPositions{2, 1, 1, 0, 0, 1};
const std::vector<std::size_t> kLabelData{2, 1, 1, 0, 0, 4, 0, 0};
const std::vector<std::size_t> kLabelDims{2, 1, 1, 0, 0, 4, 0, 1};

TEST(AlembicCorrupt, TheSampleArchiveIsSoundAsWritten) {
    const Archive a;
    EXPECT_EQ(refusal(a.bytes), "");
    const ArchiveReader archive("sample.abc", a.bytes);
    const PropertyReader& geom = *archive.findObject("/groom/shape")->properties().find(".geom");
    EXPECT_EQ(geom.children()[1].name(), "P");
    EXPECT_EQ(geom.children()[4].name(), ".arbGeomParams");
    EXPECT_EQ(geom.children()[4].children()[0].name(), "label");
    EXPECT_EQ(geom.children()[5].name(), "width");
}

TEST(AlembicCorrupt, EveryTruncationIsRefused) {
    const Archive a;
    for (std::size_t size = 0; size < a.bytes.size(); ++size) {
        const std::vector<std::byte> cut(a.bytes.begin(), a.bytes.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_NE(refusal(cut), "") << "cut to " << size << " bytes";
    }
}

TEST(AlembicCorrupt, HeaderFaultsNameTheFileAndTheFault) {
    const Archive a;
    auto with = [&](std::size_t at, const char* text) {
        std::vector<std::byte> b = a.bytes;
        std::memcpy(b.data() + at, text, std::strlen(text));
        return refusal(b);
    };
    EXPECT_EQ(with(0, "Ogawb"), "'damaged.abc' is not an Alembic archive: it does not start with the Ogawa signature");
    EXPECT_NE(with(0, "\x89HDF").find("HDF5"), std::string::npos);
    std::vector<std::byte> open = a.bytes;
    open[5] = std::byte{0};
    EXPECT_EQ(refusal(open), "'damaged.abc' was not finished by its writer (the archive was never closed); write it again");
    std::vector<std::byte> version = a.bytes;
    version[7] = std::byte{2};
    EXPECT_EQ(refusal(version), "'damaged.abc' uses Ogawa version 2; only version 1 can be read");
    std::vector<std::byte> root = a.bytes;
    std::memset(root.data() + 8, 0xFF, 8);
    EXPECT_NE(refusal(root).find("root group offset"), std::string::npos);
}

TEST(AlembicCorrupt, OffsetsPastTheEndAreRefused) {
    Archive a;
    const std::uint64_t size = a.bytes.size();
    Archive entry;
    entry.setU64(entry.entryPosition({2, 1, 1, 0, 0, 1, 0}), (1ull << 63) | (size + 100));
    EXPECT_NE(refusal(entry.bytes).find("outside the file"), std::string::npos);

    Archive dataSize;
    dataSize.setU64(dataSize.blockAt({2, 1, 1, 0, 0, 1, 0}), 1ull << 40);
    EXPECT_NE(refusal(dataSize.bytes).find("more than the rest of the file holds"), std::string::npos);

    Archive count;
    count.setU64(count.groupAt(kPositions), 1ull << 40);
    EXPECT_NE(refusal(count.bytes).find("more than the rest of the file can hold"), std::string::npos);

    Archive groupOffset;
    groupOffset.setU64(groupOffset.entryPosition(kShape), size - 4);
    EXPECT_NE(refusal(groupOffset.bytes), "");
}

TEST(AlembicCorrupt, LoopsInTheGroupTreeAreRefused) {
    Archive cycle;  // the shape's properties point back at its parent object
    cycle.setU64(cycle.entryPosition({2, 1, 1, 0}), cycle.groupAt(kGroom));
    EXPECT_NE(refusal(cycle.bytes).find("is used twice"), std::string::npos);

    Archive self;  // a group listing itself as a child
    self.setU64(self.entryPosition({2, 1, 1, 0}), self.groupAt(kShape));
    EXPECT_NE(refusal(self.bytes).find("contains itself"), std::string::npos);

    Archive shared;  // two objects sharing one property group
    shared.setU64(shared.entryPosition({2, 1, 1, 0}), shared.groupAt({2, 1, 0}));
    EXPECT_NE(refusal(shared.bytes).find("is used twice"), std::string::npos);
}

TEST(AlembicCorrupt, RootAndTableFaultsAreRefused) {
    Archive layout;
    layout.setU32(layout.blockAt({0}) + 8, 1);
    EXPECT_EQ(refusal(layout.bytes), "'damaged.abc' uses Alembic layout version 1; only version 0 can be read");
    Archive library;
    library.setU32(library.blockAt({1}) + 8, 9998);
    EXPECT_NE(refusal(library.bytes).find("older than any this program reads"), std::string::npos);
    Archive rootKinds;  // the root's top object entry marked as data
    rootKinds.setU64(rootKinds.entryPosition({2}), (1ull << 63) | rootKinds.groupAt(kTop));
    EXPECT_NE(refusal(rootKinds.bytes).find("root group does not have the entries"), std::string::npos);
    Archive times;  // the first sampling claims 1000 stored times
    times.setU32(times.blockAt({4}) + 8 + 12, 1000);
    EXPECT_NE(refusal(times.bytes).find("lists 1000 times"), std::string::npos);
    Archive tpc;  // a negative time per cycle
    double negative = -1.0;
    std::memcpy(tpc.bytes.data() + tpc.blockAt({4}) + 8 + 4, &negative, 8);
    EXPECT_NE(refusal(tpc.bytes).find("no positive time per cycle"), std::string::npos);
}

TEST(AlembicCorrupt, PropertyHeaderFaultsAreRefused) {
    const Archive a;
    const std::uint64_t headers = a.blockAt(kGeomHeaders) + 8;  // first record: .selfBnds
    auto patched = [&](auto edit) {
        Archive b;
        edit(b);
        return refusal(b.bytes);
    };
    EXPECT_NE(patched([&](Archive& b) { b.bytes[headers] |= std::byte{0xF0}; }).find("unknown type 15"),
              std::string::npos);
    EXPECT_NE(patched([&](Archive& b) {
                  std::uint32_t info;
                  std::memcpy(&info, b.bytes.data() + headers, 4);
                  b.setU32(headers, (info & ~0x0FF00000u) | (240u << 20));
              }).find("uses metadata entry 240"),
              std::string::npos);
    EXPECT_NE(patched([&](Archive& b) { b.bytes[headers] |= std::byte{0x0C}; }).find("unknown size code"),
              std::string::npos);
    // .selfBnds changed once over its two samples; claiming five needs slots it does not have.
    EXPECT_NE(patched([&](Archive& b) { b.bytes[headers + 4] = std::byte{5}; }).find("stores only 2 of the 5"),
              std::string::npos);
    EXPECT_NE(patched([&](Archive& b) { b.setU64(b.blockAt(kGeomHeaders), b.u64(b.blockAt(kGeomHeaders)) - 3); })
                  .find("ends in the middle of a record"),
              std::string::npos);
    EXPECT_NE(patched([&](Archive& b) {
                  const std::uint64_t records = b.blockAt({2, 2});
                  b.setU32(records + 8, 0x7FFFFFFF);  // the child name's length
              }).find("ends in the middle of a record"),
              std::string::npos);
}

TEST(AlembicCorrupt, SampleFaultsAreRefusedWhenRead) {
    Archive noNul;  // the label string loses its terminator
    const std::uint64_t label = noNul.blockAt(kLabelData);
    noNul.bytes[label + 8 + noNul.u64(label) - 1] = std::byte{'x'};
    const std::string message = refusal(noNul.bytes);
    EXPECT_NE(message.find("'damaged.abc' is damaged: '/groom/shape/.geom/.arbGeomParams/label' sample 0 has a string without"),
              std::string::npos)
        << message;

    Archive ragged;  // a position sample that is not a whole number of points
    const std::uint64_t points = ragged.blockAt({2, 1, 1, 0, 0, 1, 0});
    ragged.setU64(points, ragged.u64(points) - 4);
    EXPECT_NE(refusal(ragged.bytes).find("not whole elements of 12 bytes"), std::string::npos);

    Archive shortKey;  // a sample shorter than its key
    shortKey.setU64(points, 7);
    EXPECT_NE(refusal(shortKey.bytes).find("shorter than its 16-byte key"), std::string::npos);

    Archive dims;  // string dimensions that disagree with the strings held
    const std::uint64_t dimsBlock = dims.blockAt(kLabelDims);
    dims.setU64(dimsBlock + 8, 3);
    EXPECT_NE(refusal(dims.bytes).find("has dimensions for 3 elements but holds 1"), std::string::npos);
}

TEST(AlembicCorrupt, DeeperNestingThanTheLimitIsRefused) {
    ScratchDir scratch;
    const std::string path = scratch.file("deep.abc");
    {
        ArchiveWriter archive(path);
        ObjectWriter* object = &archive.top();
        for (int depth = 0; depth < 300; ++depth) object = &object->addChild("level");
        archive.close();
    }
    EXPECT_NE(refusal(readBytes(path)).find("is nested more than 256 deep"), std::string::npos);
}

TEST(AlembicCorrupt, RandomByteDamageGivesOnlyAlembicErrors) {
    const Archive a;
    std::mt19937_64 random(20260101);
    int refused = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        std::vector<std::byte> b = a.bytes;
        const int edits = 1 + static_cast<int>(random() % 4);
        for (int e = 0; e < edits; ++e) {
            const std::size_t at = 16 + random() % (b.size() - 16);
            b[at] = static_cast<std::byte>(random() & 0xFF);
        }
        try {
            openAndReadAll(b);
        } catch (const AlembicError&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, 300);
}

}  // namespace
}  // namespace tressora::abc
