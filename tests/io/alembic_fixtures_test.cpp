// Archives written by other applications (Maya, Houdini, Blender, Cortex, USD tools, Alembic
// 1.6 to 1.8): every one reads whole, its stored hashes agree with its content, and the
// facts their sources record come back.

#include <gtest/gtest.h>

#include <numeric>

#include "core/errors.h"
#include "io/alembic/abc_dump.h"
#include "io/alembic/abc_verify.h"
#include "io/alembic/geom_reader.h"
#include "io/alembic_test_support.h"

namespace tressora::abc {
namespace {

using namespace testing;

// Reads every sample of every property below `property`.
void readAll(const PropertyReader& property) {
    if (property.isCompound()) {
        for (const PropertyReader& child : property.children()) readAll(child);
        return;
    }
    for (std::uint32_t i = 0; i < property.numSamples(); ++i) {
        const SampleView view = property.sample(i);
        if (isStringPod(property.type().pod))
            EXPECT_EQ(property.strings(i).size(), view.count * property.type().extent) << property.path();
        else
            EXPECT_EQ(property.numbers(i).size(), view.count * property.type().extent) << property.path();
    }
}

// Reads every schema sample the geometry readers know, checking the topology adds up.
void readSchemas(const ObjectReader& object) {
    if (isXform(object)) {
        const XformReader reader(object);
        for (std::uint32_t i = 0; i < reader.numSamples(); ++i) reader.read(i);
    } else if (isCurves(object)) {
        const CurvesReader reader(object);
        for (std::uint32_t i = 0; i < reader.numSamples(); ++i) {
            const CurvesData d = reader.read(i);
            EXPECT_EQ(std::accumulate(d.vertexCounts.begin(), d.vertexCounts.end(), std::size_t{0}), d.positions.size())
                << object.fullName();
        }
    } else if (isPolyMesh(object)) {
        const PolyMeshReader reader(object);
        for (std::uint32_t i = 0; i < reader.numSamples(); ++i) {
            const PolyMeshData d = reader.read(i);
            EXPECT_EQ(std::accumulate(d.faceCounts.begin(), d.faceCounts.end(), std::size_t{0}), d.faceIndices.size());
            for (std::int32_t index : d.faceIndices) ASSERT_LT(static_cast<std::size_t>(index), d.positions.size());
            if (d.uvs) d.uvs->expanded(object.fullName());
        }
    }
}

TEST(AlembicFixtures, EveryArchiveReadsWholeAndItsHashesAgreeWithItsContent) {
    const std::string dir = fixtureDir();
    TRESSORA_REQUIRE_DIR(dir);
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(dir))
        if (entry.path().extension() == ".abc") files.push_back(entry.path().string());
    if (const std::string ref = referenceDir(); !ref.empty())
        for (const auto& entry : fs::directory_iterator(ref))
            if (entry.path().extension() == ".abc") files.push_back(entry.path().string());
    ASSERT_GE(files.size(), 7u);
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        const ArchiveReader archive(file);
        readAll(archive.top().properties());
        archive.forEachObject([](const ObjectReader& object) {
            readAll(object.properties());
            readSchemas(object);
        });
        EXPECT_EQ(verifyObjectHashes(archive), std::vector<std::string>{});
        EXPECT_EQ(verifySampleKeys(archive), std::vector<std::string>{});
        EXPECT_FALSE(dumpArchive(archive).empty());
    }
}

ArchiveReader openFixture(const std::string& name) { return ArchiveReader(fixtureDir() + "/" + name); }

TEST(AlembicFixtures, CortexCurvesKeepTheirKindsAndAcyclicTime) {
    TRESSORA_REQUIRE_DIR(fixtureDir());
    const ArchiveReader archive = openFixture("cortex-curves.abc");
    EXPECT_TRUE(archive.timeSamplings().at(1).sampling.isAcyclic());
    struct Expected {
        const char* path;
        CurveType type;
        CurveWrap wrap;
        CurveBasis basis;
        std::size_t points;
    };
    for (const Expected& e : {Expected{"/nurbsCircle/object", CurveType::Cubic, CurveWrap::Periodic, CurveBasis::BSpline, 11},
                              Expected{"/curve/object", CurveType::Cubic, CurveWrap::NonPeriodic, CurveBasis::BSpline, 4},
                              Expected{"/linearLine/object", CurveType::Linear, CurveWrap::NonPeriodic, CurveBasis::Bezier, 2}}) {
        const CurvesData d = CurvesReader(*archive.findObject(e.path)).read(0);
        EXPECT_EQ(d.type, e.type) << e.path;
        EXPECT_EQ(d.wrap, e.wrap) << e.path;
        EXPECT_EQ(d.basis, e.basis) << e.path;
        EXPECT_EQ(d.positions.size(), e.points) << e.path;
        EXPECT_EQ(d.velocities.size(), e.points) << e.path;
        EXPECT_EQ(d.time, archive.timeSamplings()[1].sampling.storedTimes[0]);
    }
}

TEST(AlembicFixtures, HoudiniCurvesCarryVertexWidthsAndColourParams) {
    TRESSORA_REQUIRE_DIR(fixtureDir());
    const ArchiveReader archive = openFixture("cortex-widthTest.abc");
    const CurvesReader cubic(*archive.findObject("/cubic/curve"));
    const CurvesData d = cubic.read(0);
    ASSERT_TRUE(d.widths);
    EXPECT_EQ(d.widths->scope, GeometryScope::Vertex);
    EXPECT_EQ(d.widths->count, d.positions.size());
    EXPECT_FALSE(d.knots.empty());
    const GeomParamReader* cd = cubic.arbGeomParam("Cd");
    ASSERT_NE(cd, nullptr);
    EXPECT_EQ(cd->interpretation(), "rgb");
    EXPECT_EQ(cd->type(), (DataType{Pod::Float32, 3}));
    EXPECT_EQ(cd->read(0).elements<Vec3f>(Pod::Float32).size(), d.positions.size());
    EXPECT_NE(cubic.arbGeomParam("ramp"), nullptr);
    EXPECT_EQ(CurvesReader(*archive.findObject("/linear/curve")).read(0).type, CurveType::Linear);
    EXPECT_THROW(CurvesReader(*archive.findObject("/points/fromTheCurve")), AlembicError);
}

