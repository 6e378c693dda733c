#include "core/block_copy.h"

#include "core/parallel.h"

namespace tressora {

void blockCopy(void* dst, const void* src, std::size_t bytes) {
    if (bytes == 0) return;
    if (bytes <= kBlockCopyPiece) {
        std::memcpy(dst, src, bytes);
        return;
    }
    auto* out = static_cast<unsigned char*>(dst);
    const auto* in = static_cast<const unsigned char*>(src);
    const std::size_t pieces = (bytes + kBlockCopyPiece - 1) / kBlockCopyPiece;
    parallelRange(0, pieces, 1, [&](std::size_t lo, std::size_t hi) {
        const std::size_t begin = lo * kBlockCopyPiece;
        const std::size_t end = hi * kBlockCopyPiece < bytes ? hi * kBlockCopyPiece : bytes;
        std::memcpy(out + begin, in + begin, end - begin);
    });
}

}  // namespace tressora
