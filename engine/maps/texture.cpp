#include "maps/texture.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>

#include "core/errors.h"
#include "core/hash.h"
#include "maps/udim.h"

namespace tressora {

/// One decoded image: rows from the top, channels interleaved.
struct Texture::Tile : ImageData {
    Rgba sample(float u, float v) const;
    Rgba mean() const;
};

namespace {

/// A hash of a file's modification time and size; 0 for a file that can't be inspected.
std::uint64_t fileStamp(const std::filesystem::path& file) {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(file, error);
    if (error) return 0;
    const auto size = std::filesystem::file_size(file, error);
    if (error) return 0;
    return combine(hash64(static_cast<std::uint64_t>(time.time_since_epoch().count())), size);
}

/// floor(x) for x above -2^31, without a library call.
inline int floorToInt(float x) {
    const int i = static_cast<int>(x);
    return x < static_cast<float>(i) ? i - 1 : i;
}

}  // namespace

Rgba expandChannels(const float* c, int channels) {
    switch (channels) {
        case 1: return {c[0], c[0], c[0], 1.0f};
        case 2: return {c[0], c[0], c[0], c[1]};
        case 3: return {c[0], c[1], c[2], 1.0f};
        default: return {c[0], c[1], c[2], c[3]};
    }
}

float luminance(const Rgba& c) {
    if (c[0] == c[1] && c[1] == c[2]) return c[0];
    return 0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2];
}

namespace {

/// The bilinear blend of C channels between two rows: top and bottom texel pairs at c0, c1.
template <int C>
Rgba blendTexels(const float* r0, const float* r1, std::size_t c0, std::size_t c1, float fx, float fy) {
    float out[4];
    for (int c = 0; c < C; ++c) {
        const float top = r0[c0 + c] + (r0[c1 + c] - r0[c0 + c]) * fx;
        const float bottom = r1[c0 + c] + (r1[c1 + c] - r1[c0 + c]) * fx;
        out[c] = top + (bottom - top) * fy;
    }
    return expandChannels(out, C);
}

}  // namespace

Rgba Texture::Tile::sample(float u, float v) const {
    if (pixels.empty()) return {};
    // Texel centres at (i + 0.5) / size; v = 0 is the bottom row, which is the file's last.
    // u and v lie in [0, 1] here, so the texel coordinates are small and the casts exact.
    const float x = u * static_cast<float>(width) - 0.5f;
    const float y = (1.0f - v) * static_cast<float>(height) - 0.5f;
    const int ix = floorToInt(x), iy = floorToInt(y);
    const float fx = x - static_cast<float>(ix), fy = y - static_cast<float>(iy);
    const int x0 = std::clamp(ix, 0, width - 1), x1 = std::clamp(ix + 1, 0, width - 1);
    const int y0 = std::clamp(iy, 0, height - 1), y1 = std::clamp(iy + 1, 0, height - 1);
    const std::size_t row = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    const float* r0 = pixels.data() + static_cast<std::size_t>(y0) * row;
    const float* r1 = pixels.data() + static_cast<std::size_t>(y1) * row;
    const std::size_t c0 = static_cast<std::size_t>(x0 * channels), c1 = static_cast<std::size_t>(x1 * channels);
    switch (channels) {
        case 1: return blendTexels<1>(r0, r1, c0, c1, fx, fy);
        case 2: return blendTexels<2>(r0, r1, c0, c1, fx, fy);
        case 3: return blendTexels<3>(r0, r1, c0, c1, fx, fy);
        default: return blendTexels<4>(r0, r1, c0, c1, fx, fy);
    }
}

Rgba Texture::Tile::mean() const {
    if (pixels.empty()) return {};
    double sum[4] = {0, 0, 0, 0};
    const std::size_t step = static_cast<std::size_t>(channels);
    const std::size_t count = pixels.size() / step;
    for (std::size_t i = 0; i < pixels.size(); i += step)
        for (std::size_t c = 0; c < step; ++c) sum[c] += pixels[i + c];
    float avg[4];
    for (int c = 0; c < channels; ++c) avg[c] = static_cast<float>(sum[c] / static_cast<double>(count));
    return expandChannels(avg, channels);
}

const Texture::Tile* Texture::emptyTile() {
    static const Tile tile;
    return &tile;
}

Texture::Texture() = default;
Texture::~Texture() = default;

Texture::Texture(int width, int height, int channels, std::vector<float> data) {
    const bool sized = width > 0 && height > 0 && channels >= 1 && channels <= 4;
    if (!sized || data.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                     static_cast<std::size_t>(channels))
        throw TextureError("Texture: size does not match its data");
    std::uint64_t h = combine(combine(combine(0x7E47, static_cast<std::uint64_t>(width)), static_cast<std::uint64_t>(height)),
                              static_cast<std::uint64_t>(channels));
    for (float f : data) h = combine(h, floatBits(f));
    stamp_ = h;
    slots_ = std::make_unique<std::atomic<const Tile*>[]>(1);
    keep(0, ImageData{width, height, channels, std::move(data)});
}

