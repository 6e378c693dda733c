#pragma once
// Image files read into linear floats: PNG, JPEG, TGA, BMP, Radiance HDR and the other
// formats the decoder knows. Used by the texture cache; callable from any thread.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace tressora {

/// A decoded image: rows from the top of the picture down, channels interleaved.
struct ImageData {
    int width = 0;
    int height = 0;
    int channels = 0;  ///< 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA
    std::vector<float> pixels;
};

/// The file system's form of a UTF-8 path.
std::filesystem::path pathFromUtf8(const std::string& text);

/// Decodes an image held in memory; `path` names it in messages. 8-bit and 16-bit data map
/// onto 0-1 as stored, with no colour curve (a mask painted at half grey reads 0.5); HDR data
/// keeps its floats. Throws TextureError "cannot read '<path>': <reason>", where the reason is
/// the decoder's ("Image not of any known type, or corrupt", ...), "empty image", or "the image
/// is too large to decode (<w> x <h> pixels; at most 256M values)" for more values than that:
/// 1 GiB of floats, so a 16k x 16k grey mask or an 8k x 8k RGBA texture still reads.
/// `maxValues` lowers the limit (a fuzzer keeps its runs small with it).
ImageData decodeImage(std::span<const unsigned char> bytes, const std::string& path,
                      std::uint64_t maxValues = std::uint64_t{1} << 28);

/// Reads and decodes the file at a UTF-8 path. Throws TextureError "cannot read '<path>': "
/// followed by "file not found", "Unable to open file", a decoder reason or "empty image".
ImageData readImageFile(const std::string& path);

}  // namespace tressora
