#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "core/point_index.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

/// The direct answer: every point's squared distance, sorted by (distance, index).
std::vector<std::pair<float, std::uint32_t>> direct(const std::vector<Vec3f>& pts, Vec3f q) {
    std::vector<std::pair<float, std::uint32_t>> all;
    for (std::uint32_t i = 0; i < pts.size(); ++i) all.emplace_back(lengthSquared(q - pts[i]), i);
    std::sort(all.begin(), all.end());
    return all;
}

std::vector<Vec3f> randomPoints(std::uint64_t seed, int n, bool onGrid) {
    DrawStream s(seed);
    std::vector<Vec3f> pts;
    for (int i = 0; i < n; ++i) {
        Vec3f p = testing::drawPoint(s, -1.0f, 1.0f);
        // Points on a coarse lattice give many exact ties and duplicates.
        if (onGrid) p = Vec3f{std::round(p.x * 4), std::round(p.y * 4), std::round(p.z * 4)} * 0.25f;
        pts.push_back(p);
    }
    return pts;
}

TEST(PointIndex, NearestAndKNearestMatchDirectComputation) {
    for (bool onGrid : {false, true}) {
        const std::vector<Vec3f> pts = randomPoints(onGrid ? 2 : 1, 3000, onGrid);
        const PointIndex index(pts);
        DrawStream s(3);
        std::uint32_t ids[13];
        float d2[13];
        for (int i = 0; i < 1000; ++i) {
            Vec3f q = testing::drawPoint(s, -1.3f, 1.3f);
            if (onGrid) q = Vec3f{std::round(q.x * 8), std::round(q.y * 8), std::round(q.z * 8)} * 0.125f;
            const auto expect = direct(pts, q);
            float nd2 = 0.0f;
            ASSERT_EQ(index.nearest(q, nd2), expect[0].second);
            ASSERT_EQ(nd2, expect[0].first);
            ASSERT_EQ(index.kNearest(q, 13, ids, d2), 13u);
            for (int k = 0; k < 13; ++k) {
                ASSERT_EQ(ids[k], expect[k].second) << "query " << i << " rank " << k;
                ASSERT_EQ(d2[k], expect[k].first);
            }
        }
    }
}

TEST(PointIndex, WithinListsEveryPointInTheRadiusNearestFirst) {
    const std::vector<Vec3f> pts = randomPoints(4, 2000, true);
    const PointIndex index(pts);
    DrawStream s(5);
    for (int i = 0; i < 200; ++i) {
        const Vec3f q = testing::drawPoint(s, -1.0f, 1.0f);
        std::vector<std::pair<std::uint32_t, float>> got;
        index.within(q, 0.5f, got);
        std::vector<std::pair<std::uint32_t, float>> expect;
        for (const auto& [d, id] : direct(pts, q))
            if (d <= 0.25f) expect.emplace_back(id, d);
        ASSERT_EQ(got, expect);
    }
}

TEST(PointIndex, SmallAndEmptyIndicesAnswerSensibly) {
    const PointIndex empty;
    float d2 = 0.0f;
    EXPECT_EQ(empty.nearest({0, 0, 0}, d2), PointIndex::npos);
    EXPECT_TRUE(std::isinf(d2));
    std::uint32_t ids[4];
    float ds[4];
    EXPECT_EQ(empty.kNearest({0, 0, 0}, 4, ids, ds), 0u);

    const std::vector<Vec3f> two = {{1, 0, 0}, {1, 0, 0}};
    const PointIndex dup(two);
    EXPECT_EQ(dup.nearest({0, 0, 0}, d2), 0u);  // equal distances: the lower index
    EXPECT_EQ(dup.kNearest({0, 0, 0}, 4, ids, ds), 2u);
    EXPECT_EQ(ids[1], 1u);
    EXPECT_EQ(dup.nearest({NAN, 0, 0}, d2), PointIndex::npos);
}

}  // namespace
}  // namespace tressora
