#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/spatial_order.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

/// The mean distance between points taken one after the other in `order`, over finite steps.
double meanStep(const std::vector<Vec3f>& points, const std::vector<std::uint32_t>& order) {
    double sum = 0.0;
    int steps = 0;
    for (std::size_t k = 1; k < order.size(); ++k) {
        const float step = length(points[order[k]] - points[order[k - 1]]);
        if (!std::isfinite(step)) continue;
        sum += step;
        ++steps;
    }
    return sum / steps;
}

TEST(SpatialOrder, IsAPermutationThatWalksNeighboursInTurn) {
    DrawStream s(5);
    std::vector<Vec3f> points;
    for (int i = 0; i < 50000; ++i) points.push_back(testing::drawPoint(s, -10.0f, 10.0f));
    points[3] = {NAN, 0.0f, 0.0f};
    points[4] = {0.0f, INFINITY, 0.0f};
    points[9] = {1e30f, 1e30f, -1e30f};  // far out: stretches the box, must not overflow a cell

    const std::vector<std::uint32_t> order = spatialOrder(points);
    std::vector<std::uint32_t> sorted = order;
    std::sort(sorted.begin(), sorted.end());
    for (std::uint32_t i = 0; i < sorted.size(); ++i) ASSERT_EQ(sorted[i], i);
    EXPECT_EQ(order, spatialOrder(points));  // the same every time

    // In input order consecutive points are about 10 apart; in spatial order far less.
    points[9] = {0.0f, 0.0f, 0.0f};
    const std::vector<std::uint32_t> tight = spatialOrder(points);
    std::vector<std::uint32_t> identity(points.size());
    for (std::uint32_t i = 0; i < identity.size(); ++i) identity[i] = i;
    EXPECT_LT(meanStep(points, tight) * 8.0, meanStep(points, identity));
}

TEST(SpatialOrder, FewOrFlatPointsKeepTheirOrder) {
    EXPECT_TRUE(spatialOrder({}).empty());
    const std::vector<Vec3f> few(10, Vec3f{1, 2, 3});
    EXPECT_EQ(spatialOrder(few), (std::vector<std::uint32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    // All in one place: one cell, so index order.
    const std::vector<Vec3f> same(500, Vec3f{1, 2, 3});
    const std::vector<std::uint32_t> order = spatialOrder(same);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

}  // namespace
}  // namespace tressora
