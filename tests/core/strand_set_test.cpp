#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <thread>
#include <vector>

#include "core/hash.h"
#include "core/strand_set.h"
#include "strand_builders.h"

namespace tressora {
namespace {

using testing::randomSet;

const Vec3f kLine[3] = {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}};

TEST(StrandSet, EmptySetHasOneOffsetAndValidates) {
    const StrandSet set;
    EXPECT_EQ(set.strandCount(), 0u);
    EXPECT_EQ(set.pointCount(), 0u);
    ASSERT_EQ(set.offsets().size(), 1u);
    EXPECT_EQ(set.offsets()[0], 0u);
    EXPECT_TRUE(set.validate());
    const StrandSet::Extent e = set.extent();
    EXPECT_GT(e.min.x, e.max.x);
    EXPECT_EQ(e.min.y, 3.4028235e38f);
    EXPECT_EQ(e.max.z, -3.4028235e38f);
    EXPECT_EQ(e.longest, 0.0f);
    EXPECT_TRUE(e.finite);
}

TEST(StrandSet, AddStrandFillsWidthsAndChannelDefaults) {
    StrandSet set;
    set.addStrandChannel("clumpId", 4.0f);
    set.addPointChannel("curl", 0.25f);
    set.addStrand(11, {3, 0.25f, 0.5f}, kLine);
    const float widths[2] = {0.1f, 0.2f};
    set.addStrand(12, {}, std::span(kLine, 2), widths);
    set.addStrand(13, {}, {});  // a strand of no points is legal

    ASSERT_TRUE(set.validate());
    EXPECT_EQ(set.strandCount(), 3u);
    EXPECT_EQ(set.pointCount(), 5u);
    EXPECT_EQ(std::vector<std::uint64_t>(set.offsets().begin(), set.offsets().end()),
              (std::vector<std::uint64_t>{0, 3, 5, 5}));
    EXPECT_EQ(set.pointRange(2), (PointRange{5, 5}));
    EXPECT_EQ(std::vector<float>(set.widths().begin(), set.widths().end()),
              (std::vector<float>{1.0f, 1.0f, 1.0f, 0.1f, 0.2f}));
    EXPECT_EQ(set.roots()[0], (StrandRoot{3, 0.25f, 0.5f}));
    EXPECT_EQ(set.roots()[1], StrandRoot{});
    EXPECT_EQ(set.strandChannel("clumpId")->values().size(), 3u);
    EXPECT_EQ(set.strandChannel("clumpId")->values()[2], 4.0f);
    EXPECT_EQ(set.pointChannel("curl")->values().size(), 5u);
    EXPECT_EQ(set.pointChannel("curl")->values()[4], 0.25f);
    EXPECT_EQ(set.strandChannel("curl"), nullptr);
    EXPECT_EQ(set.pointChannel("missing"), nullptr);
}

TEST(StrandSet, AddStrandRejectsMismatchedWidthsBeforeChangingAnything) {
    StrandSet set = randomSet(20, 1);
    const std::uint64_t before = set.fingerprint();
    const float widths[2] = {1.0f, 2.0f};
    try {
        set.addStrand(99, {}, kLine, widths);
        FAIL() << "expected invalid_argument";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "StrandSet::addStrand: widths must be empty or match points");
    }
    EXPECT_EQ(set.fingerprint(), before);
    EXPECT_TRUE(set.validate());
}

TEST(StrandSet, AddStrandMayCopyPointsOfItsOwnStrands) {
    StrandSet set;
    set.addStrand(1, {}, kLine);
    for (int i = 0; i < 10; ++i) set.addStrand(2 + i, {}, set.strandPoints(i), set.strandWidths(i));
    ASSERT_TRUE(set.validate());
    for (std::size_t i = 0; i < set.strandCount(); ++i) {
        ASSERT_EQ(set.strandPoints(i).size(), 3u);
        EXPECT_EQ(set.strandPoints(i)[2], kLine[2]);
    }
}

