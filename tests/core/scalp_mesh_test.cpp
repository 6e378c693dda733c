#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>

#include "core/expect_text.h"
#include "core/hash.h"
#include "core/scalp_mesh.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

/// Runs fn, expecting exception E with exactly this text.
template <class E, class Fn>
void expectThrowText(Fn&& fn, const std::string& text) {
    EXPECT_EQ(testing::failureText<E>(fn), text);
}

/// Two triangles sharing an edge: a unit square in z = 0, plus one isolated point.
ScalpMesh square() {
    return ScalpMesh({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {5, 5, 5}}, {{0, 1, 2}, {0, 2, 3}});
}

TEST(ScalpMesh, DerivesAreaWeightedNormalsAndAreas) {
    const ScalpMesh m = square();
    ASSERT_EQ(m.triangleAreas().size(), 2u);
    EXPECT_FLOAT_EQ(m.triangleAreas()[0], 0.5f);
    EXPECT_FLOAT_EQ(m.area(), 1.0f);
    EXPECT_EQ(m.normals()[0], (Vec3f{0, 0, 1}));
    EXPECT_EQ(m.normals()[4], (Vec3f{}));  // an isolated point keeps a zero normal

    // A corner shared by a big and a small face leans toward the big one.
    const ScalpMesh tent({{0, 0, 0}, {4, 0, 0}, {0, 4, 0}, {0, 0, 1}, {0, -1, 0}}, {{0, 1, 2}, {0, 3, 4}});
    const Vec3f n0 = tent.normals()[0];
    EXPECT_NEAR(length(n0), 1.0f, 1e-6f);
    EXPECT_GT(n0.z, std::fabs(n0.x) * 10.0f);
}

TEST(ScalpMesh, ZeroAreaFacesAddNothingAndNeverFail) {
    const ScalpMesh m({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 1, 0}}, {{0, 1, 2}, {0, 1, 3}, {1, 1, 1}});
    EXPECT_EQ(m.triangleAreas()[0], 0.0f);
    EXPECT_EQ(m.triangleAreas()[2], 0.0f);
    EXPECT_FLOAT_EQ(m.area(), 0.5f);
    EXPECT_EQ(m.normals()[2], (Vec3f{}));
    const SurfacePoint p = m.closestPoint({2.0f, 0.5f, 0.0f});
    EXPECT_GE(p.face, 0);
    EXPECT_FALSE(std::isnan(p.position.x));
}

TEST(ScalpMesh, ConstructorRefusesIndicesOutOfRange) {
    expectThrowText<std::out_of_range>([] { ScalpMesh({{0, 0, 0}, {1, 0, 0}}, {{0, 1, 2}}); },
                                       "ScalpMesh: triangle index out of range");
    expectThrowText<std::out_of_range>([] { ScalpMesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, -1, 2}}); },
                                       "ScalpMesh: triangle index out of range");
}

/// h folded with the bit patterns of the floats, in order.
std::uint64_t foldFloats(std::uint64_t h, std::initializer_list<float> values) {
    for (float v : values) h = combine(h, floatBits(v));
    return h;
}

