#include "expression/noise.h"

#include <algorithm>
#include <cmath>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define TRESSORA_NOISE_SSE 1
#endif

#include "core/hash.h"
#include "expression/math_functions.h"

namespace tressora::exprlib {
namespace {

constexpr std::uint64_t kAxisX = 0x9E3779B185EBCA87ull;
constexpr std::uint64_t kAxisY = 0xC2B2AE3D27D4EB4Full;
constexpr std::uint64_t kAxisZ = 0x165667B19E3779F9ull;
constexpr std::uint64_t kAxisW = 0xD6E8FEB86659FD93ull;  // any odd constant, kept fixed

// The twelve edge gradients of improved Perlin noise.
constexpr float kGradients[12][3] = {
    {1, 1, 0}, {-1, 1, 0}, {1, -1, 0}, {-1, -1, 0}, {1, 0, 1}, {-1, 0, 1},
    {1, 0, -1}, {-1, 0, -1}, {0, 1, 1}, {0, -1, 1}, {0, 1, -1}, {0, -1, -1},
};

inline float fade(float f) { return f * f * f * (f * (6.0f * f - 15.0f) + 10.0f); }
inline float lerp(float a, float b, float t) { return a + (b - a) * t; }

inline std::uint64_t finishCorner(std::uint64_t h) {
    h = (h ^ (h >> 29)) * 0xBF58476D1CE4E5B9ull;
    return h ^ (h >> 32);
}

/// The dot product of corner gradient `component` (its 16 bits of h, modulo 12) and (x, y, z).
inline float gradientDot(std::uint64_t h, int component, float x, float y, float z) {
    const float* g = kGradients[static_cast<unsigned>((h >> (16 * component)) & 0xFFFFu) % 12u];
    return g[0] * x + g[1] * y + g[2] * z;
}

inline float finiteOrZero(float x) { return std::isfinite(x) ? x : 0.0f; }

/// The cell and fraction of one coordinate.
struct Axis {
    std::int64_t cell;
    float fraction;
};

constexpr float kLatticeLimit = 4.611686e18f;  // 2^62

inline Axis axisOf(float x) {
    x = finiteOrZero(x);
    const float fl = std::floor(x);
    return {static_cast<std::int64_t>(std::clamp(fl, -kLatticeLimit, kLatticeLimit)), x - fl};
}

#ifdef TRESSORA_NOISE_SSE

/// The dot products of four corners' gradients (indices 0 to 11 in the 32-bit lanes of g)
/// with the corner offsets (x, y, z). Each gradient component is built as the float 1, -1
/// or 0 and multiplied in, so every lane rounds exactly as the one-corner formula does.
inline __m128 gradientDots(__m128i g, __m128 x, __m128 y, __m128 z) {
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 sign = _mm_set1_ps(-0.0f);
    const __m128 below8 = _mm_castsi128_ps(_mm_cmplt_epi32(g, _mm_set1_epi32(8)));
    const __m128 below4 = _mm_castsi128_ps(_mm_cmplt_epi32(g, _mm_set1_epi32(4)));
    const __m128i bit0 = _mm_set1_epi32(1), bit1 = _mm_set1_epi32(2);
    const __m128 odd = _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(g, bit0), bit0));
    const __m128 high = _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(g, bit1), bit1));
    const __m128 signOdd = _mm_or_ps(one, _mm_and_ps(sign, odd));    // -1 for odd indices
    const __m128 signHigh = _mm_or_ps(one, _mm_and_ps(sign, high));  // -1 when bit 1 is set
    // Rows 0-3 are (+-1, +-1, 0), rows 4-7 (+-1, 0, +-1), rows 8-11 (0, +-1, +-1).
    const __m128 gx = _mm_and_ps(below8, signOdd);
    const __m128 gy = _mm_or_ps(_mm_and_ps(below4, signHigh), _mm_andnot_ps(below8, signOdd));
    const __m128 gz = _mm_andnot_ps(below4, signHigh);
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(gx, x), _mm_mul_ps(gy, y)), _mm_mul_ps(gz, z));
}

