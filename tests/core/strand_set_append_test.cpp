#include <gtest/gtest.h>

#include <vector>

#include "core/strand_set.h"
#include "strand_builders.h"

namespace tressora {
namespace {

using testing::randomSet;

std::vector<float> valuesOf(const StrandChannel* channel) {
    if (!channel) return {};
    return {channel->values().begin(), channel->values().end()};
}

// Two strands of 2 and 3 points with ids from `firstId`.
StrandSet twoStrands(std::uint64_t firstId) {
    StrandSet set;
    const Vec3f points[3] = {{1, 0, 0}, {2, 0, 0}, {3, 0, 0}};
    set.addStrand(firstId, {}, std::span(points, 2));
    set.addStrand(firstId + 1, {}, points);
    return set;
}

TEST(StrandSetAppend, ConcatenatesArraysAndShiftsOffsets) {
    StrandSet set = randomSet(30, 20);
    const StrandSet other = randomSet(20, 21);
    const StrandSet before(set);
    set.append(other);
    ASSERT_TRUE(set.validate());
    ASSERT_EQ(set.strandCount(), 50u);
    for (std::size_t i = 0; i < 20; ++i) {
        EXPECT_EQ(set.ids()[30 + i], other.ids()[i]);
        EXPECT_EQ(set.roots()[30 + i], other.roots()[i]);
        const std::span<const Vec3f> a = set.strandPoints(30 + i), b = other.strandPoints(i);
        ASSERT_TRUE(std::equal(a.begin(), a.end(), b.begin(), b.end()));
    }
    // Appending to a copy left the set it was copied from alone.
    EXPECT_EQ(before.strandCount(), 30u);
    EXPECT_TRUE(before.validate());
    // Appending in two steps equals picking the same strands out of one combined set.
    StrandSet all(before);
    all.append(other);
    EXPECT_EQ(all.fingerprint(), set.fingerprint());
}

TEST(StrandSetAppend, ChannelOnOneSideOnlyGetsItsDefaultOnTheOther) {
    StrandSet set = twoStrands(1);
    set.addStrandChannel("mine", 3.0f)[0] = 30.0f;
    StrandSet other = twoStrands(10);
    other.addStrandChannel("theirs", -2.0f)[1] = 20.0f;
    other.addPointChannel("dense", 0.5f)[4] = 9.0f;

    set.append(other);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(valuesOf(set.strandChannel("mine")), (std::vector<float>{30, 3, 3, 3}));
    EXPECT_EQ(valuesOf(set.strandChannel("theirs")), (std::vector<float>{-2, -2, -2, 20}));
    EXPECT_EQ(set.strandChannel("theirs")->defaultValue(), -2.0f);
    EXPECT_EQ(valuesOf(set.pointChannel("dense")), (std::vector<float>{0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 9}));
}

TEST(StrandSetAppend, AnEmptySetStillBringsItsChannels) {
    StrandSet set = twoStrands(1);
    StrandSet other;
    other.addPointChannel("curl", 0.25f);
    set.append(other);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(valuesOf(set.pointChannel("curl")), std::vector<float>(5, 0.25f));
}

TEST(StrandSetAppend, AppendedPointChannelIsFilledFromTheReceiversStrandChannel) {
    StrandSet set = twoStrands(1);
    std::span<float> width = set.addStrandChannel("taper", 1.0f);
    width[0] = 5.0f;
    width[1] = 6.0f;
    StrandSet other = twoStrands(10);
    std::span<float> taper = other.addPointChannel("taper", 0.0f);
    for (std::size_t i = 0; i < taper.size(); ++i) taper[i] = 100.0f + static_cast<float>(i);

    set.append(other);
    ASSERT_TRUE(set.validate());
    // Old points carry their strand's value, not the point channel's default.
    EXPECT_EQ(valuesOf(set.pointChannel("taper")), (std::vector<float>{5, 5, 6, 6, 6, 100, 101, 102, 103, 104}));
    // The strand channel itself merges as always: the new strands have its default.
    EXPECT_EQ(valuesOf(set.strandChannel("taper")), (std::vector<float>{5, 6, 1, 1}));
}

TEST(StrandSetAppend, ReceivedPointChannelIsFilledFromTheAppendedStrandChannel) {
    StrandSet set = twoStrands(1);
    set.addPointChannel("taper", 0.5f);
    StrandSet other = twoStrands(10);
    std::span<float> taper = other.addStrandChannel("taper", 1.0f);
    taper[0] = 7.0f;
    taper[1] = 8.0f;

    set.append(other);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(valuesOf(set.pointChannel("taper")), (std::vector<float>{0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 7, 7, 8, 8, 8}));
    EXPECT_EQ(valuesOf(set.strandChannel("taper")), (std::vector<float>{1, 1, 7, 8}));
}

TEST(StrandSetAppend, AppendingItselfDoublesTheSet) {
    StrandSet set = randomSet(25, 22);
    const StrandSet original(set);
    set.append(set);
    ASSERT_TRUE(set.validate());
    StrandSet expected(original);
    expected.append(original);
    EXPECT_EQ(set.fingerprint(), expected.fingerprint());
    EXPECT_EQ(set.strandCount(), 50u);
}

TEST(StrandSetAppend, LargeAppendToASharedSetCopiesOnceAndLeavesTheOtherAlone) {
    // Over the pool threshold: about 450k points of 12 bytes.
    const StrandSet base = randomSet(100000, 23, 10);
    const StrandSet more = randomSet(1000, 24);
    const std::uint64_t baseFingerprint = base.fingerprint();
    StrandSet set(base);
    set.append(more);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(base.fingerprint(), baseFingerprint);
    EXPECT_NE(set.points().data(), base.points().data());
    EXPECT_EQ(set.subset(testing::allIndices(100000)).fingerprint(), baseFingerprint);
    EXPECT_EQ(set.strandPoints(100999).size(), more.strandPoints(999).size());
    EXPECT_EQ(set.pointChannel("curl")->values().back(), more.pointChannel("curl")->values().back());
}

TEST(StrandSetAppend, GrowingFromEmptyByAppendMatchesAddStrand) {
    const StrandSet source = randomSet(300, 25);
    StrandSet grown;
    for (std::size_t i = 0; i < source.strandCount(); i += 50) {
        std::vector<std::size_t> piece;
        for (std::size_t k = i; k < i + 50; ++k) piece.push_back(k);
        grown.append(source.subset(piece));
    }
    EXPECT_EQ(grown.fingerprint(), source.fingerprint());
}

}  // namespace
}  // namespace tressora
