#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "core/expect_text.h"
#include "core/hash.h"
#include "core/strand_set.h"
#include "strand_builders.h"

namespace tressora {
namespace {

using testing::randomSet;

const Vec3f kLine[3] = {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}};

template <class T>
std::vector<T> asVector(std::span<const T> values) {
    return {values.begin(), values.end()};
}

TEST(StrandSet, AddStrandFillsWidthsAndChannelDefaults) {
    StrandSet set;
    EXPECT_EQ(asVector(set.offsets()), std::vector<std::uint64_t>{0});
    EXPECT_TRUE(set.validate());
    EXPECT_TRUE(set.extent().empty());
    set.addStrandChannel("clumpId", 4.0f);
    set.addPointChannel("curl", 0.25f);
    set.addStrand(11, {3, 0.25f, 0.5f}, kLine);
    const float widths[2] = {0.1f, 0.2f};
    set.addStrand(12, {}, std::span(kLine, 2), widths);
    set.addStrand(13, {}, {});  // a strand of no points is legal
    set.addStrand(14, {}, set.strandPoints(0));  // its own points, which move as the array grows

    ASSERT_TRUE(set.validate());
    EXPECT_EQ(asVector(set.offsets()), (std::vector<std::uint64_t>{0, 3, 5, 5, 8}));
    EXPECT_EQ(asVector(set.widths()), (std::vector<float>{1, 1, 1, 0.1f, 0.2f, 1, 1, 1}));
    EXPECT_EQ(set.strandPoints(3)[2], kLine[2]);
    EXPECT_EQ(asVector(set.strandChannel("clumpId")->values()), (std::vector<float>{4, 4, 4, 4}));
    EXPECT_EQ(asVector(set.pointChannel("curl")->values()), std::vector<float>(8, 0.25f));
    EXPECT_EQ(set.strandChannel("curl"), nullptr);
    EXPECT_THROW(set.mutablePointChannel("clumpId"), std::invalid_argument);

    const std::uint64_t before = set.fingerprint();
    EXPECT_EQ(testing::fails([&] { set.addStrand(99, {}, kLine, widths); }),
              "StrandSet::addStrand: widths must be empty or match points");
    EXPECT_EQ(set.fingerprint(), before);
}

TEST(StrandSet, CopiesShareArraysUntilOneIsWritten) {
    StrandSet original = randomSet(100, 2);
    const Vec3f* data = original.mutablePoints().data();  // the original owns its points
    const Vec3f first = original.points()[0];
    StrandSet copy(original);
    EXPECT_EQ(copy.points().data(), data);
    // Copying took write ownership from the source too: its write copies.
    original.mutablePoints()[0] = {123, 456, 789};
    EXPECT_EQ(copy.points()[0], first);
    // The copy now holds the array alone and writes it in place, once.
    EXPECT_EQ(copy.mutablePoints().data(), data);
    EXPECT_EQ(copy.mutablePoints().data(), data);
    // A shared array is copied when written, and only that one.
    const float* curl = original.pointChannel("curl")->values().data();
    copy.mutablePointChannel("curl")[0] = -1.0f;
    EXPECT_NE(original.pointChannel("curl")->values()[0], -1.0f);
    EXPECT_EQ(original.pointChannel("curl")->values().data(), curl);
    EXPECT_EQ(copy.ids().data(), original.ids().data());
    EXPECT_EQ(copy.widths().data(), original.widths().data());
}

TEST(StrandSet, CopyAssignmentTakesArraysHeldNowhereElseAndSharesTheRest) {
    StrandSet source = randomSet(40, 5);
    const std::uint64_t expected = source.fingerprint();
    const Vec3f* points = source.points().data();
    const std::uint64_t steals = StrandSet::stealCount();
    StrandSet target;
    target = source;
    EXPECT_EQ(target.points().data(), points);
    EXPECT_EQ(target.fingerprint(), expected);
    EXPECT_EQ(StrandSet::stealCount() - steals, 7u);  // five arrays and two channels
    EXPECT_EQ(source.pointCount(), 0u);
    EXPECT_EQ(source.pointChannel("curl")->size(), 0u);

    const StrandSet holder(target);
    StrandSet second;
    second = target;
    EXPECT_EQ(StrandSet::stealCount() - steals, 7u);
    EXPECT_EQ(target.fingerprint(), expected);
    second.mutablePoints()[0].x = 1e6f;  // must copy: target and holder still read it
    EXPECT_NE(holder.points()[0].x, 1e6f);
}

TEST(StrandSet, DifferentArraysOfOneCopyMayBeMadeWritableFromTwoThreads) {
    const StrandSet original = randomSet(3000, 7);
    for (int round = 0; round < 20; ++round) {
        StrandSet copy(original);
        std::thread a([&] { for (Vec3f& p : copy.mutablePoints()) p.y = 1.0f; });
        std::thread b([&] { for (float& w : copy.mutableWidths()) w = 2.0f; });
        a.join();
        b.join();
        EXPECT_EQ(copy.points().back().y, 1.0f);
        EXPECT_EQ(copy.widths().back(), 2.0f);
        EXPECT_NE(original.points().back().y, 1.0f);
        EXPECT_NE(original.widths().back(), 2.0f);
    }
}

// Breaks `set` the one way the interface allows: a copy writes some arrays, so the set alone
// holds its versions of them, and a copy-assignment then takes those away.
template <class Write>
void takeAwayArrays(StrandSet& set, Write write) {
    StrandSet other(set);
    write(other);
    StrandSet thief;
    thief = set;
}

TEST(StrandSet, ValidateReportsTheFirstBrokenRuleWordForWord) {
    const auto firstFailure = [](auto write) {
        StrandSet set;
        for (std::uint64_t id = 0; id < 3; ++id) set.addStrand(id, {}, kLine);
        for (const char* name : {"b", "a"}) set.addStrandChannel(name);
        for (const char* name : {"zeta", "beta"}) set.addPointChannel(name);
        write(set);
        std::string message = "untouched";
        EXPECT_FALSE(set.validate(&message));
        EXPECT_FALSE(set.validate());
        return message;
    };
    // Each case breaks its rule and every later one it can, so the order is tested too.
    EXPECT_EQ(firstFailure([](StrandSet& s) {
                  takeAwayArrays(s, [](StrandSet& o) { o.mutableOffsets(); o.mutableRoots(); o.mutableWidths(); });
              }),
              "offsets size must be strandCount + 1");
    EXPECT_EQ(firstFailure([](StrandSet& s) {
                  s.mutableOffsets()[0] = 1;
                  takeAwayArrays(s, [](StrandSet& o) { o.mutableRoots(); o.mutableWidths(); });
              }),
              "roots size must equal strandCount");
    EXPECT_EQ(firstFailure([](StrandSet& s) {
                  s.mutableOffsets()[0] = 4;
                  s.resizePoints(10);
              }),
              "offsets must start at 0");
    EXPECT_EQ(firstFailure([](StrandSet& s) {
                  s.mutableOffsets()[1] = 7;
                  s.resizePoints(10);
              }),
              "last offset must equal pointCount");
    EXPECT_EQ(firstFailure([](StrandSet& s) {
                  s.mutableOffsets()[1] = 7;
                  takeAwayArrays(s, [](StrandSet& o) { o.mutableWidths(); o.mutableStrandChannel("a"); });
              }),
              "offsets must be non-decreasing");
    EXPECT_EQ(firstFailure([](StrandSet& s) {
                  takeAwayArrays(s, [](StrandSet& o) { o.mutableWidths(); o.mutableStrandChannel("a"); });
              }),
              "widths size must equal pointCount");
    EXPECT_EQ(firstFailure([](StrandSet& s) {
                  takeAwayArrays(s, [](StrandSet& o) {
                      o.mutableStrandChannel("b");
                      o.mutableStrandChannel("a");
                      o.mutablePointChannel("beta");
                  });
              }),
              "strand channel 'a' has wrong size");
    EXPECT_EQ(firstFailure([](StrandSet& s) {
                  takeAwayArrays(s, [](StrandSet& o) { o.mutablePointChannel("zeta"); o.mutablePointChannel("beta"); });
              }),
              "point channel 'beta' has wrong size");
    std::string message = "untouched";
    EXPECT_TRUE(randomSet(30, 10).validate(&message));
    EXPECT_EQ(message, "untouched");
}

TEST(StrandSet, FingerprintIsPinnedAndTellsBitsApart) {
    // Pinned: the fingerprint is kept to tell evaluations apart across versions.
    StrandSet set;
    const Vec3f points[2] = {{1, 2, 3}, {4, 5, 6}};
    const float widths[2] = {0.5f, 0.25f};
    set.addStrand(77, {-1, 0.5f, 0.0f}, points, widths);
    set.addStrandChannel("ab", 2.0f);
    set.addPointChannel("c", 3.0f);
    EXPECT_EQ(set.fingerprint(), 0x29d25b17748a9dfcull);
    EXPECT_EQ(StrandSet().fingerprint(), hash64(0));

    const StrandSet base = randomSet(64, 11);
    const std::uint64_t reference = base.fingerprint();
    EXPECT_EQ(StrandSet(base).fingerprint(), reference);
    const auto changed = [&base](auto edit) {
        StrandSet copy(base);
        edit(copy);
        return copy.fingerprint();
    };
    EXPECT_NE(changed([](StrandSet& s) { s.mutableWidths()[17] += 0.001f; }), reference);
    EXPECT_NE(changed([](StrandSet& s) { s.mutableRoots()[3].face += 1; }), reference);
    EXPECT_NE(changed([](StrandSet& s) { s.mutablePoints()[5].y = 0.0f; }),
              changed([](StrandSet& s) { s.mutablePoints()[5].y = -0.0f; }));
    // The same values under another channel name are another result.
    EXPECT_NE(changed([&base](StrandSet& s) {
                  s.removePointChannel("curl");
                  std::span<float> values = s.addPointChannel("curls", 0.5f);
                  std::copy(base.pointChannel("curl")->values().begin(), base.pointChannel("curl")->values().end(),
                            values.begin());
              }),
              reference);
    // Moving a strand's last point to the next strand changes the offsets alone.
    EXPECT_NE(changed([](StrandSet& s) {
                  std::span<std::uint64_t> o = s.mutableOffsets();
                  std::size_t i = 1;
                  while (o[i] == o[i - 1]) ++i;
                  o[i] -= 1;
                  EXPECT_TRUE(s.validate());
              }),
              reference);
}

TEST(StrandSet, StructuralChangesKeepTheSetValidAndCopiesApart) {
    const StrandSet original = randomSet(40, 13);
    const std::uint64_t reference = original.fingerprint();
    StrandSet set(original);
    set.reserve(1000, 10000);
    EXPECT_EQ(set.fingerprint(), reference);

    set.resizeStrands(25);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(set.fingerprint(), original.subset(testing::allIndices(25)).fingerprint());
    set.resizeStrands(27);
    set.resizePoints(set.pointCount() + 2);
    set.mutableOffsets()[27] += 2;
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(set.ids()[26], 0u);
    EXPECT_EQ(set.strandChannel("clumpId")->values()[26], 7.0f);
    EXPECT_EQ(set.widths().back(), 1.0f);
    EXPECT_EQ(set.pointChannel("curl")->values().back(), 0.5f);

    set.clear();  // keeps the channels' names and defaults
    EXPECT_EQ(asVector(set.offsets()), std::vector<std::uint64_t>{0});
    EXPECT_EQ(set.strandChannel("clumpId")->size(), 0u);
    set.addStrand(5, {}, kLine);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(set.strandChannel("clumpId")->values()[0], 7.0f);
    EXPECT_EQ(set.pointChannel("curl")->values()[2], 0.5f);
    EXPECT_EQ(original.fingerprint(), reference);
}

TEST(StrandSet, ForEachBlockVisitsArraysInOrderSkippingEmptyOnes) {
    StrandSet set;
    set.addStrand(1, {}, kLine);
    set.addStrandChannel("b", 1.0f);
    set.addStrandChannel("a", 1.0f);
    std::vector<std::pair<const void*, std::size_t>> blocks;
    const auto collect = [&blocks](const void* data, std::size_t bytes) { blocks.emplace_back(data, bytes); };
    set.forEachBlock(collect);
    const std::vector<std::pair<const void*, std::size_t>> expected = {
        {set.ids().data(), 8},           {set.roots().data(), sizeof(StrandRoot)},
        {set.offsets().data(), 16},      {set.points().data(), 3 * sizeof(Vec3f)},
        {set.widths().data(), 12},       {set.strandChannel("a")->values().data(), 4},
        {set.strandChannel("b")->values().data(), 4}};
    EXPECT_EQ(blocks, expected);
    EXPECT_EQ(set.byteSize(), 8 + sizeof(StrandRoot) + 16 + 36 + 12 + 4 + 4);

    StrandSet bare;  // a strand of no points: points, widths and the point channel are skipped
    bare.addStrand(1, {}, {});
    bare.addPointChannel("p");
    blocks.clear();
    bare.forEachBlock(collect);
    EXPECT_EQ(blocks.size(), 3u);
}

}  // namespace
}  // namespace tressora