/// Noise over 8 corner hashes (index bit 0: x + 1, bit 1: y + 1, bit 2: z + 1), blended x
/// first: the eight gradient dots and each blending step run four lanes at a time, with the
/// same operations in the same order as the one-corner-at-a-time form.
inline void blend3(const std::uint64_t* h, float fx, float fy, float fz, int width, float* out) {
    const __m128 f = _mm_set_ps(0.0f, fz, fy, fx);
    const __m128 faded = _mm_mul_ps(
        _mm_mul_ps(_mm_mul_ps(f, f), f),
        _mm_add_ps(_mm_mul_ps(f, _mm_sub_ps(_mm_mul_ps(_mm_set1_ps(6.0f), f), _mm_set1_ps(15.0f))),
                   _mm_set1_ps(10.0f)));
    const __m128 u = _mm_shuffle_ps(faded, faded, _MM_SHUFFLE(0, 0, 0, 0));
    const __m128 v = _mm_shuffle_ps(faded, faded, _MM_SHUFFLE(1, 1, 1, 1));
    const float w = _mm_cvtss_f32(_mm_shuffle_ps(faded, faded, _MM_SHUFFLE(2, 2, 2, 2)));
    const float gx = fx - 1.0f, gy = fy - 1.0f, gz = fz - 1.0f;
    const __m128 x = _mm_set_ps(gx, fx, gx, fx);
    const __m128 y = _mm_set_ps(gy, gy, fy, fy);
    const __m128 z0 = _mm_set1_ps(fz), z1 = _mm_set1_ps(gz);
    for (int k = 0; k < width; ++k) {
        const int shift = 16 * k;
        const auto field = [&](int i) { return static_cast<short>(static_cast<std::uint16_t>(h[i] >> shift)); };
        const __m128i bits = _mm_set_epi16(field(7), field(6), field(5), field(4), field(3), field(2), field(1),
                                           field(0));
        // Modulo 12 in sixteen-bit lanes: (n * 43691) >> 19 is n / 12 rounded down for every n below 2^16.
        const __m128i quotient = _mm_srli_epi16(_mm_mulhi_epu16(bits, _mm_set1_epi16(static_cast<short>(43691))), 3);
        const __m128i index = _mm_sub_epi16(bits, _mm_mullo_epi16(quotient, _mm_set1_epi16(12)));
        const __m128i zero = _mm_setzero_si128();
        const __m128 low = gradientDots(_mm_unpacklo_epi16(index, zero), x, y, z0);   // corners 0-3
        const __m128 high = gradientDots(_mm_unpackhi_epi16(index, zero), x, y, z1);  // corners 4-7
        const __m128 even = _mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 oddCorners = _mm_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1));
        // (x00, x10, x01, x11): blended along x
        const __m128 alongX = _mm_add_ps(even, _mm_mul_ps(_mm_sub_ps(oddCorners, even), u));
        const __m128 y0 = _mm_shuffle_ps(alongX, alongX, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 y1 = _mm_shuffle_ps(alongX, alongX, _MM_SHUFFLE(3, 1, 3, 1));
        const __m128 alongY = _mm_add_ps(y0, _mm_mul_ps(_mm_sub_ps(y1, y0), v));
        const float near = _mm_cvtss_f32(alongY);
        const float far = _mm_cvtss_f32(_mm_shuffle_ps(alongY, alongY, _MM_SHUFFLE(1, 1, 1, 1)));
        out[k] = lerp(near, far, w);
    }
}

#else

/// Noise over 8 corner hashes (index bit 0: x + 1, bit 1: y + 1, bit 2: z + 1), blended x first.
inline void blend3(const std::uint64_t* h, float fx, float fy, float fz, int width, float* out) {
    const float u = fade(fx), v = fade(fy), w = fade(fz);
    const float gx = fx - 1.0f, gy = fy - 1.0f, gz = fz - 1.0f;
    for (int k = 0; k < width; ++k) {
        const float x00 = lerp(gradientDot(h[0], k, fx, fy, fz), gradientDot(h[1], k, gx, fy, fz), u);
        const float x10 = lerp(gradientDot(h[2], k, fx, gy, fz), gradientDot(h[3], k, gx, gy, fz), u);
        const float x01 = lerp(gradientDot(h[4], k, fx, fy, gz), gradientDot(h[5], k, gx, fy, gz), u);
        const float x11 = lerp(gradientDot(h[6], k, fx, gy, gz), gradientDot(h[7], k, gx, gy, gz), u);
        out[k] = lerp(lerp(x00, x10, v), lerp(x01, x11, v), w);
    }
}

