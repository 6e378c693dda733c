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
std::vector<std::byte> writeSampleArchive() {
    TempFolder scratch;
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

const std::vector<std::byte>& sampleArchive() {
    static const std::vector<std::byte> bytes = writeSampleArchive();
    return bytes;
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
        return blockAt(path) + 8 + 8 * last;
    }
    /// The offset of the block at `path` (its size or count word).
    std::uint64_t blockAt(const std::vector<std::size_t>& path) const {
        const auto file = OgawaFile::fromBytes("x", bytes);
        std::uint64_t offset = file->root();
        for (std::size_t step : path) offset = file->group(offset).at(step).offset();
        return offset;
    }

    std::uint64_t u64(std::uint64_t at) const {
        std::uint64_t v;
        std::memcpy(&v, bytes.data() + at, 8);
        return v;
    }
    void setU64(std::uint64_t at, std::uint64_t v) { std::memcpy(bytes.data() + at, &v, 8); }
    std::uint32_t u32(std::uint64_t at) const {
        std::uint32_t v;
        std::memcpy(&v, bytes.data() + at, 4);
        return v;
    }
    void setU32(std::uint64_t at, std::uint32_t v) { std::memcpy(bytes.data() + at, &v, 4); }

    std::vector<std::byte> bytes;
};

// Paths in the sample archive (indices of group children from the root).
const std::vector<std::size_t> kTop{2};
const std::vector<std::size_t> kGroom{2, 1};
const std::vector<std::size_t> kShape{2, 1, 1};
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

// Each fault is made in a fresh copy of the sample archive; the refusal must contain the text.
TEST(AlembicCorrupt, EveryStructuralFaultIsRefusedWithItsReason) {
    const std::vector<std::size_t> points{2, 1, 1, 0, 0, 1, 0}, shapeProps{2, 1, 1, 0};
    const std::uint64_t size = Archive().bytes.size();
    const std::uint64_t headers = Archive().blockAt(kGeomHeaders) + 8;  // first record: .selfBnds
    const double negative = -1.0;
    struct Fault {
        const char* what;
        std::function<void(Archive&)> edit;
        std::string text;
    };
    const std::vector<Fault> faults = {
        {"entry past the end", [&](Archive& a) { a.setU64(a.entryPosition(points), (1ull << 63) | (size + 100)); },
         "outside the file"},
        {"data size", [&](Archive& a) { a.setU64(a.blockAt(points), 1ull << 40); }, "more than the rest of the file holds"},
        {"group count", [&](Archive& a) { a.setU64(a.blockAt(kPositions), 1ull << 40); },
         "more than the rest of the file can hold"},
        {"group offset", [&](Archive& a) { a.setU64(a.entryPosition(kShape), size - 4); }, ""},
        {"cycle", [&](Archive& a) { a.setU64(a.entryPosition(shapeProps), a.blockAt(kGroom)); }, "is used twice"},
        {"self", [&](Archive& a) { a.setU64(a.entryPosition(shapeProps), a.blockAt(kShape)); }, "contains itself"},
        {"shared", [&](Archive& a) { a.setU64(a.entryPosition(shapeProps), a.blockAt({2, 1, 0})); }, "is used twice"},
        {"layout", [&](Archive& a) { a.setU32(a.blockAt({0}) + 8, 1); },
         "'damaged.abc' uses Alembic layout version 1; only version 0 can be read"},
        {"library", [&](Archive& a) { a.setU32(a.blockAt({1}) + 8, 9998); }, "older than any this program reads"},
        {"root kinds", [&](Archive& a) { a.setU64(a.entryPosition({2}), (1ull << 63) | a.blockAt(kTop)); },
         "root group does not have the entries"},
        {"stored times", [&](Archive& a) { a.setU32(a.blockAt({4}) + 8 + 12, 1000); }, "lists 1000 times"},
        {"time per cycle", [&](Archive& a) { std::memcpy(a.bytes.data() + a.blockAt({4}) + 8 + 4, &negative, 8); },
         "no positive time per cycle"},
        {"property type", [&](Archive& a) { a.bytes[headers] |= std::byte{0xF0}; }, "unknown type 15"},
        {"metadata index", [&](Archive& a) { a.setU32(headers, (a.u32(headers) & ~0x0FF00000u) | (240u << 20)); },
         "uses metadata entry 240"},
        {"size code", [&](Archive& a) { a.bytes[headers] |= std::byte{0x0C}; }, "unknown size code"},
        // .selfBnds changed once over its two samples; claiming five needs slots it does not have.
        {"sample count", [&](Archive& a) { a.bytes[headers + 4] = std::byte{5}; }, "stores only 2 of the 5"},
        {"header size", [&](Archive& a) { a.setU64(a.blockAt(kGeomHeaders), a.u64(a.blockAt(kGeomHeaders)) - 3); },
         "ends in the middle of a record"},
        {"name length", [&](Archive& a) { a.setU32(a.blockAt({2, 2}) + 8, 0x7FFFFFFF); }, "ends in the middle of a record"},
        {"string terminator",
         [&](Archive& a) { a.bytes[a.blockAt(kLabelData) + 8 + a.u64(a.blockAt(kLabelData)) - 1] = std::byte{'x'}; },
         "'damaged.abc' is damaged: '/groom/shape/.geom/.arbGeomParams/label' sample 0 has a string without"},
        {"ragged points", [&](Archive& a) { a.setU64(a.blockAt(points), a.u64(a.blockAt(points)) - 4); },
         "not whole elements of 12 bytes"},
        {"short key", [&](Archive& a) { a.setU64(a.blockAt(points), 7); }, "shorter than its 16-byte key"},
        {"string dimensions", [&](Archive& a) { a.setU64(a.blockAt(kLabelDims) + 8, 3); },
         "has dimensions for 3 elements but holds 1"},
    };
    for (const Fault& f : faults) {
        Archive a;
        f.edit(a);
        const std::string message = refusal(a.bytes);
        EXPECT_NE(message, "") << f.what;
        EXPECT_NE(message.find(f.text), std::string::npos) << f.what << ": " << message;
    }
}

TEST(AlembicCorrupt, DeeperNestingThanTheLimitIsRefused) {
    TempFolder scratch;
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
