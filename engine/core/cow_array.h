#pragma once
// CowArray: a copy-on-write handle to one array of a strand set. Copying a handle shares the
// array; the first write through a handle that shares its array copies it (with the parallel
// block copy, into an array from the pool of its element type). The `owned` flag remembers
// that this handle may write without asking again, so the common path takes no lock; the
// flag only ever goes from false to true under the owning set's mutex, and copying a handle
// clears it on both sides.
//
// Threading: reads are free of locks. Two threads may make two different handles of one set
// writable at once (they share the set's mutex for the transition). A handle must not be
// read or copied while it is being written.

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "core/array_pool.h"
#include "core/block_copy.h"
#include "core/pod_array.h"

namespace tressora {

template <class T>
class CowArray {
public:
    using Array = PodArray<T>;

    /// An empty array (nothing is allocated until the first write).
    CowArray() = default;

    /// A handle sharing `shared`, which it will copy before writing.
    explicit CowArray(std::shared_ptr<Array> shared) noexcept : array_(std::move(shared)) {}

    /// Shares other's array; neither handle may write it without copying afterwards.
    CowArray(const CowArray& other) : array_(other.array_) { other.owned_.store(false, std::memory_order_release); }
    CowArray& operator=(const CowArray& other) {
        if (this != &other) {
            array_ = other.array_;
            owned_.store(false, std::memory_order_release);
            other.owned_.store(false, std::memory_order_release);
        }
        return *this;
    }
    CowArray(CowArray&& other) noexcept
        : array_(std::move(other.array_)), owned_(other.owned_.exchange(false, std::memory_order_acq_rel)) {}
    CowArray& operator=(CowArray&& other) noexcept {
        if (this != &other) {
            array_ = std::move(other.array_);
            owned_.store(other.owned_.exchange(false, std::memory_order_acq_rel), std::memory_order_release);
        }
        return *this;
    }

    std::size_t size() const noexcept { return array_ ? array_->size() : 0; }
    bool empty() const noexcept { return size() == 0; }
    const T* data() const noexcept { return array_ ? array_->data() : nullptr; }
    std::span<const T> view() const noexcept { return array_ ? array_->span() : std::span<const T>(); }
    /// True when this handle may write without copying.
    bool owned() const noexcept { return owned_.load(std::memory_order_acquire); }
    /// The number of handles sharing the array (0 for an array never allocated).
    long shareCount() const noexcept { return array_.use_count(); }

    /// Makes the array writable and returns it: at once when owned; otherwise, under `mutex`,
    /// claims it when no other handle holds it, or copies it into an array of the same length.
    Array& writable(std::mutex& mutex) {
        if (!owned_.load(std::memory_order_acquire)) {
            std::lock_guard<std::mutex> lock(mutex);
            if (!owned_.load(std::memory_order_relaxed)) {
                if (!array_) {
                    array_ = ArrayPool<T>::instance().takeShared(0);
                } else if (array_.use_count() != 1) {
                    std::shared_ptr<Array> copy = ArrayPool<T>::instance().takeShared(array_->size());
                    blockCopyElements(copy->data(), array_->data(), array_->size());
                    array_ = std::move(copy);
                }
                owned_.store(true, std::memory_order_release);
            }
        }
        return *array_;
    }

    /// Grows the array by `count` elements and returns the new tail, unspecified, for the
    /// caller to fill. A shared array whose new length reaches the pool threshold is copied
    /// once into an array of the full new length instead of being copied and then grown.
    std::span<T> extend(std::size_t count, std::mutex& mutex) {
        const std::size_t old = size();
        if (!owned_.load(std::memory_order_acquire) &&
            (old + count) * sizeof(T) >= ArrayPool<T>::kThresholdBytes) {
            std::lock_guard<std::mutex> lock(mutex);
            if (!owned_.load(std::memory_order_relaxed) && array_ && array_.use_count() != 1) {
                std::shared_ptr<Array> grown = ArrayPool<T>::instance().takeShared(old + count);
                blockCopyElements(grown->data(), array_->data(), old);
                array_ = std::move(grown);
                owned_.store(true, std::memory_order_release);
                return {array_->data() + old, count};
            }
        }
        return writable(mutex).extend(count);
    }

