// libFuzzer target: image files as the texture cache decodes them (PNG, JPEG, TGA, BMP, HDR
// and the decoder's other formats). Any bytes either decode or are refused with TextureError.
// Crashes and sanitizer reports are bugs.

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/errors.h"
#include "maps/image_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        // Images of up to 4M values: the decoder's limits are the same, the runs quicker.
        const tressora::ImageData image =
            tressora::decodeImage(std::span<const unsigned char>(data, size), "fuzz.img", std::uint64_t{1} << 22);
        (void)image;
    } catch (const tressora::TextureError&) {
    }
    return 0;
}