TEST(StrandSet, CopySharesArraysUntilWritten) {
    const StrandSet original = randomSet(100, 2);
    StrandSet copy(original);
    EXPECT_EQ(copy.ids().data(), original.ids().data());
    EXPECT_EQ(copy.roots().data(), original.roots().data());
    EXPECT_EQ(copy.offsets().data(), original.offsets().data());
    EXPECT_EQ(copy.points().data(), original.points().data());
    EXPECT_EQ(copy.widths().data(), original.widths().data());
    EXPECT_EQ(copy.strandChannel("clumpId")->values().data(), original.strandChannel("clumpId")->values().data());
    EXPECT_EQ(copy.pointChannel("curl")->values().data(), original.pointChannel("curl")->values().data());

    const std::vector<Vec3f> before(original.points().begin(), original.points().end());
    std::span<Vec3f> points = copy.mutablePoints();
    EXPECT_NE(points.data(), original.points().data());
    for (Vec3f& p : points) p.x += 1.0f;

    // Only the written array was copied, and the original did not see the write.
    EXPECT_EQ(copy.ids().data(), original.ids().data());
    EXPECT_EQ(copy.offsets().data(), original.offsets().data());
    EXPECT_EQ(copy.widths().data(), original.widths().data());
    EXPECT_EQ(copy.pointChannel("curl")->values().data(), original.pointChannel("curl")->values().data());
    EXPECT_TRUE(std::equal(before.begin(), before.end(), original.points().begin()));
    EXPECT_EQ(copy.points()[0].x, before[0].x + 1.0f);

    // A second write reuses the copy it owns now.
    EXPECT_EQ(copy.mutablePoints().data(), points.data());
    // Writing a channel copies that channel alone.
    copy.mutablePointChannel("curl")[0] = -1.0f;
    EXPECT_NE(copy.pointChannel("curl")->values().data(), original.pointChannel("curl")->values().data());
    EXPECT_NE(original.pointChannel("curl")->values()[0], -1.0f);
}

TEST(StrandSet, CopyingTakesWriteOwnershipFromTheSourceToo) {
    StrandSet original = randomSet(50, 3);
    const Vec3f* data = original.mutablePoints().data();  // owned by original now
    const StrandSet copy(original);
    const Vec3f seen = copy.points()[0];
    std::span<Vec3f> points = original.mutablePoints();
    EXPECT_NE(points.data(), data);
    points[0] = {123, 456, 789};
    EXPECT_EQ(copy.points()[0], seen);
    EXPECT_EQ(copy.points().data(), data);
}

TEST(StrandSet, WritingAnArrayNoOtherSetHoldsDoesNotCopyIt) {
    StrandSet copy;
    const Vec3f* data = nullptr;
    {
        const StrandSet original = randomSet(50, 4);
        copy = StrandSet(original);
        data = original.points().data();
    }
    EXPECT_EQ(copy.mutablePoints().data(), data);
}

TEST(StrandSet, CopyAssignmentTakesArraysHeldNowhereElse) {
    StrandSet source = randomSet(40, 5);
    const std::uint64_t expected = source.fingerprint();
    const Vec3f* points = source.points().data();
    const std::uint64_t stealsBefore = StrandSet::stealCount();

    StrandSet target;
    target = source;
    EXPECT_EQ(target.points().data(), points);
    EXPECT_EQ(target.fingerprint(), expected);
    // Five arrays and two channels were taken; the source is left with empty arrays.
    EXPECT_EQ(StrandSet::stealCount() - stealsBefore, 7u);
    EXPECT_EQ(source.strandCount(), 0u);
    EXPECT_EQ(source.pointCount(), 0u);
    EXPECT_EQ(source.pointChannel("curl")->size(), 0u);
}

