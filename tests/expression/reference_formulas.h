#pragma once
// Formulas the tests check the engine against, written out from their definitions
// apart from the engine's own code.

#include <cstdint>
#include <cstring>

namespace tressora::testing {

inline std::uint64_t referenceMix64(std::uint64_t v) {
    std::uint64_t z = v + 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

inline std::uint64_t referenceHashCombine(std::uint64_t h, std::uint64_t x) {
    return referenceMix64(((h << 6) + (h >> 2) + 0x9E3779B97F4A7C15ull + x) ^ h);
}

/// The bits of a float as an unsigned 32-bit number.
inline std::uint64_t bitsOf(float f) {
    std::uint32_t u;
    std::memcpy(&u, &f, sizeof u);
    return u;
}

/// One Catmull-Rom segment from p1 (u = 0) to p2 (u = 1).
inline double referenceCatmullRom(double p0, double p1, double p2, double p3, double u) {
    return ((2 * p1) + (-p0 + p2) * u + (2 * p0 - 5 * p1 + 4 * p2 - p3) * u * u +
            (-p0 + 3 * p1 - 3 * p2 + p3) * u * u * u) / 2;
}

}  // namespace tressora::testing
