// The PNG encoder: every colour type and depth, tiny and odd sizes and images larger than one
// deflate piece decode to their exact samples with the program's image reader (stb_image) and
// pass an independent check of their chunks and data (Python's zlib, when Python is here); the
// bytes do not depend on the number of threads.

#include <gtest/gtest.h>

#include <cstdlib>

#include "io/io_test_support.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "io/deflate.h"
#include "io/png_writer.h"
#include "maps/image_file.h"
#include "support/run_program.h"

namespace tressora {
namespace {

using tressora::testing::TempFolder;

struct Shape {
    int width, height, channels, depth;
    bool noisy;  // random samples (little to compress) or smooth gradients (much)
};

PngImage imageOf(const Shape& s) {
    PngImage image{s.width, s.height, s.channels, {}, {}};
    const std::size_t n = static_cast<std::size_t>(s.width) * s.height * s.channels;
    for (std::size_t i = 0; i < n; ++i) {
        const std::size_t x = (i / s.channels) % s.width, y = i / (s.channels * s.width);
        const std::uint64_t v = s.noisy ? hash64(i) : (x * 3 + y * 5 + (i % s.channels) * 40);
        if (s.depth == 8) image.pixels8.push_back(static_cast<std::uint8_t>(v));
        else image.pixels16.push_back(static_cast<std::uint16_t>(s.noisy ? v : v * 257));
    }
    return image;
}

std::vector<std::uint8_t> encoded(const PngImage& image) {
    return image.pixels16.empty() ? encodePng(image.width, image.height, image.channels, image.pixels8)
                                  : encodePng16(image.width, image.height, image.channels, image.pixels16);
}

const std::vector<Shape> kShapes = {
    {1, 1, 1, 8, true},    {1, 1, 2, 8, true},    {1, 1, 3, 8, true},   {1, 1, 4, 8, true},
    {1, 1, 1, 16, true},   {1, 1, 4, 16, true},   {7, 5, 3, 8, false},  {13, 3, 2, 16, false},
    {31, 17, 4, 8, true},  {5, 9, 3, 16, true},   {640, 600, 3, 8, false},  // 1.15 MB of rows: two pieces
    {300, 300, 4, 16, true},
};

TEST(PngWriter, EveryTypeAndSizeDecodesToItsExactSamples) {
    for (const Shape& s : kShapes) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height << "x" << s.channels << " " << s.depth);
        const PngImage image = imageOf(s);
        const std::vector<std::uint8_t> file = encoded(image);
        const ImageData read = decodeImage(file, "test.png");
        ASSERT_EQ(read.width, s.width);
        ASSERT_EQ(read.height, s.height);
        ASSERT_EQ(read.channels, s.channels);
        bool same = true;
        for (std::size_t i = 0; i < read.pixels.size() && same; ++i) {
            const float want = s.depth == 8 ? static_cast<float>(image.pixels8[i]) / 255.0f
                                            : static_cast<float>(image.pixels16[i]) / 65535.0f;
            same = read.pixels[i] == want;
        }
        EXPECT_TRUE(same);
    }
}

TEST(PngWriter, ChunksHeadersAndDataPassAnIndependentCheck) {
    const char* python = "/usr/bin/python3";
    if (!std::filesystem::exists(python)) GTEST_SKIP() << "python3 is not installed";
    TempFolder folder;
    std::vector<std::string> args = {std::string(TRESSORA_SOURCE_DIR) + "/tests/io/png_check.py"};
    for (std::size_t k = 0; k < kShapes.size(); ++k) {
        const Shape& s = kShapes[k];
        const std::string path = folder.file("image" + std::to_string(k) + ".png");
        writeCompressedPngs({imageOf(s)}, {path});
        args.push_back(std::to_string(s.width) + "x" + std::to_string(s.height) + "x" + std::to_string(s.channels) + "x" +
                       std::to_string(s.depth) + "=" + path);
    }
    const auto r = tressora::testing::runProgram(python, args);
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_EQ(folder.names().size(), kShapes.size());  // no temporary file left
}

TEST(PngWriter, BytesDoNotDependOnTheThreadCount) {
    std::vector<PngImage> images = {imageOf({640, 600, 3, 8, false}), imageOf({300, 300, 4, 16, true})};
    const auto with = [&](const char* threads) {
        setenv("TRESSORA_THREADS", threads, 1);
        std::vector<std::vector<std::uint8_t>> files;
        runWithThreads([&] { files = encodePngs(images); });
        unsetenv("TRESSORA_THREADS");
        return files;
    };
    EXPECT_EQ(with("1"), with("0"));
    // Pieces join into one stream whatever their size.
    std::vector<std::uint8_t> data(3'000'000);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>((i / 7) ^ (i >> 13));
    EXPECT_EQ(adler32Joined(adler32({data.data(), 1000}), adler32({data.data() + 1000, data.size() - 1000}), data.size() - 1000),
              adler32(data));
}

TEST(PngWriter, Refusals) {
    const std::vector<std::uint8_t> three(3);
    const std::vector<std::uint16_t> wide(3);
    const auto message = tressora::testing::errorText;
    EXPECT_EQ(message([&] { encodePng(0, 1, 3, three); }), "encodePng: bad size or channels");
    EXPECT_EQ(message([&] { encodePng(1, 1, 5, three); }), "encodePng: bad size or channels");
    EXPECT_EQ(message([&] { encodePng(2, 1, 3, three); }), "encodePng: pixel count does not match the size");
    EXPECT_EQ(message([&] { encodePng16(1, 1, 0, wide); }), "encodePng16: bad size or channels");
    EXPECT_EQ(message([&] { encodePng16(1, 2, 3, wide); }), "encodePng16: pixel count does not match the size");
    EXPECT_EQ(message([&] { encodePngs({PngImage{1, 1, 1, {}, {}}}); }), "encodePngs: an image has no pixels");
    EXPECT_EQ(message([&] { writeCompressedPngs({imageOf({1, 1, 1, 8, true})}, {}); }), "writeCompressedPngs: a path per image");
    EXPECT_EQ(message([&] { writeCompressedPngs({imageOf({1, 1, 1, 8, true})}, {"/no/such/folder/x.png"}); }),
              "can't write /no/such/folder/x.png");
}

}  // namespace
}  // namespace tressora