#endif

}  // namespace

std::int64_t latticeFloor(float x) {
    if (!std::isfinite(x)) return 0;
    return static_cast<std::int64_t>(std::floor(std::clamp(x, -kLatticeLimit, kLatticeLimit)));
}

namespace {

/// The eight corner hashes of the cell (ix, iy, iz), in blend3's corner order.
inline void cornerHashes(std::int64_t ix, std::int64_t iy, std::int64_t iz, std::uint64_t seed,
                         std::uint64_t* hashes) {
    // (i + 1) * K is i * K + K in wrapping arithmetic, so each axis costs one multiply.
    const std::uint64_t x0 = static_cast<std::uint64_t>(ix) * kAxisX, x1 = x0 + kAxisX;
    const std::uint64_t y0 = static_cast<std::uint64_t>(iy) * kAxisY, y1 = y0 + kAxisY;
    const std::uint64_t z0 = static_cast<std::uint64_t>(iz) * kAxisZ, z1 = z0 + kAxisZ;
    const std::uint64_t s0 = z0 ^ seed, s1 = z1 ^ seed;
    hashes[0] = finishCorner(x0 ^ y0 ^ s0);
    hashes[1] = finishCorner(x1 ^ y0 ^ s0);
    hashes[2] = finishCorner(x0 ^ y1 ^ s0);
    hashes[3] = finishCorner(x1 ^ y1 ^ s0);
    hashes[4] = finishCorner(x0 ^ y0 ^ s1);
    hashes[5] = finishCorner(x1 ^ y0 ^ s1);
    hashes[6] = finishCorner(x0 ^ y1 ^ s1);
    hashes[7] = finishCorner(x1 ^ y1 ^ s1);
}

}  // namespace

void perlinLineTerms(std::int64_t first, std::size_t count, float y, float z, std::uint64_t seed, int width, float* a,
                     float* b) {
    const Axis ay = axisOf(y), az = axisOf(z);
    const float v = fade(ay.fraction), w = fade(az.fraction);
    // The weight and offset of each of the four (y, z) corners around the line.
    const float weight[4] = {(1.0f - v) * (1.0f - w), v * (1.0f - w), (1.0f - v) * w, v * w};
    const float dy[2] = {ay.fraction, ay.fraction - 1.0f}, dz[2] = {az.fraction, az.fraction - 1.0f};
    const std::uint64_t y0 = static_cast<std::uint64_t>(ay.cell) * kAxisY, z0 = static_cast<std::uint64_t>(az.cell) * kAxisZ;
    const std::uint64_t yz[4] = {y0 ^ (z0 ^ seed), (y0 + kAxisY) ^ (z0 ^ seed), y0 ^ ((z0 + kAxisZ) ^ seed),
                                 (y0 + kAxisY) ^ ((z0 + kAxisZ) ^ seed)};
    for (std::size_t n = 0; n < count; ++n) {
        const std::uint64_t x = static_cast<std::uint64_t>(first + static_cast<std::int64_t>(n)) * kAxisX;
        std::uint64_t h[4];
        for (int c = 0; c < 4; ++c) h[c] = finishCorner(x ^ yz[c]);
        for (int k = 0; k < width; ++k) {
            float slope = 0.0f, rest = 0.0f;
            for (int c = 0; c < 4; ++c) {
                const float* g = kGradients[static_cast<unsigned>((h[c] >> (16 * k)) & 0xFFFFu) % 12u];
                slope += weight[c] * g[0];
                rest += weight[c] * (g[1] * dy[c & 1] + g[2] * dz[c >> 1]);
            }
            a[n * static_cast<std::size_t>(width) + static_cast<std::size_t>(k)] = slope;
            b[n * static_cast<std::size_t>(width) + static_cast<std::size_t>(k)] = rest;
        }
    }
}

