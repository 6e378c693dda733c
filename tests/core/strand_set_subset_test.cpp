#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include <tbb/task_arena.h>

#include "core/expect_text.h"
#include "core/hash.h"
#include "core/strand_set.h"
#include "strand_builders.h"

namespace tressora {
namespace {

using testing::allIndices;
using testing::randomSet;

// The strands at `indices` rebuilt one by one with addStrand: what subset must give.
StrandSet rebuilt(const StrandSet& source, const std::vector<std::size_t>& indices) {
    StrandSet set;
    set.addStrandChannel("clumpId", source.strandChannel("clumpId")->defaultValue());
    set.addPointChannel("curl", source.pointChannel("curl")->defaultValue());
    for (std::size_t i : indices) {
        set.addStrand(source.ids()[i], source.roots()[i], source.strandPoints(i), source.strandWidths(i));
        set.mutableStrandChannel("clumpId").back() = source.strandChannel("clumpId")->values()[i];
        const PointRange r = source.pointRange(i);
        std::span<float> curl = set.mutablePointChannel("curl");
        std::copy(source.pointChannel("curl")->values().begin() + r.begin,
                  source.pointChannel("curl")->values().begin() + r.end, curl.end() - r.size());
    }
    return set;
}

TEST(StrandSetSubset, CopiesChosenStrandsInTheGivenOrderWithChannels) {
    const StrandSet source = randomSet(2000, 30);
    // Runs of consecutive strands, jumps, repeats and reversals, longer than one grain of 256.
    std::vector<std::size_t> indices;
    for (std::size_t i = 100; i < 700; ++i) indices.push_back(i);
    for (std::size_t i = 1999; i > 1500; i -= 3) indices.push_back(i);
    indices.insert(indices.end(), {5, 5, 6, 0, 1999, 0});
    for (std::size_t i = 800; i < 1400; i += (i % 7 == 0 ? 2 : 1)) indices.push_back(i);

    const StrandSet picked = source.subset(indices);
    ASSERT_TRUE(picked.validate());
    EXPECT_EQ(picked.strandCount(), indices.size());
    EXPECT_EQ(picked.fingerprint(), rebuilt(source, indices).fingerprint());
    EXPECT_EQ(picked.pointChannel("curl")->defaultValue(), 0.5f);
}

TEST(StrandSetSubset, ReplacesTheTargetsWholeContentAndRejectsBadIndices) {
    const StrandSet source = randomSet(50, 31);
    StrandSet target = randomSet(80, 32);
    target.addStrandChannel("stale", 1.0f);
    const StrandSet targetCopy(target);
    const std::vector<std::size_t> indices = {3, 4, 10};
    source.subset(indices, target);
    ASSERT_TRUE(target.validate());
    EXPECT_EQ(target.strandChannel("stale"), nullptr);
    EXPECT_EQ(target.fingerprint(), rebuilt(source, indices).fingerprint());
    EXPECT_EQ(targetCopy.strandCount(), 80u);  // the set sharing the target's old arrays kept them
    EXPECT_TRUE(source.subset(std::vector<std::size_t>{}).validate());

    const std::vector<std::size_t> bad = {2, 50};
    EXPECT_EQ(testing::fails([&] { source.subset(bad, target); }),
              "StrandSet::subset: strand index 50 is out of range for a set of 50 strands");
    EXPECT_THROW(target.subset(std::vector<std::size_t>{1}, target), std::invalid_argument);
    EXPECT_EQ(target.strandCount(), 3u);
}

TEST(StrandSetThinned, KeepsByIdAloneAndMoreAtEveryHigherFraction) {
    const StrandSet source = randomSet(5000, 36);
    EXPECT_EQ(source.thinned(0.0f).strandCount(), 0u);
    EXPECT_EQ(source.thinned(1.0f).fingerprint(), source.fingerprint());
    std::vector<std::uint64_t> previous;
    for (float fraction : {0.05f, 0.1f, 0.3f, 0.5f, 0.51f, 0.9f, 0.99f}) {
        const StrandSet kept = source.thinned(fraction);
        ASSERT_TRUE(kept.validate());
        const std::vector<std::uint64_t> ids(kept.ids().begin(), kept.ids().end());
        EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));  // source order; ids ascend in this source
        EXPECT_EQ(ids.size(), static_cast<std::size_t>(std::count_if(source.ids().begin(), source.ids().end(),
                                                                      [&](std::uint64_t id) { return unit(id) < fraction; })));
        for (std::uint64_t id : ids) ASSERT_LT(unit(id), fraction);
        EXPECT_TRUE(std::includes(ids.begin(), ids.end(), previous.begin(), previous.end())) << fraction;
        previous = ids;
    }
}

TEST(StrandSetThreads, ResultsDoNotDependOnTheThreadCount) {
    struct Results {
        std::uint64_t subset, thinned, appended, copied;
        StrandSet::Extent extent;
    };
    const auto run = [] {
        const StrandSet source = randomSet(40000, 38, 20);
        std::vector<std::size_t> odd;
        for (std::size_t i = 1; i < source.strandCount(); i += 2) odd.push_back(i);
        StrandSet appended(source);
        appended.append(source.subset(odd));
        StrandSet copied(source);
        copied.mutablePoints()[0].x = 1.0f;
        return Results{source.subset(odd).fingerprint(), source.thinned(0.37f).fingerprint(),
                       appended.fingerprint(), copied.fingerprint(), appended.extent()};
    };
    Results serial{};
    tbb::task_arena one(1);
    one.execute([&] { serial = run(); });
    const Results parallel = run();
    EXPECT_EQ(serial.subset, parallel.subset);
    EXPECT_EQ(serial.thinned, parallel.thinned);
    EXPECT_EQ(serial.appended, parallel.appended);
    EXPECT_EQ(serial.copied, parallel.copied);
    EXPECT_EQ(serial.extent, parallel.extent);
}

}  // namespace
}  // namespace tressora
