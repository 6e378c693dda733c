#include "expression/noise.h"

#include <algorithm>
#include <cmath>

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

}  // namespace

std::int64_t latticeFloor(float x) {
    if (!std::isfinite(x)) return 0;
    return static_cast<std::int64_t>(std::floor(std::clamp(x, -kLatticeLimit, kLatticeLimit)));
}

void perlin3(const float* p, std::uint64_t seed, int width, float* out) {
    const Axis ax = axisOf(p[0]), ay = axisOf(p[1]), az = axisOf(p[2]);
    const std::uint64_t x0 = static_cast<std::uint64_t>(ax.cell) * kAxisX, x1 = x0 + kAxisX;
    const std::uint64_t y0 = static_cast<std::uint64_t>(ay.cell) * kAxisY, y1 = y0 + kAxisY;
    const std::uint64_t z0 = static_cast<std::uint64_t>(az.cell) * kAxisZ, z1 = z0 + kAxisZ;
    // (i + 1) * K is i * K + K in wrapping arithmetic, so each axis costs one multiply.
    const std::uint64_t s0 = z0 ^ seed, s1 = z1 ^ seed;
    const std::uint64_t hashes[8] = {
        finishCorner(x0 ^ y0 ^ s0), finishCorner(x1 ^ y0 ^ s0), finishCorner(x0 ^ y1 ^ s0),
        finishCorner(x1 ^ y1 ^ s0), finishCorner(x0 ^ y0 ^ s1), finishCorner(x1 ^ y0 ^ s1),
        finishCorner(x0 ^ y1 ^ s1), finishCorner(x1 ^ y1 ^ s1),
    };
    blend3(hashes, ax.fraction, ay.fraction, az.fraction, width, out);
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