TEST(StrandSet, CopyAssignmentSharesArraysThatOthersHold) {
    StrandSet source = randomSet(40, 6);
    const StrandSet holder(source);
    const std::uint64_t stealsBefore = StrandSet::stealCount();
    StrandSet target;
    target = source;
    EXPECT_EQ(StrandSet::stealCount(), stealsBefore);
    EXPECT_EQ(source.fingerprint(), holder.fingerprint());
    EXPECT_EQ(target.points().data(), holder.points().data());
    // Writing the target must copy: the source and holder still read the array.
    target.mutablePoints()[0].x = 1e6f;
    EXPECT_NE(source.points()[0].x, 1e6f);
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

TEST(StrandSet, MoveLeavesAValidEmptySet) {
    StrandSet source = randomSet(10, 8);
    const std::uint64_t expected = source.fingerprint();
    StrandSet moved(std::move(source));
    EXPECT_EQ(moved.fingerprint(), expected);
    EXPECT_TRUE(source.validate());  // NOLINT(bugprone-use-after-move): a moved-from set is empty
    EXPECT_EQ(source.strandCount(), 0u);
}

// Breaks `set` the one way the public interface allows: a copy writes some arrays (so the
// set alone holds its own versions of them) and a copy-assignment then takes those away.
template <class Write>
void takeAwayArrays(StrandSet& set, Write write) {
    StrandSet other(set);
    write(other);
    StrandSet thief;
    thief = set;
}

TEST(StrandSet, ValidateReportsTheFirstBrokenRuleWordForWord) {
    std::string message;
    {
        StrandSet set = randomSet(10, 9);
        takeAwayArrays(set, [](StrandSet& s) {
            s.mutableOffsets();
            s.mutableRoots();
        });
        EXPECT_FALSE(set.validate(&message));
        EXPECT_EQ(message, "offsets size must be strandCount + 1");
    }
    {
        StrandSet set = randomSet(10, 9);
        set.mutableOffsets()[0] = 1;  // also breaks rule 5 and the widths agree: rule 2 must win
        takeAwayArrays(set, [](StrandSet& s) { s.mutableRoots(); });
        EXPECT_FALSE(set.validate(&message));
        EXPECT_EQ(message, "roots size must equal strandCount");
    }
    {
        StrandSet set = randomSet(10, 9);
        set.mutableOffsets()[0] = 1;
        EXPECT_FALSE(set.validate(&message));
        EXPECT_EQ(message, "offsets must start at 0");
    }
    {
        StrandSet set = randomSet(10, 9);
        set.resizePoints(set.pointCount() + 1);
        EXPECT_FALSE(set.validate(&message));
        EXPECT_EQ(message, "last offset must equal pointCount");
    }
    {
        StrandSet set;
        set.addStrand(1, {}, kLine);
        set.addStrand(2, {}, kLine);
        set.addStrand(3, {}, kLine);
        set.mutableOffsets()[1] = 7;
        takeAwayArrays(set, [](StrandSet& s) { s.mutableWidths(); });  // rule 5 comes before rule 6
        EXPECT_FALSE(set.validate(&message));
        EXPECT_EQ(message, "offsets must be non-decreasing");
    }
    {
        StrandSet set = randomSet(10, 9);
        takeAwayArrays(set, [](StrandSet& s) { s.mutableWidths(); });
        set.addStrandChannel("a");
        takeAwayArrays(set, [](StrandSet& s) { s.mutableStrandChannel("a"); });
        EXPECT_FALSE(set.validate(&message));
        EXPECT_EQ(message, "widths size must equal pointCount");
    }
    {
        StrandSet set = randomSet(10, 9);
        set.addStrandChannel("b");
        set.addStrandChannel("a");
        set.addPointChannel("a");
        takeAwayArrays(set, [](StrandSet& s) {
            s.mutableStrandChannel("b");
            s.mutableStrandChannel("a");
            s.mutablePointChannel("a");
        });
        EXPECT_FALSE(set.validate(&message));
        EXPECT_EQ(message, "strand channel 'a' has wrong size");
    }
    {
        StrandSet set = randomSet(10, 9);
        set.addPointChannel("zeta");
        set.addPointChannel("beta");
        takeAwayArrays(set, [](StrandSet& s) {
            s.mutablePointChannel("zeta");
            s.mutablePointChannel("beta");
        });
        EXPECT_FALSE(set.validate(&message));
        EXPECT_EQ(message, "point channel 'beta' has wrong size");
        EXPECT_FALSE(set.validate());  // no message wanted: no crash
    }
}

TEST(StrandSet, ValidateLeavesTheMessageAloneOnSuccess) {
    std::string message = "untouched";
    EXPECT_TRUE(randomSet(30, 10).validate(&message));
    EXPECT_EQ(message, "untouched");
}

TEST(StrandSet, FingerprintFoldsTheContentInItsFixedOrder) {
    StrandSet set;
    const Vec3f points[2] = {{1, 2, 3}, {4, 5, 6}};
    const float widths[2] = {0.5f, 0.25f};
    set.addStrand(77, {-1, 0.5f, 0.0f}, points, widths);
    set.addStrandChannel("ab", 2.0f);
    set.addPointChannel("c", 3.0f);

    std::uint64_t h = hash64(1);
    for (std::uint64_t x : {std::uint64_t{77}, std::uint64_t{2}, ~std::uint64_t{0}, floatBits(0.5f), floatBits(0.0f)}) {
        h = combine(h, x);
    }
    for (float f : {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 0.5f, 0.25f}) h = combine(h, floatBits(f));
    for (std::uint64_t x : {std::uint64_t{'a'}, std::uint64_t{'b'}, floatBits(2.0f)}) h = combine(h, x);
    for (std::uint64_t x : {std::uint64_t{'c'}, floatBits(3.0f), floatBits(3.0f)}) h = combine(h, x);
    EXPECT_EQ(set.fingerprint(), h);
    EXPECT_EQ(StrandSet().fingerprint(), hash64(0));
}

TEST(StrandSet, FingerprintTellsBitsApart) {
    const StrandSet base = randomSet(64, 11);
    const std::uint64_t reference = base.fingerprint();

    StrandSet width(base);
    width.mutableWidths()[17] += 0.001f;
    EXPECT_NE(width.fingerprint(), reference);

    StrandSet zero(base), negativeZero(base);
    zero.mutablePoints()[5].y = 0.0f;
    negativeZero.mutablePoints()[5].y = -0.0f;
    EXPECT_NE(zero.fingerprint(), negativeZero.fingerprint());

    // The same values under another channel name are another result.
    StrandSet renamed(base);
    const std::vector<float> curl(base.pointChannel("curl")->values().begin(), base.pointChannel("curl")->values().end());
    renamed.removePointChannel("curl");
    std::span<float> values = renamed.addPointChannel("curls", 0.5f);
    std::copy(curl.begin(), curl.end(), values.begin());
    EXPECT_NE(renamed.fingerprint(), reference);

    StrandSet face(base);
    face.mutableRoots()[3].face += 1;
    EXPECT_NE(face.fingerprint(), reference);

    // Moving a point from one strand to the next changes only the offsets.
    StrandSet offsets(base);
    std::span<std::uint64_t> o = offsets.mutableOffsets();
    std::size_t i = 1;
    while (o[i] == o[i - 1]) ++i;
    o[i] -= 1;
    ASSERT_TRUE(offsets.validate());
    EXPECT_NE(offsets.fingerprint(), reference);

    EXPECT_EQ(StrandSet(base).fingerprint(), reference);
}

TEST(StrandSet, ClearKeepsChannelNamesAndDefaults) {
    StrandSet set = randomSet(30, 12);
    const StrandSet keep(set);
    set.clear();
    EXPECT_TRUE(set.validate());
    EXPECT_EQ(set.strandCount(), 0u);
    EXPECT_EQ(set.offsets().size(), 1u);
    ASSERT_NE(set.strandChannel("clumpId"), nullptr);
    EXPECT_EQ(set.strandChannel("clumpId")->size(), 0u);
    set.addStrand(5, {}, kLine);
    EXPECT_EQ(set.strandChannel("clumpId")->values()[0], 7.0f);
    EXPECT_EQ(set.pointChannel("curl")->values()[2], 0.5f);
    EXPECT_EQ(keep.strandCount(), 30u);
    EXPECT_TRUE(keep.validate());
}

TEST(StrandSet, ResizeKeepsTheSetValidAndTheSharedOriginalIntact) {
    const StrandSet original = randomSet(40, 13);
    const std::uint64_t reference = original.fingerprint();
    StrandSet set(original);
    set.resizeStrands(25);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(set.pointCount(), original.offsets()[25]);
    EXPECT_EQ(set.fingerprint(), original.subset(testing::allIndices(25)).fingerprint());
    set.resizeStrands(27);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(set.ids()[26], 0u);
    EXPECT_EQ(set.pointRange(26).size(), 0u);
    EXPECT_EQ(set.strandChannel("clumpId")->values()[26], 7.0f);

    set.resizePoints(set.pointCount() + 2);
    set.mutableOffsets()[27] += 2;
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(set.widths().back(), 1.0f);
    EXPECT_EQ(set.pointChannel("curl")->values().back(), 0.5f);
    EXPECT_EQ(original.fingerprint(), reference);
}

TEST(StrandSet, ReserveChangesNoContentAndKeepsCopiesApart) {
    const StrandSet original = randomSet(40, 14);
    StrandSet set(original);
    set.reserve(1000, 10000);
    EXPECT_EQ(set.fingerprint(), original.fingerprint());
    set.addStrand(1, {}, kLine);
    EXPECT_EQ(original.strandCount(), 40u);
    EXPECT_TRUE(original.validate());
    EXPECT_TRUE(set.validate());
}

TEST(StrandSet, ForEachBlockVisitsArraysInOrderSkippingEmptyOnes) {
    StrandSet set;
    set.addStrand(1, {}, kLine);
    set.addStrandChannel("b", 1.0f);
    set.addStrandChannel("a", 1.0f);
    std::vector<std::pair<const void*, std::size_t>> blocks;
    const auto collect = [&blocks](const void* data, std::size_t bytes) { blocks.emplace_back(data, bytes); };
    set.forEachBlock(collect);
    ASSERT_EQ(blocks.size(), 7u);
    EXPECT_EQ(blocks[0], std::make_pair<const void*>(set.ids().data(), std::size_t{8}));
    EXPECT_EQ(blocks[1], std::make_pair<const void*>(set.roots().data(), sizeof(StrandRoot)));
    EXPECT_EQ(blocks[2], std::make_pair<const void*>(set.offsets().data(), std::size_t{16}));
    EXPECT_EQ(blocks[3], std::make_pair<const void*>(set.points().data(), 3 * sizeof(Vec3f)));
    EXPECT_EQ(blocks[4], std::make_pair<const void*>(set.widths().data(), std::size_t{12}));
    EXPECT_EQ(blocks[5].first, set.strandChannel("a")->values().data());
    EXPECT_EQ(blocks[6].first, set.strandChannel("b")->values().data());
    EXPECT_EQ(set.byteSize(), 8 + sizeof(StrandRoot) + 16 + 36 + 12 + 4 + 4);

    // A strand of no points: points, widths and the point channel are empty and skipped.
    StrandSet bare;
    bare.addStrand(1, {}, {});
    bare.addPointChannel("p");
    blocks.clear();
    bare.forEachBlock(collect);
    EXPECT_EQ(blocks.size(), 3u);
    blocks.clear();
    StrandSet().forEachBlock(collect);
    EXPECT_EQ(blocks.size(), 1u);  // the single offset
}

TEST(StrandSet, MutableChannelOfAnUnknownNameThrows) {
    StrandSet set = randomSet(3, 15);
    EXPECT_THROW(set.mutableStrandChannel("curl"), std::invalid_argument);
    EXPECT_THROW(set.mutablePointChannel("clumpId"), std::invalid_argument);
    // Asking to add an existing channel keeps its values and takes the new default.
    const float first = set.strandChannel("clumpId")->values()[0];
    set.addStrandChannel("clumpId", -1.0f);
    EXPECT_EQ(set.strandChannel("clumpId")->values()[0], first);
    EXPECT_EQ(set.strandChannel("clumpId")->defaultValue(), -1.0f);
}

}  // namespace
}  // namespace tressora
