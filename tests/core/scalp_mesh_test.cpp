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

using testing::fails;

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
    for (const ScalpMesh::Triangle t : {ScalpMesh::Triangle{0, 1, 2}, ScalpMesh::Triangle{0, -1, 1}}) {
        EXPECT_EQ(testing::failureText<std::out_of_range>([&] { ScalpMesh({{0, 0, 0}, {1, 0, 0}}, {t}); }),
                  "ScalpMesh: triangle index out of range");
    }
}

// Pinned: groom files keep the scalp's topology hash, and caches key on the others.
TEST(ScalpMesh, HashesArePinned) {
    ScalpMesh m({{1, 2, 3}, {4, 5, 6}, {7, 8, -0.0f}}, {{0, 1, 2}});
    EXPECT_EQ(m.contentHash(), 0x84a2ee31fddcf9abull);
    EXPECT_EQ(m.topologyHash(), 0xc38d55eaf763640bull);
    EXPECT_EQ(m.uvHash() | m.restHash() | m.polygonHash() | m.piecesHash(), 0u);
    m.setUvs({{0.5f, 0.25f}, {1, 0}, {0, 1}});
    EXPECT_EQ(m.uvHash(), 0x2672240950da6346ull);
    m.setColorSet("Cd", {{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}});
    EXPECT_EQ(m.colorHashes().at("Cd"), 0xa5fe85fe4e4d5d20ull);
    m.setPolygons({1});
    EXPECT_EQ(m.polygonHash(), 0x4afdec7d87423de5ull);
    m.setRestPoints({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    EXPECT_EQ(m.restHash(), 0x2b7d244c1c97e650ull);
    m.setPieces({{"head", 0, 1, 0, 3, 2, 1001u}});
    EXPECT_EQ(m.piecesHash(), 0x6db35fafb0687202ull);
    EXPECT_NE(ScalpMesh({{1, 2, 3}, {4, 5, 6}, {7, 8, 0.0f}}, {{0, 1, 2}}).contentHash(), m.contentHash());
}

TEST(ScalpMesh, SettersRefuseWrongSizesAndLeaveTheMeshUnchanged) {
    ScalpMesh m = square();
    m.setUvs({{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}});
    const std::uint64_t uvHash = m.uvHash();
    EXPECT_EQ(fails([&] { m.setUvs({{0, 0}}); }), "ScalpMesh: expected one UV per triangle corner");
    EXPECT_EQ(fails([&] { m.setColorSet("Cd", {}); }), "ScalpMesh: expected one color per triangle corner");
    EXPECT_EQ(fails([&] { m.setPolygons({2, -1}); }), "ScalpMesh: a polygon with a negative triangle count");
    EXPECT_EQ(fails([&] { m.setPolygons({1, 2}); }), "ScalpMesh: the polygons' triangles (3) are not the mesh's (2)");
    EXPECT_EQ(fails([&] { m.setRestPoints({{0, 0, 0}}); }), "ScalpMesh: rest points must match the mesh's point count");
    EXPECT_EQ(fails([&] { m.setPieces({{"a", 0, 1, 0, 3, 0, {}}, {"b", 2, 1, 3, 2, 0, {}}}); }),
              "ScalpMesh: the scalp 'b' does not follow the one before it");
    EXPECT_EQ(fails([&] { m.setPieces({{"a", 0, 1, 0, 3, 0, {}}, {"b", 1, 1, 3, 1, 0, {}}}); }),
              "ScalpMesh: the scalps' triangles and points are not the mesh's");
    EXPECT_EQ(m.uvHash(), uvHash);
    EXPECT_EQ(m.uvs().size(), 6u);
    EXPECT_EQ(m.colorSet("Cd"), nullptr);
    EXPECT_TRUE(m.polygons().empty());
    EXPECT_FALSE(m.hasRest());
    EXPECT_TRUE(m.pieces().empty());

    m.setPieces({{"a", 0, 1, 0, 3, 0, {}}, {"b", 1, 1, 3, 2, 1, 1002u}});
    ASSERT_EQ(m.pieces().size(), 2u);
    EXPECT_EQ(m.pieces()[1].name, "b");
    m.setPieces({});
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
    EXPECT_EQ(fails([&] { (void)m.withPoints({{0, 0, 0}}); }), "ScalpMesh: new points must match the mesh's point count");
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
