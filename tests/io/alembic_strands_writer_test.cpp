// AlembicWriter and the curves reader: what eval writes reads back with the same values, the
// groom layout carries the importer's attributes, and every refusal says what went wrong.

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>

#include "core/errors.h"
#include "core/hash.h"
#include "io/alembic/geom_reader.h"
#include "io/alembic_curves_hash.h"
#include "io/alembic_curves_reader.h"
#include "io/alembic_groom_layout.h"
#include "io/alembic_test_support.h"
#include "io/alembic_writer.h"
#include "io/io_test_support.h"

namespace tressora {
namespace {

using testing::errorText;
using testing::smallSet;
using testing::TempFolder;

// One uv triangle per root face 0..2: corners (0, 0), (0.5, 0), (0, 0.5) moved by a quarter per face.
const std::vector<std::array<float, 2>> kCorners = {{0, 0},     {0.5f, 0},     {0, 0.5f},  {0.25f, 0}, {0.75f, 0},
                                                     {0.25f, 0.5f}, {0.5f, 0}, {1, 0},     {0.5f, 0.5f}};

template <class T>
std::vector<T> spanVector(std::span<const T> s) {
    return {s.begin(), s.end()};
}

TEST(AlembicStrandsWriter, NeutralCurvesReadBackWithTheirValuesAndTimes) {
    TempFolder folder;
    const std::string path = folder.file("out.abc");
    const ScalpUvs scalp{kCorners};
    AlembicWriterOptions options;
    options.secondsPerFrame = 0.5 / 24.0;
    options.startTime = 3.0 / 24.0;
    AlembicWriter writer(path, options);
    StrandSet a = smallSet(0.0f), b = smallSet(2.0f);
    a.addStrandChannel("groupId", 4.0f);
    b.addStrandChannel("groupId", 5.0f);
    writer.writeFrame(a, &scalp);
    writer.writeFrame(b, &scalp);
    EXPECT_FALSE(std::filesystem::exists(path)) << "the target appears only when the archive is whole";
    writer.close();
    EXPECT_EQ(folder.names(), std::vector<std::string>{"out.abc"});

    const ReadCurves read = readAlembicCurves(path, "groom");
    ASSERT_EQ(read.samples.size(), 2u);
    EXPECT_DOUBLE_EQ(read.samples[0].time, 3.0 / 24.0);
    EXPECT_DOUBLE_EQ(read.samples[1].time, 3.5 / 24.0);
    for (int f = 0; f < 2; ++f) {
        const StrandSet& want = f == 0 ? a : b;
        const StrandSet& got = read.samples[f].strands;
        EXPECT_EQ(spanVector(got.ids()), spanVector(want.ids()));
        EXPECT_EQ(spanVector(got.offsets()), spanVector(want.offsets()));
        EXPECT_EQ(spanVector(got.points()), spanVector(want.points()));
        EXPECT_EQ(spanVector(got.widths()), spanVector(want.widths()));
        for (const char* name : {"clumpId", "groupId"})
            EXPECT_EQ(spanVector(got.strandChannel(name)->values()), spanVector(want.strandChannel(name)->values()));
        EXPECT_EQ(spanVector(got.pointChannel("curl")->values()), spanVector(want.pointChannel("curl")->values()));
        // Roots at barycentric (0.25, 0.5) of each face's uv triangle.
        ASSERT_EQ(read.samples[f].rootUvs.size(), 3u);
        EXPECT_FLOAT_EQ(read.samples[f].rootUvs[1].u, 0.25f + 0.125f);
        EXPECT_FLOAT_EQ(read.samples[f].rootUvs[1].v, 0.25f);
    }
}

TEST(AlembicStrandsWriter, ScaleAndResamplingShapeWhatIsWritten) {
    TempFolder folder;
    const std::string path = folder.file("scaled.abc");
    AlembicWriterOptions options;
    options.scale = 2.0f;
    options.resampleCount = 5;
    AlembicWriter writer(path, options);
    writer.writeFrame(smallSet());
    writer.close();
    const StrandSet got = readAlembicCurves(path).samples.at(0).strands;
    ASSERT_EQ(got.pointCount(), 15u);
    // Strand 2 runs from y 0 to 0.75 at x 2: resampled evenly, then doubled.
    for (int k = 0; k < 5; ++k) {
        EXPECT_FLOAT_EQ(got.strandPoints(2)[k].x, 4.0f);
        EXPECT_NEAR(got.strandPoints(2)[k].y, 2.0f * 0.75f * static_cast<float>(k) / 4.0f, 1e-6f);
    }
    EXPECT_FLOAT_EQ(got.strandWidths(0).front(), 0.2f);
    EXPECT_FLOAT_EQ(got.strandWidths(0).back(), 0.4f);
}

TEST(AlembicStrandsWriter, GroomLayoutCarriesEveryImporterAttributeWithItsScopeAndType) {
    TempFolder folder;
    const std::string path = folder.file("groom.abc");
    const ScalpUvs scalp{kCorners};
    StrandSet strands = smallSet();
    for (const char* c : {"colorR", "colorG", "colorB", "iridescence"}) strands.addPointChannel(c, 0.5f);
    strands.addStrandChannel("roughness", 0.3f);
    const StrandSet guides = smallSet(1.0f);
    AlembicWriterOptions options;
    options.writeAo = true;
    AlembicWriter writer(path, options);
    writer.setGroomSpace("Z", 10.0);
    writer.writeGroomFrame(strands, &guides, &scalp);
    writer.close();

    using abc::GeometryScope;
    using abc::Pod;
    struct Expected {
        const char* name;
        Pod pod;
        int extent;
        GeometryScope scope;
    };
    const std::vector<Expected> strandAttributes = {
        {"groom_version_major", Pod::Int32, 1, GeometryScope::Constant},
        {"groom_version_minor", Pod::Int32, 1, GeometryScope::Constant},
        {"groom_group_name", Pod::String, 1, GeometryScope::Constant},
        {"groom_group_id", Pod::Int32, 1, GeometryScope::Uniform},
        {"groom_id", Pod::Int32, 1, GeometryScope::Uniform},
        {"tressora_strand_id_low", Pod::Uint32, 1, GeometryScope::Uniform},
        {"tressora_strand_id_high", Pod::Uint32, 1, GeometryScope::Uniform},
        {"groom_width", Pod::Float32, 1, GeometryScope::Vertex},
        {"groom_root_uv", Pod::Float32, 2, GeometryScope::Uniform},
        {"groom_color", Pod::Float32, 3, GeometryScope::Vertex},
        {"groom_roughness", Pod::Float32, 1, GeometryScope::Uniform},
        {"groom_clump_id", Pod::Int32, 1, GeometryScope::Uniform},
        {"groom_iridescence", Pod::Float32, 1, GeometryScope::Vertex},
        {"groom_ao", Pod::Float32, 1, GeometryScope::Vertex},
    };
    const abc::ArchiveReader archive(path);
    abc::CurvesData data;
    const auto check = [&](const char* object, const std::vector<Expected>& expected) {
        SCOPED_TRACE(object);
        const abc::ObjectReader* found = archive.findObject(object);
        ASSERT_NE(found, nullptr);
        const abc::CurvesReader curves(*found);
        ASSERT_EQ(curves.arbGeomParams().size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const abc::GeomParamReader& p = curves.arbGeomParams()[i];
            EXPECT_EQ(p.name(), expected[i].name);
            EXPECT_EQ(p.type().pod, expected[i].pod) << expected[i].name;
            EXPECT_EQ(p.type().extent, expected[i].extent) << expected[i].name;
            EXPECT_EQ(p.scope(), expected[i].scope) << expected[i].name;
        }
        data = curves.read(0);
    };
    check("/strands", strandAttributes);
    // Z up at 10 cm per unit: (x, y, z) becomes (10x, -10y, 10z).
    ASSERT_EQ(data.positions.size(), 9u);
    EXPECT_EQ(data.positions[1], (Vec3f{0.0f, -2.5f, -15.0f}));

    std::vector<Expected> guideAttributes(strandAttributes.begin(), strandAttributes.begin() + 8);
    guideAttributes.push_back({"groom_guide", Pod::Int32, 1, GeometryScope::Constant});
    guideAttributes.push_back({"groom_clump_id", Pod::Int32, 1, GeometryScope::Uniform});
    check("/guides", guideAttributes);

    // The reader joins the id halves and takes the groom widths.
    const ReadCurves read = readAlembicCurves(path, "strands");
    EXPECT_EQ(spanVector(read.samples[0].strands.ids()), spanVector(strands.ids()));
    EXPECT_FLOAT_EQ(read.samples[0].strands.widths()[2], 3.0f);
    EXPECT_EQ(read.samples[0].rootUvs.size(), 3u);
}

TEST(AlembicStrandsWriter, GroomSpaceFromYUpSwapsAxes) {
    EXPECT_EQ(alembic_out::toImporterSpace(Vec3f{1, 2, 3}, false, 2.0f), (Vec3f{2, 6, 4}));
}

TEST(AlembicStrandsWriter, RefusesCallsThatDoNotFitTheFirstFrame) {
    TempFolder folder;
    const StrandSet set = smallSet();
    const AlembicStrandGroup groups[] = {{"a", &set}};
    const AlembicGroomGroup groomGroups[] = {{"a", 1, &set, nullptr}};
    {
        AlembicWriter w(folder.file("1.abc"));
        w.writeFrame(set);
        EXPECT_EQ(errorText([&] { w.writeFrame(groups); }), "the strands were written without groups");
        EXPECT_EQ(errorText([&] { w.setGroomSpace("Z", 1.0); }), "the space is set before the first frame");
    }
    {
        AlembicWriter w(folder.file("2.abc"));
        w.writeFrame(groups);
        EXPECT_EQ(errorText([&] { w.writeFrame(set); }), "the strands were written in groups");
    }
    {
        AlembicWriter w(folder.file("3.abc"));
        w.writeGroomFrame(set);
        EXPECT_EQ(errorText([&] { w.writeGroomFrame(groomGroups); }), "the groom was written without groups");
    }
    {
        AlembicWriter w(folder.file("4.abc"));
        w.writeGroomFrame(groomGroups);
        EXPECT_EQ(errorText([&] { w.writeGroomFrame(set); }), "the groom was written in groups");
        w.close();
        EXPECT_EQ(errorText([&] { w.writeGroomFrame(groomGroups); }), "writer is closed");
        EXPECT_EQ(errorText([&] { w.close(); }), "writer is closed");
    }
    AlembicWriterOptions bad;
    bad.scale = 0.0f;
    EXPECT_EQ(errorText([&] { AlembicWriter w(folder.file("5.abc"), bad); }), "the scale must be positive");
    bad.scale = 1.0f;
    bad.resampleCount = 1;
    EXPECT_EQ(errorText([&] { AlembicWriter w(folder.file("5.abc"), bad); }), "strands need at least 2 points");
    AlembicWriter w(folder.file("6.abc"));
    EXPECT_EQ(errorText([&] { w.setGroomSpace("X", 1.0); }), "the up axis is \"Y\" or \"Z\", not \"X\"");
    EXPECT_EQ(errorText([&] { w.setGroomSpace("Y", -1.0); }), "the centimeters per unit must be positive");
}

TEST(AlembicStrandsWriter, GroupsMustStayApartAfterSanitising) {
    TempFolder folder;
    const StrandSet set = smallSet();
    AlembicWriter w(folder.file("g.abc"));
    const AlembicStrandGroup clash[] = {{"a-b", &set}, {"a b", &set}};
    EXPECT_EQ(errorText([&] { w.writeFrame(clash); }), "two groups named 'a_b'");
    const AlembicGroomGroup sameId[] = {{"x", 3, &set, nullptr}, {"y", 3, &set, nullptr}};
    AlembicWriter g(folder.file("h.abc"));
    EXPECT_EQ(errorText([&] { g.writeGroomFrame(sameId); }), "two groups with the id 3");
    // A refused frame leaves the writer usable.
    const AlembicStrandGroup fine[] = {{"a-b", &set}, {"c", nullptr}};
    w.writeFrame(fine);
    w.close();
    const ReadCurves read = readAlembicCurves(folder.file("g.abc"));
    EXPECT_EQ(read.samples.at(0).strands.strandCount(), 3u);
    EXPECT_EQ(readAlembicCurves(folder.file("g.abc"), "c").samples.at(0).strands.strandCount(), 0u);
}

TEST(AlembicStrandsWriter, DestroyedWithoutCloseLeavesTheTargetAlone) {
    TempFolder folder;
    const std::string path = folder.file("keep.abc");
    {
        AlembicWriter w(path);
        w.writeFrame(smallSet());
        w.close();
    }
    const std::uint64_t before = curvesHash(readAlembicCurves(path));
    {
        AlembicWriter w(path);
        w.writeFrame(smallSet(5.0f));
    }
    EXPECT_EQ(curvesHash(readAlembicCurves(path)), before);
    EXPECT_EQ(folder.names(), std::vector<std::string>{"keep.abc"});
}

TEST(AlembicStrandsWriter, ScaleMeshGoesToItsOwnMeshWithFacesClockwise) {
    TempFolder folder;
    const std::string path = folder.file("scales.abc");
    ScaleMesh mesh;
    mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    mesh.triangles = {{0, 1, 2}};
    mesh.faceColours = {{1, 0, 0}};
    AlembicWriter w(path);
    w.writeFrame(smallSet(), nullptr, &mesh);
    w.close();
    const ReadMesh read = readAlembicMesh(path, "scales");
    EXPECT_EQ(read.object, "/scales/scalesShape");
    EXPECT_EQ(read.faceIndices, (std::vector<std::int32_t>{0, 2, 1}));
    ASSERT_EQ(read.samples.size(), 1u);
    EXPECT_EQ(read.samples[0].points, mesh.points);
    EXPECT_EQ(errorText([&] { readAlembicMesh(path, "scalp"); }), "no polygon mesh named 'scalp'");
    EXPECT_EQ(errorText([&] { readAlembicCurves(path, "hair"); }), "no curves named 'hair'");
}

TEST(AlembicCurvesReader, ZeroPointCurvesAndEmptyArchivesPass) {
    TempFolder folder;
    const std::string path = folder.file("zero.abc");
    StrandSet set = smallSet();
    set.addStrand(99, StrandRoot{}, {});
    {
        AlembicWriter w(path);
        w.writeFrame(set);
        w.close();
    }
    EXPECT_EQ(readAlembicCurves(path).samples.at(0).strands.strandCount(), 4u);

    // Curves with no samples at all: no frames, and the total of no samples.
    const std::string empty = folder.file("nosamples.abc");
    {
        abc::ArchiveWriter archive(empty);
        archive.top().addChild<abc::CurvesWriter>("c", 0);
        archive.close();
    }
    const ReadCurves none = readAlembicCurves(empty);
    EXPECT_TRUE(none.samples.empty());
    EXPECT_EQ(curvesHash(none), hash64(0));
}

TEST(AlembicCurvesReader, ReadsTheReferenceGroomLayoutAndMesh) {
    const std::string dir = abc::testing::referenceDir();
    TRESSORA_REQUIRE_DIR(dir);
    const ReadCurves groom = readAlembicCurves(dir + "/curves_groom_layout.abc", "strands");
    ASSERT_EQ(groom.samples.size(), 1u);
    EXPECT_EQ(spanVector(groom.samples[0].strands.ids()),
              (std::vector<std::uint64_t>{1, 4294967297ull, 18446744073709551615ull}));
    EXPECT_FLOAT_EQ(groom.samples[0].strands.widths()[4], 0.033203125f);
    const ReadMesh mesh = readAlembicMesh(dir + "/mesh_animated.abc", "scalp");
    EXPECT_EQ(mesh.faceCounts.size(), 6u);
    ASSERT_EQ(mesh.samples.size(), 3u);
    EXPECT_EQ(mesh.samples[2].points[0], (Vec3f{1.5f, -0.5f, -0.5f}));
}

}  // namespace
}  // namespace tressora
