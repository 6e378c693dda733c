#include "maps/image_file.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <system_error>

#include "core/errors.h"
#include "core/parallel.h"

// The decoder is compiled here, once, with its functions private to this file: no other copy
// of it in the program can clash with this one, and the options below are ours to choose.
// The file is read by our own code (UTF-8 paths, our messages), so the decoder needs no stdio;
// its failure texts are the user-facing ones and are kept per thread.
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_NO_STDIO
#define STBI_FAILURE_USERMSG
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#endif
// The decoder copies zero bytes from a null buffer when a PNG chunk is empty (found by
// fuzzing); a copy of nothing must not touch its pointers, so its copies go through this.
namespace {
inline void* copyBytes(void* to, const void* from, std::size_t count) {
    return count == 0 ? to : std::memcpy(to, from, count);
}
}  // namespace
#define memcpy(to, from, count) copyBytes(to, from, count)
#include <stb_image.h>
#undef memcpy
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace tressora {
namespace {


[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw TextureError("cannot read '" + path + "': " + reason);
}

struct StbFree {
    void operator()(void* p) const { stbi_image_free(p); }
};

/// Converts n stored values to floats in parallel, each divided by `top` (the stored value
/// that means 1), so that a byte b reads exactly b / 255.
template <class T>
void toFloats(const T* data, std::size_t n, float top, std::vector<float>& out) {
    out.resize(n);
    parallelRange(0, n, 1 << 16, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) out[i] = static_cast<float>(data[i]) / top;
    });
}

}  // namespace

std::filesystem::path pathFromUtf8(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

ImageData decodeImage(std::span<const unsigned char> bytes, const std::string& path, std::uint64_t maxValues) {
    if (bytes.empty()) fail(path, "empty image");
    if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        fail(path, "the file is too large to decode (2 GB at most)");
    const auto* data = bytes.data();
    const int size = static_cast<int>(bytes.size());

    // An image's header can claim more pixels than any texture needs from a file of a few
    // bytes; such an image is refused before the decoder allocates for it.
    int claimedWidth = 0, claimedHeight = 0, claimedChannels = 0;
    if (stbi_info_from_memory(data, size, &claimedWidth, &claimedHeight, &claimedChannels) &&
        static_cast<std::uint64_t>(claimedWidth) * static_cast<std::uint64_t>(claimedHeight) *
                static_cast<std::uint64_t>(std::max(claimedChannels, 1)) > maxValues)
        fail(path, "the image is too large to decode (" + std::to_string(claimedWidth) + " x " +
                       std::to_string(claimedHeight) + " pixels; at most " + std::to_string(maxValues >> 20) + "M values)");

    ImageData image;
    void* pixels = nullptr;
    enum class Depth { Eight, Sixteen, Float } depth = Depth::Eight;
    if (stbi_is_hdr_from_memory(data, size)) {
        depth = Depth::Float;
        pixels = stbi_loadf_from_memory(data, size, &image.width, &image.height, &image.channels, 0);
    } else if (stbi_is_16_bit_from_memory(data, size)) {
        depth = Depth::Sixteen;
        pixels = stbi_load_16_from_memory(data, size, &image.width, &image.height, &image.channels, 0);
    } else {
        pixels = stbi_load_from_memory(data, size, &image.width, &image.height, &image.channels, 0);
    }
    if (!pixels) {
        const char* reason = stbi_failure_reason();
        fail(path, reason && *reason ? reason : "Image not of any known type, or corrupt");
    }
    const std::unique_ptr<void, StbFree> owned(pixels);
    if (image.width <= 0 || image.height <= 0 || image.channels <= 0) fail(path, "empty image");
    if (image.channels > 4) fail(path, "images have 4 channels at most");

    const std::size_t n = static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) *
                          static_cast<std::size_t>(image.channels);
    switch (depth) {
        case Depth::Eight: toFloats(static_cast<const stbi_uc*>(pixels), n, 255.0f, image.pixels); break;
        case Depth::Sixteen: toFloats(static_cast<const stbi_us*>(pixels), n, 65535.0f, image.pixels); break;
        case Depth::Float: toFloats(static_cast<const float*>(pixels), n, 1.0f, image.pixels); break;
    }
    return image;
}

ImageData readImageFile(const std::string& path) {
    const std::filesystem::path file = pathFromUtf8(path);
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status)) fail(path, "file not found");
    if (std::filesystem::is_directory(status)) fail(path, "Unable to open file");
    std::ifstream in(file, std::ios::binary);
    if (!in) fail(path, "Unable to open file");
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) fail(path, "Unable to open file");
    return decodeImage(bytes, path);
}

}  // namespace tressora
