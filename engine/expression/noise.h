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
