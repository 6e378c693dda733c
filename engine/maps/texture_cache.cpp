#include "maps/texture_cache.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "maps/udim.h"

namespace tressora {
namespace {

constexpr std::size_t kMegabyte = std::size_t{1} << 20;
constexpr std::size_t kDefaultMegabytes = 1024;

}  // namespace

struct TextureCache::State {
    struct Entry {
        std::shared_ptr<Texture> texture;
        std::size_t bytes = 0;
        std::list<std::string>::iterator place;
    };

    mutable std::mutex mutex;
    std::size_t limit = 0;
    std::size_t bytes = 0;
    std::unordered_map<std::string, Entry> entries;
    std::list<std::string> lru;  // most recently used first
    std::uint64_t hits = 0, misses = 0, evictions = 0;

    /// Drops least recently used textures nobody else holds until the bytes fit; hands the
    /// dropped textures out so they are freed after the lock is released.
    void trimLocked(std::vector<std::shared_ptr<Texture>>& dropped) {
        auto it = lru.end();
        while (bytes > limit && it != lru.begin()) {
            --it;
            Entry& entry = entries.at(*it);
            // Only the cache holds it: no reader can be sampling it, and none can take it
            // from the map while the lock is held.
            if (entry.texture.use_count() != 1) continue;
            bytes -= entry.bytes;
            dropped.push_back(std::move(entry.texture));
            entries.erase(*it);
            it = lru.erase(it);
            ++evictions;
        }
    }

    /// Counts a texture's bytes again after it loaded a tile, and trims.
    void tileLoaded(const Texture* texture, std::vector<std::shared_ptr<Texture>>& dropped) {
        std::lock_guard<std::mutex> lock(mutex);
        const auto found = entries.find(texture->path());
        if (found == entries.end() || found->second.texture.get() != texture) return;
        Entry& entry = found->second;
        bytes = bytes - entry.bytes + texture->bytes();
        entry.bytes = texture->bytes();
        lru.splice(lru.begin(), lru, entry.place);
        trimLocked(dropped);
    }
};


TextureCache::TextureCache(std::size_t limitBytes) : state_(std::make_shared<State>()) { state_->limit = limitBytes; }

TextureCache::~TextureCache() = default;

std::shared_ptr<const Texture> TextureCache::acquire(const std::string& rawPath) {
    const std::string path = normalizeUdimTokens(rawPath);
    std::vector<std::shared_ptr<Texture>> dropped;
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        const auto found = state_->entries.find(path);
        if (found != state_->entries.end()) {
            State::Entry& entry = found->second;
            // A file written since it was read is read again.
            if (!entry.texture->changedOnDisk()) {
                ++state_->hits;
                state_->lru.splice(state_->lru.begin(), state_->lru, entry.place);
                return entry.texture;
            }
            state_->bytes -= entry.bytes;
            dropped.push_back(std::move(entry.texture));
            state_->lru.erase(entry.place);
            state_->entries.erase(found);
        }
        ++state_->misses;
    }

    // Decode outside the lock: other textures stay available meanwhile.
    std::shared_ptr<Texture> texture = Texture::open(path);
    const std::weak_ptr<State> weak = state_;
    const Texture* raw = texture.get();
    texture->setLoadHook([weak, raw] {
        std::vector<std::shared_ptr<Texture>> freed;
        if (const auto state = weak.lock()) state->tileLoaded(raw, freed);
    });

    std::lock_guard<std::mutex> lock(state_->mutex);
    if (const auto raced = state_->entries.find(path); raced != state_->entries.end()) return raced->second.texture;
    state_->lru.push_front(path);
    State::Entry& entry = state_->entries[path];
    entry.texture = texture;
    entry.bytes = texture->bytes();
    entry.place = state_->lru.begin();
    state_->bytes += entry.bytes;
    state_->trimLocked(dropped);
    return texture;
}

void TextureCache::evictAll() {
    std::vector<std::shared_ptr<Texture>> dropped;
    std::lock_guard<std::mutex> lock(state_->mutex);
    for (auto& [path, entry] : state_->entries) dropped.push_back(std::move(entry.texture));
    state_->evictions += state_->entries.size();
    state_->entries.clear();
    state_->lru.clear();
    state_->bytes = 0;
}

std::size_t TextureCache::bytes() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->bytes;
}

std::size_t TextureCache::limitBytes() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->limit;
}

CacheStats TextureCache::stats() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return {"textures", state_->entries.size(), state_->bytes, state_->limit,
            state_->hits, state_->misses, state_->evictions};
}

std::size_t textureCacheLimit(const char* megabytes) {
    if (!megabytes || !*megabytes) return kDefaultMegabytes * kMegabyte;
    char* end = nullptr;
    const long long mb = std::strtoll(megabytes, &end, 10);
    if (end == megabytes || *end != '\0') return kDefaultMegabytes * kMegabyte;
    constexpr long long kMost = static_cast<long long>(SIZE_MAX / kMegabyte);
    return static_cast<std::size_t>(std::clamp(mb, 1LL, kMost)) * kMegabyte;
}

TextureCache& textureCache() {
    static TextureCache cache(textureCacheLimit(std::getenv("TRESSORA_TEXTURE_CACHE_MB")));
    return cache;
}

std::shared_ptr<const Texture> acquireTexture(const std::string& path) { return textureCache().acquire(path); }
void evictTextures() { textureCache().evictAll(); }
std::size_t textureCacheBytes() { return textureCache().bytes(); }

}  // namespace tressora
