#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include <tbb/task_arena.h>

#include "core/hash.h"
#include "core/parallel.h"

namespace tressora {
namespace {

// Reference values worked out by hand (with arbitrary-precision arithmetic, masked to
// 64 bits); hash64(0) is also the well-known first output of SplitMix64 seeded with 0.
TEST(Hash, MatchesValuesComputedByHand) {
    EXPECT_EQ(hash64(0), 0xe220a8397b1dcdafull);
    EXPECT_EQ(hash64(1), 0x910a2dec89025cc1ull);
    EXPECT_EQ(combine(1, 2), 0xa3efbcce2e044f84ull);
    EXPECT_EQ(combine(0, 0), 0x6e789e6aa1b965f4ull);
    // unit(42): top 24 bits of hash64(42) are 12441394.
    EXPECT_FLOAT_EQ(unit(42), 12441394.0f / 16777216.0f);
}

TEST(Hash, DrawStreamFollowsSplitMixSequenceAfterTheSeedStep) {
    DrawStream draws(7);
    EXPECT_EQ(draws.next(), 0xa65305fd338ec8feull);
    EXPECT_EQ(draws.next(), 0x8ca3cbb6ca63129bull);
}

TEST(Hash, UnitStaysBelowOneAndFloatBitsSeeSignedZero) {
    for (std::uint64_t x = 0; x < 100000; ++x) {
        const float u = unit(x);
        ASSERT_GE(u, 0.0f);
        ASSERT_LT(u, 1.0f);
    }
    EXPECT_NE(floatBits(0.0f), floatBits(-0.0f));
    EXPECT_NE(combine(5, floatBits(0.0f)), combine(5, floatBits(-0.0f)));
}

std::vector<std::uint64_t> hashedRange(std::size_t n) {
    std::vector<std::uint64_t> out(n);
    parallelRange(0, n, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) out[i] = combine(hash64(i), i * 3);
    });
    return out;
}

TEST(Parallel, RangeResultsDoNotDependOnTheThreadCount) {
    std::vector<std::uint64_t> one, all;
    tbb::task_arena(1).execute([&] { one = hashedRange(100000); });
    tbb::task_arena().execute([&] { all = hashedRange(100000); });
    EXPECT_EQ(one, all);
}

TEST(Parallel, CoversEveryIndexOnceAndRunsSmallCountsInline) {
    std::vector<int> hits(10007, 0);
    parallelRange(0, hits.size(), 64, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) ++hits[i];
    });
    for (int h : hits) ASSERT_EQ(h, 1);

    int calls = 0;
    parallelRange(10, 20, 256, [&](std::size_t lo, std::size_t hi) {
        ++calls;
        EXPECT_EQ(lo, 10u);
        EXPECT_EQ(hi, 20u);
    });
    EXPECT_EQ(calls, 1);
    parallelRange(5, 5, 1, [&](std::size_t, std::size_t) { ++calls; });
    EXPECT_EQ(calls, 1);
}

TEST(Parallel, ThreadLimitReadsTressoraThreads) {
    const int cores = tbb::info::default_concurrency();
    setenv("TRESSORA_THREADS", "1", 1);
    EXPECT_EQ(threadLimit(), 1);
    for (const char* notANumber : {"", "abc", "0", "-3", "2x"}) {
        setenv("TRESSORA_THREADS", notANumber, 1);
        EXPECT_EQ(threadLimit(), cores) << "'" << notANumber << "'";
    }
    unsetenv("TRESSORA_THREADS");
    EXPECT_EQ(threadLimit(), cores);
}

}  // namespace
}  // namespace tressora
