#include "io/alembic/abc_hashes.h"

#include <bit>
#include <cstring>

namespace tressora::abc {

namespace {

std::uint64_t load64(const std::byte* p) {
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}

std::uint64_t byteAt(const std::byte* p, std::size_t i) { return static_cast<std::uint64_t>(p[i]); }

// ---- MurmurHash3 x64 128 -------------------------------------------------------------------

constexpr std::uint64_t kMurmurC1 = 0x87c37b91114253d5ull;
constexpr std::uint64_t kMurmurC2 = 0x4cf5ad432745937full;

constexpr std::uint64_t murmurFinal(std::uint64_t k) {
    k ^= k >> 33;
    k *= 0xff51afd7ed558ccdull;
    k ^= k >> 33;
    k *= 0xc4ceb9fe1a85ec53ull;
    k ^= k >> 33;
    return k;
}

constexpr std::uint64_t murmurK1(std::uint64_t k) { return std::rotl(k * kMurmurC1, 31) * kMurmurC2; }
constexpr std::uint64_t murmurK2(std::uint64_t k) { return std::rotl(k * kMurmurC2, 33) * kMurmurC1; }

// ---- SpookyHash V2 -------------------------------------------------------------------------

constexpr std::uint64_t kSpookyConst = 0xdeadbeefdeadbeefull;
constexpr std::size_t kSpookyVars = 12;
constexpr std::size_t kSpookyBlock = kSpookyVars * 8;  // 96 bytes
constexpr std::size_t kSpookyShortLimit = 2 * kSpookyBlock;

using SpookyState = std::uint64_t[kSpookyVars];

// One round of the long-message mix over a 96-byte block. The step for word i adds the
// input, folds a distant word, rotates and chains into the next word.
void spookyMix(const std::uint64_t* data, SpookyState& s) {
    static constexpr int kRot[kSpookyVars] = {11, 32, 43, 31, 17, 28, 39, 57, 55, 54, 22, 46};
    for (std::size_t i = 0; i < kSpookyVars; ++i) {
        s[i] += data[i];
        s[(i + 2) % kSpookyVars] ^= s[(i + 10) % kSpookyVars];
        s[(i + 11) % kSpookyVars] ^= s[i];
        s[i] = std::rotl(s[i], kRot[i]);
        s[(i + 11) % kSpookyVars] += s[(i + 1) % kSpookyVars];
    }
}

void spookyEndPartial(SpookyState& h) {
    static constexpr int kRot[kSpookyVars] = {44, 15, 34, 21, 38, 33, 10, 13, 38, 53, 42, 54};
    // Step i: h[i+11] += h[i+1]; h[i+2] ^= h[i+11]; h[i+1] = rotl(h[i+1], r).
    for (std::size_t i = 0; i < kSpookyVars; ++i) {
        const std::size_t a = (i + 11) % kSpookyVars, b = (i + 1) % kSpookyVars, c = (i + 2) % kSpookyVars;
        h[a] += h[b];
        h[c] ^= h[a];
        h[b] = std::rotl(h[b], kRot[i]);
    }
}

void spookyEnd(const std::uint64_t* data, SpookyState& h) {
    for (std::size_t i = 0; i < kSpookyVars; ++i) h[i] += data[i];
    spookyEndPartial(h);
    spookyEndPartial(h);
    spookyEndPartial(h);
}

void spookyShortMix(std::uint64_t& h0, std::uint64_t& h1, std::uint64_t& h2, std::uint64_t& h3) {
    static constexpr int kRot[12] = {50, 52, 30, 41, 54, 48, 38, 37, 62, 34, 5, 36};
    std::uint64_t* h[4] = {&h0, &h1, &h2, &h3};
    // Step i rotates word (i+2)%4, adds word (i+3)%4 to it, and xors it into word i%4.
    for (int i = 0; i < 12; ++i) {
        std::uint64_t& a = *h[(i + 2) % 4];
        a = std::rotl(a, kRot[i]);
        a += *h[(i + 3) % 4];
        *h[i % 4] ^= a;
    }
}

void spookyShortEnd(std::uint64_t& h0, std::uint64_t& h1, std::uint64_t& h2, std::uint64_t& h3) {
    static constexpr int kRot[11] = {15, 52, 26, 51, 28, 9, 47, 54, 32, 25, 63};
    std::uint64_t* h[4] = {&h0, &h1, &h2, &h3};
    // Step i: h[(i+3)%4] ^= h[(i+2)%4]; rotate h[(i+2)%4]; add it to h[(i+3)%4].
    for (int i = 0; i < 11; ++i) {
        std::uint64_t& a = *h[(i + 3) % 4];
        std::uint64_t& b = *h[(i + 2) % 4];
        a ^= b;
        b = std::rotl(b, kRot[i]);
        a += b;
    }
}

Digest spookyShort(const std::byte* p, std::size_t length) {
    std::uint64_t a = 0, b = 0, c = kSpookyConst, d = kSpookyConst;
    std::size_t remainder = length % 32;
    if (length > 15) {
        const std::byte* end = p + (length / 32) * 32;
        for (; p < end; p += 32) {
            c += load64(p);
            d += load64(p + 8);
            spookyShortMix(a, b, c, d);
            a += load64(p + 16);
            b += load64(p + 24);
        }
        if (remainder >= 16) {
            c += load64(p);
            d += load64(p + 8);
            spookyShortMix(a, b, c, d);
            p += 16;
            remainder -= 16;
        }
    }
    // The last 0..15 bytes, little-endian, into c (bytes 0-7) and d (bytes 8-14), plus the length.
    d += static_cast<std::uint64_t>(length) << 56;
    if (remainder == 0) {
        c += kSpookyConst;
        d += kSpookyConst;
    } else if (remainder >= 8) {
        c += load64(p);
        for (std::size_t i = 8; i < remainder; ++i) d += byteAt(p, i) << (8 * (i - 8));
    } else {
        for (std::size_t i = 0; i < remainder; ++i) c += byteAt(p, i) << (8 * i);
    }
    spookyShortEnd(a, b, c, d);
    return Digest{{a, b}};
}

}  // namespace

Digest murmur3(std::span<const std::byte> bytes) {
    const std::byte* p = bytes.data();
    const std::size_t length = bytes.size();
    std::uint64_t h1 = 0, h2 = 0;

    const std::size_t blocks = length / 16;
    for (std::size_t i = 0; i < blocks; ++i, p += 16) {
        h1 ^= murmurK1(load64(p));
        h1 = std::rotl(h1, 27) + h2;
        h1 = h1 * 5 + 0x52dce729;
        h2 ^= murmurK2(load64(p + 8));
        h2 = std::rotl(h2, 31) + h1;
        h2 = h2 * 5 + 0x38495ab5;
    }

    const std::size_t tail = length & 15;
    std::uint64_t k1 = 0, k2 = 0;
    for (std::size_t i = 8; i < tail; ++i) k2 |= byteAt(p, i) << (8 * (i - 8));
    for (std::size_t i = 0; i < tail && i < 8; ++i) k1 |= byteAt(p, i) << (8 * i);
    if (tail > 8) h2 ^= murmurK2(k2);
    if (tail > 0) h1 ^= murmurK1(k1);

    h1 ^= length;
    h2 ^= length;
    h1 += h2;
    h2 += h1;
    h1 = murmurFinal(h1);
    h2 = murmurFinal(h2);
    h1 += h2;
    h2 += h1;
    return Digest{{h1, h2}};
}

Digest spooky(std::span<const std::byte> bytes) {
    const std::size_t length = bytes.size();
    if (length < kSpookyShortLimit) return spookyShort(bytes.data(), length);

    SpookyState h;
    for (std::size_t i = 0; i < kSpookyVars; ++i) h[i] = (i % 3 == 2) ? kSpookyConst : 0;

    const std::byte* p = bytes.data();
    const std::size_t whole = length / kSpookyBlock;
    std::uint64_t block[kSpookyVars];
    for (std::size_t i = 0; i < whole; ++i, p += kSpookyBlock) {
        std::memcpy(block, p, kSpookyBlock);
        spookyMix(block, h);
    }
    // The last partial block, zero padded, with its length in the final byte.
    const std::size_t remainder = length - whole * kSpookyBlock;
    std::memset(block, 0, kSpookyBlock);
    std::memcpy(block, p, remainder);
    reinterpret_cast<unsigned char*>(block)[kSpookyBlock - 1] = static_cast<unsigned char>(remainder);
    spookyEnd(block, h);
    return Digest{{h[0], h[1]}};
}

std::vector<std::byte> propertyHashPrefix(const std::string& name, const std::string& metadata, PropertyKind kind,
                                          DataType type, const TimeSampling& sampling) {
    std::vector<std::byte> out;
    const auto append = [&out](const void* data, std::size_t size) {
        const auto* p = static_cast<const std::byte*>(data);
        out.insert(out.end(), p, p + size);
    };
    append(name.data(), name.size());
    append(metadata.data(), metadata.size());
    if (kind == PropertyKind::Compound) return out;
    out.push_back(static_cast<std::byte>(type.pod));
    out.push_back(static_cast<std::byte>(type.extent));
    if (kind == PropertyKind::Scalar) out.push_back(std::byte{0});
    append(&sampling.timePerCycle, 8);
    const auto count = static_cast<std::uint32_t>(sampling.storedTimes.size());
    append(&count, 4);
    append(sampling.storedTimes.data(), sampling.storedTimes.size() * 8);
    return out;
}

Digest spookyFold(const Digest& acc, const Digest& next) {
    std::uint64_t h0 = acc.words[0], h1 = acc.words[1], h2 = next.words[0], h3 = next.words[1];
    spookyShortEnd(h0, h1, h2, h3);
    return Digest{{h0, h1}};
}

}  // namespace tressora::abc
