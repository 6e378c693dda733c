#pragma once
// PodArray: a growable array of a trivially copyable element type whose new elements may be
// left uninitialised. The strand arrays use it instead of std::vector so that an array about
// to be overwritten by a block copy is not first filled with zeros, and so that growing a
// large array copies it with the parallel block copy.

#include <algorithm>
#include <cstddef>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

#include "core/block_copy.h"

namespace tressora {

template <class T>
class PodArray {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                  "PodArray holds plain values only");

public:
    PodArray() = default;
    /// An array of `count` elements whose contents are unspecified until written.
    explicit PodArray(std::size_t count) { resizeForOverwrite(count); }
    PodArray(const PodArray&) = delete;
    PodArray& operator=(const PodArray&) = delete;
    PodArray(PodArray&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    PodArray& operator=(PodArray&& other) noexcept {
        if (this != &other) {
            release();
            data_ = std::exchange(other.data_, nullptr);
            size_ = std::exchange(other.size_, 0);
            capacity_ = std::exchange(other.capacity_, 0);
        }
        return *this;
    }
    ~PodArray() { release(); }

    std::size_t size() const noexcept { return size_; }
    std::size_t capacity() const noexcept { return capacity_; }
    bool empty() const noexcept { return size_ == 0; }
    T* data() noexcept { return data_; }
    const T* data() const noexcept { return data_; }
    T& operator[](std::size_t i) noexcept { return data_[i]; }
    const T& operator[](std::size_t i) const noexcept { return data_[i]; }
    T* begin() noexcept { return data_; }
    T* end() noexcept { return data_ + size_; }
    const T* begin() const noexcept { return data_; }
    const T* end() const noexcept { return data_ + size_; }
    std::span<T> span() noexcept { return {data_, size_}; }
    std::span<const T> span() const noexcept { return {data_, size_}; }

    /// Makes room for at least `count` elements, keeping the contents.
    void reserve(std::size_t count) {
        if (count <= capacity_) return;
        T* fresh = allocate(count);
        blockCopyElements(fresh, data_, size_);
        deallocate(data_);
        data_ = fresh;
        capacity_ = count;
    }

    /// Sets the size to `count`; elements past the old size are left unspecified.
    void resizeForOverwrite(std::size_t count) {
        if (count > capacity_) reserve(std::max(count, growth()));
        size_ = count;
    }

    /// Sets the size to `count`, giving elements past the old size the value `fill`.
    void resize(std::size_t count, const T& fill) {
        const std::size_t old = size_;
        resizeForOverwrite(count);
        if (count > old) blockFill(data_ + old, count - old, fill);
    }

    /// Grows the size by `count` and returns the new, unspecified tail for the caller to write.
    std::span<T> extend(std::size_t count) {
        const std::size_t old = size_;
        resizeForOverwrite(old + count);
        return {data_ + old, count};
    }

    void pushBack(const T& value) {
        if (size_ == capacity_) reserve(growth());
        data_[size_++] = value;
    }

    /// Appends `count` elements from src, which must not point into this array.
    void append(const T* src, std::size_t count) { blockCopyElements(extend(count).data(), src, count); }

    void clear() noexcept { size_ = 0; }

private:
    std::size_t growth() const noexcept { return capacity_ < 8 ? 8 : capacity_ + capacity_ / 2; }

    // Cache-line aligned storage, so that parallel pieces of different arrays never share a line.
    static constexpr std::align_val_t kAlignment{64};

    static T* allocate(std::size_t count) {
        if (count > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(::operator new(count * sizeof(T), kAlignment));
    }
    static void deallocate(T* p) noexcept {
        if (p) ::operator delete(p, kAlignment);
    }
    void release() noexcept {
        deallocate(data_);
        data_ = nullptr;
        size_ = capacity_ = 0;
    }

    T* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace tressora
