#pragma once
// A process-wide cache of immutable values by 64-bit key, limited by total size and emptied
// least recently used first. Values are shared_ptr<const T>, so an evicted value lives on
// for whoever still holds it.

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

namespace tressora {

/// A cache's statistics, named as the user sees them (e.g. "distance fields").
struct CacheStats {
    std::string name;
    std::size_t entries = 0;
    std::size_t bytes = 0;
    std::size_t limitBytes = 0;
    std::uint64_t hits = 0;
    std::uint64_t misses = 0;
    std::uint64_t evictions = 0;
};

template <class T>
class SharedCache {
public:
    SharedCache(std::string name, std::size_t limitBytes) : name_(std::move(name)), limit_(limitBytes) {}

    /// The value for key, made by make() on a miss (outside the lock; two threads missing
    /// the same key both make it and the first stored is kept). make returns
    /// shared_ptr<const T>; bytes(value) tells its size. A value larger than the whole
    /// limit is handed out but not kept.
    template <class Make, class Bytes>
    std::shared_ptr<const T> getOrMake(std::uint64_t key, Make&& make, Bytes&& bytes) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (auto hit = findLocked(key)) {
                ++hits_;
                return hit;
            }
            ++misses_;
        }
        std::shared_ptr<const T> value = make();
        const std::size_t size = bytes(*value);
        std::lock_guard<std::mutex> lock(mutex_);
        if (auto raced = findLocked(key)) return raced;
        if (size > limit_) return value;
        lru_.push_front({key, value, size});
        index_[key] = lru_.begin();
        bytes_ += size;
        trimLocked();
        return value;
    }

    CacheStats stats() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return {name_, lru_.size(), bytes_, limit_, hits_, misses_, evictions_};
    }

    /// Changes the limit, evicting at once what no longer fits.
    void setLimit(std::size_t limitBytes) {
        std::lock_guard<std::mutex> lock(mutex_);
        limit_ = limitBytes;
        trimLocked();
    }

    void clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        lru_.clear();
        index_.clear();
        bytes_ = 0;
    }

private:
    struct Entry {
        std::uint64_t key;
        std::shared_ptr<const T> value;
        std::size_t bytes;
    };

    std::shared_ptr<const T> findLocked(std::uint64_t key) {
        const auto it = index_.find(key);
        if (it == index_.end()) return nullptr;
        lru_.splice(lru_.begin(), lru_, it->second);
        return it->second->value;
    }

    void trimLocked() {
        while (bytes_ > limit_ && !lru_.empty()) {
            bytes_ -= lru_.back().bytes;
            index_.erase(lru_.back().key);
            lru_.pop_back();
            ++evictions_;
        }
    }

    mutable std::mutex mutex_;
    std::string name_;
    std::size_t limit_;
    std::size_t bytes_ = 0;
    std::list<Entry> lru_;
    std::unordered_map<std::uint64_t, typename std::list<Entry>::iterator> index_;
    std::uint64_t hits_ = 0, misses_ = 0, evictions_ = 0;
};

}  // namespace tressora
