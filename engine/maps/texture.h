#pragma once
// Texture: one image, or a UDIM tile set, with a bilinear sampler. Hair params read
// textures at scalp UVs millions of times per evaluation from many threads: sampling a
// loaded tile takes no lock and reads four texels per channel.
//
// Conventions: v runs up the picture (v = 0 is the bottom row of the file); texel centres
// lie at (i + 0.5) / width; at the edges of an image or tile the outermost texels hold.
// A single image covers UVs 0-1 and UVs outside it read the nearest edge. A tile set loads a
// tile the first time a UV inside it is sampled; tiles missing on disk, and UVs outside the
// tile range, read 0.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "maps/image_file.h"

namespace tressora {

/// RGBA from a texture: grey images give grey in r, g and b; alpha is 1 when the image has none.
using Rgba = std::array<float, 4>;

/// Rec. 709 luminance of a colour; exactly the grey for a grey colour.
float luminance(const Rgba& c);
/// The first `channels` (1 to 4) values of c as RGBA, by the rule above.
Rgba expandChannels(const float* c, int channels);

class Texture {
public:
    /// An image in memory (the same layout as ImageData). Throws TextureError "Texture: size
    /// does not match its data" when the data is not width * height * channels floats, a size
    /// is not positive or channels is not 1 to 4.
    Texture(int width, int height, int channels, std::vector<float> data);
    ~Texture();
    Texture(const Texture&) = delete;
    Texture& operator=(const Texture&) = delete;

    /// Opens a file (decoded at once) or a tile pattern holding "<UDIM>", "<udim>" or
    /// "%(UDIM)d" (tiles decoded when first sampled). Throws TextureError "cannot read
    /// '<path>': <reason>" for a file that can't be decoded, and "cannot read '<pattern>':
    /// no file matches its UDIM tiles" for a pattern that matches no file at all.
    static std::shared_ptr<Texture> open(const std::string& path);

    /// The colour at (u, v), filtered bilinearly. Any thread; takes the texture's mutex only
    /// to load a tile it meets for the first time. Throws TextureError when that tile's file
    /// fails to decode (and again at every later touch of it).
    Rgba sample(float u, float v) const;
    /// The luminance of sample(u, v).
    float sampleLuminance(float u, float v) const { return luminance(sample(u, v)); }

    /// The path as opened, tile token normalised; empty for an image made in memory.
    const std::string& path() const { return path_; }
    bool isTileSet() const { return tileSet_; }
    /// Size and channels of the image, or of a tile set's lowest tile on disk (loading it).
    int width() const;
    int height() const;
    int channels() const;
    /// The tile numbers of a tile set that exist on disk, ascending; empty for an image.
    const std::vector<int>& tilesOnDisk() const { return tilesOnDisk_; }
    /// How many tiles (or the one image) are decoded now.
    std::size_t loadedTiles() const;
    /// The bytes of pixel data decoded so far.
    std::size_t bytes() const { return bytes_.load(std::memory_order_relaxed); }
    /// A hash of the path and the files' modification times and sizes as opened: it changes
    /// when a file is written again. For an image in memory, a hash of its pixels.
    std::uint64_t stamp() const { return stamp_; }
    /// Whether the file of an image opened from a file was written again (or removed) since it
    /// was opened. Tile sets and images made in memory answer false.
    bool changedOnDisk() const;
    /// The mean colour of the image, or of the tiles on disk (decoding them). Computed once.
    Rgba mean() const;

    /// Called after each tile load, outside the texture's lock (the cache counts bytes with
    /// it). Set before the texture is shared.
    void setLoadHook(std::function<void()> hook) { loadHook_ = std::move(hook); }

private:
    struct Tile;
    Texture();
    /// The tile that stands for every tile missing on disk: it samples 0.
    static const Tile* emptyTile();
    const Tile* tileFor(int index) const;
    const Tile* loadTile(int index) const;
    /// Takes a decoded image into slot `slot`; under mutex_ once the texture is shared.
    const Tile* keep(int slot, ImageData image) const;
    const Tile* firstTile() const;

    std::string path_;
    bool tileSet_ = false;
    std::vector<int> tilesOnDisk_;
    std::uint64_t stamp_ = 0;
    std::uint64_t fileStamp_ = 0;  // an image file's time and size when it was read
    std::function<void()> loadHook_;

    mutable std::mutex mutex_;
    // One slot per tile (one slot for an image): null until first touched, then the decoded
    // tile or the shared empty tile for a tile that is not on disk. Written once, under mutex_.
    std::unique_ptr<std::atomic<const Tile*>[]> slots_;
    mutable std::vector<std::unique_ptr<Tile>> owned_;
    mutable std::map<int, std::string> failures_;  // by slot, a decode failure's message
    mutable std::atomic<std::size_t> bytes_{0};
    mutable std::once_flag meanOnce_;
    mutable Rgba mean_{};
};

}  // namespace tressora
