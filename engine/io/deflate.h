#pragma once
// Our own deflate (RFC 1951) in a zlib wrapper (RFC 1950), for the PNG encoder. The input is
// cut into independent pieces, each compressed on its own worker with dynamic Huffman blocks
// and a window reaching back into the piece before it; every piece but the last ends on a
// byte boundary (an empty stored block), so the pieces join into one stream in order. The
// bytes written depend on the input and the piece size only, never on the thread count.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tressora {

/// The piece size: each is compressed on its own worker.
inline constexpr std::size_t kDeflatePiece = std::size_t{1} << 20;

/// The zlib stream of `data`: header, deflate pieces, Adler-32. Parallel over pieces.
std::vector<std::uint8_t> zlibCompress(std::span<const std::uint8_t> data, std::size_t piece = kDeflatePiece);

/// The Adler-32 checksum of `data`, continuing from `adler` (1 for a new stream).
std::uint32_t adler32(std::span<const std::uint8_t> data, std::uint32_t adler = 1);

/// The Adler-32 of two runs joined, from the first's checksum, the second's (begun at 1)
/// and the second's length.
std::uint32_t adler32Joined(std::uint32_t first, std::uint32_t second, std::size_t secondLength);

}  // namespace tressora
