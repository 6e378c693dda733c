#pragma once
// The determinism hash: the one hash of the whole engine. Every per-strand random
// decision, every cache key and every content check derives from these functions,
// so their values must never change between releases or machines.

#include <bit>
#include <cstdint>
#include <string_view>

namespace tressora {

inline constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15ull;

/// The SplitMix64 finaliser. Wraps at 64 bits.
constexpr std::uint64_t mix(std::uint64_t z) noexcept {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

/// One SplitMix64 step from x: the hash of an integer.
constexpr std::uint64_t hash64(std::uint64_t x) noexcept { return mix(x + kGolden); }

/// The top 24 bits of a 64-bit hash as a float in [0, 1).
constexpr float unitFromBits(std::uint64_t h) noexcept {
    return static_cast<float>(h >> 40) * (1.0f / 16777216.0f);
}

/// A uniform float in [0, 1) decided by x alone.
constexpr float unit(std::uint64_t x) noexcept { return unitFromBits(hash64(x)); }

/// Folds x into the running hash h (boost-style fold, then the finaliser).
constexpr std::uint64_t combine(std::uint64_t h, std::uint64_t x) noexcept {
    const std::uint64_t c = (x + (h << 6) + (h >> 2) + kGolden) ^ h;
    return mix(c + kGolden);
}

/// The bit pattern of a float, for hashing by bits rather than by value (0.0 and -0.0 differ).
constexpr std::uint64_t floatBits(float f) noexcept { return std::bit_cast<std::uint32_t>(f); }
constexpr std::uint64_t doubleBits(double d) noexcept { return std::bit_cast<std::uint64_t>(d); }

/// Folds a text into h: its byte length, then each byte.
constexpr std::uint64_t combineText(std::uint64_t h, std::string_view text) noexcept {
    h = combine(h, text.size());
    for (unsigned char c : text) h = combine(h, c);
    return h;
}

/// A SplitMix64 draw stream seeded by hash64(id): draw k (from 1) is
/// mix(hash64(id) + (k + 1) * golden) — the stream's k-th output after its seed step.
class DrawStream {
public:
    explicit constexpr DrawStream(std::uint64_t id) noexcept : state_(hash64(id) + kGolden) {}
    /// The next 64-bit draw.
    constexpr std::uint64_t next() noexcept {
        state_ += kGolden;
        return mix(state_);
    }
    /// The next draw as a float in [0, 1) from its top 24 bits.
    constexpr float nextUnit() noexcept { return unitFromBits(next()); }

private:
    std::uint64_t state_;
};

}  // namespace tressora