void perlin3(const float* p, std::uint64_t seed, int width, float* out) {
    std::uint64_t hashes[8];
#ifdef TRESSORA_NOISE_SSE
    // Coordinates below 2^23 in magnitude, the usual case, take their floor from a truncation
    // corrected by one where it rounded up; larger and non-finite ones take the general path.
    const __m128 x = _mm_set_ps(0.0f, p[2], p[1], p[0]);
    const __m128 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0f), x);
    if (_mm_movemask_ps(_mm_cmplt_ps(magnitude, _mm_set1_ps(8388608.0f))) == 0xF) {
        const __m128i truncated = _mm_cvttps_epi32(x);
        const __m128 whole = _mm_cvtepi32_ps(truncated);
        const __m128 roundedUp = _mm_cmpgt_ps(whole, x);
        const __m128i cell = _mm_add_epi32(truncated, _mm_castps_si128(roundedUp));
        const __m128 lower = _mm_sub_ps(whole, _mm_and_ps(roundedUp, _mm_set1_ps(1.0f)));
        // Adding +0 makes the fraction of -0 the +0 that x - floor(x) gives.
        const __m128 fraction = _mm_add_ps(_mm_sub_ps(x, lower), _mm_setzero_ps());
        alignas(16) std::int32_t cells[4];
        alignas(16) float fractions[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(cells), cell);
        _mm_store_ps(fractions, fraction);
        cornerHashes(cells[0], cells[1], cells[2], seed, hashes);
        blend3(hashes, fractions[0], fractions[1], fractions[2], width, out);
        return;
    }
#endif
    const Axis ax = axisOf(p[0]), ay = axisOf(p[1]), az = axisOf(p[2]);
    cornerHashes(ax.cell, ay.cell, az.cell, seed, hashes);
    blend3(hashes, ax.fraction, ay.fraction, az.fraction, width, out);
}

#ifdef TRESSORA_NOISE_SSE
namespace {

/// perlin3 of width 1 at four points whose coordinates are all below 2^23 in magnitude: the
/// lanes are points, and each lane computes what the one-point form computes, in its order.
void perlin3Four(__m128 px, __m128 py, __m128 pz, std::uint64_t seed, float* out) {
    alignas(16) std::int32_t cells[3][4];
    __m128 fraction[3];
    const __m128 axes[3] = {px, py, pz};
    for (int a = 0; a < 3; ++a) {
        const __m128i truncated = _mm_cvttps_epi32(axes[a]);
        const __m128 whole = _mm_cvtepi32_ps(truncated);
        const __m128 roundedUp = _mm_cmpgt_ps(whole, axes[a]);
        _mm_store_si128(reinterpret_cast<__m128i*>(cells[a]), _mm_add_epi32(truncated, _mm_castps_si128(roundedUp)));
        const __m128 lower = _mm_sub_ps(whole, _mm_and_ps(roundedUp, _mm_set1_ps(1.0f)));
        fraction[a] = _mm_add_ps(_mm_sub_ps(axes[a], lower), _mm_setzero_ps());
    }
    std::uint64_t hashes[4][8];
    for (int i = 0; i < 4; ++i) cornerHashes(cells[0][i], cells[1][i], cells[2][i], seed, hashes[i]);

    const __m128 one = _mm_set1_ps(1.0f);
    const auto fadeOf = [](__m128 f) {
        return _mm_mul_ps(_mm_mul_ps(_mm_mul_ps(f, f), f),
                          _mm_add_ps(_mm_mul_ps(f, _mm_sub_ps(_mm_mul_ps(_mm_set1_ps(6.0f), f), _mm_set1_ps(15.0f))),
                                     _mm_set1_ps(10.0f)));
    };
    const auto lerpOf = [](__m128 a, __m128 b, __m128 t) { return _mm_add_ps(a, _mm_mul_ps(_mm_sub_ps(b, a), t)); };
    const __m128 u = fadeOf(fraction[0]), v = fadeOf(fraction[1]), w = fadeOf(fraction[2]);
    const __m128 near[3] = {fraction[0], fraction[1], fraction[2]};
    const __m128 far[3] = {_mm_sub_ps(fraction[0], one), _mm_sub_ps(fraction[1], one), _mm_sub_ps(fraction[2], one)};
    __m128 corner[8];
    for (int c = 0; c < 8; ++c) {
        const auto field = [&](int i) { return static_cast<int>(hashes[i][c] & 0xFFFFu); };
        const __m128i bits = _mm_set_epi32(field(3), field(2), field(1), field(0));
        // Modulo 12 on the low sixteen bits of each lane (the high ones are zero).
        const __m128i quotient = _mm_srli_epi16(_mm_mulhi_epu16(bits, _mm_set1_epi16(static_cast<short>(43691))), 3);
        const __m128i index = _mm_sub_epi16(bits, _mm_mullo_epi16(quotient, _mm_set1_epi16(12)));
        corner[c] = gradientDots(index, (c & 1) ? far[0] : near[0], (c & 2) ? far[1] : near[1],
                                 (c & 4) ? far[2] : near[2]);
    }
    const __m128 x00 = lerpOf(corner[0], corner[1], u), x10 = lerpOf(corner[2], corner[3], u);
    const __m128 x01 = lerpOf(corner[4], corner[5], u), x11 = lerpOf(corner[6], corner[7], u);
    _mm_storeu_ps(out, lerpOf(lerpOf(x00, x10, v), lerpOf(x01, x11, v), w));
}

}  // namespace
#endif

