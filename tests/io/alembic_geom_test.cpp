// Curves, meshes and transforms written by our schema writers come back through the schema
// readers with every param kind, scope and interpretation; bad samples are refused.

#include <gtest/gtest.h>

#include <cmath>

#include "core/errors.h"
#include "io/alembic/abc_verify.h"
#include "io/alembic/geom_reader.h"
#include "io/alembic_test_support.h"

namespace tressora::abc {
namespace {

using namespace testing;

template <class T>
std::span<const T> spanOf(const std::vector<T>& v) {
    return std::span<const T>(v);
}

struct CurvesFile {
    TempFolder scratch;
    std::string path = scratch.file("curves.abc");
    std::vector<Vec3f> points{{0, 0, 0}, {0, 1, 0}, {0, 2, 0}, {0, 3, 0}, {1, 0, 0}, {1, 1, 0}, {1, 2, 0}, {1, 3, 0}};
    std::vector<std::int32_t> counts{4, 4};
};

TEST(AlembicGeom, CurvesKeepEveryParamKindScopeAndInterpretation) {
    CurvesFile f;
    const std::vector<float> width{0.5f};
    const std::vector<Vec2f> uvs{{0.25f, 0.5f}, {0.75f, 0.5f}};
    const std::vector<Vec3f> normals{{0, 0, 1}, {0, 1, 0}};
    const std::vector<std::uint32_t> normalIndex{0, 1, 1, 0, 0, 0, 1, 1};
    {
        ArchiveWriter archive(f.path);
        const std::uint32_t ts = archive.addTimeSampling(TimeSampling::uniform(0.04, 1.0));
        auto& curves = archive.top().addChild<CurvesWriter>("hair", ts);
        auto& var = curves.addArbGeomParam("var", GeomParamType::float32(), GeometryScope::Varying);
        auto& fvr = curves.addArbGeomParam("fvr", GeomParamType::int32(), GeometryScope::FaceVarying);
        auto& low = curves.addArbGeomParam("low", GeomParamType::uint32(), GeometryScope::Uniform);
        auto& ids = curves.addArbGeomParam("ids", GeomParamType::uint64(), GeometryScope::Uniform);
        auto& tag = curves.addArbGeomParam("tag", GeomParamType::string(), GeometryScope::Constant);
        auto& dir = curves.addArbGeomParam("dir", GeomParamType::vec3(), GeometryScope::Vertex);
        auto& rgb = curves.addArbGeomParam("rgb", GeomParamType::color3(), GeometryScope::Uniform, true);
        curves.userProperties().addScalar("note", {Pod::String, 1}).writeStrings(std::vector<std::string>{"hi"});
        CurvesSample sample;
        sample.positions = f.points;
        sample.vertexCounts = f.counts;
        sample.type = CurveType::Cubic;
        sample.wrap = CurveWrap::Periodic;
        sample.basis = CurveBasis::CatmullRom;
        sample.widths = GeomValues<float>{width, GeometryScope::Constant};
        sample.uvs = GeomValues<Vec2f>{uvs, GeometryScope::Uniform};
        sample.normals = GeomValues<Vec3f>{normals, normalIndex, GeometryScope::Vertex};
        sample.velocities = std::span<const Vec3f>(f.points);
        curves.write(sample);
        var.writeValues(spanOf(std::vector<float>{1, 2}));
        fvr.writeValues(spanOf(std::vector<std::int32_t>{-1}));
        low.writeValues(spanOf(std::vector<std::uint32_t>{4000000000u, 1}));
        ids.writeValues(spanOf(std::vector<std::uint64_t>{~0ull, 1ull << 40}));
        tag.writeStrings(std::vector<std::string>{"guide"});
        dir.write(std::as_bytes(std::span(f.points)), f.points.size());
        const std::vector<Vec3f> colours{{1, 0, 0}};
        rgb.writeIndexed(std::as_bytes(std::span(colours)), 1, std::vector<std::uint32_t>{0, 0});
        archive.close();
    }
    const ArchiveReader archive(f.path);
    const CurvesReader reader(*archive.findObject("/hair"));
    const CurvesData d = reader.read(0);
    EXPECT_EQ(d.time, 1.0);
    EXPECT_EQ(d.positions, f.points);
    EXPECT_EQ(d.vertexCounts, f.counts);
    EXPECT_EQ(d.type, CurveType::Cubic);
    EXPECT_EQ(d.wrap, CurveWrap::Periodic);
    EXPECT_EQ(d.basis, CurveBasis::CatmullRom);
    EXPECT_EQ(d.velocities, f.points);
    EXPECT_EQ(d.selfBounds->values(), (std::array<double, 6>{0, 0, 0, 1, 3, 0}));
    EXPECT_EQ(d.widths->as<float>(), width);
    EXPECT_EQ(d.widths->scope, GeometryScope::Constant);
    EXPECT_EQ(d.uvs->elements<Vec2f>(Pod::Float32), uvs);
    EXPECT_EQ(d.uvs->interpretation, "vector");
    EXPECT_TRUE(d.normals->indexed);
    EXPECT_EQ(d.normals->interpretation, "normal");
    EXPECT_EQ(d.normals->expanded().elements<Vec3f>(Pod::Float32)[2], (Vec3f{0, 1, 0}));

    struct Expected {
        const char* name;
        const char* scope;
        const char* interpretation;
        const char* podName;
    };
    for (const Expected& e : {Expected{"var", "var", "", "float32_t"}, Expected{"fvr", "fvr", "", "int32_t"},
                              Expected{"low", "uni", "", "uint32_t"}, Expected{"ids", "uni", "", "uint64_t"},
                              Expected{"tag", "con", "", "string"}, Expected{"dir", "vtx", "vector", "float32_t"},
                              Expected{"rgb", "uni", "rgb", "float32_t"}}) {
        const GeomParamReader* p = reader.arbGeomParam(e.name);
        ASSERT_NE(p, nullptr) << e.name;
        EXPECT_EQ(scopeToken(p->scope()), e.scope);
        EXPECT_EQ(p->interpretation(), e.interpretation);
        EXPECT_EQ(p->values().metadata().get("podName"), e.podName);
        EXPECT_EQ(p->values().metadata().get("isGeomParam"), "true");
    }
    EXPECT_EQ(reader.arbGeomParam("ids")->read(0).as<std::uint64_t>(), (std::vector<std::uint64_t>{~0ull, 1ull << 40}));
    EXPECT_EQ(reader.arbGeomParam("low")->read(0).numbers(), (std::vector<double>{4000000000.0, 1.0}));
    EXPECT_EQ(reader.arbGeomParam("tag")->read(0).strings, std::vector<std::string>{"guide"});
    EXPECT_EQ(reader.arbGeomParam("rgb")->read(0).expanded().count, 2u);
    EXPECT_EQ(reader.userProperties()->find("note")->strings(0), std::vector<std::string>{"hi"});
    EXPECT_TRUE(verifyObjectHashes(archive).empty());
}

TEST(AlembicGeom, ParamsGivenLateAreEmptyBeforeAndRepeatWhenLeftOut) {
    CurvesFile f;
    const std::vector<float> widths1(8, 0.1f), widths2(8, 0.2f);
    const std::vector<Vec2f> uvs{{0, 0}, {1, 1}};
    {
        ArchiveWriter archive(f.path);
        auto& curves = archive.top().addChild<CurvesWriter>("hair", 0);
        for (int frame = 0; frame < 4; ++frame) {
            CurvesSample sample;
            sample.positions = f.points;
            sample.vertexCounts = f.counts;
            if (frame >= 2) sample.uvs = GeomValues<Vec2f>{uvs, GeometryScope::Uniform};
            if (frame == 0) sample.widths = GeomValues<float>{widths1, GeometryScope::Vertex};
            if (frame == 1) sample.widths = GeomValues<float>{widths2, GeometryScope::Vertex};
            curves.write(sample);
        }
        archive.close();
    }
    const ArchiveReader archive(f.path);
    const CurvesReader reader(*archive.findObject("/hair"));
    ASSERT_EQ(reader.numSamples(), 4u);
    EXPECT_EQ(reader.read(1).uvs->count, 0u);
    EXPECT_EQ(reader.read(3).uvs->count, 2u);
    EXPECT_EQ(reader.read(3).widths->as<float>(), widths2);
    EXPECT_EQ(reader.read(0).widths->as<float>(), widths1);
}

TEST(AlembicGeom, PolyMeshesKeepFlatAndIndexedUvsWithTheirSetName) {
    TempFolder scratch;
    const std::string path = scratch.file("mesh.abc");
    const std::vector<Vec3f> points{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    const std::vector<std::int32_t> indices{0, 1, 2, 3}, counts{4};
    const std::vector<Vec2f> flat{{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    const std::vector<std::uint32_t> uvIndex{3, 2, 1, 0};
    {
        ArchiveWriter archive(path);
        auto& a = archive.top().addChild<PolyMeshWriter>("flat", 0);
        auto& b = archive.top().addChild<PolyMeshWriter>("indexed", 0);
        b.setUvSourceName("map1");
        PolyMeshSample sample;
        sample.positions = points;
        sample.faceIndices = indices;
        sample.faceCounts = counts;
        sample.uvs = GeomValues<Vec2f>{flat, GeometryScope::FaceVarying};
        a.write(sample);
        sample.uvs = GeomValues<Vec2f>{flat, uvIndex, GeometryScope::FaceVarying};
        b.write(sample);
        EXPECT_THROW(b.setUvSourceName("late"), std::logic_error);
        archive.close();
    }
    const ArchiveReader archive(path);
    const PolyMeshData a = PolyMeshReader(*archive.findObject("/flat")).read(0);
    EXPECT_EQ(a.faceIndices, indices);
    EXPECT_EQ(a.faceCounts, counts);
    EXPECT_FALSE(a.uvs->indexed);
    EXPECT_EQ(a.uvs->elements<Vec2f>(Pod::Float32), flat);
    const PolyMeshReader indexed(*archive.findObject("/indexed"));
    const PolyMeshData b = indexed.read(0);
    EXPECT_TRUE(b.uvs->indexed);
    EXPECT_EQ(b.uvs->indices, uvIndex);
    EXPECT_EQ(b.uvs->expanded().elements<Vec2f>(Pod::Float32)[0], (Vec2f{0, 1}));
    EXPECT_EQ(indexed.geom().find("uv")->metadata().get("sourceName"), "map1");
    EXPECT_EQ(indexed.geom().find("uv")->find(".vals")->metadata().get("sourceName"), "map1");
}

TEST(AlembicGeom, WritersRefuseSamplesThatDoNotAddUp) {
    TempFolder scratch;
    ArchiveWriter archive(scratch.file("bad.abc"));
    auto& curves = archive.top().addChild<CurvesWriter>("c", 0);
    auto& mesh = archive.top().addChild<PolyMeshWriter>("m", 0);
    const std::vector<Vec3f> points(3);
    const std::vector<std::int32_t> tooMany{4}, negative{-1, 4}, three{3};
    const std::vector<float> widths(2);
    CurvesSample c;
    c.positions = points;
    c.vertexCounts = tooMany;
    EXPECT_THROW(curves.write(c), std::invalid_argument);
    c.vertexCounts = negative;
    EXPECT_THROW(curves.write(c), std::invalid_argument);
    c.vertexCounts = three;
    c.widths = GeomValues<float>{widths, GeometryScope::Vertex};
    EXPECT_THROW(curves.write(c), std::invalid_argument);
    PolyMeshSample m;
    m.positions = points;
    const std::vector<std::int32_t> faceIndices{0, 1, 5};
    m.faceIndices = faceIndices;
    m.faceCounts = three;
    EXPECT_THROW(mesh.write(m), std::invalid_argument);
    const std::vector<std::int32_t> good{0, 1, 2};
    m.faceIndices = good;
    const std::vector<Vec2f> uv(1);
    const std::vector<std::uint32_t> pastTheEnd{0, 0, 1};
    m.uvs = GeomValues<Vec2f>{uv, pastTheEnd, GeometryScope::FaceVarying};
    EXPECT_THROW(mesh.write(m), std::invalid_argument);
    EXPECT_EQ(curves.numSamples(), 0u);
}

TEST(AlembicGeom, BoundsSkipNanPointsAndStayEmptyWithoutPoints) {
    const float nan = std::nanf("");
    std::vector<Vec3f> points(200000, Vec3f{1, 2, 3});
    points[0] = {nan, nan, nan};
    points[150000] = {-4, 5, nan};
    const Box3d box = boundsOf(points);
    EXPECT_EQ(box.values(), (std::array<double, 6>{-4, 2, 3, 1, 5, 3}));
    EXPECT_EQ(boundsOf({}), Box3d{});
    EXPECT_TRUE(Box3d{}.isEmpty());

    TempFolder scratch;
    const std::string path = scratch.file("none.abc");
    {
        ArchiveWriter archive(path);
        archive.top().addChild<CurvesWriter>("c", 0).write(CurvesSample{});
        archive.close();
    }
    const ArchiveReader archive(path);
    const CurvesData d = CurvesReader(*archive.findObject("/c")).read(0);
    EXPECT_TRUE(d.positions.empty() && d.vertexCounts.empty());
    EXPECT_EQ(*d.selfBounds, Box3d{});
}

TEST(AlembicGeom, TransformsComposeTheirOperationsLikeTheLibrary) {
    TempFolder scratch;
    const std::string path = scratch.file("xform.abc");
    {
        ArchiveWriter archive(path);
        auto& plain = archive.top().addChild<XformWriter>("identity", 0);
        plain.writeIdentity(false);
        // Operations as Maya lists them: translate, rotate Z, scale; the scale applies first.
        auto& moved = archive.top().addChild("moved", schemaObjectMetaData(schemas::kXform, "", ".xform"));
        CompoundWriter& xform = moved.properties().addCompound(".xform", schemaCompoundMetaData(schemas::kXform, ""));
        xform.addScalar(".ops", {Pod::Uint8, 3}).writeValues(std::span<const std::uint8_t>(std::vector<std::uint8_t>{0x10, 0x60, 0x00}));
        xform.addScalar(".vals", {Pod::Float64, 7}).writeValues(spanOf(std::vector<double>{10, 0, 0, 90, 2, 2, 2}));
        archive.close();
    }
    const ArchiveReader archive(path);
    const XformData identity = XformReader(*archive.findObject("/identity")).read(0);
    EXPECT_FALSE(identity.inherits);
    EXPECT_EQ(identity.matrix, (std::array<double, 16>{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));
    const XformData moved = XformReader(*archive.findObject("/moved")).read(0);
    // The point (1, 0, 0) as a row vector: scaled to (2, 0, 0), turned to (0, 2, 0), moved to (10, 2, 0).
    const auto& m = moved.matrix;
    const double x = m[0] + m[12], y = m[1] + m[13], z = m[2] + m[14];
    EXPECT_NEAR(x, 10.0, 1e-12);
    EXPECT_NEAR(y, 2.0, 1e-12);
    EXPECT_NEAR(z, 0.0, 1e-12);
    EXPECT_TRUE(moved.inherits);
}

TEST(AlembicGeom, ReadersRefuseObjectsOfAnotherSchema) {
    TempFolder scratch;
    const std::string path = scratch.file("kinds.abc");
    {
        ArchiveWriter archive(path);
        archive.top().addChild<PolyMeshWriter>("mesh", 0);
        archive.top().addChild("plain");
        archive.close();
    }
    const ArchiveReader archive(path);
    EXPECT_THROW(CurvesReader(*archive.findObject("/mesh")), AlembicError);
    EXPECT_EQ(tressora::testing::errorText([&] { CurvesReader(*archive.findObject("/mesh")); }),
              "'" + path + "': '/mesh' is not curves (its schema is 'AbcGeom_PolyMesh_v1')");
    EXPECT_THROW(XformReader(*archive.findObject("/plain")), AlembicError);
    EXPECT_THROW(PolyMeshReader(*archive.findObject("/plain")), AlembicError);
    EXPECT_EQ(PolyMeshReader(*archive.findObject("/mesh")).numSamples(), 0u);
}

}  // namespace
}  // namespace tressora::abc
