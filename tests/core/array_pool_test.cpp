#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "core/array_pool.h"
#include "core/block_copy.h"
#include "core/cow_array.h"

namespace tressora {
namespace {

constexpr std::size_t kPooled = ArrayPool<float>::kThresholdBytes / sizeof(float);  // exactly 4 MiB

std::unique_ptr<PodArray<float>> arrayOf(std::size_t count) { return std::make_unique<PodArray<float>>(count); }

TEST(ArrayPool, KeepsTheTwoNewestLargeArraysAndServesExactLengthsOldestFirst) {
    ArrayPool<float> pool;
    pool.give(arrayOf(kPooled - 1));
    auto roomy = arrayOf(0);  // the length decides, not the capacity
    roomy->reserve(2 * kPooled);
    pool.give(std::move(roomy));
    EXPECT_EQ(pool.spareCount(), 0u);

    std::vector<const float*> data;
    for (int i = 0; i < 3; ++i) {
        auto array = arrayOf(kPooled);
        data.push_back(array->data());
        pool.give(std::move(array));
    }
    EXPECT_EQ(pool.spareCount(), 2u);
    EXPECT_EQ(pool.take(kPooled + 1)->size(), kPooled + 1);
    EXPECT_EQ(pool.take(16)->size(), 16u);  // small requests never come from the pool
    EXPECT_EQ(pool.spareCount(), 2u);
    EXPECT_EQ(pool.take(kPooled)->data(), data[1]);
    EXPECT_EQ(pool.take(kPooled)->data(), data[2]);
}

TEST(ArrayPool, SharedArraysReturnWhenTheLastOwnerLetsGo) {
    ArrayPool<float> pool;
    std::shared_ptr<PodArray<float>> shared = pool.takeShared(kPooled);
    const float* data = shared->data();
    std::shared_ptr<PodArray<float>> second = shared;
    shared.reset();
    EXPECT_EQ(pool.spareCount(), 0u);
    second.reset();
    EXPECT_EQ(pool.take(kPooled)->data(), data);
}

TEST(BlockCopy, CopiesEveryByteAcrossPieceBoundariesAndNothingMore) {
    for (std::size_t bytes : {std::size_t{0}, std::size_t{1}, kBlockCopyPiece, kBlockCopyPiece + 1,
                              3 * kBlockCopyPiece + 12345}) {
        std::vector<unsigned char> source(bytes), target(bytes + 64, 0xAB);
        for (std::size_t i = 0; i < bytes; ++i) source[i] = static_cast<unsigned char>(i * 7 + i / 251);
        blockCopy(target.data() + 32, source.data(), bytes);
        EXPECT_TRUE(std::equal(source.begin(), source.end(), target.begin() + 32)) << bytes;
        EXPECT_EQ(std::count(target.begin(), target.begin() + 32, 0xAB), 32) << bytes;
        EXPECT_EQ(std::count(target.end() - 32, target.end(), 0xAB), 32) << bytes;
    }
    std::vector<std::uint64_t> values(3 * kBlockCopyPiece / 8 + 7, 9);
    blockFill(values.data() + 1, values.size() - 2, std::uint64_t{42});
    EXPECT_EQ(values.front() + values.back(), 18u);
    EXPECT_EQ(std::count(values.begin(), values.end(), 42u), static_cast<std::ptrdiff_t>(values.size() - 2));
}

TEST(CowArray, CopyClearsOwnershipOnBothSides) {
    std::mutex mutex;
    CowArray<float> a;
    a.appendFill(100, 1.0f, mutex);
    EXPECT_TRUE(a.owned());
    const CowArray<float> b(a);
    EXPECT_FALSE(a.owned());
    a.writable(mutex)[0] = -1.0f;
    EXPECT_EQ(b.view()[0], 1.0f);
    EXPECT_EQ(a.view()[99], 1.0f);
}

TEST(CowArray, StealTakesOnlyAnUnsharedArray) {
    std::mutex mutex;
    CowArray<float> source;
    source.appendFill(8, 2.0f, mutex);
    const float* data = source.data();
    CowArray<float> target;
    EXPECT_TRUE(target.stealOrShare(source));
    EXPECT_EQ(target.data(), data);
    EXPECT_TRUE(source.empty());

    const CowArray<float> holder(target);
    CowArray<float> other;
    EXPECT_FALSE(other.stealOrShare(target));
    EXPECT_EQ(target.data(), data);
    EXPECT_EQ(other.data(), data);
}

}  // namespace
}  // namespace tressora
