#include "operators/look/noise_displacement.h"

#include <algorithm>
#include <cmath>

#include "core/hash.h"
#include "expression/noise.h"

namespace tressora::look {
namespace {

// Each strand reads the noise far from the others: its key picks an offset this large.
constexpr float kStrandSpread = 256.0f;

float signedUnit(std::uint64_t h) { return 2.0f * unitFromBits(h) - 1.0f; }

/// Three signed numbers of one lattice corner.
Vec3f corner(std::uint64_t h) {
    return {signedUnit(combine(h, 1)), signedUnit(combine(h, 2)), signedUnit(combine(h, 3))};
}

}  // namespace

NoiseDisplacement::NoiseDisplacement(const NoiseSettings& settings)
    : settings_(settings) {
    settings_.octaves = std::clamp(settings_.octaves, 1, kMaxOctaves);
    const std::uint64_t seed = combine(exprlib::kSnoiseSeed, static_cast<std::uint64_t>(settings.seed));
    for (int j = 0; j < kMaxOctaves; ++j) seeds_[j] = combine(seed, static_cast<std::uint64_t>(j));
    float sum = 0.0f;
    for (int j = 0; j < settings_.octaves; ++j) sum += std::ldexp(1.0f, -j);
    norm_ = 1.0f / sum;
}

bool NoiseDisplacement::finerThan(float spacing) const {
    const float frequency = std::fabs(settings_.frequency);
    return frequency > 0.0f && spacing > 0.0f && 1.0f / frequency < spacing;
}

float NoiseDisplacement::fade(int octave, float spacing) const {
    const float frequency = std::fabs(settings_.frequency) * std::ldexp(1.0f, octave);
    if (frequency <= 0.0f || spacing <= 0.0f) return 1.0f;
    // Full strength down to one wavelength per segment, gone at two per segment.
    return std::clamp(2.0f / (frequency * spacing) - 1.0f, 0.0f, 1.0f);
}

Vec3f NoiseDisplacement::octave(int index, const Strand& strand, float share, Vec3f position) const {
    const float scale = settings_.frequency * std::ldexp(1.0f, index);
    const std::uint64_t seed = seeds_[index];
    if (!settings_.world) {
        if (settings_.kinky) {
            // Random offsets at every wavelength along the strand, straight lines between.
            const float x = share * scale;
            const std::int64_t k = exprlib::latticeFloor(x);
            const float f = x - static_cast<float>(k);
            const std::uint64_t strandSeed = combine(seed, strand.key);
            const Vec3f a = corner(combine(strandSeed, static_cast<std::uint64_t>(k)));
            const Vec3f b = corner(combine(strandSeed, static_cast<std::uint64_t>(k + 1)));
            return a + (b - a) * f;
        }
        const float p[3] = {share * scale + strand.origin.x, strand.origin.y, strand.origin.z};
        Vec3f out;
        exprlib::perlin3(p, seed, 3, &out.x);
        return out;
    }
    const float p[3] = {position.x * scale, position.y * scale, position.z * scale};
    if (!settings_.kinky) {
        Vec3f out;
        exprlib::perlin3(p, seed, 3, &out.x);
        return out;
    }
    // Random offsets at the lattice corners, blended linearly: straight runs between kinks.
    const std::int64_t ix = exprlib::latticeFloor(p[0]), iy = exprlib::latticeFloor(p[1]),
                       iz = exprlib::latticeFloor(p[2]);
    const float fx = p[0] - static_cast<float>(ix), fy = p[1] - static_cast<float>(iy),
                fz = p[2] - static_cast<float>(iz);
    Vec3f out;
    for (int c = 0; c < 8; ++c) {
        const int dx = c & 1, dy = (c >> 1) & 1, dz = (c >> 2) & 1;
        const float w = (dx ? fx : 1.0f - fx) * (dy ? fy : 1.0f - fy) * (dz ? fz : 1.0f - fz);
        out += corner(exprlib::hashLattice(ix + dx, iy + dy, iz + dz, seed)) * w;
    }
    return out;
}

NoiseDisplacement::Strand NoiseDisplacement::strand(std::uint64_t key, float spacing) const {
    Strand out;
    out.key = key;
    out.origin = {kStrandSpread * unitFromBits(combine(key, 11)), kStrandSpread * unitFromBits(combine(key, 12)),
                  kStrandSpread * unitFromBits(combine(key, 13))};
    for (int j = 0; j < settings_.octaves; ++j) out.weights[j] = std::ldexp(1.0f, -j) * fade(j, spacing) * norm_;
    return out;
}

void NoiseDisplacement::prepare(const Strand& strand, Lines& lines) const {
    for (int j = 0; j < settings_.octaves; ++j) {
        if (strand.weights[j] <= 0.0f) break;
        const float scale = settings_.frequency * std::ldexp(1.0f, j);
        // The line runs from share 0 to share 1, as octave() places the points.
        const float from = 0.0f * scale + strand.origin.x, to = 1.0f * scale + strand.origin.x;
        const std::int64_t first = exprlib::latticeFloor(std::min(from, to));
        const std::size_t count = static_cast<std::size_t>(exprlib::latticeFloor(std::max(from, to)) - first) + 2;
        lines.first[j] = first;
        lines.slope[j].resize(count * 3);
        lines.rest[j].resize(count * 3);
        exprlib::perlinLineTerms(first, count, strand.origin.y, strand.origin.z, seeds_[j], 3, lines.slope[j].data(),
                                 lines.rest[j].data());
    }
}

Vec3f NoiseDisplacement::at(const Strand& strand, const Lines& lines, float share) const {
    Vec3f sum;
    for (int j = 0; j < settings_.octaves; ++j) {
        if (strand.weights[j] <= 0.0f) break;
        const float scale = settings_.frequency * std::ldexp(1.0f, j);
        Vec3f value;
        exprlib::perlinLineAt(share * scale + strand.origin.x, lines.first[j], 3, lines.slope[j].data(),
                              lines.rest[j].data(), &value.x);
        sum += value * strand.weights[j];
    }
    return sum;
}

Vec3f NoiseDisplacement::at(const Strand& strand, float share, Vec3f position) const {
    Vec3f sum;
    for (int j = 0; j < settings_.octaves; ++j) {
        if (strand.weights[j] <= 0.0f) break;  // finer octaves fade out sooner still
        sum += octave(j, strand, share, position) * strand.weights[j];
    }
    return sum;
}

}  // namespace tressora::look
