#pragma once
// The displacement of Noise at one point: a fractal sum of octaves, smooth (gradient noise,
// the primitive of the expression language's noise) or kinky (straight runs between random
// offsets a wavelength apart). A function of the strand's key, its length share or the
// point's position, and the settings only; octaves finer than the strand's point spacing fade
// out, since the points could not draw them. Immutable; any thread.

#include <cstdint>

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

    /// The noise vector, each component about -1..1, at a point. `key` is the strand's key
    /// (strand space), `share` the point's length share along it, `position` the point's rest
    /// position (world space). `spacing` is the distance between the strand's points in the
    /// same measure as the frequency (a length share, or scene units).
    Vec3f at(std::uint64_t key, float share, Vec3f position, float spacing) const;

    /// Whether the first octave's wavelength is finer than a point spacing.
    bool finerThan(float spacing) const;

private:
    float fade(int octave, float spacing) const;
    Vec3f octave(int index, std::uint64_t key, float share, Vec3f position) const;

    NoiseSettings settings_;
    std::uint64_t seed_;
    float norm_;
};

}  // namespace tressora::look
