#pragma once
// Gradient noise, fractal sums and cell hashing for the expression library. No
// permutation tables: each lattice corner is hashed from its integer coordinates and
// the seed, so any seed costs nothing and values are the same on every machine.

#include <cstddef>
#include <cstdint>

namespace tressora::exprlib {

inline constexpr std::uint64_t kSnoiseSeed = 28161;  ///< snoise, noise, fbm, turbulence
inline constexpr std::uint64_t kVnoiseSeed = 28162;  ///< vnoise, cnoise, vfbm, vturbulence
inline constexpr std::uint64_t kCellSeed = 28163;    ///< cellnoise and voronoi cells

/// A lattice coordinate from a float: floor(x) as a whole number; NaN and infinities
/// are 0, and values beyond +-2^62 are clamped there.
std::int64_t latticeFloor(float x);

/// Gradient noise with the improved fade at p, roughly -1..1 per component: writes
/// `width` (1 to 3) components to out, each from its own 16 bits of the corner hash.
/// Non-finite coordinates are read as 0.
void perlin3(const float* p, std::uint64_t seed, int width, float* out);
/// perlin3 of width 1 for `count` points given by their coordinates (x[i], y[i], z[i]):
/// out[i] is bit for bit what perlin3 gives for that point. Points are run four at a time.
void perlin3Points(const float* x, const float* y, const float* z, std::size_t count, std::uint64_t seed,
                   float* out);
/// perlin3 along a line parallel to x at a fixed (y, z): the terms of the lattice nodes
/// x = first, first + 1, ..., first + count - 1, `width` components each, so that a point of
/// the line costs a fade and two terms (perlinLineAt) instead of eight corner hashes. a gets
/// each node's slope along x and b the rest, both already blended over y and z. Equal to
/// perlin3 at the same point up to rounding: the blend is summed node by node instead of
/// x first. y and z are taken as they are (finite ones; others read as 0).
void perlinLineTerms(std::int64_t first, std::size_t count, float y, float z, std::uint64_t seed, int width, float* a,
                     float* b);

/// The noise at x from the terms of perlinLineTerms, whose nodes must cover floor(x) and the
/// node after it: out[k] for k below `width`.
inline void perlinLineAt(float x, std::int64_t first, int width, const float* a, const float* b, float* out) {
    const float floorX = static_cast<float>(latticeFloor(x));
    const float fx = x - floorX;
    const std::size_t node = static_cast<std::size_t>(static_cast<std::int64_t>(floorX) - first);
    const float u = fx * fx * fx * (fx * (6.0f * fx - 15.0f) + 10.0f);
    for (int k = 0; k < width; ++k) {
        const std::size_t i = node * static_cast<std::size_t>(width) + static_cast<std::size_t>(k);
        const std::size_t j = i + static_cast<std::size_t>(width);
        const float near = fx * a[i] + b[i], far = (fx - 1.0f) * a[j] + b[j];
        out[k] = near + (far - near) * u;
    }
}

/// As perlin3 with a fourth lattice axis w (sixteen corners, a fourth fade).
void perlin4(const float* p, float w, std::uint64_t seed, int width, float* out);
/// As perlin3 with corner coordinates wrapped by a period per axis (its whole number,
/// at least 1), so the noise repeats every period cells; lattice coordinates are
/// clamped to -1e7..1e7 first.
void periodicPerlin3(const float* p, const float* period, std::uint64_t seed, int width,
                     float* out);

/// The fractal settings of fbm and turbulence: octaves a whole number 1..32.
struct FractalSettings {
    int octaves = 6;
    float lacunarity = 2.0f;
    float gain = 0.5f;
};
inline constexpr int kMaxOctaves = 32;
FractalSettings fractalSettings(float octaves, float lacunarity, float gain);

/// The fractal sum of perlin3 octaves (seed_i = combine(seed, i)) divided by the sum of the
/// amplitudes' magnitudes; with `absolute` each octave's magnitude is summed (turbulence).
void fractal3(const float* p, std::uint64_t seed, int width, const FractalSettings& s,
              bool absolute, float* out);
/// As fractal3 on perlin4; w is scaled by the lacunarity with the point.
void fractal4(const float* p, float w, std::uint64_t seed, int width, const FractalSettings& s,
              bool absolute, float* out);

/// The hash of a lattice cell: combine(seed, a), then b, then c.
std::uint64_t hashLattice(std::int64_t a, std::int64_t b, std::int64_t c, std::uint64_t seed);
/// Three numbers in [0, 1) from a cell's hash (the components of ccellnoise).
void latticeUnits(std::uint64_t cellHash, float* out);
/// One number in [0, 1) per unit cell.
float cellnoise(const float* p);
/// One vector of [0, 1) numbers per unit cell.
void ccellnoise(const float* p, float* out);

}  // namespace tressora::exprlib
