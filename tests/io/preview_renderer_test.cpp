// The preview renderer on small synthetic grooms: the grid of views, where one straight
// strand lands in each named view, colours from the strands' channels, the scalp alone, and
// the refusals. Images are read back through the program's image reader.

#include <gtest/gtest.h>

#include <cmath>

#include "io/io_test_support.h"
#include "io/preview_renderer.h"
#include "maps/image_file.h"

namespace tressora {
namespace {

/// The image's pixel (x, y) as linear-ish 0..1 values of the decoded sRGB bytes.
std::array<float, 3> pixel(const ImageData& image, int x, int y) {
    const std::size_t i = (static_cast<std::size_t>(y) * image.width + x) * 3;
    return {image.pixels[i], image.pixels[i + 1], image.pixels[i + 2]};
}

bool isBackground(const std::array<float, 3>& c) { return c[0] < 0.25f && c[1] < 0.25f && c[2] < 0.25f && c[1] > 0.1f; }

/// Columns of a cell's middle row (or rows of its middle column) that are not background.
std::vector<int> litAcross(const ImageData& image, int cellX, int cellY, int cell, bool row) {
    std::vector<int> out;
    for (int k = 0; k < cell; ++k) {
        const int x = row ? cellX + k : cellX + cell / 2, y = row ? cellY + cell / 2 : cellY + k;
        if (!isBackground(pixel(image, x, y))) out.push_back(k);
    }
    return out;
}

TEST(PreviewRenderer, GridsFollowTheViewCount) {
    struct Case {
        int views, size, width, height, columns;
    };
    const std::vector<std::string> names = {"front", "back", "side", "top", "three_quarter", "front"};
    for (const Case& c : std::vector<Case>{{1, 256, 256, 256, 1}, {3, 1000, 999, 333, 3}, {4, 512, 512, 512, 2}, {5, 600, 600, 400, 3},
                                           {6, 600, 600, 400, 3}}) {
        PreviewRequest request;
        request.size = c.size;
        request.views.assign(names.begin(), names.begin() + c.views);
        const PreviewImage image = renderPreview(nullptr, nullptr, request);
        EXPECT_EQ(image.width, c.width) << c.views;
        EXPECT_EQ(image.height, c.height) << c.views;
        EXPECT_EQ(image.columns, c.columns) << c.views;
        const ImageData read = decodeImage(image.png, "preview.png");
        EXPECT_EQ(read.width, c.width);
        EXPECT_TRUE(isBackground(pixel(read, c.width / 2, c.height / 2)));  // nothing at all: background
    }
}

TEST(PreviewRenderer, AStraightStrandLandsWhereEachViewSeesIt) {
    // A strand standing up along y beside a short one at the origin: the pair spans x 0..1.
    StrandSet strands;
    const std::vector<Vec3f> tall = {{1, 0, 0}, {1, 1, 0}, {1, 2, 0}}, stub = {{0, 0, 0}, {0, 0.1f, 0}};
    strands.addStrand(1, {}, tall);
    strands.addStrand(2, {}, stub);
    PreviewRequest request;
    request.size = 200;
    request.views = {"front", "back", "side", "top"};
    const ImageData image = decodeImage(renderPreview(&strands, nullptr, request).png, "preview.png");
    const int cell = 100;
    // The box is fitted to 0.9 of the cell by its taller side (2 units): the pair's unit of
    // width spans 45 pixels about the middle. Front: the tall strand stands right, back: left.
    const std::vector<int> front = litAcross(image, 0, 0, cell, true), back = litAcross(image, cell, 0, cell, true);
    ASSERT_FALSE(front.empty());
    ASSERT_FALSE(back.empty());
    EXPECT_NEAR(front.back(), 72, 1);
    EXPECT_NEAR(back.front(), 27, 1);
    // Side: both strands lie on one line of sight, drawn in the middle column, tall.
    const std::vector<int> side = litAcross(image, 0, cell, cell, false);
    EXPECT_GT(side.size(), 80u);
    // Top: seen end on, each strand is a dot.
    const std::vector<int> top = litAcross(image, cell, cell, cell, false);
    EXPECT_LT(top.size(), 6u);
    // Z up: the same strand standing along z looks the same from the front.
    StrandSet zStrands;
    const std::vector<Vec3f> zTall = {{1, 0, 0}, {1, 0, 1}, {1, 0, 2}}, zStub = {{0, 0, 0}, {0, 0, 0.1f}};
    zStrands.addStrand(1, {}, zTall);
    zStrands.addStrand(2, {}, zStub);
    request.views = {"front"};
    request.zUp = true;
    const ImageData zImage = decodeImage(renderPreview(&zStrands, nullptr, request).png, "preview.png");
    EXPECT_NEAR(litAcross(zImage, 0, 0, 200, true).back(), 145, 1);
}

TEST(PreviewRenderer, ColoursComeFromTheStrandsAndTheScalpIsDrawnAlone) {
    StrandSet strands;
    for (int s = 0; s < 40; ++s) {
        const std::vector<Vec3f> points = {{0.02f * s, 0, 0}, {0.02f * s, 1, 0}};
        strands.addStrand(static_cast<std::uint64_t>(s + 1), {}, points);
    }
    for (const char* c : {"colorR", "colorG", "colorB"}) strands.addStrandChannel(c, std::string(c) == "colorG" ? 0.8f : 0.05f);
    PreviewRequest request;
    request.size = 128;
    const ImageData green = decodeImage(renderPreview(&strands, nullptr, request).png, "preview.png");
    std::array<float, 3> mid{};
    for (int x = 0; x < 128; ++x)
        if (pixel(green, x, 64)[1] > mid[1]) mid = pixel(green, x, 64);
    EXPECT_GT(mid[1], mid[0] + 0.2f);
    EXPECT_GT(mid[1], mid[2] + 0.2f);

    const ScalpMesh scalp({{-1, -1, 0}, {1, -1, 0}, {0, 1, 0}}, {{0, 1, 2}});
    const ImageData alone = decodeImage(renderPreview(nullptr, &scalp, request).png, "preview.png");
    const auto centre = pixel(alone, 64, 70);
    EXPECT_GT(centre[0], 0.4f);  // the scalp's warm grey, lit from the front
    EXPECT_GT(centre[0], centre[2]);

    // A strand budget: every n-th strand.
    request.maxStrands = 7;
    const PreviewImage thinned = renderPreview(&strands, nullptr, request);
    EXPECT_EQ(thinned.stride, 6u);
    EXPECT_EQ(thinned.strandsDrawn, 7u);
    EXPECT_EQ(thinned.strands, 40u);
}

TEST(PreviewRenderer, Refusals) {
    struct Case {
        int size;
        std::vector<std::string> views;
        std::string error;
    };
    for (const Case& c : std::vector<Case>{{63, {"front"}, "size must be between 64 and 1024 pixels"},
                                           {1025, {"front"}, "size must be between 64 and 1024 pixels"},
                                           {256, {}, "no views"},
                                           {256, std::vector<std::string>(7, "front"), "at most 6 views in one image"},
                                           {256, {"front", "underneath"},
                                            "unknown view 'underneath' (front, side, back, three_quarter, top)"}}) {
        PreviewRequest r;
        r.size = c.size;
        r.views = c.views;
        EXPECT_THROW(renderPreview(nullptr, nullptr, r), std::invalid_argument) << c.error;
        EXPECT_EQ(tressora::testing::errorText([&] { renderPreview(nullptr, nullptr, r); }), c.error);
    }
}

}  // namespace
}  // namespace tressora
