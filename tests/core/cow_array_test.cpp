#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "core/cow_array.h"

namespace tressora {
namespace {

CowArray<float> filled(std::size_t count, std::mutex& mutex) {
    CowArray<float> array;
    std::span<float> values = array.extend(count, mutex);
    for (std::size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i);
    return array;
}

TEST(CowArray, CopyClearsOwnershipOnBothSides) {
    std::mutex mutex;
    CowArray<float> a = filled(100, mutex);
    EXPECT_TRUE(a.owned());
    const CowArray<float> b(a);
    EXPECT_FALSE(a.owned());
    EXPECT_FALSE(b.owned());
    EXPECT_EQ(a.shareCount(), 2);
    a.writable(mutex)[0] = -1.0f;
    EXPECT_EQ(b.view()[0], 0.0f);
    EXPECT_EQ(a.view()[0], -1.0f);
    EXPECT_EQ(a.view()[99], 99.0f);
}

TEST(CowArray, WritingClaimsAnArrayHeldByThisHandleAlone) {
    std::mutex mutex;
    CowArray<float> a = filled(10, mutex);
    const float* data = a.data();
    {
        const CowArray<float> b(a);
    }
    EXPECT_FALSE(a.owned());
    EXPECT_EQ(a.writable(mutex).data(), data);
    EXPECT_TRUE(a.owned());
}

TEST(CowArray, GrowingASharedLargeArrayKeepsBothSidesRight) {
    std::mutex mutex;
    const std::size_t large = ArrayPool<float>::kThresholdBytes / sizeof(float);
    CowArray<float> a = filled(large, mutex);
    const CowArray<float> b(a);
    std::span<float> tail = a.extend(3, mutex);
    tail[0] = tail[1] = tail[2] = 5.0f;
    ASSERT_EQ(a.size(), large + 3);
    EXPECT_EQ(b.size(), large);
    EXPECT_EQ(a.view()[large - 1], static_cast<float>(large - 1));
    EXPECT_EQ(a.view()[large + 2], 5.0f);
    EXPECT_NE(a.data(), b.data());
}

TEST(CowArray, ShrinkingASharedArrayCopiesOnlyWhatStays) {
    std::mutex mutex;
    CowArray<float> a = filled(50, mutex);
    const CowArray<float> b(a);
    a.resize(20, 0.0f, mutex);
    EXPECT_EQ(a.size(), 20u);
    EXPECT_EQ(a.view()[19], 19.0f);
    EXPECT_EQ(b.size(), 50u);
    a.resize(22, 7.0f, mutex);
    EXPECT_EQ(a.view()[21], 7.0f);
}

TEST(CowArray, OverwriteLeavesTheSharedOriginalAlone) {
    std::mutex mutex;
    CowArray<float> a = filled(30, mutex);
    const CowArray<float> b(a);
    std::span<float> fresh = a.overwrite(5, mutex);
    EXPECT_NE(fresh.data(), b.data());
    EXPECT_EQ(b.size(), 30u);
    EXPECT_EQ(b.view()[29], 29.0f);
}

TEST(CowArray, StealTakesOnlyAnUnsharedArray) {
    std::mutex mutex;
    CowArray<float> source = filled(8, mutex);
    const float* data = source.data();
    CowArray<float> target;
    EXPECT_TRUE(target.stealOrShare(source));
    EXPECT_EQ(target.data(), data);
    EXPECT_TRUE(source.empty());

    const CowArray<float> holder(target);
    CowArray<float> other;
    EXPECT_FALSE(other.stealOrShare(target));
    EXPECT_EQ(other.data(), data);
    EXPECT_EQ(target.data(), data);
}

}  // namespace
}  // namespace tressora
