// The answers of the tree's closest-point walk, pinned as digests over many queries: the
// face, the barycentrics, the position and the normal, bit for bit. Ties between triangles
// are broken by the walk's visiting order, so any change to the walk or the tree's layout
// that reorders equal candidates shows here even where a brute-force comparison passes.

#include <gtest/gtest.h>

#include <cfloat>
#include <cstdint>
#include <vector>

#include "core/hash.h"
#include "core/scalp_mesh.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

using testing::drawIn;
using testing::drawPoint;

std::uint64_t foldPoint(std::uint64_t h, const SurfacePoint& p) {
    h = combine(h, static_cast<std::uint64_t>(static_cast<std::int64_t>(p.face)));
    for (float v : {p.b1, p.b2, p.position.x, p.position.y, p.position.z, p.normal.x, p.normal.y, p.normal.z})
        h = combine(h, floatBits(v));
    return h;
}

std::uint64_t digest(const ScalpMesh& mesh, const std::vector<Vec3f>& queries, float maxDistance = FLT_MAX) {
    std::uint64_t h = hash64(queries.size());
    for (const Vec3f& q : queries) h = foldPoint(h, mesh.closestPoint(q, maxDistance));
    return h;
}

/// Points on the surface moved along the normal by up to `spread` either way.
std::vector<Vec3f> nearSurface(const ScalpMesh& mesh, std::uint64_t seed, int count, float spread) {
    DrawStream s(seed);
    std::vector<Vec3f> q;
    for (int i = 0; i < count; ++i) {
        const auto face = static_cast<std::int32_t>(s.next() % mesh.triangleCount());
        const float u = s.nextUnit(), v = s.nextUnit() * (1.0f - u);
        q.push_back(mesh.positionAt(face, u, v) + mesh.normalAt(face, u, v) * drawIn(s, -spread, spread));
    }
    return q;
}

std::vector<Vec3f> inBox(std::uint64_t seed, int count, float lo, float hi) {
    DrawStream s(seed);
    std::vector<Vec3f> q;
    for (int i = 0; i < count; ++i) q.push_back(drawPoint(s, lo, hi));
    return q;
}

TEST(ClosestPointPinned, HeadAnswersAreUnchanged) {
    const ScalpMesh mesh = testing::head(41, 60);
    EXPECT_EQ(digest(mesh, nearSurface(mesh, 11, 20000, 0.1f)), 10282347630957996655ull);
    EXPECT_EQ(digest(mesh, nearSurface(mesh, 12, 20000, 2.0f)), 11216043945596555553ull);
    EXPECT_EQ(digest(mesh, inBox(13, 5000, -14.0f, 14.0f)), 16514607479913826260ull);
    EXPECT_EQ(digest(mesh, inBox(14, 5000, -14.0f, 14.0f), 1.5f), 12276093786486616108ull);
}

TEST(ClosestPointPinned, TiesOnSharedCornersAndEdgesKeepTheirWinner) {
    // On a grid every lattice point and every point above an edge is equally near to two
    // or more faces: the walk's order alone decides which face answers.
    const ScalpMesh mesh = testing::grid(24, 24.0f);
    std::vector<Vec3f> q;
    for (int j = -1; j <= 25; ++j)
        for (int i = -1; i <= 25; ++i) {
            q.push_back({float(i), float(j), 0.5f});
            q.push_back({float(i) + 0.5f, float(j), -0.25f});
            q.push_back({float(i), float(j) + 0.5f, 0.0f});
            q.push_back({float(i) + 0.5f, float(j) + 0.5f, 1.0f});
        }
    EXPECT_EQ(digest(mesh, q), 802558993999215134ull);
}

TEST(ClosestPointPinned, SoupsWithSliversAndFlatFacesAreUnchanged) {
    EXPECT_EQ(digest(testing::randomSoup(3, 3000, 1200), inBox(21, 5000, -1.5f, 1.5f)), 919970906836267816ull);
    EXPECT_EQ(digest(testing::scatteredTriangles(4, 3000, 0.05f), inBox(22, 5000, -1.2f, 1.2f)), 12700978430828851301ull);
    EXPECT_EQ(digest(testing::icosphere(4, 3.0f), inBox(23, 5000, -4.0f, 4.0f), 0.5f), 2831101804712456317ull);
}

}  // namespace
}  // namespace tressora