    /// Appends `values`, which may lie in this very array.
    void append(std::span<const T> values, std::mutex& mutex) {
        if (values.empty()) return;
        const T* first = data();
        if (first && values.data() >= first && values.data() < first + size()) {
            // Growing may move the array out from under the source: copy it aside first.
            const std::vector<T> aside(values.begin(), values.end());
            blockCopyElements(extend(aside.size(), mutex).data(), aside.data(), aside.size());
            return;
        }
        blockCopyElements(extend(values.size(), mutex).data(), values.data(), values.size());
    }

    /// Appends `count` copies of `value`.
    void appendFill(std::size_t count, const T& value, std::mutex& mutex) {
        if (count == 0) return;
        blockFill(extend(count, mutex).data(), count, value);
    }

    /// Replaces the contents by `count` unspecified elements for the caller to overwrite;
    /// the old contents are not copied even when shared.
    std::span<T> overwrite(std::size_t count, std::mutex& mutex) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (!owned_.load(std::memory_order_relaxed) || !array_) {
                array_ = ArrayPool<T>::instance().takeShared(count);
                owned_.store(true, std::memory_order_release);
                return array_->span();
            }
        }
        array_->resizeForOverwrite(count);
        return array_->span();
    }

    /// Sets the length to `count`, new elements `fill`. A shared array is copied only up to
    /// the new length.
    void resize(std::size_t count, const T& fill, std::mutex& mutex) {
        const std::size_t old = size();
        if (count >= old) {
            appendFill(count - old, fill, mutex);
            return;
        }
        if (!owned_.load(std::memory_order_acquire)) {
            std::lock_guard<std::mutex> lock(mutex);
            if (!owned_.load(std::memory_order_relaxed) && array_.use_count() != 1) {
                std::shared_ptr<Array> kept = ArrayPool<T>::instance().takeShared(count);
                blockCopyElements(kept->data(), array_->data(), count);
                array_ = std::move(kept);
                owned_.store(true, std::memory_order_release);
                return;
            }
        }
        writable(mutex).resizeForOverwrite(count);
    }

    /// Makes room for `count` elements, copying a shared array only once.
    void reserve(std::size_t count, std::mutex& mutex) {
        if (count <= size()) return;
        if (!owned_.load(std::memory_order_acquire)) {
            std::lock_guard<std::mutex> lock(mutex);
            if (!owned_.load(std::memory_order_relaxed) && array_ && array_.use_count() != 1) {
                std::shared_ptr<Array> grown = ArrayPool<T>::instance().takeShared(0);
                grown->reserve(count);
                grown->append(array_->data(), array_->size());
                array_ = std::move(grown);
                owned_.store(true, std::memory_order_release);
                return;
            }
        }
        writable(mutex).reserve(count);
    }

    /// Empties the array: an owned one keeps its capacity, a shared one is let go.
    void clear() noexcept {
        if (owned_.load(std::memory_order_acquire) && array_) {
            array_->clear();
        } else {
            array_.reset();
            owned_.store(false, std::memory_order_release);
        }
    }

    /// Drops the array, leaving an empty one.
    void reset() noexcept {
        array_.reset();
        owned_.store(false, std::memory_order_release);
    }

    /// Takes source's array when source is its only holder (leaving source empty) and reports
    /// true; otherwise shares it like a copy and reports false.
    bool stealOrShare(const CowArray& source) {
        if (this == &source) return false;
        if (source.array_ && source.array_.use_count() == 1) {
            array_ = std::move(source.array_);
            owned_.store(source.owned_.exchange(false, std::memory_order_acq_rel), std::memory_order_release);
            return true;
        }
        *this = source;
        return false;
    }

private:
    // Mutable because copying from a set clears its flag, and copy-assignment may take the
    // array of a source that is its only holder.
    mutable std::shared_ptr<Array> array_;
    mutable std::atomic<bool> owned_{false};
};

}  // namespace tressora