const Texture::Tile* Texture::keep(int slot, ImageData image) const {
    auto tile = std::make_unique<Tile>();
    static_cast<ImageData&>(*tile) = std::move(image);
    bytes_.fetch_add(tile->pixels.size() * sizeof(float), std::memory_order_relaxed);
    const Tile* kept = tile.get();
    owned_.push_back(std::move(tile));
    slots_[slot].store(kept, std::memory_order_release);
    return kept;
}

std::shared_ptr<Texture> Texture::open(const std::string& path) {
    std::shared_ptr<Texture> texture(new Texture());
    texture->path_ = normalizeUdimTokens(path);
    std::uint64_t stamp = combineText(0x7E47, texture->path_);
    if (!isUdimPattern(texture->path_)) {
        texture->slots_ = std::make_unique<std::atomic<const Tile*>[]>(1);
        texture->keep(0, readImageFile(texture->path_));
        texture->fileStamp_ = fileStamp(pathFromUtf8(texture->path_));
        texture->stamp_ = combine(stamp, texture->fileStamp_);
        return texture;
    }
    // A tile set: find which tiles exist now, so a missing tile never touches the disk again.
    texture->tileSet_ = true;
    texture->slots_ = std::make_unique<std::atomic<const Tile*>[]>(kUdimCount);
    for (int i = 0; i < kUdimCount; ++i) {
        const std::filesystem::path file = pathFromUtf8(udimTilePath(texture->path_, kFirstUdim + i));
        std::error_code error;
        if (std::filesystem::is_regular_file(file, error)) {
            texture->tilesOnDisk_.push_back(kFirstUdim + i);
            stamp = combine(combine(stamp, static_cast<std::uint64_t>(i)), fileStamp(file));
        } else {
            texture->slots_[i].store(emptyTile(), std::memory_order_relaxed);
        }
    }
    if (texture->tilesOnDisk_.empty())
        throw TextureError("cannot read '" + texture->path_ + "': no file matches its UDIM tiles");
    texture->stamp_ = stamp;
    return texture;
}

const Texture::Tile* Texture::tileFor(int index) const {
    const Tile* tile = slots_[index].load(std::memory_order_acquire);
    return tile ? tile : loadTile(index);
}

const Texture::Tile* Texture::loadTile(int index) const {
    const Tile* tile = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        tile = slots_[index].load(std::memory_order_acquire);
        if (tile) return tile;
        if (const auto failed = failures_.find(index); failed != failures_.end()) throw TextureError(failed->second);
        try {
            tile = keep(index, readImageFile(udimTilePath(path_, kFirstUdim + index)));
        } catch (const TextureError& e) {
            failures_.emplace(index, e.what());
            throw;
        }
    }
    if (loadHook_) loadHook_();
    return tile;
}

Rgba Texture::sample(float u, float v) const {
    if (!tileSet_) {
        // One image over UVs 0-1; NaN reads the 0 edge.
        u = u >= 0.0f ? (u <= 1.0f ? u : 1.0f) : 0.0f;
        v = v >= 0.0f ? (v <= 1.0f ? v : 1.0f) : 0.0f;
        return slots_[0].load(std::memory_order_acquire)->sample(u, v);
    }
    if (!(u >= 0.0f && u < 10.0f && v >= 0.0f && v < 100.0f)) return {};
    const int column = static_cast<int>(u), row = static_cast<int>(v);  // floors: both are positive
    return tileFor(column + 10 * row)->sample(u - static_cast<float>(column), v - static_cast<float>(row));
}

const Texture::Tile* Texture::firstTile() const {
    if (!tileSet_) return slots_[0].load(std::memory_order_acquire);
    return tileFor(tilesOnDisk_.front() - kFirstUdim);
}

int Texture::width() const { return firstTile()->width; }
int Texture::height() const { return firstTile()->height; }
int Texture::channels() const { return firstTile()->channels; }

bool Texture::changedOnDisk() const {
    if (tileSet_ || path_.empty()) return false;
    return fileStamp(pathFromUtf8(path_)) != fileStamp_;
}

std::size_t Texture::loadedTiles() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return owned_.size();
}

Rgba Texture::mean() const {
    std::call_once(meanOnce_, [this] {
        if (!tileSet_) {
            mean_ = firstTile()->mean();
            return;
        }
        Rgba sum{};
        for (int tile : tilesOnDisk_) {
            const Rgba m = tileFor(tile - kFirstUdim)->mean();
            for (int c = 0; c < 4; ++c) sum[c] += m[c];
        }
        for (float& c : sum) c /= static_cast<float>(tilesOnDisk_.size());
        mean_ = sum;
    });
    return mean_;
}

}  // namespace tressora
