#include <gtest/gtest.h>

#include "groom/follow_carry.h"
#include "sample_groom.h"

namespace tressora {
namespace {

using testing::gridMesh;

TEST(FollowCarry, UnrootedStrandsArePlacedOnTheClosestTriangle) {
    const auto rest = gridMesh(2);
    StrandSet strands;
    const std::vector<Vec3f> above = {{1.8f, 0.5f, 0.1f}, {1.8f, 1.5f, 0.1f}};
    strands.addStrand(1, {}, above);                       // no root: found from its first point
    strands.addStrand(2, {99, 0.2f, 0.2f}, above);         // a face the scalp has not: likewise
    strands.addStrand(3, {5, 0.25f, 0.5f}, above);         // a root on the scalp is kept as it is
    const FollowCarry carry(strands, *rest);
    const SurfacePoint below = rest->closestPoint(above[0]);
    EXPECT_EQ(carry.roots()[0].face, below.face);
    EXPECT_FLOAT_EQ(carry.roots()[0].b1, below.b1);
    EXPECT_EQ(carry.roots()[1].face, below.face);
    EXPECT_EQ(carry.roots()[2].face, 5);
    EXPECT_FLOAT_EQ(carry.roots()[2].b2, 0.5f);
}

TEST(FollowCarry, TriangleWithoutAreaMovesTheStrandWithItsRootAlone) {
    const auto rest = gridMesh(1);
    StrandSet strands;
    const std::vector<Vec3f> points = {{0.25f, 0, 0.25f}, {0.25f, 1, 0.25f}, {0.5f, 2, 0.25f}};
    strands.addStrand(1, {0, 0.25f, 0.25f}, points);
    // Every point of the scalp collapses onto one: the triangle has no frame any more.
    std::vector<Vec3f> collapsed(rest->pointCount(), Vec3f{3, 4, 5});
    const ScalpMesh current = rest->withPoints(collapsed);
    const FollowCarry carry(strands, *rest);
    const auto moved = carry.carry(strands, *rest, current);
    const Vec3f shift = Vec3f{3, 4, 5} - rest->positionAt(0, 0.25f, 0.25f);
    for (std::size_t i = 0; i < points.size(); ++i) EXPECT_LT(length(moved->points()[i] - (points[i] + shift)), 1e-6f) << i;
    EXPECT_EQ(moved->ids()[0], 1u);
    EXPECT_THROW(carry.carry(StrandSet(), *rest, current), std::invalid_argument);
}

}  // namespace
}  // namespace tressora
