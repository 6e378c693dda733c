#include <gtest/gtest.h>

#include <thread>

#include "core/errors.h"
#include "core/expect_text.h"
#include "maps/texture_cache.h"
#include "test_images.h"

namespace tressora {
namespace {

using testing::TempFolder;

constexpr std::size_t kMb = std::size_t{1} << 20;

TEST(TextureCacheLimit, WholeMegabytesWithAFloorOfOneAndADefaultOfOneGigabyte) {
    EXPECT_EQ(textureCacheLimit(nullptr), 1024 * kMb);
    EXPECT_EQ(textureCacheLimit("0"), 1 * kMb);
    EXPECT_EQ(textureCacheLimit("-40"), 1 * kMb);
    EXPECT_EQ(textureCacheLimit("16"), 16 * kMb);
    EXPECT_EQ(textureCacheLimit("lots"), 1024 * kMb);
    EXPECT_EQ(textureCacheLimit("1.5"), 1024 * kMb);
}

// Images of 256 x 256 grey floats: 256 KiB each, four to the megabyte.
class TextureCacheTest : public ::testing::Test {
protected:
    std::string image(const std::string& name, std::uint8_t grey = 100) {
        const std::string path = folder.file(name + ".png");
        testing::writePng(path, testing::flatImage(256, 256, 1, grey));
        return path;
    }
    TempFolder folder;
    TextureCache cache{kMb};
};

TEST_F(TextureCacheTest, OnePathGivesOneSharedTexture) {
    const std::string a = image("a");
    const auto first = cache.acquire(a);
    const auto second = cache.acquire(a);
    EXPECT_EQ(first.get(), second.get());
    const CacheStats stats = cache.stats();
    EXPECT_EQ(stats.entries, 1u);
    EXPECT_EQ(stats.hits, 1u);
    EXPECT_EQ(stats.misses, 1u);
    EXPECT_EQ(cache.bytes(), 256u * 1024u);
}

TEST_F(TextureCacheTest, PastTheLimitTheLeastRecentlyUsedUnheldTextureGoes) {
    const std::string a = image("a"), b = image("b"), c = image("c"), d = image("d"), e = image("e");
    cache.acquire(a);
    cache.acquire(b);
    cache.acquire(c);
    const auto keptA = cache.acquire(a).get();  // a is now the most recent
    cache.acquire(d);                            // exactly at the limit: nothing goes
    EXPECT_EQ(cache.bytes(), kMb);
    EXPECT_EQ(cache.stats().evictions, 0u);
    cache.acquire(e);  // b is the least recently used
    EXPECT_EQ(cache.bytes(), kMb);
    EXPECT_EQ(cache.stats().evictions, 1u);
    const auto misses = cache.stats().misses;
    EXPECT_EQ(cache.acquire(a).get(), keptA);
    EXPECT_EQ(cache.stats().misses, misses);
    cache.acquire(b);  // read again; now c goes
    EXPECT_EQ(cache.stats().misses, misses + 1);
    cache.acquire(d);
    cache.acquire(c);
    EXPECT_EQ(cache.stats().misses, misses + 2);
}

TEST_F(TextureCacheTest, HeldTexturesStayUntilReleasedAndOutliveEviction) {
    std::vector<std::shared_ptr<const Texture>> held;
    for (const char* name : {"a", "b", "c", "d", "e", "f"}) held.push_back(cache.acquire(image(name)));
    EXPECT_EQ(cache.bytes(), 6 * 256u * 1024u);  // all in use: over the limit, nothing dropped
    EXPECT_EQ(cache.stats().evictions, 0u);
    const auto first = held.front();
    held.clear();
    cache.acquire(image("g"));  // the next load trims to the limit, oldest first
    EXPECT_EQ(cache.bytes(), kMb);
    EXPECT_EQ(cache.stats().evictions, 3u);
    EXPECT_FLOAT_EQ(first->sampleLuminance(0.5f, 0.5f), 100.0f / 255.0f);  // a dropped texture lives on
    cache.evictAll();
    EXPECT_EQ(cache.bytes(), 0u);
    EXPECT_EQ(cache.stats().entries, 0u);
    EXPECT_FLOAT_EQ(first->sampleLuminance(0.5f, 0.5f), 100.0f / 255.0f);
}

TEST_F(TextureCacheTest, TileLoadsCountTowardsTheLimit) {
    for (const char* tile : {"1001", "1002", "1003"})
        testing::writePng(folder.file(std::string("t.") + tile + ".png"), testing::flatImage(256, 256, 1, 50));
    cache.acquire(image("a"));
    cache.acquire(image("b"));
    const auto tiles = cache.acquire(folder.file("t.<UDIM>.png"));
    EXPECT_EQ(cache.bytes(), 2 * 256u * 1024u);
    tiles->sample(0.5f, 0.5f);
    tiles->sample(1.5f, 0.5f);
    EXPECT_EQ(cache.bytes(), kMb);
    tiles->sample(2.5f, 0.5f);  // the third tile pushes out a
    EXPECT_EQ(cache.bytes(), kMb);
    EXPECT_EQ(cache.stats().evictions, 1u);
    EXPECT_EQ(cache.stats().entries, 2u);
}

TEST_F(TextureCacheTest, LoadingATileCountsAsUse) {
    testing::writePng(folder.file("t.1001.png"), testing::flatImage(256, 256, 1, 50));
    testing::writePng(folder.file("t.1002.png"), testing::flatImage(256, 256, 1, 50));
    const std::string pattern = folder.file("t.<UDIM>.png");
    auto tiles = cache.acquire(pattern);
    tiles->sample(0.5f, 0.5f);
    const std::string a = image("a"), b = image("b");
    cache.acquire(a);
    cache.acquire(b);
    tiles->sample(1.5f, 0.5f);  // the tile set is now used after a and b
    tiles.reset();
    cache.acquire(image("c"));  // 1.25 MiB: the least recently used, a, goes
    const auto misses = cache.stats().misses;
    cache.acquire(pattern);
    cache.acquire(b);
    EXPECT_EQ(cache.stats().misses, misses);
    cache.acquire(a);
    EXPECT_EQ(cache.stats().misses, misses + 1);
}

TEST_F(TextureCacheTest, AFileWrittenAgainIsReadAgain) {
    const std::string path = folder.file("paint.png");
    testing::writePng(path, testing::flatImage(2, 2, 1, 10));
    const auto before = cache.acquire(path);
    testing::writePng(path, testing::flatImage(4, 4, 1, 200));
    const auto after = cache.acquire(path);
    EXPECT_NE(before.get(), after.get());
    EXPECT_NE(before->stamp(), after->stamp());
    EXPECT_FLOAT_EQ(before->sampleLuminance(0.5f, 0.5f), 10.0f / 255.0f);
    EXPECT_FLOAT_EQ(after->sampleLuminance(0.5f, 0.5f), 200.0f / 255.0f);
    EXPECT_EQ(cache.stats().entries, 1u);
    EXPECT_EQ(cache.bytes(), 16 * sizeof(float));
}

TEST_F(TextureCacheTest, AFailedReadKeepsNothing) {
    const std::string missing = folder.file("nothing.png");
    EXPECT_EQ(testing::failureText<TextureError>([&] { cache.acquire(missing); }),
              "cannot read '" + missing + "': file not found");
    testing::writeBytes(folder.file("bad.png"), "\x89PNG\r\n\x1a\n but nothing after");
    EXPECT_THROW(cache.acquire(folder.file("bad.png")), TextureError);
    EXPECT_EQ(cache.stats().entries, 0u);
    EXPECT_EQ(cache.bytes(), 0u);
}

TEST_F(TextureCacheTest, ConcurrentAcquiresOfOnePathAgreeOnOneTexture) {
    const std::string a = image("a");
    std::vector<std::shared_ptr<const Texture>> got(8);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < got.size(); ++i) threads.emplace_back([&, i] { got[i] = cache.acquire(a); });
    for (std::thread& t : threads) t.join();
    for (const auto& texture : got) EXPECT_EQ(texture.get(), cache.acquire(a).get());
    EXPECT_EQ(cache.stats().entries, 1u);
    EXPECT_EQ(cache.bytes(), 256u * 1024u);
}

TEST(ProcessTextureCache, SharesAndForgetsThroughTheFreeFunctions) {
    TempFolder folder;
    const std::string path = folder.file("p.png");
    testing::writePng(path, testing::flatImage(8, 8, 3, 30));
    const std::size_t before = textureCacheBytes();
    const auto texture = acquireTexture(path);
    EXPECT_EQ(acquireTexture(path).get(), texture.get());
    EXPECT_EQ(textureCacheBytes(), before + 8 * 8 * 3 * sizeof(float));
    evictTextures();
    EXPECT_EQ(textureCacheBytes(), 0u);
    EXPECT_NE(acquireTexture(path).get(), texture.get());
    evictTextures();
}

}  // namespace
}  // namespace tressora
