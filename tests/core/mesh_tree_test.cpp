#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

#include "core/mesh_tree.h"
#include "core/scalp_mesh.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

using testing::drawPoint;

/// The tree's answer must be the brute-force triangle, or another one at exactly the same
/// distance (ties between triangles are broken by visiting order, not by index).
void expectSameClosest(const ScalpMesh& mesh, Vec3f q) {
    const SurfacePoint fast = mesh.closestPoint(q);
    const SurfacePoint slow = mesh.closestPointBrute(q);
    ASSERT_GE(slow.face, 0);
    ASSERT_GE(fast.face, 0);
    if (fast.face == slow.face) {
        EXPECT_EQ(fast.b1, slow.b1);
        EXPECT_EQ(fast.b2, slow.b2);
        EXPECT_EQ(fast.position, slow.position);
    } else {
        EXPECT_EQ(lengthSquared(q - fast.position), lengthSquared(q - slow.position))
            << "faces " << fast.face << " and " << slow.face;
    }
}

void expectSameHit(const ScalpMesh& mesh, Vec3f o, Vec3f d) {
    RayHit fast, slow;
    const bool hf = mesh.intersect(o, d, fast);
    const bool hs = mesh.intersectBrute(o, d, slow);
    ASSERT_EQ(hf, hs);
    if (!hs) return;
    // Another face at exactly the same parameter is a legal tie (a shared edge or corner).
    EXPECT_EQ(fast.t, slow.t) << "faces " << fast.point.face << " and " << slow.point.face;
}

/// Nine copies of one triangle and a triangle with a point that is not a number: no centre
/// tells them apart, and leaves must still hold four at most.
ScalpMesh stackedTriangles() {
    std::vector<Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {std::nanf(""), 0, 0}};
    std::vector<ScalpMesh::Triangle> triangles(9, ScalpMesh::Triangle{0, 1, 2});
    triangles.push_back({3, 1, 2});
    return ScalpMesh(std::move(points), std::move(triangles));
}

void expectWellFormedLeaves(const ScalpMesh& mesh) {
    const BvhTree& tree = mesh.bvh()->tree();
    std::vector<int> seen(mesh.triangleCount(), 0);
    for (std::uint32_t n = 0; n < tree.nodes.size(); ++n) {
        if (!tree.isLeaf(n)) {
            const std::uint32_t left = tree.nodes[n][0];
            ASSERT_GT(left, n);  // children come after their parent, side by side
            ASSERT_LT(left + 1, tree.nodes.size());
            for (std::uint32_t child : {left, left + 1})
                for (int a = 0; a < 3; ++a) {
                    EXPECT_LE(tree.bounds[n * 6 + a], tree.bounds[child * 6 + a]);
                    EXPECT_GE(tree.bounds[n * 6 + 3 + a], tree.bounds[child * 6 + 3 + a]);
                }
            continue;
        }
        const auto [first, count] = tree.nodes[n];
        ASSERT_GE(count, 1u);
        ASSERT_LE(count, 4u);
        for (std::uint32_t k = first; k < first + count; ++k) {
            if (k > first) {
                EXPECT_LT(tree.order[k - 1], tree.order[k]);
            }
            ++seen[tree.order[k]];
        }
    }
    for (int s : seen) ASSERT_EQ(s, 1);
    EXPECT_LE(tree.depth, 20u);
}

TEST(MeshTree, LeavesHoldAtMostFourSortedTrianglesAndCoverAllOnce) {
    expectWellFormedLeaves(testing::icosphere(3));
    const ScalpMesh stacked = stackedTriangles();
    expectWellFormedLeaves(stacked);
    EXPECT_EQ(stacked.closestPoint({0.2f, 0.2f, 1.0f}).face, 0);
}

