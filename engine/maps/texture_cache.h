#pragma once
// The process-wide texture cache: decoded images shared by every reader under a byte limit.
// Textures are kept by path; the least recently used one that no reader holds is dropped
// when decoded pixels pass the limit. A dropped texture lives on for whoever still holds it.

#include <cstddef>
#include <memory>
#include <string>

#include "core/shared_cache.h"
#include "maps/texture.h"

namespace tressora {

class TextureCache {
public:
    /// A cache that keeps at most `limitBytes` of decoded pixels of textures nobody holds.
    explicit TextureCache(std::size_t limitBytes);
    ~TextureCache();
    TextureCache(const TextureCache&) = delete;
    TextureCache& operator=(const TextureCache&) = delete;

    /// The shared texture of a file or tile pattern: cached, or opened and kept. A cached
    /// image whose file was written again since is opened anew. Throws TextureError as
    /// Texture::open does; a failure keeps nothing. Any thread.
    std::shared_ptr<const Texture> acquire(const std::string& path);
    /// Forgets every texture (holders keep theirs); the next acquire reads the files again.
    void evictAll();
    /// The decoded bytes of the textures the cache keeps.
    std::size_t bytes() const;
    std::size_t limitBytes() const;
    /// Entries, bytes, limit, hits, misses and evictions, under the name "textures".
    CacheStats stats() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

/// The limit in bytes for a value of TRESSORA_TEXTURE_CACHE_MB: a whole number of megabytes
/// with a floor of 1; null, empty or not a whole number gives 1024 megabytes.
std::size_t textureCacheLimit(const char* megabytes);

/// The process-wide cache, its limit read once from TRESSORA_TEXTURE_CACHE_MB.
TextureCache& textureCache();
/// textureCache().acquire(path).
std::shared_ptr<const Texture> acquireTexture(const std::string& path);
/// textureCache().evictAll().
void evictTextures();
/// textureCache().bytes().
std::size_t textureCacheBytes();

}  // namespace tressora
