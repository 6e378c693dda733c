#include <gtest/gtest.h>

#include <vector>

#include "core/strand_set.h"
#include "strand_builders.h"

namespace tressora {
namespace {

using testing::allIndices;
using testing::randomSet;

std::vector<float> valuesOf(const StrandChannel* channel) {
    if (!channel) return {};
    return {channel->values().begin(), channel->values().end()};
}

// Two strands of 2 and 3 points.
StrandSet twoStrands(std::uint64_t firstId) {
    StrandSet set;
    const Vec3f points[3] = {{1, 0, 0}, {2, 0, 0}, {3, 0, 0}};
    set.addStrand(firstId, {}, std::span(points, 2));
    set.addStrand(firstId + 1, {}, points);
    return set;
}

TEST(StrandSetAppend, ConcatenatesArraysAndShiftsOffsets) {
    const StrandSet first = randomSet(30, 20);
    const StrandSet second = randomSet(20, 21);
    StrandSet set(first);
    set.append(second);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(set.subset(allIndices(30)).fingerprint(), first.fingerprint());
    std::vector<std::size_t> tail;
    for (std::size_t i = 30; i < 50; ++i) tail.push_back(i);
    EXPECT_EQ(set.subset(tail).fingerprint(), second.fingerprint());
    EXPECT_EQ(first.strandCount(), 30u);  // the set it was copied from is untouched

    // Growing an empty set piece by piece gives the same set.
    StrandSet grown;
    for (std::size_t i = 0; i < 30; i += 7) {
        std::vector<std::size_t> piece;
        for (std::size_t k = i; k < std::min<std::size_t>(i + 7, 30); ++k) piece.push_back(k);
        grown.append(first.subset(piece));
    }
    EXPECT_EQ(grown.fingerprint(), first.fingerprint());

    set.append(set);  // itself: doubles
    EXPECT_EQ(set.strandCount(), 100u);
    EXPECT_TRUE(set.validate());
}

TEST(StrandSetAppend, ChannelOnOneSideOnlyGetsItsDefaultOnTheOther) {
    StrandSet set = twoStrands(1);
    set.addStrandChannel("mine", 3.0f)[0] = 30.0f;
    StrandSet other = twoStrands(10);
    other.addStrandChannel("theirs", -2.0f)[1] = 20.0f;
    other.addPointChannel("dense", 0.5f)[4] = 9.0f;
    StrandSet empty;
    empty.addPointChannel("late", 0.25f);

    set.append(other);
    set.append(empty);  // no strands, still brings its channel
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(valuesOf(set.strandChannel("mine")), (std::vector<float>{30, 3, 3, 3}));
    EXPECT_EQ(valuesOf(set.strandChannel("theirs")), (std::vector<float>{-2, -2, -2, 20}));
    EXPECT_EQ(valuesOf(set.pointChannel("dense")), (std::vector<float>{.5f, .5f, .5f, .5f, .5f, .5f, .5f, .5f, .5f, 9}));
    EXPECT_EQ(valuesOf(set.pointChannel("late")), std::vector<float>(10, 0.25f));
}

TEST(StrandSetAppend, MissingPointChannelIsFilledFromAStrandChannelOfThatNameOnEitherSide) {
    // Receiving side keeps "taper" per strand, the appended side per point.
    StrandSet set = twoStrands(1);
    std::span<float> perStrand = set.addStrandChannel("taper", 1.0f);
    perStrand[0] = 5.0f;
    perStrand[1] = 6.0f;
    StrandSet other = twoStrands(10);
    std::span<float> perPoint = other.addPointChannel("taper", 0.0f);
    for (std::size_t i = 0; i < perPoint.size(); ++i) perPoint[i] = 100.0f + static_cast<float>(i);
    set.append(other);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(valuesOf(set.pointChannel("taper")), (std::vector<float>{5, 5, 6, 6, 6, 100, 101, 102, 103, 104}));
    EXPECT_EQ(valuesOf(set.strandChannel("taper")), (std::vector<float>{5, 6, 1, 1}));

    // And the other way round.
    StrandSet receiver = twoStrands(1);
    receiver.addPointChannel("taper", 0.5f);
    StrandSet appended = twoStrands(10);
    std::span<float> theirs = appended.addStrandChannel("taper", 1.0f);
    theirs[0] = 7.0f;
    theirs[1] = 8.0f;
    receiver.append(appended);
    ASSERT_TRUE(receiver.validate());
    EXPECT_EQ(valuesOf(receiver.pointChannel("taper")), (std::vector<float>{.5f, .5f, .5f, .5f, .5f, 7, 7, 8, 8, 8}));
    EXPECT_EQ(valuesOf(receiver.strandChannel("taper")), (std::vector<float>{1, 1, 7, 8}));
}

TEST(StrandSetAppend, LargeAppendToASharedSetLeavesTheOtherAlone) {
    const StrandSet base = randomSet(100000, 23, 10);  // about 450k points: over the pool threshold
    const StrandSet more = randomSet(1000, 24);
    const std::uint64_t baseFingerprint = base.fingerprint();
    StrandSet set(base);
    set.append(more);
    ASSERT_TRUE(set.validate());
    EXPECT_EQ(base.fingerprint(), baseFingerprint);
    EXPECT_EQ(set.subset(allIndices(100000)).fingerprint(), baseFingerprint);
    EXPECT_EQ(set.pointChannel("curl")->values().back(), more.pointChannel("curl")->values().back());
    EXPECT_EQ(set.strandPoints(100999).size(), more.strandPoints(999).size());
}

TEST(StrandSetAppend, SameContentAgreesWithFingerprints) {
    const StrandSet base = randomSet(2000, 31);
    const StrandSet shared(base);
    const StrandSet rebuilt = base.subset(allIndices(2000));  // equal content in arrays of its own
    EXPECT_TRUE(base.sameContent(shared));
    EXPECT_TRUE(base.sameContent(rebuilt));
    EXPECT_EQ(base.fingerprint(), rebuilt.fingerprint());

    StrandSet signedZero(base);
    signedZero.mutablePoints()[5].x = 0.0f;
    StrandSet negativeZero(base);
    negativeZero.mutablePoints()[5].x = -0.0f;
    EXPECT_FALSE(signedZero.sameContent(negativeZero));  // by bits, as the fingerprint
    EXPECT_FALSE(base.sameContent(base.subset(allIndices(1999))));
}

}  // namespace
}  // namespace tressora
