#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "core/hash.h"
#include "core/strand_set.h"
#include "strand_builders.h"

namespace tressora {
namespace {

using testing::freshExtent;
using testing::randomSet;

// A strand of two points `length` apart along x, starting at x.
void addSegment(StrandSet& set, std::uint64_t id, float x, float length) {
    const Vec3f points[2] = {{x, 0, 0}, {x + length, 0, 0}};
    set.addStrand(id, {}, points);
}

TEST(StrandSetExtent, BoundsAndLongestPolyline) {
    StrandSet set;
    const Vec3f bent[3] = {{0, 0, 0}, {3, 4, 0}, {3, 4, 12}};
    const Vec3f dot[1] = {{-1, 2, -3}};
    set.addStrand(1, {}, bent);
    set.addStrand(2, {}, dot);
    set.addStrand(3, {}, {});
    const StrandSet::Extent e = set.extent();
    EXPECT_EQ(e.min, (Vec3f{-1, 0, -3}));
    EXPECT_EQ(e.max, (Vec3f{3, 4, 12}));
    EXPECT_EQ(e.longest, 17.0f);
    EXPECT_TRUE(e.finite);
}

TEST(StrandSetExtent, NonFiniteStrandEndsItsChunkOnly) {
    StrandSet set;
    addSegment(set, 0, 0, 1);
    const Vec3f bad[2] = {{0, 0, 0}, {std::numeric_limits<float>::quiet_NaN(), 0, 0}};
    set.addStrand(1, {}, bad);
    addSegment(set, 2, 0, 100);  // same chunk, after the bad strand: not looked at
    for (std::uint64_t id = 3; id < StrandSet::kExtentChunk; ++id) addSegment(set, id, 0, 1);
    addSegment(set, 5000, 0, 50);  // the next chunk still counts
    const StrandSet::Extent e = set.extent();
    EXPECT_FALSE(e.finite);
    EXPECT_EQ(e.longest, 50.0f);

    StrandSet infinite;
    const Vec3f far[2] = {{0, 0, 0}, {0, std::numeric_limits<float>::infinity(), 0}};
    infinite.addStrand(1, {}, far);
    EXPECT_FALSE(infinite.extent().finite);
}

TEST(StrandSetExtent, EveryChangeDropsTheCache) {
    StrandSet set = randomSet(100, 40);
    const StrandSet::Extent before = set.extent();
    EXPECT_EQ(StrandSet(set).extent(), before);

    set.mutablePoints()[0] = {100, 0, 0};
    EXPECT_EQ(set.extent().max.x, 100.0f);
    addSegment(set, 1, -200, 1);
    EXPECT_EQ(set.extent().min.x, -200.0f);
    StrandSet far;
    addSegment(far, 2, 0, 1000);
    set.append(far);
    EXPECT_EQ(set.extent().longest, 1000.0f);
    set.resizeStrands(100);
    EXPECT_EQ(set.extent(), freshExtent(set));
    set.clear();
    EXPECT_TRUE(set.extent().empty());
}

TEST(StrandSetExtent, ExtentAfterMatchesAFullExtentAfterRandomEdits) {
    StrandSet previous = randomSet(10000, 42);  // five chunks, the last one partial
    previous.extent();
    DrawStream draw(43);
    for (int round = 0; round < 12; ++round) {
        StrandSet next(previous);
        std::span<Vec3f> points = next.mutablePoints();
        std::vector<std::size_t> changed;
        for (int k = 0; k < 6; ++k) changed.push_back(draw.next() % next.strandCount());
        std::sort(changed.begin(), changed.end());
        for (std::size_t strand : changed) {
            const PointRange r = next.pointRange(strand);
            for (std::size_t j = r.begin; j < r.end; ++j) {
                // Some rounds pull points in (the bounds must shrink), others push them out.
                const float scale = round % 2 == 0 ? 0.01f : 3.0f;
                points[j] = points[j] * scale;
            }
        }
        const StrandSet::Extent incremental = next.extentAfter(previous, changed);
        ASSERT_EQ(incremental, freshExtent(next)) << "round " << round;
        previous = std::move(next);
    }
}

TEST(StrandSetExtent, ExtentAfterRecomputesOnlyTheChunksItIsTold) {
    StrandSet previous = randomSet(6000, 44);
    const StrandSet::Extent before = previous.extent();
    StrandSet next(previous);
    next.mutablePoints()[next.pointCount() - 1] = {1e6f, 0, 0};
    // Nothing listed (and an index past the end, which is ignored): the old chunks stand.
    const std::vector<std::size_t> none = {999999};
    EXPECT_EQ(next.extentAfter(previous, none), before);

    StrandSet again(previous);
    again.mutablePoints()[again.pointCount() - 1] = {1e6f, 0, 0};
    const std::vector<std::size_t> last = {5999, 5999};
    EXPECT_EQ(again.extentAfter(previous, last).max.x, 1e6f);
    // The set now has a valid value of its own, which it returns as it is.
    EXPECT_EQ(again.extentAfter(previous, none).max.x, 1e6f);

    // A previous set without cached chunks, or of another layout, means a full computation.
    const StrandSet uncached = randomSet(3000, 45);
    StrandSet moved(uncached);
    moved.mutablePoints()[0] = {-1e5f, 0, 0};
    EXPECT_EQ(moved.extentAfter(uncached, {}).min.x, -1e5f);
    StrandSet grown(previous);
    addSegment(grown, 1, 0, 1e4f);
    EXPECT_EQ(grown.extentAfter(previous, {}).longest, 1e4f);
}

TEST(StrandSetExtent, ConcurrentReadersAgree) {
    const StrandSet set = randomSet(20000, 46);
    std::vector<StrandSet::Extent> seen(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < seen.size(); ++t) threads.emplace_back([&, t] { seen[t] = set.extent(); });
    for (std::thread& t : threads) t.join();
    for (const StrandSet::Extent& e : seen) EXPECT_EQ(e, seen[0]);
    EXPECT_EQ(seen[0], freshExtent(set));
}

}  // namespace
}  // namespace tressora
