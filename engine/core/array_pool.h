#pragma once
// Pools of large spare arrays, one per element type. Evaluating frame after frame makes and
// drops arrays of the same lengths over and over; a pool keeps the two most recently returned
// large arrays and hands one back when an array of exactly that length is asked for, so the
// process does not keep asking the system for hundreds of megabytes.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "core/pod_array.h"
#include "core/vec.h"

namespace tressora {

template <class T>
class ArrayPool {
public:
    /// Arrays of fewer bytes than this are never pooled: the allocator serves them well.
    static constexpr std::size_t kThresholdBytes = 0x400000;
    /// The number of spare arrays a pool keeps; returning one more frees the oldest.
    static constexpr std::size_t kKeep = 2;

    ArrayPool();
    ArrayPool(const ArrayPool&) = delete;
    ArrayPool& operator=(const ArrayPool&) = delete;

    /// The process-wide pool of this element type, made on first use and never destroyed,
    /// so arrays released during static destruction can still return to it.
    static ArrayPool& instance();

    /// An array of exactly `count` elements with unspecified contents: the oldest spare of
    /// that length, or a new allocation. Requests under the threshold always allocate.
    /// Thread-safe. An allocation failure propagates and leaves the pool as it was.
    std::unique_ptr<PodArray<T>> take(std::size_t count);

    /// Like take, as a shared array whose last owner returns it to this pool.
    std::shared_ptr<PodArray<T>> takeShared(std::size_t count);

    /// Returns an array: under the threshold (by its length, not its capacity) it is freed;
    /// otherwise it becomes the newest spare, and the oldest spare beyond kKeep is freed
    /// outside the lock. Thread-safe; never throws.
    void give(std::unique_ptr<PodArray<T>> array) noexcept;

    /// The number of spare arrays held now.
    std::size_t spareCount() const;

    /// Frees every spare array.
    void releaseAll() noexcept;

private:
    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<PodArray<T>>> spares_;  // oldest first, at most kKeep + 1
};

/// The deleter of pooled shared arrays: hands the array back to its pool.
template <class T>
struct ToArrayPool {
    ArrayPool<T>* pool;
    void operator()(PodArray<T>* array) const noexcept { pool->give(std::unique_ptr<PodArray<T>>(array)); }
};

extern template class ArrayPool<Vec3f>;
extern template class ArrayPool<StrandRoot>;
extern template class ArrayPool<std::uint64_t>;
extern template class ArrayPool<float>;

}  // namespace tressora