TEST(MeshTree, ClosestPointMatchesBruteForceOnRandomMeshes) {
    const ScalpMesh meshes[] = {testing::randomSoup(1, 300, 120), testing::scatteredTriangles(2, 2000, 0.05f),
                                testing::icosphere(3), testing::grid(24, 2.0f)};
    DrawStream s(7);
    for (const ScalpMesh& mesh : meshes) {
        for (int i = 0; i < 1500; ++i) expectSameClosest(mesh, drawPoint(s, -1.6f, 1.6f));
        // Queries exactly on corners and edges, where many triangles tie.
        for (std::size_t i = 0; i < mesh.pointCount(); i += 7) expectSameClosest(mesh, mesh.points()[i]);
    }
}

TEST(MeshTree, ClosestPointRespectsMaxDistance) {
    const ScalpMesh plane = testing::grid(4, 1.0f);
    EXPECT_EQ(plane.closestPoint({0.5f, 0.5f, 2.0f}, 1.5f).face, -1);
    const SurfacePoint near = plane.closestPoint({0.5f, 0.5f, 2.0f}, 2.5f);
    ASSERT_GE(near.face, 0);
    EXPECT_FLOAT_EQ(near.position.z, 0.0f);
    EXPECT_FLOAT_EQ(near.normal.z, 1.0f);
    EXPECT_EQ(plane.closestPoint({0.5f, 0.5f, 2.0f}, 1e30f).face, near.face);
    EXPECT_EQ(plane.closestPoint({NAN, 0.0f, 0.0f}).face, -1);
}

TEST(MeshTree, RayHitMatchesBruteForceOnRandomMeshes) {
    const ScalpMesh meshes[] = {testing::randomSoup(3, 300, 120), testing::scatteredTriangles(4, 2000, 0.08f),
                                testing::icosphere(3), testing::grid(24, 2.0f)};
    DrawStream s(11);
    for (const ScalpMesh& mesh : meshes) {
        for (int i = 0; i < 1500; ++i) {
            const Vec3f o = drawPoint(s, -2.0f, 2.0f);
            const Vec3f target = drawPoint(s, -0.8f, 0.8f);
            expectSameHit(mesh, o, target - o);
        }
        // Axis-aligned rays, whose reciprocal components are the large stand-ins.
        for (int i = 0; i < 300; ++i) {
            const Vec3f o = drawPoint(s, -1.0f, 1.0f);
            expectSameHit(mesh, o + Vec3f{0, 0, 3}, {0, 0, -1});
            expectSameHit(mesh, o, {1, 0, 0});
        }
    }
}

TEST(MeshTree, RayHitReportsNearestHitAndParameter) {
    const ScalpMesh sphere = testing::icosphere(4, 2.0f);
    RayHit hit;
    ASSERT_TRUE(sphere.intersect({0, 0, 10}, {0, 0, -2}, hit));
    EXPECT_NEAR(hit.t, 4.0f, 0.01f);  // the direction has length 2
    EXPECT_NEAR(hit.point.position.z, 2.0f, 0.01f);
    EXPECT_GT(hit.point.normal.z, 0.99f);
    // From inside the far wall is hit; a range ending before it misses.
    ASSERT_TRUE(sphere.intersect({0, 0, 0}, {1, 0, 0}, hit));
    EXPECT_NEAR(hit.point.position.x, 2.0f, 0.01f);
    EXPECT_FALSE(sphere.intersect({0, 0, 0}, {1, 0, 0}, hit, 0.0f, 1.5f));
    EXPECT_FALSE(sphere.intersect({0, 0, 10}, {0, 0, 0}, hit));
    EXPECT_FALSE(sphere.intersect({0, 0, 10}, {0, 0, 1}, hit));
}

