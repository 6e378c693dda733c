#pragma once
// The displacement of Noise at one point: a fractal sum of octaves, smooth (gradient noise,
// the primitive of the expression language's noise) or kinky (straight runs between random
// offsets a wavelength apart). A function of the strand's key, its length share or the
// point's position, and the settings only; octaves finer than the strand's point spacing fade
// out, since the points could not draw them. Immutable; any thread.

#include <cstdint>
#include <vector>

#include "core/vec.h"

namespace tressora::look {

struct NoiseSettings {
    bool world = false;      ///< coherent over space (true) or independent per strand
    bool kinky = false;      ///< straight runs between kinks instead of smooth waves
    float frequency = 3.0f;  ///< features per scene unit (world) or per strand length (strand)
    int octaves = 2;         ///< 1 to 8; each doubles the frequency at half the amplitude
    std::int64_t seed = 0;
};

class NoiseDisplacement {
public:
    explicit NoiseDisplacement(const NoiseSettings& settings);

    static constexpr int kMaxOctaves = 8;

    /// What one strand reads the noise with: its key, where in the noise it starts (strand
    /// space) and the weight of each octave.
    struct Strand {
        std::uint64_t key = 0;
        Vec3f origin;
        float weights[kMaxOctaves] = {};
    };

    /// The strand of `key` whose points lie `spacing` apart, in the measure of the frequency
    /// (a length share, or scene units): octaves halve in weight, and those finer than the
    /// spacing fade out.
    Strand strand(std::uint64_t key, float spacing) const;

    /// The noise vector, each component about -1..1, at a point of the strand: `share` is its
    /// length share along the strand (strand space), `position` its rest position (world).
    Vec3f at(const Strand& strand, float share, Vec3f position) const;

    /// Whether the first octave's wavelength is finer than a point spacing.
    bool finerThan(float spacing) const;

    /// Smooth noise in strand space reads each octave along a line through the noise: its
    /// lattice nodes' terms, worked out once per strand, make every point cheap. A worker
    /// keeps one of these and fills it strand after strand.
    struct Lines {
        std::int64_t first[kMaxOctaves] = {};
        std::vector<float> slope[kMaxOctaves], rest[kMaxOctaves];
    };
    /// Whether the settings read along lines (smooth noise in strand space).
    bool readsLines() const { return !settings_.world && !settings_.kinky; }
    /// Fills `lines` for a strand (readsLines only).
    void prepare(const Strand& strand, Lines& lines) const;
    /// The noise vector at a length share of a strand prepared in `lines`; equal to at() up to
    /// rounding.
    Vec3f at(const Strand& strand, const Lines& lines, float share) const;

private:
    float fade(int octave, float spacing) const;
    Vec3f octave(int index, const Strand& strand, float share, Vec3f position) const;

    NoiseSettings settings_;
    std::uint64_t seeds_[kMaxOctaves];
    float norm_;
};

}  // namespace tressora::look