void perlin3Points(const float* x, const float* y, const float* z, std::size_t count, std::uint64_t seed,
                   float* out) {
    std::size_t i = 0;
#ifdef TRESSORA_NOISE_SSE
    const __m128 limit = _mm_set1_ps(8388608.0f), sign = _mm_set1_ps(-0.0f);
    for (; i + 4 <= count; i += 4) {
        const __m128 px = _mm_loadu_ps(x + i), py = _mm_loadu_ps(y + i), pz = _mm_loadu_ps(z + i);
        const __m128 small = _mm_and_ps(_mm_and_ps(_mm_cmplt_ps(_mm_andnot_ps(sign, px), limit),
                                                   _mm_cmplt_ps(_mm_andnot_ps(sign, py), limit)),
                                        _mm_cmplt_ps(_mm_andnot_ps(sign, pz), limit));
        if (_mm_movemask_ps(small) == 0xF) {
            perlin3Four(px, py, pz, seed, out + i);
            continue;
        }
        for (std::size_t k = i; k < i + 4; ++k) {
            const float p[3] = {x[k], y[k], z[k]};
            perlin3(p, seed, 1, out + k);
        }
    }
#endif
    for (; i < count; ++i) {
        const float p[3] = {x[i], y[i], z[i]};
        perlin3(p, seed, 1, out + i);
    }
}

void perlin4(const float* p, float w, std::uint64_t seed, int width, float* out) {
    const Axis ax = axisOf(p[0]), ay = axisOf(p[1]), az = axisOf(p[2]), aw = axisOf(w);
    float slice[2][3];
    for (int cw = 0; cw < 2; ++cw) {
        const std::uint64_t hw = (static_cast<std::uint64_t>(aw.cell) + cw) * kAxisW;
        std::uint64_t hashes[8];
        for (int i = 0; i < 8; ++i) {
            const std::uint64_t h =
                (static_cast<std::uint64_t>(ax.cell) + (i & 1)) * kAxisX ^
                (static_cast<std::uint64_t>(ay.cell) + ((i >> 1) & 1)) * kAxisY ^
                (static_cast<std::uint64_t>(az.cell) + ((i >> 2) & 1)) * kAxisZ ^ hw ^ seed;
            hashes[i] = finishCorner(h);
        }
        blend3(hashes, ax.fraction, ay.fraction, az.fraction, width, slice[cw]);
    }
    const float t = fade(aw.fraction);
    for (int k = 0; k < width; ++k) out[k] = lerp(slice[0][k], slice[1][k], t);
}