TEST(MeshTree, FarFromOriginRaysStillHitTrianglesInBoxFaces) {
    // A flat grid far from the origin: every box is flat, so only the margin keeps the
    // slab test from losing the plane to rounding.
    std::vector<Vec3f> pts;
    std::vector<ScalpMesh::Triangle> tris;
    const ScalpMesh base = testing::grid(16, 10.0f);
    for (Vec3f p : base.points()) pts.push_back(p + Vec3f{1.0e5f, -2.0e5f, 3.0e4f});
    for (const auto& t : base.triangles()) tris.push_back(t);
    const ScalpMesh far(pts, tris);
    DrawStream s(5);
    for (int i = 0; i < 500; ++i) {
        const Vec3f o = Vec3f{1.0e5f, -2.0e5f, 3.0e4f} + Vec3f{testing::drawIn(s, 0.5f, 9.5f),
                                                               testing::drawIn(s, 0.5f, 9.5f), 5.0f};
        RayHit hit;
        ASSERT_TRUE(far.intersect(o, {0.01f, -0.02f, -1.0f}, hit));
        expectSameHit(far, o, {0.01f, -0.02f, -1.0f});
    }
}

TEST(MeshTree, RefittedTreeAnswersLikeAFreshBuild) {
    const ScalpMesh rest = testing::icosphere(3);
    std::vector<Vec3f> moved(rest.points().begin(), rest.points().end());
    for (Vec3f& p : moved) p = Vec3f{p.x * 1.5f + 0.3f, p.y * 0.7f, p.z + p.x * p.x};
    const ScalpMesh posed = rest.withPoints(moved);
    const BvhTree& refitted = posed.bvh()->tree();
    EXPECT_EQ(refitted.nodes, rest.bvh()->tree().nodes);  // the structure is reused
    EXPECT_EQ(refitted.order, rest.bvh()->tree().order);
    DrawStream s(9);
    for (int i = 0; i < 1500; ++i) {
        const Vec3f q = drawPoint(s, -2.0f, 2.0f);
        expectSameClosest(posed, q);
        expectSameHit(posed, q, drawPoint(s, -0.5f, 0.5f) - q);
    }
}

TEST(MeshTree, PoseChainRefitsFromTheFirstBuiltTree) {
    // Each pose derived from the previous one, none queried until the last.
    const ScalpMesh rest = testing::icosphere(2);
    std::vector<Vec3f> pts(rest.points().begin(), rest.points().end());
    ScalpMesh pose = rest;
    for (int frame = 0; frame < 5; ++frame) {
        for (Vec3f& p : pts) p += Vec3f{0.1f, 0.0f, 0.0f};
        pose = pose.withPoints(pts);
    }
    EXPECT_FALSE(rest.bvh()->built());
    const SurfacePoint hit = pose.closestPoint({3.0f, 0.0f, 0.0f});
    EXPECT_NEAR(hit.position.x, 1.5f, 0.01f);
    EXPECT_TRUE(rest.bvh()->built());
    EXPECT_EQ(pose.bvh()->tree().nodes, rest.bvh()->tree().nodes);
}

TEST(MeshTree, ConcurrentFirstQueriesShareOneBuild) {
    const ScalpMesh mesh = testing::scatteredTriangles(21, 20000, 0.02f);
    std::vector<std::int32_t> faces(8, -2);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] { faces[i] = mesh.closestPoint({0.1f * i - 0.4f, 0.2f, -0.3f}).face; });
    for (auto& t : threads) t.join();
    for (int i = 0; i < 8; ++i) EXPECT_EQ(faces[i], mesh.closestPointBrute({0.1f * i - 0.4f, 0.2f, -0.3f}).face);
}

TEST(MeshTree, EmptyMeshAnswersNothing) {
    const ScalpMesh empty;
    EXPECT_EQ(empty.closestPoint({0, 0, 0}).face, -1);
    EXPECT_EQ(empty.closestPointBrute({0, 0, 0}).face, -1);
    RayHit hit;
    EXPECT_FALSE(empty.intersect({0, 0, 0}, {0, 0, 1}, hit));
    EXPECT_EQ(empty.area(), 0.0f);
}

}  // namespace
}  // namespace tressora
