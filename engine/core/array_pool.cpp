#include "core/array_pool.h"

#include <array>

namespace tressora {

template <class T>
ArrayPool<T>::ArrayPool() {
    spares_.reserve(kKeep + 1);  // give() must never allocate
}

template <class T>
ArrayPool<T>& ArrayPool<T>::instance() {
    static ArrayPool* pool = new ArrayPool();
    return *pool;
}

template <class T>
std::unique_ptr<PodArray<T>> ArrayPool<T>::take(std::size_t count) {
    if (count * sizeof(T) >= kThresholdBytes) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto it = spares_.begin(); it != spares_.end(); ++it) {
            if ((*it)->size() == count) {
                std::unique_ptr<PodArray<T>> found = std::move(*it);
                spares_.erase(it);
                return found;
            }
        }
    }
    return std::make_unique<PodArray<T>>(count);
}

template <class T>
std::shared_ptr<PodArray<T>> ArrayPool<T>::takeShared(std::size_t count) {
    std::unique_ptr<PodArray<T>> array = take(count);
    // If making the control block fails, the deleter runs and the array comes back here.
    return std::shared_ptr<PodArray<T>>(array.release(), ToArrayPool<T>{this});
}

template <class T>
void ArrayPool<T>::give(std::unique_ptr<PodArray<T>> array) noexcept {
    if (!array || array->size() * sizeof(T) < kThresholdBytes) return;
    std::unique_ptr<PodArray<T>> evicted;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        spares_.push_back(std::move(array));
        if (spares_.size() > kKeep) {
            evicted = std::move(spares_.front());
            spares_.erase(spares_.begin());
        }
    }
}

template <class T>
std::size_t ArrayPool<T>::spareCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return spares_.size();
}

template <class T>
void ArrayPool<T>::releaseAll() noexcept {
    std::array<std::unique_ptr<PodArray<T>>, kKeep + 1> freed;  // freed outside the lock
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (std::size_t i = 0; i < spares_.size(); ++i) freed[i] = std::move(spares_[i]);
        spares_.clear();
    }
}

template class ArrayPool<Vec3f>;
template class ArrayPool<StrandRoot>;
template class ArrayPool<std::uint64_t>;
template class ArrayPool<float>;

}  // namespace tressora