void periodicPerlin3(const float* p, const float* period, std::uint64_t seed, int width,
                     float* out) {
    constexpr std::int64_t kLatticeLimit = 10000000;
    Axis axes[3];
    std::int64_t periods[3];
    for (int a = 0; a < 3; ++a) {
        axes[a] = axisOf(p[a]);
        axes[a].cell = std::clamp(axes[a].cell, -kLatticeLimit, kLatticeLimit);
        periods[a] = std::max<std::int64_t>(1, wholeNumber(period[a]));
    }
    const auto wrapped = [&](int a, int c) {
        std::int64_t v = (axes[a].cell + c) % periods[a];
        if (v < 0) v += periods[a];
        return static_cast<std::uint64_t>(v);
    };
    std::uint64_t hashes[8];
    for (int i = 0; i < 8; ++i) {
        const std::uint64_t h = wrapped(0, i & 1) * kAxisX ^ wrapped(1, (i >> 1) & 1) * kAxisY ^
                                wrapped(2, (i >> 2) & 1) * kAxisZ ^ seed;
        hashes[i] = finishCorner(h);
    }
    blend3(hashes, axes[0].fraction, axes[1].fraction, axes[2].fraction, width, out);
}

FractalSettings fractalSettings(float octaves, float lacunarity, float gain) {
    FractalSettings s;
    s.octaves = static_cast<int>(std::clamp<std::int64_t>(wholeNumber(octaves), 1, kMaxOctaves));
    s.lacunarity = lacunarity;
    s.gain = gain;
    return s;
}

namespace {

template <class Octave>
void fractalSum(std::uint64_t seed, int width, const FractalSettings& s, bool absolute,
                Octave&& octave, float* out) {
    float sum[3] = {0, 0, 0};
    float amplitude = 1.0f, frequency = 1.0f, amplitudes = 0.0f;
    for (int i = 0; i < s.octaves; ++i) {
        float v[3];
        octave(frequency, combine(seed, static_cast<std::uint64_t>(i)), v);
        for (int k = 0; k < width; ++k) sum[k] += amplitude * (absolute ? std::fabs(v[k]) : v[k]);
        amplitudes += std::fabs(amplitude);
        frequency *= s.lacunarity;
        amplitude *= s.gain;
    }
    for (int k = 0; k < width; ++k) out[k] = sum[k] / amplitudes;
}

}  // namespace

void fractal3(const float* p, std::uint64_t seed, int width, const FractalSettings& s,
              bool absolute, float* out) {
    fractalSum(seed, width, s, absolute,
               [&](float frequency, std::uint64_t octaveSeed, float* v) {
                   const float q[3] = {p[0] * frequency, p[1] * frequency, p[2] * frequency};
                   perlin3(q, octaveSeed, width, v);
               },
               out);
}

void fractal4(const float* p, float w, std::uint64_t seed, int width, const FractalSettings& s,
              bool absolute, float* out) {
    fractalSum(seed, width, s, absolute,
               [&](float frequency, std::uint64_t octaveSeed, float* v) {
                   const float q[3] = {p[0] * frequency, p[1] * frequency, p[2] * frequency};
                   perlin4(q, w * frequency, octaveSeed, width, v);
               },
               out);
}

std::uint64_t hashLattice(std::int64_t a, std::int64_t b, std::int64_t c, std::uint64_t seed) {
    std::uint64_t h = combine(seed, static_cast<std::uint64_t>(a));
    h = combine(h, static_cast<std::uint64_t>(b));
    return combine(h, static_cast<std::uint64_t>(c));
}

void latticeUnits(std::uint64_t cellHash, float* out) {
    for (int k = 0; k < 3; ++k) out[k] = unitFromBits(combine(cellHash, static_cast<std::uint64_t>(k)));
}

namespace {
std::uint64_t cellHashAt(const float* p) {
    return hashLattice(latticeFloor(p[0]), latticeFloor(p[1]), latticeFloor(p[2]), kCellSeed);
}
}  // namespace

float cellnoise(const float* p) { return unitFromBits(cellHashAt(p)); }

void ccellnoise(const float* p, float* out) { latticeUnits(cellHashAt(p), out); }

}  // namespace tressora::exprlib
