#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>

#include "core/expect_text.h"
#include "core/subdivision_plan.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

/// A cube of side 2 about the origin: six quads, each two triangles with a polygon table.
ScalpMesh cube() {
    std::vector<Vec3f> p = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                            {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
    const int quads[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {2, 3, 7, 6}, {1, 2, 6, 5}, {0, 4, 7, 3}};
    std::vector<ScalpMesh::Triangle> t;
    for (const auto& q : quads) {
        t.push_back({q[0], q[1], q[2]});
        t.push_back({q[0], q[2], q[3]});
    }
    ScalpMesh mesh(std::move(p), std::move(t));
    mesh.setPolygons(std::vector<std::int32_t>(6, 2));
    return mesh;
}

bool near(Vec3f a, Vec3f b) { return length(a - b) < 1e-5f; }

TEST(SubdivisionPlan, RefinesACubeByTheCatmullClarkRules) {
    const SubdivisionPlan plan(cube(), 1);
    EXPECT_EQ(plan.refinedVertexCount(), 8u + 12u + 6u);
    EXPECT_EQ(plan.refinedTriangles().size(), 48u);
    const auto pts = plan.apply(cube().points());
    // Corner (1, 1, 1): (Q + 2R) / 3 with Q the mean of its face centres and R of its edge midpoints.
    EXPECT_TRUE(near(pts[6], Vec3f{5.0f / 9, 5.0f / 9, 5.0f / 9}));
    // Face points are the face centres; edge points the mean of ends and neighbouring faces.
    int faceCentres = 0, edgePoints = 0;
    for (std::size_t i = 8; i < pts.size(); ++i) {
        faceCentres += near(pts[i], {0, 0, 1}) || near(pts[i], {1, 0, 0}) || near(pts[i], {0, -1, 0});
        edgePoints += near(pts[i], {0.75f, 0.75f, 0});
    }
    EXPECT_EQ(faceCentres, 3);
    EXPECT_EQ(edgePoints, 1);
    // The refined mesh is closed: every triangle edge is shared by exactly two triangles.
    const ScalpMesh refined = plan.refine(cube());
    EXPECT_EQ(refined.polygons().size(), 24u);
    EXPECT_NEAR(refined.area(), 24.0f * 0.6f, 24.0f * 0.3f);
}

TEST(SubdivisionPlan, BoundariesFollowTheCreaseRulesAndCornersStay) {
    // One quad as two triangles: four corners, four boundary edges, one face point.
    ScalpMesh quad({{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}}, {{0, 1, 2}, {0, 2, 3}});
    quad.setPolygons({2});
    quad.setUvs({{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}});
    const auto plan = SubdivisionPlan::of(quad, 2);
    const ScalpMesh refined = plan->refine(quad);
    EXPECT_EQ(refined.triangleCount(), 32u);
    EXPECT_EQ(refined.pointCount(), 25u);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(refined.points()[c], quad.points()[c]);
    for (Vec3f p : refined.points()) EXPECT_EQ(p.z, 0.0f);
    EXPECT_FLOAT_EQ(refined.area(), 4.0f);
    // UVs are refined linearly per face: the point at the quad's middle has UV (0.5, 0.5).
    bool middle = false;
    for (std::size_t f = 0; f < refined.triangleCount(); ++f)
        for (int k = 0; k < 3; ++k)
            if (near(refined.points()[static_cast<std::size_t>(refined.triangles()[f][k])], {1, 1, 0})) {
                const auto uv = refined.uvs()[f * 3 + static_cast<std::size_t>(k)];
                EXPECT_FLOAT_EQ(uv[0], 0.5f);
                EXPECT_FLOAT_EQ(uv[1], 0.5f);
                middle = true;
            }
    EXPECT_TRUE(middle);
    // A crease vertex: (6 v + its two boundary neighbours) / 8; here an edge midpoint of level 1.
    const SubdivisionPlan one(quad, 1);
    const auto p1 = one.apply(quad.points());
    EXPECT_TRUE(near(p1[4], {1, 0, 0}) || near(p1[4], {2, 1, 0}) || near(p1[4], {1, 2, 0}) || near(p1[4], {0, 1, 0}));
}

TEST(SubdivisionPlan, StencilsAreAffineAndReusableForNewPoses) {
    const ScalpMesh sphere = testing::icosphere(1);
    const SubdivisionPlan plan(sphere, 2);
    const auto base = plan.apply(sphere.points());
    std::vector<Vec3f> moved(sphere.points().begin(), sphere.points().end());
    for (Vec3f& p : moved) p += Vec3f{3, -2, 1};
    const auto shifted = plan.apply(moved);
    for (std::size_t i = 0; i < base.size(); ++i) ASSERT_TRUE(near(shifted[i], base[i] + Vec3f{3, -2, 1}));
    // Per-vertex values refine with the same weights.
    std::vector<float> xs;
    for (Vec3f p : sphere.points()) xs.push_back(p.x), xs.push_back(1.0f);
    const auto values = plan.applyValues(xs, 2);
    for (std::size_t i = 0; i < base.size(); ++i) {
        ASSERT_NEAR(values[i * 2], base[i].x, 1e-5f);
        ASSERT_NEAR(values[i * 2 + 1], 1.0f, 1e-5f);
    }
    // A subdivided sphere shrinks toward its centre but stays round.
    for (Vec3f p : base) ASSERT_NEAR(length(p), 0.9f, 0.1f);
}

TEST(SubdivisionPlan, RefusesWhatIsNotItsCage) {
    auto text = [](auto&& fn) { return testing::fails(fn); };
    const ScalpMesh c = cube();
    EXPECT_EQ(text([&] { SubdivisionPlan::of(c, 0); }), "SubdivisionPlan: levels must be 1 to 3");
    EXPECT_EQ(text([&] { SubdivisionPlan(c, 4); }), "SubdivisionPlan: levels must be 1 to 3");
    const auto plan = SubdivisionPlan::of(c, 1);
    EXPECT_EQ(text([&] { plan->refine(testing::icosphere(0)); }), "SubdivisionPlan: not this plan's cage");
    EXPECT_EQ(text([&] { plan->apply(std::vector<Vec3f>(7)); }), "SubdivisionPlan: the points are not the cage's");
    EXPECT_EQ(text([&] { plan->applyValues(std::vector<float>(9), 1); }),
              "SubdivisionPlan: the values are not the cage's vertices'");
    // The same topology finds the cached plan.
    EXPECT_EQ(SubdivisionPlan::of(c.withPoints(std::vector<Vec3f>(8, Vec3f{1, 2, 3})), 1).get(), plan.get());
    EXPECT_EQ(subdivisionPlanCacheStats().name, "subdivision plans");
}

TEST(SubdivisionPlan, TrianglesWithoutAPolygonTableAreFacesOfTheirOwn) {
    const ScalpMesh tri({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
    const SubdivisionPlan plan(tri, 1);
    EXPECT_EQ(plan.refinedVertexCount(), 7u);  // 3 corners, 3 edge points, 1 face point
    EXPECT_EQ(plan.refinedTriangles().size(), 6u);
    const auto p = plan.apply(tri.points());
    EXPECT_TRUE(near(p[6], {1.0f / 3, 1.0f / 3, 0}));
}

}  // namespace
}  // namespace tressora
