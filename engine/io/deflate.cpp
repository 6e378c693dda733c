#include "io/deflate.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "core/parallel.h"

namespace tressora {
namespace {

constexpr std::size_t kWindow = 32768;
constexpr int kHashBits = 15;
constexpr std::uint32_t kHashFactor = 0x9E3779B1u;
constexpr int kMaxChain = 8;           // candidates tried per position
constexpr std::size_t kNiceLength = 48;  // a match this long ends the search
constexpr std::size_t kLazyBelow = 16;   // shorter matches look one byte on for a longer one
constexpr std::size_t kIndexAll = 32;    // longer matches index only every fourth position
constexpr std::size_t kMinMatch = 4;    // the hash covers four bytes
constexpr std::size_t kMaxMatch = 258;
constexpr std::size_t kBlockSymbols = 1 << 15;  // symbols per Huffman block

// Lengths 3 to 258 and distances 1 to 32768 as deflate codes them: a base per code and the
// extra bits after it.
constexpr std::array<std::uint16_t, 29> kLengthBase = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                                       31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr std::array<std::uint8_t, 29> kLengthExtra = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                                       2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::array<std::uint16_t, 30> kDistanceBase = {1,    2,    3,    4,    5,    7,     9,     13,    17,  25,
                                                         33,   49,   65,   97,   129,  193,   257,   385,   513, 769,
                                                         1025, 1537, 2049, 3073, 4097, 6145,  8193,  12289, 16385, 24577};
constexpr std::array<std::uint8_t, 30> kDistanceExtra = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                                         6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
// The order in which the code-length code's lengths are stored.
constexpr std::array<std::uint8_t, 19> kCodeLengthOrder = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

struct Tables {
    std::array<std::uint8_t, kMaxMatch + 1> lengthCode{};  // length -> code - 257
    std::array<std::uint8_t, 512> distanceCode{};          // small and large distances, see distanceCodeOf
    Tables() {
        for (std::uint8_t c = 0; c < 29; ++c) {
            const std::size_t last = c + 1 < 29 ? kLengthBase[c + 1] : kMaxMatch + 1;
            for (std::size_t l = kLengthBase[c]; l < last && l <= kMaxMatch; ++l) lengthCode[l] = c;
        }
        lengthCode[kMaxMatch] = 28;
        for (std::uint8_t c = 0; c < 30; ++c) {
            const std::size_t last = c + 1 < 30 ? kDistanceBase[c + 1] : 32769;
            for (std::size_t d = kDistanceBase[c]; d < last; ++d) {
                if (d <= 256) distanceCode[d - 1] = c;
                else distanceCode[256 + ((d - 1) >> 7)] = c;
            }
        }
    }
    std::uint8_t distanceCodeOf(std::size_t d) const { return d <= 256 ? distanceCode[d - 1] : distanceCode[256 + ((d - 1) >> 7)]; }
};

const Tables& tables() {
    static const Tables t;
    return t;
}

/// Bits gathered least significant first, as deflate stores them.
class BitWriter {
public:
    explicit BitWriter(std::vector<std::uint8_t>& out) : out_(out) {}
    void put(std::uint32_t bits, int count) {
        acc_ |= static_cast<std::uint64_t>(bits) << used_;
        used_ += count;
        if (used_ >= 32) {
            const std::uint32_t word = static_cast<std::uint32_t>(acc_);
            const std::size_t at = out_.size();
            out_.resize(at + 4);
            for (int b = 0; b < 4; ++b) out_[at + static_cast<std::size_t>(b)] = static_cast<std::uint8_t>(word >> (8 * b));
            acc_ >>= 32;
            used_ -= 32;
        }
    }
    /// Pads with zero bits to the next byte and writes out what is held.
    void align() {
        while (used_ > 0) {
            out_.push_back(static_cast<std::uint8_t>(acc_));
            acc_ >>= 8;
            used_ = used_ > 8 ? used_ - 8 : 0;
        }
        acc_ = 0;
    }

private:
    std::vector<std::uint8_t>& out_;
    std::uint64_t acc_ = 0;
    int used_ = 0;
};

std::uint32_t reversed(std::uint32_t code, int length) {
    std::uint32_t r = 0;
    for (int i = 0; i < length; ++i) r |= ((code >> i) & 1u) << (length - 1 - i);
    return r;
}

/// Code lengths of at most `maxBits` for the symbols' frequencies: a Huffman code, whose
/// overlong codes are folded back into the limit while keeping the code complete.
std::vector<std::uint8_t> codeLengths(std::span<const std::uint32_t> freq, int maxBits) {
    const std::size_t n = freq.size();
    std::vector<std::uint8_t> lengths(n, 0);
    std::vector<std::uint16_t> used;
    for (std::size_t s = 0; s < n; ++s)
        if (freq[s] > 0) used.push_back(static_cast<std::uint16_t>(s));
    if (used.empty()) return lengths;
    if (used.size() == 1) {
        lengths[used[0]] = 1;
        return lengths;
    }
    // Rarest first, ties by symbol.
    std::sort(used.begin(), used.end(), [&](std::uint16_t a, std::uint16_t b) {
        return freq[a] != freq[b] ? freq[a] < freq[b] : a < b;
    });
    // Two queues: the sorted leaves and the merged nodes (which come out in rising weight).
    const std::size_t leaves = used.size();
    std::vector<std::uint64_t> weight(2 * leaves);
    std::vector<std::int32_t> parent(2 * leaves, -1);
    for (std::size_t i = 0; i < leaves; ++i) weight[i] = freq[used[i]];
    std::size_t nextLeaf = 0, nextNode = leaves, made = leaves;
    const auto take = [&]() {
        if (nextLeaf < leaves && (nextNode >= made || weight[nextLeaf] <= weight[nextNode])) return nextLeaf++;
        return nextNode++;
    };
    while (made < 2 * leaves - 1) {
        const std::size_t a = take(), b = take();
        weight[made] = weight[a] + weight[b];
        parent[a] = parent[b] = static_cast<std::int32_t>(made);
        ++made;
    }
    std::vector<int> depth(made, 0);
    std::array<int, 64> count{};
    for (std::size_t i = made - 1; i-- > 0;) depth[i] = depth[static_cast<std::size_t>(parent[i])] + 1;
    for (std::size_t i = 0; i < leaves; ++i) ++count[static_cast<std::size_t>(std::min(depth[i], 63))];

    // Fold codes past the limit back in: all go to the limit, then the code is made whole
    // again by lengthening shorter codes, one at a time.
    for (int len = maxBits + 1; len < 64; ++len) {
        count[static_cast<std::size_t>(maxBits)] += count[static_cast<std::size_t>(len)];
        count[static_cast<std::size_t>(len)] = 0;
    }
    std::uint64_t total = 0;
    for (int len = 1; len <= maxBits; ++len) total += static_cast<std::uint64_t>(count[static_cast<std::size_t>(len)]) << (maxBits - len);
    while (total > (std::uint64_t{1} << maxBits)) {
        --count[static_cast<std::size_t>(maxBits)];
        for (int len = maxBits - 1; len > 0; --len)
            if (count[static_cast<std::size_t>(len)] > 0) {
                --count[static_cast<std::size_t>(len)];
                count[static_cast<std::size_t>(len) + 1] += 2;
                break;
            }
        --total;
    }
    // The most frequent symbols take the shortest codes.
    std::size_t at = leaves;
    for (int len = 1; len <= maxBits; ++len)
        for (int k = 0; k < count[static_cast<std::size_t>(len)]; ++k) lengths[used[--at]] = static_cast<std::uint8_t>(len);
    return lengths;
}

/// Canonical codes for the lengths, bit-reversed for writing.
std::vector<std::uint32_t> codesFor(const std::vector<std::uint8_t>& lengths) {
    std::array<std::uint32_t, 16> count{}, next{};
    for (const std::uint8_t l : lengths) ++count[l];
    count[0] = 0;
    std::uint32_t code = 0;
    for (int bits = 1; bits < 16; ++bits) {
        code = (code + count[static_cast<std::size_t>(bits) - 1]) << 1;
        next[static_cast<std::size_t>(bits)] = code;
    }
    std::vector<std::uint32_t> codes(lengths.size(), 0);
    for (std::size_t s = 0; s < lengths.size(); ++s)
        if (lengths[s] > 0) codes[s] = reversed(next[lengths[s]]++, lengths[s]);
    return codes;
}

/// One literal (dist 0, value the byte) or one match (length, distance).
struct Symbol {
    std::uint16_t value;
    std::uint16_t distance;
};

/// Writes one dynamic-Huffman block of the symbols, then the end of block.
void writeBlock(const std::vector<Symbol>& symbols, bool final, BitWriter& bits) {
    const Tables& t = tables();
    std::array<std::uint32_t, 286> litFreq{};
    std::array<std::uint32_t, 30> distFreq{};
    for (const Symbol& s : symbols) {
        if (s.distance == 0) {
            ++litFreq[s.value];
        } else {
            ++litFreq[257u + t.lengthCode[s.value]];
            ++distFreq[t.distanceCodeOf(s.distance)];
        }
    }
    litFreq[256] = 1;
    // A block without matches still declares one distance code.
    if (std::all_of(distFreq.begin(), distFreq.end(), [](std::uint32_t f) { return f == 0; })) distFreq[0] = 1;
    const std::vector<std::uint8_t> litLengths = codeLengths(litFreq, 15), distLengths = codeLengths(distFreq, 15);
    const std::vector<std::uint32_t> litCodes = codesFor(litLengths), distCodes = codesFor(distLengths);

    std::size_t hlit = 286, hdist = 30;
    while (hlit > 257 && litLengths[hlit - 1] == 0) --hlit;
    while (hdist > 1 && distLengths[hdist - 1] == 0) --hdist;

    // The two length lists as one, run-length coded with 16 (repeat previous), 17 and 18 (zeros).
    std::vector<std::uint8_t> all(litLengths.begin(), litLengths.begin() + static_cast<std::ptrdiff_t>(hlit));
    all.insert(all.end(), distLengths.begin(), distLengths.begin() + static_cast<std::ptrdiff_t>(hdist));
    struct Run {
        std::uint8_t symbol, extra;
    };
    std::vector<Run> runs;
    std::array<std::uint32_t, 19> clFreq{};
    for (std::size_t i = 0; i < all.size();) {
        const std::uint8_t l = all[i];
        std::size_t run = 1;
        while (i + run < all.size() && all[i + run] == l) ++run;
        if (l == 0 && run >= 3) {
            const std::size_t r = std::min<std::size_t>(run, 138);
            runs.push_back(r <= 10 ? Run{17, static_cast<std::uint8_t>(r - 3)} : Run{18, static_cast<std::uint8_t>(r - 11)});
            i += r;
        } else if (l != 0 && run >= 4) {
            runs.push_back({l, 0});
            const std::size_t r = std::min<std::size_t>(run - 1, 6);
            runs.push_back({16, static_cast<std::uint8_t>(r - 3)});
            i += 1 + r;
        } else {
            runs.push_back({l, 0});
            i += 1;
        }
    }
    for (const Run& r : runs) ++clFreq[r.symbol];
    const std::vector<std::uint8_t> clLengths = codeLengths(clFreq, 7);
    const std::vector<std::uint32_t> clCodes = codesFor(clLengths);
    std::size_t hclen = 19;
    while (hclen > 4 && clLengths[kCodeLengthOrder[hclen - 1]] == 0) --hclen;

    bits.put(final ? 1u : 0u, 1);
    bits.put(2u, 2);
    bits.put(static_cast<std::uint32_t>(hlit - 257), 5);
    bits.put(static_cast<std::uint32_t>(hdist - 1), 5);
    bits.put(static_cast<std::uint32_t>(hclen - 4), 4);
    for (std::size_t i = 0; i < hclen; ++i) bits.put(clLengths[kCodeLengthOrder[i]], 3);
    for (const Run& r : runs) {
        bits.put(clCodes[r.symbol], clLengths[r.symbol]);
        if (r.symbol == 16) bits.put(r.extra, 2);
        else if (r.symbol == 17) bits.put(r.extra, 3);
        else if (r.symbol == 18) bits.put(r.extra, 7);
    }
    for (const Symbol& s : symbols) {
        if (s.distance == 0) {
            bits.put(litCodes[s.value], litLengths[s.value]);
            continue;
        }
        const std::uint8_t lc = t.lengthCode[s.value];
        bits.put(litCodes[257u + lc], litLengths[257u + lc]);
        if (kLengthExtra[lc]) bits.put(static_cast<std::uint32_t>(s.value - kLengthBase[lc]), kLengthExtra[lc]);
        const std::uint8_t dc = t.distanceCodeOf(s.distance);
        bits.put(distCodes[dc], distLengths[dc]);
        if (kDistanceExtra[dc]) bits.put(static_cast<std::uint32_t>(s.distance - kDistanceBase[dc]), kDistanceExtra[dc]);
    }
    bits.put(litCodes[256], litLengths[256]);
}

/// How many bytes a and b share from the start, up to `limit`; eight at a time.
std::size_t matchLength(const std::uint8_t* a, const std::uint8_t* b, std::size_t limit) {
    std::size_t len = 0;
    while (len + 8 <= limit) {
        std::uint64_t x, y;
        std::memcpy(&x, a + len, 8);
        std::memcpy(&y, b + len, 8);
        if (const std::uint64_t diff = x ^ y) return len + static_cast<std::size_t>(__builtin_ctzll(diff) >> 3);
        len += 8;
    }
    while (len < limit && a[len] == b[len]) ++len;
    return len;
}

std::uint32_t hashAt(const std::uint8_t* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return (v * kHashFactor) >> (32 - kHashBits);
}

/// Compresses data[start, end) of `data`, its window reaching back to data[start - 32768].
/// A piece that is not the last ends on a byte boundary with an empty stored block.
std::vector<std::uint8_t> compressPiece(std::span<const std::uint8_t> data, std::size_t start, std::size_t end, bool last) {
    std::vector<std::uint8_t> out;
    out.reserve((end - start) / 2 + 64);
    BitWriter bits(out);
    std::vector<std::int64_t> head(std::size_t{1} << kHashBits, -1), chain(kWindow, -1);
    const std::uint8_t* base = data.data();
    const std::size_t size = data.size();
    const auto insert = [&](std::size_t p) {
        if (p + kMinMatch > size) return;
        const std::uint32_t h = hashAt(base + p);
        chain[p & (kWindow - 1)] = head[h];
        head[h] = static_cast<std::int64_t>(p);
    };
    // The window reaches into the piece before; positions there are known, not coded.
    for (std::size_t p = start > kWindow ? start - kWindow : 0; p < start; ++p) insert(p);

    const auto longestMatch = [&](std::size_t p, std::size_t& distance) -> std::size_t {
        if (p + kMinMatch > end) return 0;
        const std::size_t limit = std::min(kMaxMatch, end - p);
        const std::size_t windowStart = p > kWindow ? p - kWindow : 0;
        std::size_t best = 0;
        std::int64_t candidate = head[hashAt(base + p)];
        for (int tries = 0; tries < kMaxChain && candidate >= static_cast<std::int64_t>(windowStart); ++tries) {
            const std::size_t c = static_cast<std::size_t>(candidate);
            if (c < p && base[c + best] == base[p + best]) {
                std::size_t len = matchLength(base + c, base + p, limit);
                if (len > best) {
                    best = len;
                    distance = p - c;
                    if (len >= kNiceLength || len == limit) break;
                }
            }
            const std::int64_t next = chain[c & (kWindow - 1)];
            if (next >= candidate) break;  // the chain slot was reused by a newer position
            candidate = next;
        }
        return best >= kMinMatch ? best : 0;
    };

    std::vector<Symbol> symbols;
    symbols.reserve(kBlockSymbols + 2);
    std::size_t p = start;
    while (p < end) {
        std::size_t distance = 0;
        std::size_t length = longestMatch(p, distance);
        if (length > 0 && length < kLazyBelow && p + 1 < end) {
            // One step of lazy matching: a longer match one byte on is worth a literal.
            std::size_t nextDistance = 0;
            insert(p);
            const std::size_t next = longestMatch(p + 1, nextDistance);
            if (next > length + 1) {
                symbols.push_back({base[p], 0});
                ++p;
                length = next;
                distance = nextDistance;
            } else {
                symbols.push_back({static_cast<std::uint16_t>(length), static_cast<std::uint16_t>(distance)});
                for (std::size_t k = 1; k < length; ++k) insert(p + k);
                p += length;
                length = 0;
            }
            if (length > 0) {
                symbols.push_back({static_cast<std::uint16_t>(length), static_cast<std::uint16_t>(distance)});
                for (std::size_t k = 0; k < length; ++k) insert(p + k);
                p += length;
            }
        } else if (length > 0) {
            symbols.push_back({static_cast<std::uint16_t>(length), static_cast<std::uint16_t>(distance)});
            const std::size_t stride = length > kIndexAll ? 4 : 1;
            for (std::size_t k = 0; k < length; k += stride) insert(p + k);
            p += length;
        } else {
            symbols.push_back({base[p], 0});
            insert(p);
            ++p;
        }
        if (symbols.size() >= kBlockSymbols && p < end) {
            writeBlock(symbols, false, bits);
            symbols.clear();
        }
    }
    if (!symbols.empty() || last) writeBlock(symbols, last, bits);
    if (!last) {
        // An empty stored block: the piece ends on a byte boundary, ready to be joined.
        bits.put(0u, 3);
        bits.align();
        out.insert(out.end(), {0x00, 0x00, 0xFF, 0xFF});
    } else {
        bits.align();
    }
    return out;
}

}  // namespace

std::uint32_t adler32(std::span<const std::uint8_t> data, std::uint32_t adler) {
    constexpr std::uint32_t kMod = 65521;
    // 5552 bytes is the most the sums can take before they must be reduced.
    constexpr std::size_t kRun = 5552;
    std::uint32_t a = adler & 0xFFFF, b = adler >> 16;
    std::size_t i = 0;
    while (i < data.size()) {
        const std::size_t n = std::min(kRun, data.size() - i);
        for (std::size_t k = 0; k < n; ++k) {
            a += data[i + k];
            b += a;
        }
        a %= kMod;
        b %= kMod;
        i += n;
    }
    return (b << 16) | a;
}

std::uint32_t adler32Joined(std::uint32_t first, std::uint32_t second, std::size_t secondLength) {
    // A = 1 + the bytes' sum and B = the sum of every A along the way; started from the
    // first run's A instead of 1, each of the second run's steps adds (A1 - 1) more to B.
    constexpr std::uint64_t kMod = 65521;
    const std::uint64_t a1 = first & 0xFFFF, b1 = first >> 16, a2 = second & 0xFFFF, b2 = second >> 16;
    const std::uint64_t a = (a1 + a2 + kMod - 1) % kMod;
    const std::uint64_t b = (b1 + b2 + (secondLength % kMod) * ((a1 + kMod - 1) % kMod)) % kMod;
    return static_cast<std::uint32_t>((b << 16) | a);
}

std::vector<std::uint8_t> zlibCompress(std::span<const std::uint8_t> data, std::size_t piece) {
    if (piece == 0) piece = kDeflatePiece;
    const std::size_t pieces = std::max<std::size_t>(1, (data.size() + piece - 1) / piece);
    std::vector<std::vector<std::uint8_t>> parts(pieces);
    std::vector<std::uint32_t> sums(pieces, 1);
    parallelRange(0, pieces, 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const std::size_t start = i * piece, end = std::min(data.size(), start + piece);
            parts[i] = compressPiece(data, start, end, i + 1 == pieces);
            sums[i] = adler32(data.subspan(start, end - start));
        }
    });
    std::size_t total = 6;
    for (const auto& part : parts) total += part.size();
    std::vector<std::uint8_t> out;
    out.reserve(total);
    // Deflate with a 32 KiB window; the check bits make the header a multiple of 31.
    out.push_back(0x78);
    out.push_back(0x01);
    std::uint32_t adler = 1;
    for (std::size_t i = 0; i < pieces; ++i) {
        out.insert(out.end(), parts[i].begin(), parts[i].end());
        const std::size_t start = i * piece;
        adler = adler32Joined(adler, sums[i], std::min(data.size(), start + piece) - std::min(data.size(), start));
    }
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(adler >> shift));
    return out;
}

}  // namespace tressora