TEST(AlembicFixtures, MayaAnimatedCubeKeepsItsPropertyOrderAndChangingSamples) {
    TRESSORA_REQUIRE_DIR(fixtureDir());
    const ArchiveReader archive = openFixture("cortex-animatedCube.abc");
    const ObjectReader& shape = *archive.findObject("/pCube1/pCubeShape1");
    std::vector<std::string> names;
    for (const PropertyReader& p : shape.properties().find(".geom")->children()) names.push_back(p.name());
    EXPECT_EQ(names, (std::vector<std::string>{".selfBnds", ".faceIndices", "P", "N", ".faceCounts"}));
    const PolyMeshReader mesh(shape);
    ASSERT_EQ(mesh.numSamples(), 10u);
    EXPECT_EQ(mesh.geom().find("P")->header().firstChanged, 1u);
    EXPECT_EQ(mesh.geom().find("P")->header().lastChanged, 9u);
    for (std::uint32_t i = 0; i < 10; ++i) {
        const PolyMeshData d = mesh.read(i);
        EXPECT_EQ(d.time, 1.0 / 24.0 + i * (1.0 / 24.0));
        EXPECT_EQ(d.faceCounts, std::vector<std::int32_t>(6, 4));
        ASSERT_TRUE(d.normals);
        EXPECT_EQ(d.normals->scope, GeometryScope::FaceVarying);
        EXPECT_EQ(d.normals->count, 24u);
    }
    // Translate, three rotations and a scale; only the translation moves.
    const XformReader xform(*archive.findObject("/pCube1"));
    const std::vector<double> vals = archive.findObject("/pCube1")->properties().find(".xform")->find(".vals")->numbers(5);
    const XformData d = xform.read(5);
    EXPECT_EQ(d.matrix[12], vals[0]);
    EXPECT_EQ(d.matrix[13], vals[1]);
    EXPECT_EQ(d.matrix[0], vals[6]);
}

TEST(AlembicFixtures, BlenderMeshHasIndexedNamedUvsAndUserProperties) {
    TRESSORA_REQUIRE_DIR(fixtureDir());
    const ArchiveReader archive = openFixture("usd-indexedTextureCoordinates.abc");
    EXPECT_EQ(archive.metadata().get("blender_version"), "v2.79");
    EXPECT_EQ(archive.metadata().get("FramesPerTimeUnit"), "24.000000");
    const PolyMeshReader mesh(*archive.findObject("/Cube/CubeShape"));
    const PolyMeshData d = mesh.read(0);
    ASSERT_TRUE(d.uvs);
    EXPECT_TRUE(d.uvs->indexed);
    EXPECT_EQ(d.uvs->scope, GeometryScope::FaceVarying);
    EXPECT_EQ(d.uvs->indices.size(), d.faceIndices.size());
    EXPECT_EQ(d.uvs->expanded().count, d.faceIndices.size());
    EXPECT_EQ(mesh.geom().find("uv")->metadata().get("sourceName"), "UVMap");
    ASSERT_NE(mesh.userProperties(), nullptr);
    EXPECT_EQ(mesh.userProperties()->find("meshtype")->type().pod, Pod::Bool);
    const XformData cube = XformReader(*archive.findObject("/Cube")).read(0);
    EXPECT_EQ(cube.matrix, (std::array<double, 16>{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));
}

TEST(AlembicFixtures, HoudiniThirtyFrameMeshTimesItsSamplesAtThirtyPerSecond) {
    TRESSORA_REQUIRE_DIR(fixtureDir());
    const ArchiveReader archive = openFixture("usd-testusdtimecode.abc");
    EXPECT_EQ(archive.metadata().get("_ai_DCC_FPS"), "30.000000");
    const PolyMeshReader mesh(*archive.findObject("/font1/transform1"));
    ASSERT_EQ(mesh.numSamples(), 30u);
    EXPECT_EQ(mesh.read(29).time, 1.0 / 30.0 + 29 * (1.0 / 30.0));
    EXPECT_EQ(archive.timeSamplings()[1].maxSamples, 30u);
}

TEST(AlembicFixtures, MayaCurveHierarchyHasSixShapesWithConstantWidths) {
    TRESSORA_REQUIRE_DIR(fixtureDir());
    const ArchiveReader archive = openFixture("usd-testUsdAbcXformPrimCollapsing.abc");
    std::vector<std::size_t> points;
    archive.forEachObject([&](const ObjectReader& object) {
        if (!isCurves(object)) return;
        const CurvesData d = CurvesReader(object).read(0);
        points.push_back(d.positions.size());
        ASSERT_TRUE(d.widths);
        EXPECT_EQ(d.widths->scope, GeometryScope::Constant);
        EXPECT_EQ(d.widths->as<float>(), std::vector<float>{0.1f});
        EXPECT_TRUE(CurvesReader(object).geom().find("width")->header().scalarLike);
    });
    EXPECT_EQ(points, (std::vector<std::size_t>{19, 38, 34, 15, 27, 22}));
}

}  // namespace
}  // namespace tressora::abc
