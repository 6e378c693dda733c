#include <gtest/gtest.h>

#include "core/surface_graph.h"
#include "test_meshes.h"

namespace tressora {
namespace {

StrandRoot rootOn(const ScalpMesh& mesh, Vec3f p) {
    const SurfacePoint s = mesh.closestPoint(p);
    return {s.face, s.b1, s.b2};
}

TEST(SurfaceFront, MeasuresAlongTheEdgesOutToItsLimit) {
    const auto mesh = std::make_shared<const ScalpMesh>(testing::grid(10, 10.0f));
    const auto graph = sharedSurfaceGraph(mesh);
    EXPECT_EQ(graph, sharedSurfaceGraph(mesh));  // cached by content
    EXPECT_EQ(graph->pointCount(), 121u);
    EXPECT_EQ(graph->neighbours(0).size(), 3u);  // a corner: two sides and a diagonal

    const Vec3f from{2.5f, 2.5f, 0}, to{7.5f, 2.5f, 0};
    const SurfaceFront front(*graph, rootOn(*mesh, from), 20.0f);
    const auto along = front.distanceTo(rootOn(*mesh, to), to);
    ASSERT_TRUE(along.has_value());
    EXPECT_GE(*along, 5.0f - 1e-5f);
    EXPECT_LT(*along, 6.5f);
    // Near the source the way is straight.
    EXPECT_NEAR(*front.distanceTo(rootOn(*mesh, {3.2f, 2.5f, 0}), {3.2f, 2.5f, 0}), 0.7f, 1e-5f);
    // Beyond the limit nothing was reached.
    const SurfaceFront near(*graph, rootOn(*mesh, from), 2.0f);
    EXPECT_FALSE(near.distanceTo(rootOn(*mesh, to), to).has_value());
    // A source off the mesh reaches nothing.
    EXPECT_FALSE(SurfaceFront(*graph, StrandRoot{}, 20.0f).distanceTo(rootOn(*mesh, to), to).has_value());
}

}  // namespace
}  // namespace tressora
