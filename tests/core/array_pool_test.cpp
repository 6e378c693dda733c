#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "core/array_pool.h"
#include "core/block_copy.h"

namespace tressora {
namespace {

constexpr std::size_t kPooled = ArrayPool<float>::kThresholdBytes / sizeof(float);  // exactly 4 MiB

std::unique_ptr<PodArray<float>> arrayOf(std::size_t count) { return std::make_unique<PodArray<float>>(count); }

TEST(ArrayPool, ArraysUnderFourMebibytesAreFreedNotKept) {
    ArrayPool<float> pool;
    pool.give(arrayOf(kPooled - 1));
    EXPECT_EQ(pool.spareCount(), 0u);
    pool.give(arrayOf(kPooled));
    EXPECT_EQ(pool.spareCount(), 1u);
    // A small request is never served from the pool, even when a spare would fit.
    auto small = pool.take(16);
    EXPECT_EQ(small->size(), 16u);
    EXPECT_EQ(pool.spareCount(), 1u);
}

TEST(ArrayPool, ServesOnlyExactLengthsOldestFirst) {
    ArrayPool<float> pool;
    auto first = arrayOf(kPooled + 10);
    auto second = arrayOf(kPooled + 10);
    const float* firstData = first->data();
    const float* secondData = second->data();
    pool.give(std::move(first));
    pool.give(std::move(second));

    auto other = pool.take(kPooled + 11);
    EXPECT_EQ(other->size(), kPooled + 11);
    EXPECT_EQ(pool.spareCount(), 2u);

    auto a = pool.take(kPooled + 10);
    EXPECT_EQ(a->data(), firstData);
    auto b = pool.take(kPooled + 10);
    EXPECT_EQ(b->data(), secondData);
    EXPECT_EQ(pool.spareCount(), 0u);
}

TEST(ArrayPool, KeepsOnlyTheTwoNewestSpares) {
    ArrayPool<float> pool;
    std::vector<const float*> data;
    for (int i = 0; i < 3; ++i) {
        auto array = arrayOf(kPooled);
        data.push_back(array->data());
        pool.give(std::move(array));
    }
    EXPECT_EQ(pool.spareCount(), 2u);
    EXPECT_EQ(pool.take(kPooled)->data(), data[1]);
    EXPECT_EQ(pool.take(kPooled)->data(), data[2]);
}

TEST(ArrayPool, LengthNotCapacityDecides) {
    ArrayPool<float> pool;
    auto array = arrayOf(0);
    array->reserve(kPooled * 2);
    array->resizeForOverwrite(100);
    pool.give(std::move(array));
    EXPECT_EQ(pool.spareCount(), 0u);
}

TEST(ArrayPool, SharedArraysReturnToTheirPoolWhenLastOwnerLetsGo) {
    ArrayPool<float> pool;
    std::shared_ptr<PodArray<float>> shared = pool.takeShared(kPooled);
    const float* data = shared->data();
    std::shared_ptr<PodArray<float>> second = shared;
    shared.reset();
    EXPECT_EQ(pool.spareCount(), 0u);
    second.reset();
    ASSERT_EQ(pool.spareCount(), 1u);
    EXPECT_EQ(pool.take(kPooled)->data(), data);
}

TEST(BlockCopy, CopiesEveryByteAcrossPieceBoundariesAndNothingMore) {
    for (std::size_t bytes : {std::size_t{0}, std::size_t{1}, kBlockCopyPiece - 1, kBlockCopyPiece,
                              kBlockCopyPiece + 1, 3 * kBlockCopyPiece + 12345}) {
        std::vector<unsigned char> source(bytes), target(bytes + 64, 0xAB);
        for (std::size_t i = 0; i < bytes; ++i) source[i] = static_cast<unsigned char>(i * 7 + i / 251);
        blockCopy(target.data() + 32, source.data(), bytes);
        EXPECT_TRUE(std::equal(source.begin(), source.end(), target.begin() + 32)) << bytes << " bytes";
        for (std::size_t i = 0; i < 32; ++i) {
            ASSERT_EQ(target[i], 0xAB) << "before the copy, " << bytes << " bytes";
            ASSERT_EQ(target[bytes + 32 + i], 0xAB) << "after the copy, " << bytes << " bytes";
        }
    }
}

TEST(BlockCopy, FillWritesExactlyTheRange) {
    const std::size_t count = 3 * kBlockCopyPiece / sizeof(std::uint64_t) + 5;
    std::vector<std::uint64_t> values(count + 2, 9);
    blockFill(values.data() + 1, count, std::uint64_t{42});
    EXPECT_EQ(values.front(), 9u);
    EXPECT_EQ(values.back(), 9u);
    EXPECT_EQ(std::count(values.begin(), values.end(), 42u), static_cast<std::ptrdiff_t>(count));
}

TEST(PodArray, GrowingKeepsContentsAndAppendCopiesAll) {
    PodArray<std::uint64_t> array;
    for (std::uint64_t i = 0; i < 1000; ++i) array.pushBack(i);
    std::vector<std::uint64_t> more(kBlockCopyPiece / 4);  // large enough for a parallel copy
    for (std::size_t i = 0; i < more.size(); ++i) more[i] = 1000 + i;
    array.append(more.data(), more.size());
    ASSERT_EQ(array.size(), 1000 + more.size());
    for (std::size_t i = 0; i < array.size(); ++i) ASSERT_EQ(array[i], i);
    array.resize(array.size() + 3, 77);
    EXPECT_EQ(array[array.size() - 1], 77u);
}

}  // namespace
}  // namespace tressora
