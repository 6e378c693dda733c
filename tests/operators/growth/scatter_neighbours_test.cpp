// The neighbour grid of the relaxation answers exactly as the point index does.

#include <gtest/gtest.h>

#include "core/hash.h"
#include "core/point_index.h"
#include "operators/growth/scatter_neighbours.h"
#include "scatter_fixture.h"

namespace tressora {
namespace {

void expectSameAsPointIndex(const std::vector<Vec3f>& points, float cell, std::size_t k) {
    const NeighbourGrid grid(points, cell);
    const PointIndex index(points);
    std::vector<std::uint32_t> fromGrid(k), fromIndex(k + 1);
    std::vector<float> d2(k + 1);
    for (std::uint32_t i = 0; i < points.size(); ++i) {
        const std::size_t n = grid.nearestOthers(i, k, fromGrid.data());
        const std::size_t m = index.kNearest(points[i], k + 1, fromIndex.data(), d2.data());
        std::vector<std::uint32_t> expected;
        for (std::size_t j = 0; j < m && expected.size() < k; ++j)
            if (fromIndex[j] != i) expected.push_back(fromIndex[j]);
        ASSERT_EQ(std::vector<std::uint32_t>(fromGrid.begin(), fromGrid.begin() + static_cast<long>(n)), expected)
            << "point " << i << " cell " << cell;
    }
}

TEST(ScatterNeighbours, TheGridFindsWhatThePointIndexFinds) {
    // Points on a sphere, on a flat square with exact ties, in clumps with isolated strays, and
    // fewer points than neighbours asked for.
    std::vector<Vec3f> sphere;
    DrawStream s(5);
    for (int i = 0; i < 3000; ++i) {
        const Vec3f d{s.nextUnit() - 0.5f, s.nextUnit() - 0.5f, s.nextUnit() - 0.5f};
        sphere.push_back(normalized(d) * 2.0f);
    }
    std::vector<Vec3f> lattice;
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 30; ++x) lattice.push_back({x * 0.1f, y * 0.1f, 0.0f});
    std::vector<Vec3f> clumps;
    for (int i = 0; i < 500; ++i) clumps.push_back({s.nextUnit() * 0.01f, s.nextUnit() * 0.01f, 0.0f});
    for (int i = 0; i < 20; ++i) clumps.push_back({5.0f + i, -3.0f * i, 0.5f});
    const std::vector<Vec3f> few{{0, 0, 0}, {1, 0, 0}, {0, 2, 0}};
    for (const float cell : {0.05f, 0.15f, 0.6f}) {
        expectSameAsPointIndex(sphere, cell, 13);
        expectSameAsPointIndex(lattice, cell, 13);
        expectSameAsPointIndex(clumps, cell, 13);
        expectSameAsPointIndex(few, cell, 13);
    }
}

}  // namespace
}  // namespace tressora