TEST(ScalpMesh, HashesFollowTheirDocumentedLayout) {
    ScalpMesh m({{1, 2, 3}, {4, 5, 6}, {7, 8, -0.0f}}, {{0, 1, 2}});
    const std::uint64_t points = foldFloats(hash64(3), {1, 2, 3, 4, 5, 6, 7, 8, -0.0f});
    EXPECT_EQ(m.contentHash(), combine(combine(combine(points, 0), 1), 2));
    EXPECT_EQ(m.topologyHash(), combine(combine(combine(hash64(1 + 0x7090), 0), 1), 2));
    EXPECT_EQ(m.uvHash() | m.restHash() | m.polygonHash() | m.piecesHash(), 0u);

    m.setUvs({{0.5f, 0.25f}, {1, 0}, {0, 1}});
    EXPECT_EQ(m.uvHash(), foldFloats(0xC058D8EFD57D2162ull, {0.5f, 0.25f, 1, 0, 0, 1}));
    m.setColorSet("Cd", {{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}});
    EXPECT_EQ(m.colorHashes().at("Cd"), foldFloats(combineText(0, "Cd"), {1, 0, 0, 1, 0, 1, 0, 1, 0, 0, 1, 1}));
    m.setPolygons({1});
    EXPECT_EQ(m.polygonHash(), combine(hash64(1 + 0x9017), 1));
    m.setRestPoints({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    EXPECT_EQ(m.restHash(), foldFloats(0x29D8D899D59908F9ull, {0, 0, 0, 1, 0, 0, 0, 1, 0}));
    m.setPieces({{"head", 0, 1, 0, 3, 2, 1001u}});
    std::uint64_t pieces = combineText(hash64(1 + 0x5CA195), "head");
    for (std::uint64_t v : {0, 1, 0, 3, 2}) pieces = combine(pieces, v);
    EXPECT_EQ(m.piecesHash(), combine(pieces, hash64(1001 + 0x5D1F)));
}

TEST(ScalpMesh, SettersRefuseWrongSizesAndLeaveTheMeshUnchanged) {
    ScalpMesh m = square();
    m.setUvs({{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}});
    const std::uint64_t uvHash = m.uvHash();
    expectThrowText<std::invalid_argument>([&] { m.setUvs({{0, 0}}); },
                                           "ScalpMesh: expected one UV per triangle corner");
    EXPECT_EQ(m.uvHash(), uvHash);
    EXPECT_EQ(m.uvs().size(), 6u);

    expectThrowText<std::invalid_argument>([&] { m.setColorSet("Cd", {}); },
                                           "ScalpMesh: expected one color per triangle corner");
    EXPECT_EQ(m.colorSet("Cd"), nullptr);

    expectThrowText<std::invalid_argument>([&] { m.setPolygons({2, -1}); },
                                           "ScalpMesh: a polygon with a negative triangle count");
    expectThrowText<std::invalid_argument>([&] { m.setPolygons({1, 2}); },
                                           "ScalpMesh: the polygons' triangles (3) are not the mesh's (2)");
    EXPECT_TRUE(m.polygons().empty());

    expectThrowText<std::invalid_argument>([&] { m.setRestPoints({{0, 0, 0}}); },
                                           "ScalpMesh: rest points must match the mesh's point count");
    EXPECT_FALSE(m.hasRest());

    expectThrowText<std::invalid_argument>(
        [&] { m.setPieces({{"a", 0, 1, 0, 3, 0, {}}, {"b", 2, 1, 3, 2, 0, {}}}); },
        "ScalpMesh: the scalp 'b' does not follow the one before it");
    expectThrowText<std::invalid_argument>(
        [&] { m.setPieces({{"a", 0, 1, 0, 3, 0, {}}, {"b", 1, 1, 3, 1, 0, {}}}); },
        "ScalpMesh: the scalps' triangles and points are not the mesh's");
    EXPECT_TRUE(m.pieces().empty());

    m.setPieces({{"a", 0, 1, 0, 3, 0, {}}, {"b", 1, 1, 3, 2, 1, 1002u}});
    ASSERT_EQ(m.pieces().size(), 2u);
    EXPECT_EQ(m.pieces()[1].name, "b");
    m.setPieces({});
    EXPECT_TRUE(m.pieces().empty());
    EXPECT_EQ(m.piecesHash(), 0u);

    m.setUvs({});  // an empty UV array is legal and clears the hash
    EXPECT_EQ(m.uvHash(), 0u);
    EXPECT_FALSE(m.hasUvs());
}

TEST(ScalpMesh, RestPointsCarryTheirOwnAreas) {
    ScalpMesh m = square();
    m.setRestPoints({{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}, {0, 0, 0}});
    EXPECT_FLOAT_EQ(m.restArea(), 4.0f);
    EXPECT_FLOAT_EQ(m.restAreas()[1], 2.0f);
    EXPECT_FLOAT_EQ(m.area(), 1.0f);
    EXPECT_EQ(m.restPositionAt(0, 0.5f, 0.5f), (Vec3f{2, 1, 0}));
    m.setRestPoints({});
    EXPECT_EQ(m.restHash(), 0u);
    EXPECT_EQ(m.restArea(), 0.0f);
    EXPECT_EQ(m.restPositionAt(0, 0.5f, 0.5f), (Vec3f{1, 0.5f, 0}));
}

TEST(ScalpMesh, WithPointsKeepsEverythingButThePoints) {
    ScalpMesh m = square();
    m.setName("scalp");
    m.setUvs({{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}});
    m.setColorSet("Cd", std::vector<ScalpMesh::Color>(6, {1, 0.5f, 0, 1}));
    m.setPolygons({2});
    m.setRestPoints(std::vector<Vec3f>(m.points().begin(), m.points().end()));
    m.setPieces({{"a", 0, 2, 0, 5, 0, {}}});
    const ScalpMesh moved = m.withPoints({{0, 0, 1}, {2, 0, 1}, {2, 2, 1}, {0, 2, 1}, {5, 5, 5}});
    EXPECT_EQ(moved.name(), "scalp");
    EXPECT_EQ(moved.uvHash(), m.uvHash());
    EXPECT_EQ(moved.colorHashes(), m.colorHashes());
    EXPECT_EQ(moved.polygonHash(), m.polygonHash());
    EXPECT_EQ(moved.restHash(), m.restHash());
    EXPECT_EQ(moved.piecesHash(), m.piecesHash());
    EXPECT_EQ(moved.topologyHash(), m.topologyHash());
    EXPECT_NE(moved.contentHash(), m.contentHash());
    EXPECT_FLOAT_EQ(moved.area(), 4.0f);
    EXPECT_FLOAT_EQ(moved.restArea(), 1.0f);

    const std::uint64_t before = m.contentHash();
    expectThrowText<std::invalid_argument>([&] { (void)m.withPoints({{0, 0, 0}}); },
                                           "ScalpMesh: new points must match the mesh's point count");
    EXPECT_EQ(m.contentHash(), before);
    EXPECT_EQ(m.points().size(), 5u);
    EXPECT_EQ(moved.points()[1], (Vec3f{2, 0, 1}));
}

TEST(ScalpMesh, InterpolatesPositionsUvsColorsAndNormalsBarycentrically) {
    // One triangle with distinct corner data; weights (0.2, 0.3, 0.5).
    ScalpMesh m({{0, 0, 0}, {1, 0, 0}, {0, 1, 1}}, {{0, 1, 2}});
    m.setUvs({{0.0f, 0.0f}, {1.0f, 0.0f}, {0.0f, 2.0f}});
    m.setColorSet("Cd", {{1, 0, 0, 1}, {0, 1, 0, 0.5f}, {0, 0, 1, 0}});
    const float b1 = 0.3f, b2 = 0.5f;
    EXPECT_EQ(m.positionAt(0, b1, b2), (Vec3f{0.3f, 0.5f, 0.5f}));
    const auto uv = m.uvAt(0, b1, b2);
    EXPECT_FLOAT_EQ(uv[0], 0.3f);
    EXPECT_FLOAT_EQ(uv[1], 1.0f);
    const auto c = m.colorAt("Cd", 0, b1, b2);
    EXPECT_FLOAT_EQ(c[0], 0.2f);
    EXPECT_FLOAT_EQ(c[1], 0.3f);
    EXPECT_FLOAT_EQ(c[2], 0.5f);
    EXPECT_FLOAT_EQ(c[3], 0.35f);
    // Unknown names and faces give zero rather than failing.
    EXPECT_EQ(m.colorAt("nope", 0, b1, b2), (ScalpMesh::Color{0, 0, 0, 0}));
    EXPECT_EQ(m.colorAt("Cd", 1, b1, b2), (ScalpMesh::Color{0, 0, 0, 0}));
    EXPECT_EQ(m.colorAt("Cd", -1, b1, b2), (ScalpMesh::Color{0, 0, 0, 0}));
    EXPECT_EQ(m.positionAt(3, b1, b2), (Vec3f{}));

    // Normals: a bent strip whose corner normals differ; the mix is renormalised.
    const ScalpMesh bent({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 1}}, {{0, 1, 2}, {1, 3, 2}});
    const Vec3f mixed = bent.normalAt(1, 0.3f, 0.3f);
    const Vec3f expect = normalized(bent.normals()[1] * 0.4f + bent.normals()[3] * 0.3f + bent.normals()[2] * 0.3f);
    EXPECT_NEAR(length(mixed), 1.0f, 1e-6f);
    EXPECT_EQ(mixed, expect);
    // The closest point's normal is that interpolation too.
    const SurfacePoint p = bent.closestPoint(bent.positionAt(1, 0.3f, 0.3f) + Vec3f{0, 0, 1e-3f});
    EXPECT_NEAR(dot(p.normal, expect), 1.0f, 1e-4f);
}

}  // namespace
}  // namespace tressora
