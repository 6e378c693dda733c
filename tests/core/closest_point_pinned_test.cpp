// The answers of the tree's closest-point walk, pinned as digests over many queries: the
// face, the barycentrics, the position and the normal, bit for bit. Ties between triangles
// are broken by the walk's visiting order, so any change to the walk or the tree's layout
// that reorders equal candidates shows here even where a brute-force comparison passes.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <stdexcept>
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

/// The digest of one closestPoint call per query; the bulk call, which walks the queries in
/// another order and in parallel, must give the same digest.
std::uint64_t digest(const ScalpMesh& mesh, const std::vector<Vec3f>& queries, float maxDistance = FLT_MAX) {
    std::uint64_t h = hash64(queries.size());
    for (const Vec3f& q : queries) h = foldPoint(h, mesh.closestPoint(q, maxDistance));
    std::vector<SurfacePoint> bulk(queries.size());
    mesh.closestPoints(queries, bulk, maxDistance);
    std::uint64_t b = hash64(queries.size());
    for (const SurfacePoint& p : bulk) b = foldPoint(b, p);
    EXPECT_EQ(b, h) << "the bulk call answers differently";
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

TEST(ClosestPointPinned, BulkQueriesTakeTheirOwnLimitsAndRefuseShortSlots) {
    const ScalpMesh mesh = testing::head(41, 60);
    const std::vector<Vec3f> queries = inBox(31, 6000, -14.0f, 14.0f);
    std::vector<float> limits;
    DrawStream s(32);
    for (std::size_t i = 0; i < queries.size(); ++i) limits.push_back(drawIn(s, 0.0f, 3.0f));
    limits[7] = FLT_MAX;
    std::vector<SurfacePoint> bulk(queries.size());
    mesh.closestPoints(queries, limits, bulk);
    int found = 0;
    for (std::size_t i = 0; i < queries.size(); ++i) {
        const SurfacePoint one = mesh.closestPoint(queries[i], limits[i]);
        ASSERT_EQ(foldPoint(0, bulk[i]), foldPoint(0, one)) << "query " << i;
        found += one.face >= 0;
    }
    EXPECT_GT(found, 500);  // the limits cut some queries off and not others
    EXPECT_LT(found, 5500);

    std::vector<SurfacePoint> shortOut(queries.size() - 1);
    EXPECT_THROW(mesh.closestPoints(queries, shortOut), std::invalid_argument);
    EXPECT_THROW(mesh.closestPoints(queries, std::span<const float>(limits).first(10), bulk), std::invalid_argument);

    // Points that are not finite answer nothing, in bulk as alone.
    std::vector<Vec3f> odd = inBox(33, 3000, -14.0f, 14.0f);
    odd[5] = {NAN, 0.0f, 0.0f};
    odd[6] = {INFINITY, 1.0f, 1.0f};
    std::vector<SurfacePoint> oddOut(odd.size());
    mesh.closestPoints(odd, oddOut);
    EXPECT_EQ(oddOut[5].face, -1);
    EXPECT_EQ(foldPoint(0, oddOut[6]), foldPoint(0, mesh.closestPoint(odd[6])));
}

}  // namespace
}  // namespace tressora
