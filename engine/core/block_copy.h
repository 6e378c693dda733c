#pragma once
// Copies and fills of large contiguous memory. Up to one piece (1 MiB) is a plain copy on the
// calling thread; anything larger is cut into 1 MiB pieces that a parallel loop copies, so a
// copy of hundreds of megabytes uses every core and every piece is written exactly once.

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "core/parallel.h"

namespace tressora {

/// The size of one piece of a block copy or fill, in bytes.
inline constexpr std::size_t kBlockCopyPiece = 0x100000;

/// Copies `bytes` bytes from src to dst (the ranges must not overlap). Large copies run in
/// parallel in 1 MiB pieces; the result never depends on the thread count.
void blockCopy(void* dst, const void* src, std::size_t bytes);

/// Copies `count` elements of a trivially copyable type with blockCopy.
template <class T>
void blockCopyElements(T* dst, const T* src, std::size_t count) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (count != 0) blockCopy(dst, src, count * sizeof(T));
}

/// Sets `count` elements at dst to `value`, in parallel in pieces of about 1 MiB when large.
template <class T>
void blockFill(T* dst, std::size_t count, const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    const std::size_t perPiece = kBlockCopyPiece / sizeof(T) > 0 ? kBlockCopyPiece / sizeof(T) : 1;
    const std::size_t pieces = (count + perPiece - 1) / perPiece;
    parallelRange(0, pieces, 1, [&](std::size_t lo, std::size_t hi) {
        const std::size_t end = hi * perPiece < count ? hi * perPiece : count;
        for (std::size_t i = lo * perPiece; i < end; ++i) dst[i] = value;
    });
}

}  // namespace tressora
