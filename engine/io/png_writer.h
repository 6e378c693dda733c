#pragma once
// PNG files by our own encoder: 8- and 16-bit grey, grey and alpha, RGB and RGBA, without
// interlace. Rows are filtered in parallel and the image data deflated in parallel pieces
// (io/deflate), so many or large images encode on every core, and the bytes never depend on
// the number of threads.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tressora {

/// An image to encode: rows from the top, channels interleaved (1 grey, 2 grey and alpha,
/// 3 RGB, 4 RGBA), 8 bits a value in `pixels8` or 16 bits in `pixels16` (the other empty).
struct PngImage {
    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<std::uint8_t> pixels8;
    std::vector<std::uint16_t> pixels16;
};

/// The PNG file of an 8-bit image. std::invalid_argument "encodePng: bad size or channels"
/// (a side below 1 or channels outside 1 to 4) and "encodePng: pixel count does not match
/// the size".
std::vector<std::uint8_t> encodePng(int width, int height, int channels, std::span<const std::uint8_t> pixels);
/// The same for 16 bits a value: "encodePng16: bad size or channels", "encodePng16: pixel
/// count does not match the size".
std::vector<std::uint8_t> encodePng16(int width, int height, int channels, std::span<const std::uint16_t> pixels);

/// The files of many images, encoded together on every core. std::invalid_argument
/// "encodePngs: an image has no pixels", or the messages of encodePng and encodePng16.
std::vector<std::vector<std::uint8_t>> encodePngs(const std::vector<PngImage>& images);

/// Encodes the images and writes each to its path through "<path>.tmp", replaced only when
/// whole. std::invalid_argument "writeCompressedPngs: a path per image"; std::runtime_error
/// "can't write <path>".
void writeCompressedPngs(const std::vector<PngImage>& images, const std::vector<std::string>& paths);

}  // namespace tressora
