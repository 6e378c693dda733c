// How many roots Scatter makes and how they spread: area times density, thinning by a map,
// the one-triangle rule, blue noise against white noise, and the neighbour grid of the
// relaxation.

#include <gtest/gtest.h>

#include <cmath>

#include "core/hash.h"
#include "core/point_index.h"
#include "operators/growth/scatter_neighbours.h"
#include "graph/graph.h"
#include "scatter_fixture.h"

namespace tressora {
namespace {

using namespace scattertest;

TEST(ScatterCount, FollowsAreaTimesDensity) {
    // Each triangle gets floor(expected) roots plus one with the probability of the rest, so
    // the total differs from area x density by a sum of independent Bernoulli terms: a variance
    // of at most a quarter per triangle. Five standard deviations of that bound the test.
    for (const float radius : {1.0f, 3.0f}) {
        const auto scalp = sphere(radius, 3);
        for (const double density : {10.0, 80.0, 500.0}) {
            const double expected = scalp->area() * density;
            const double sigma = std::sqrt(scalp->triangleCount() * 0.25);
            const auto set = run(*makeScatter({{"density", density}}), scalp);
            EXPECT_NEAR(static_cast<double>(set->strandCount()), expected, 5.0 * sigma + 1.0)
                << "radius " << radius << " density " << density;
            std::string message;
            EXPECT_TRUE(set->validate(&message)) << message;
            EXPECT_EQ(set->pointCount(), set->strandCount() * 9) << "8 segments by default";
        }
    }
}

TEST(ScatterCount, ADensityMapThinsWhereItIsLowAndKeepsTheIdsOfTheFullDensity) {
    // A map of 0 on one half and 160 on the other keeps each candidate of the mapped half
    // (a draw per root): the count is binomial around half the area times 160.
    const auto scalp = sphere(2.0f, 3);
    auto mapped = makeScatter();
    const auto map = std::make_shared<const HalfMap>(160.0f, scalp);
    const auto set = run(*mapped, scalp, {}, {Value(std::shared_ptr<const FieldValue>(map))});
    const double expected = scalp->area() * 160.0 / 2.0;
    EXPECT_NEAR(static_cast<double>(set->strandCount()), expected, 5.0 * std::sqrt(expected) + 10.0);
    for (std::size_t i = 0; i < set->strandCount(); ++i) ASSERT_GT(set->strandPoints(i)[0].x, -1e-4f);

    // The same roots stand in the constant density of the map's top.
    const auto constant = rootsById(*run(*makeScatter({{"density", 160.0}}), scalp));
    for (const auto& [id, root] : rootsById(*set)) {
        ASSERT_TRUE(constant.count(id));
        EXPECT_EQ(constant.at(id), root);
    }
    // Relaxed under a map: roots stay where the map lets them.
    mapped->paramValues.set("randomness", 0.0);
    const auto even = run(*mapped, scalp, {}, {Value(std::shared_ptr<const FieldValue>(map))});
    EXPECT_EQ(even->strandCount(), set->strandCount());
    for (std::size_t i = 0; i < even->strandCount(); ++i) ASSERT_GT(even->strandPoints(i)[0].x, -1e-4f);
}

TEST(ScatterCount, BlueNoiseSpreadsWiderThanWhiteNoise) {
    for (const auto& scalp : {sphere(1.0f, 3), square(12, 2.0f)}) {
        auto op = makeScatter({{"density", 400.0}});
        const Spacing white = spacing(*run(*op, scalp));
        op->paramValues.set("randomness", 0.0);
        const Spacing blue = spacing(*run(*op, scalp));
        op->paramValues.set("randomness", 2.0);
        const Spacing clumped = spacing(*run(*op, scalp));
        // Even spacing is about 2 x 1.0746 / sqrt(density) apart; random roots nearly touch.
        EXPECT_GT(blue.smallest, 3.0f * white.smallest);
        EXPECT_GT(blue.mean, 1.2f * white.mean);
        EXPECT_LT(clumped.mean, white.mean * 1.05f);
        EXPECT_LT(blue.mean, 2.5f * 1.0746f / 20.0f);
    }
}

TEST(ScatterCount, DensityZeroGivesAnEmptyValidSet) {
    const auto set = run(*makeScatter({{"density", 0.0}, {"randomness", 0.0}}), sphere());
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->strandCount(), 0u);
    EXPECT_TRUE(set->validate());
    const auto negative = run(*makeScatter({{"density", -5.0}}), sphere());
    EXPECT_EQ(negative->strandCount(), 0u) << "density is clamped to 0";
}

TEST(ScatterCount, OneTriangleWithAFractionalExpectationGetsARootOnlyIfItsDrawIsBelow) {
    // A right triangle of area 0.5 at density 0.8: expected 0.4.
    const auto scalp = std::make_shared<const ScalpMesh>(
        std::vector<Vec3f>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, std::vector<ScalpMesh::Triangle>{{0, 1, 2}});
    int made = 0;
    for (std::int64_t seed = 0; seed < 200; ++seed) {
        const auto set = run(*makeScatter({{"density", 0.8}, {"seed", seed}}), scalp);
        const std::uint64_t f = combine(hash64(static_cast<std::uint64_t>(seed)), 0);
        ASSERT_EQ(set->strandCount(), 0.4f > unit(f) ? 1u : 0u) << "seed " << seed;
        if (set->strandCount() == 1) {
            ++made;
            EXPECT_EQ(set->ids()[0], combine(f, 0));
            const StrandRoot r = set->roots()[0];
            EXPECT_TRUE(r.face == 0 && r.u >= 0 && r.v >= 0 && r.u + r.v <= 1.0001f);
            EXPECT_FLOAT_EQ(set->strandPoints(0).back().z, 1.0f) << "length 1 along the normal";
        }
    }
    EXPECT_GT(made, 50);
    EXPECT_LT(made, 110);
}

TEST(ScatterCount, RandomnessOutsideItsRangeIsClamped) {
    const auto scalp = sphere(1.0f, 2);
    const auto at = [&](double t) { return run(*makeScatter({{"density", 200.0}, {"randomness", t}}), scalp)->fingerprint(); };
    EXPECT_EQ(at(5.0), at(2.0));
    EXPECT_EQ(at(-1.0), at(0.0));
    EXPECT_NE(at(0.0), at(1.0));
}

TEST(ScatterCount, StrandsFollowLengthAndTheGroomsSegments) {
    const auto scalp = square(4);
    EvalContext context;
    context.segments = 3;
    const auto set = run(*makeScatter({{"density", 50.0}, {"length", 2.5}}), scalp, context);
    ASSERT_GT(set->strandCount(), 10u);
    for (std::size_t i = 0; i < set->strandCount(); ++i) {
        const auto points = set->strandPoints(i);
        ASSERT_EQ(points.size(), 4u);
        EXPECT_FLOAT_EQ(points[3].z - points[0].z, 2.5f);
        EXPECT_FLOAT_EQ(points[1].z, 2.5f / 3.0f);
        EXPECT_EQ(set->strandWidths(i)[0], 1.0f);
    }
    // Only the resolution enters the node's share of the cache key.
    struct NoKeys final : NodeKeyLookup {
        std::uint64_t key(NodeId) override { return 0; }
    } keys;
    auto op = makeScatter();
    EvalContext eight, three;
    three.segments = 3;
    EXPECT_NE(op->contextStamp(keys, 0, eight), op->contextStamp(keys, 0, three));
    eight.segments = 0;
    three.segments = 8;
    three.frame = 12.0;
    EXPECT_EQ(op->contextStamp(keys, 0, eight), op->contextStamp(keys, 0, three));
}

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
