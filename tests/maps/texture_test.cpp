#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/errors.h"
#include "core/expect_text.h"
#include "core/parallel.h"
#include "maps/texture.h"
#include "maps/udim.h"
#include "test_images.h"

namespace tressora {
namespace {

using testing::failureText;
using testing::TempFolder;

std::string textureFailure(const std::string& path) {
    return failureText<TextureError>([&] { Texture::open(path); });
}

// A 2 x 2 grey image: top row 0.0 and 1.0, bottom row 0.5 and 0.25.
Texture quad() { return Texture(2, 2, 1, {0.0f, 1.0f, 0.5f, 0.25f}); }

TEST(Texture, BilinearSamplingHitsTexelCentresAndBlendsBetweenThem) {
    const Texture t = quad();
    // v runs up the picture: the top row of the data is v near 1.
    EXPECT_FLOAT_EQ(t.sample(0.25f, 0.75f)[0], 0.0f);
    EXPECT_FLOAT_EQ(t.sample(0.75f, 0.75f)[0], 1.0f);
    EXPECT_FLOAT_EQ(t.sample(0.25f, 0.25f)[0], 0.5f);
    EXPECT_FLOAT_EQ(t.sample(0.75f, 0.25f)[0], 0.25f);
    // Half-way between centres, and the middle of all four.
    EXPECT_FLOAT_EQ(t.sample(0.5f, 0.75f)[0], 0.5f);
    EXPECT_FLOAT_EQ(t.sample(0.5f, 0.5f)[0], 0.4375f);
    // A quarter of the way from one centre to the next.
    EXPECT_FLOAT_EQ(t.sample(0.375f, 0.75f)[0], 0.25f);
}

TEST(Texture, EdgesHoldTheOutermostTexelsAndUvsOutsideClampToThem) {
    const Texture t = quad();
    EXPECT_FLOAT_EQ(t.sample(0.0f, 0.75f)[0], 0.0f);
    EXPECT_FLOAT_EQ(t.sample(1.0f, 0.75f)[0], 1.0f);
    EXPECT_FLOAT_EQ(t.sample(0.25f, 0.0f)[0], 0.5f);
    EXPECT_FLOAT_EQ(t.sample(7.0f, -3.0f)[0], 0.25f);
    EXPECT_FLOAT_EQ(t.sample(std::nanf(""), 1.0f)[0], 0.0f);
    // Along the edge the filter still blends between the edge texels.
    EXPECT_FLOAT_EQ(t.sample(0.5f, 1.0f)[0], 0.5f);
}

TEST(Texture, ChannelsExpandToRgbaAndLuminanceWeighsThem) {
    const Texture grey(1, 1, 1, {0.3f});
    EXPECT_EQ(grey.sample(0.5f, 0.5f), (Rgba{0.3f, 0.3f, 0.3f, 1.0f}));
    const Texture greyAlpha(1, 1, 2, {0.3f, 0.6f});
    EXPECT_EQ(greyAlpha.sample(0.5f, 0.5f), (Rgba{0.3f, 0.3f, 0.3f, 0.6f}));
    const Texture rgb(1, 1, 3, {1.0f, 0.0f, 0.0f});
    EXPECT_EQ(rgb.sample(0.5f, 0.5f), (Rgba{1.0f, 0.0f, 0.0f, 1.0f}));
    EXPECT_FLOAT_EQ(rgb.sampleLuminance(0.5f, 0.5f), 0.2126f);
    const Texture rgba(1, 1, 4, {0.0f, 1.0f, 0.0f, 0.5f});
    EXPECT_EQ(rgba.sample(0.2f, 0.9f), (Rgba{0.0f, 1.0f, 0.0f, 0.5f}));
    EXPECT_FLOAT_EQ(rgba.sampleLuminance(0.5f, 0.5f), 0.7152f);
}

TEST(Texture, DataOfTheWrongSizeIsRefused) {
    const std::string message = "Texture: size does not match its data";
    EXPECT_EQ(failureText<TextureError>([] { Texture(2, 2, 1, {1.0f}); }), message);
    EXPECT_EQ(failureText<TextureError>([] { Texture(0, 0, 1, {}); }), message);
    EXPECT_EQ(failureText<TextureError>([] { Texture(1, 1, 5, std::vector<float>(5)); }), message);
    EXPECT_EQ(failureText<TextureError>([] { Texture(-1, -1, 1, std::vector<float>(1)); }), message);
}

TEST(Texture, PngReadsExactBytesWithTheFilesTopRowAtTheTopOfUvSpace) {
    TempFolder folder;
    testing::Pixels8 image{2, 2, 4, {255, 0, 0, 255, /**/ 0, 255, 0, 128, /**/ 0, 0, 255, 255, /**/ 10, 20, 30, 0}};
    const std::string path = folder.file("colours.png");
    testing::writePng(path, image);
    const auto t = Texture::open(path);
    EXPECT_EQ(t->bytes(), 2u * 2u * 4u * sizeof(float));
    EXPECT_EQ(t->sample(0.25f, 0.75f), (Rgba{1.0f, 0.0f, 0.0f, 1.0f}));
    EXPECT_EQ(t->sample(0.75f, 0.75f), (Rgba{0.0f, 1.0f, 0.0f, 128.0f / 255.0f}));
    EXPECT_EQ(t->sample(0.25f, 0.25f), (Rgba{0.0f, 0.0f, 1.0f, 1.0f}));
    EXPECT_EQ(t->sample(0.75f, 0.25f), (Rgba{10.0f / 255.0f, 20.0f / 255.0f, 30.0f / 255.0f, 0.0f}));
    const Rgba mean = t->mean();
    EXPECT_FLOAT_EQ(mean[0], (255.0f + 10.0f) / 4.0f / 255.0f);
    EXPECT_FLOAT_EQ(mean[3], (255.0f + 128.0f + 255.0f) / 4.0f / 255.0f);
}

TEST(Texture, TgaBmpJpegAndHdrFilesDecode) {
    TempFolder folder;
    const testing::Pixels8 grey = testing::flatImage(8, 4, 3, 200);
    testing::writeTga(folder.file("a.tga"), grey);
    testing::writeBmp(folder.file("a.bmp"), grey);
    testing::writeJpg(folder.file("a.jpg"), grey);
    for (const char* name : {"a.tga", "a.bmp", "a.jpg"}) {
        const auto t = Texture::open(folder.file(name));
        EXPECT_EQ(t->width(), 8) << name;
        EXPECT_EQ(t->height(), 4) << name;
        EXPECT_NEAR(t->sampleLuminance(0.3f, 0.6f), 200.0f / 255.0f, 2.0f / 255.0f) << name;
    }
    // HDR keeps values above 1 as floats.
    testing::writeHdr(folder.file("a.hdr"), 2, 1, 3, {4.0f, 2.0f, 1.0f, 0.5f, 0.5f, 0.5f});
    const auto hdr = Texture::open(folder.file("a.hdr"));
    EXPECT_EQ(hdr->channels(), 3);
    EXPECT_FLOAT_EQ(hdr->sample(0.25f, 0.5f)[0], 4.0f);
    EXPECT_FLOAT_EQ(hdr->sample(0.75f, 0.5f)[2], 0.5f);
}

TEST(Texture, FilesThatCannotBeReadGiveTheReaderItsReason) {
    TempFolder folder;
    const std::string missing = folder.file("missing.png");
    EXPECT_EQ(textureFailure(missing), "cannot read '" + missing + "': file not found");
    EXPECT_EQ(textureFailure(folder.path().string()), "cannot read '" + folder.path().string() + "': Unable to open file");

    const std::string garbage = folder.file("garbage.png");
    testing::writeBytes(garbage, "this is no image at all, only text that looks like nothing");
    EXPECT_EQ(textureFailure(garbage), "cannot read '" + garbage + "': Image not of any known type, or corrupt");

    const std::string empty = folder.file("empty.png");
    testing::writeBytes(empty, "");
    EXPECT_EQ(textureFailure(empty), "cannot read '" + empty + "': empty image");

    // A PNG cut short: the decoder's own reason, and no crash.
    const std::string whole = folder.file("whole.png");
    testing::writePng(whole, testing::flatImage(64, 64, 3, 90));
    const std::string bytes = testing::readBytes(whole);
    for (std::size_t keep : {std::size_t{8}, std::size_t{40}, bytes.size() / 2, bytes.size() - 13}) {
        const std::string cut = folder.file("cut" + std::to_string(keep) + ".png");
        testing::writeBytes(cut, bytes.substr(0, keep));
        const std::string text = textureFailure(cut);
        EXPECT_EQ(text.rfind("cannot read '" + cut + "': ", 0), 0u) << text;
        EXPECT_GT(text.size(), ("cannot read '" + cut + "': ").size()) << text;
    }
}

TEST(Udim, TileNumbersFollowTheUvSquares) {
    EXPECT_EQ(udimTile(0.5f, 0.5f), 1001);
    EXPECT_EQ(udimTile(0.999f, 0.0f), 1001);
    EXPECT_EQ(udimTile(1.0f, 0.0f), 1002);  // exactly 1 belongs to the next tile
    EXPECT_EQ(udimTile(0.2f, 1.0f), 1011);
    EXPECT_EQ(udimTile(9.5f, 99.5f), 2000);
    EXPECT_EQ(udimTile(10.0f, 0.5f), std::nullopt);
    EXPECT_EQ(udimTile(-0.001f, 0.5f), std::nullopt);
    EXPECT_EQ(udimTile(0.5f, 100.0f), std::nullopt);
    EXPECT_EQ(udimTile(std::nanf(""), 0.5f), std::nullopt);
}

TEST(Udim, PatternsTokensAndTilePaths) {
    EXPECT_EQ(normalizeUdimTokens("a/head.<udim>.png"), "a/head.<UDIM>.png");
    EXPECT_EQ(normalizeUdimTokens("a/head.%(UDIM)d.png"), "a/head.<UDIM>.png");
    EXPECT_TRUE(isUdimPattern("x.<UDIM>.tif"));
    EXPECT_FALSE(isUdimPattern("x.<udim>.tif"));  // only after normalising
    EXPECT_EQ(udimTilePath("maps/<UDIM>/head.<UDIM>.png", 1012), "maps/1012/head.1012.png");
    EXPECT_EQ(udimPatternOf("maps/v1001/head_1002.png"), "maps/v1001/head_<UDIM>.png");
    EXPECT_EQ(udimPatternOf("head.1011.2048.png"), "head.<UDIM>.2048.png");
    const std::string message = "Texture: a UDIM pattern needs <UDIM>";
    EXPECT_EQ(failureText<TextureError>([] { udimTilePath("head.png", 1001); }), message);
    EXPECT_EQ(failureText<TextureError>([] { udimPatternOf("head_0999.png"); }), message);
    EXPECT_EQ(failureText<TextureError>([] { udimPatternOf("1001/head.png"); }), message);
}

class UdimTiles : public ::testing::Test {
protected:
    void SetUp() override {
        // Each tile one flat grey: 1001 at 20, 1002 at 40, 1011 at 60.
        testing::writePng(folder.file("head.1001.png"), testing::flatImage(4, 4, 1, 20));
        testing::writePng(folder.file("head.1002.png"), testing::flatImage(4, 4, 1, 40));
        testing::writePng(folder.file("head.1011.png"), testing::flatImage(4, 4, 1, 60));
    }
    TempFolder folder;
};

TEST_F(UdimTiles, EachUvReadsItsOwnTileLoadedOnFirstTouch) {
    const auto t = Texture::open(folder.file("head.<UDIM>.png"));
    EXPECT_TRUE(t->isTileSet());
    EXPECT_EQ(t->tilesOnDisk(), (std::vector<int>{1001, 1002, 1011}));
    EXPECT_EQ(t->loadedTiles(), 0u);
    EXPECT_EQ(t->bytes(), 0u);
    EXPECT_FLOAT_EQ(t->sampleLuminance(0.5f, 0.5f), 20.0f / 255.0f);
    EXPECT_EQ(t->loadedTiles(), 1u);
    EXPECT_EQ(t->bytes(), 4u * 4u * sizeof(float));
    EXPECT_FLOAT_EQ(t->sampleLuminance(1.5f, 0.5f), 40.0f / 255.0f);
    EXPECT_FLOAT_EQ(t->sampleLuminance(0.5f, 1.5f), 60.0f / 255.0f);
    // u of exactly 1 is the left edge of 1002, not the right edge of 1001.
    EXPECT_FLOAT_EQ(t->sampleLuminance(1.0f, 0.5f), 40.0f / 255.0f);
    EXPECT_EQ(t->loadedTiles(), 3u);
    // The other spellings of the token open the same tiles.
    EXPECT_EQ(Texture::open(folder.file("head.%(UDIM)d.png"))->path(), t->path());
    EXPECT_FLOAT_EQ(Texture::open(folder.file("head.<udim>.png"))->sampleLuminance(1.2f, 0.1f), 40.0f / 255.0f);
}

TEST_F(UdimTiles, MissingTilesAndUvsOutsideTheRangeReadBlackWithoutLoading) {
    const auto t = Texture::open(folder.file("head.<UDIM>.png"));
    EXPECT_EQ(t->sample(2.5f, 0.5f), (Rgba{0, 0, 0, 0}));   // 1003 is not on disk
    EXPECT_EQ(t->sample(1.5f, 1.5f), (Rgba{0, 0, 0, 0}));   // nor is 1012
    EXPECT_EQ(t->sample(10.5f, 0.5f), (Rgba{0, 0, 0, 0}));  // past the tile range
    EXPECT_EQ(t->loadedTiles(), 0u);
    // A tile written after opening stays absent for this texture.
    testing::writePng(folder.file("head.1003.png"), testing::flatImage(4, 4, 1, 80));
    EXPECT_EQ(t->sample(2.5f, 0.5f), (Rgba{0, 0, 0, 0}));
    EXPECT_FLOAT_EQ(Texture::open(folder.file("head.<UDIM>.png"))->sampleLuminance(2.5f, 0.5f), 80.0f / 255.0f);
}

TEST_F(UdimTiles, PatternsWithoutTilesAndCorruptTilesFail) {
    const std::string none = folder.file("other.<UDIM>.png");
    EXPECT_EQ(textureFailure(none), "cannot read '" + none + "': no file matches its UDIM tiles");

    testing::writeBytes(folder.file("head.1012.png"), "not a png");
    const auto t = Texture::open(folder.file("head.<UDIM>.png"));
    const std::string expected =
        "cannot read '" + folder.file("head.1012.png") + "': Image not of any known type, or corrupt";
    EXPECT_EQ(failureText<TextureError>([&] { t->sample(1.5f, 1.5f); }), expected);
    EXPECT_EQ(failureText<TextureError>([&] { t->sample(1.2f, 1.7f); }), expected);  // remembered
    EXPECT_FLOAT_EQ(t->sampleLuminance(0.5f, 0.5f), 20.0f / 255.0f);                 // the others still read
}

TEST_F(UdimTiles, ParallelReadersLoadEachTileOnceAndAgreeWithSerialReads) {
    const auto t = Texture::open(folder.file("head.<UDIM>.png"));
    constexpr std::size_t kSamples = 200000;
    const auto uvOf = [](std::size_t i) {
        return std::pair<float, float>{static_cast<float>(i % 300) / 100.0f, static_cast<float>(i % 170) / 100.0f};
    };
    std::vector<float> parallel(kSamples);
    parallelRange(0, kSamples, 64, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const auto [u, v] = uvOf(i);
            parallel[i] = t->sampleLuminance(u, v);
        }
    });
    EXPECT_EQ(t->loadedTiles(), 3u);
    for (std::size_t i = 0; i < kSamples; ++i) {
        const auto [u, v] = uvOf(i);
        ASSERT_EQ(parallel[i], t->sampleLuminance(u, v)) << i;
    }
}

}  // namespace
}  // namespace tressora
