#pragma once
// Cellular (Worley) noise for the expression library: one feature point per unit
// cell, placed by the cell's hash, searched over the 27 cells around the point.

#include <cstdint>

#include "expression/noise.h"

namespace tressora::exprlib {

/// The settings shared by voronoi, cvoronoi and pvoronoi. jitter is clamped to 0..1 (NaN 0);
/// with fbmScale not 0 the point is first displaced by fbmScale times vfbm(p, fbm).
struct VoronoiSettings {
    float jitter = 0.5f;
    float fbmScale = 0.0f;
    FractalSettings fbm{4, 2.0f, 0.5f};
};

/// What the search finds: the nearest and second nearest distances, the nearest feature
/// point and its cell's hash.
struct VoronoiHit {
    float f1 = 0.0f;
    float f2 = 0.0f;
    float nearest[3] = {0, 0, 0};
    std::uint64_t cellHash = 0;
};

/// Searches the 27 cells around floor(p) (after the displacement).
VoronoiHit voronoiSearch(const float* p, const VoronoiSettings& s);

/// The edge mask of type 5: 1 on a cell border, falling smoothly to 0 where the second
/// nearest point is kVoronoiEdgeWidth farther than the nearest.
inline constexpr float kVoronoiEdgeWidth = 0.1f;

/// voronoi by type, a whole number clamped to 1..5: 1 the nearest cell's value (0 to 1),
/// 2 F1, 3 F2, 4 F2 - F1, 5 the edge mask.
float voronoi(const float* p, float type, const VoronoiSettings& s);
/// The nearest cell's colour (three numbers 0 to 1) for type 1; for types 2 to 5 that
/// colour scaled by voronoi's value of the type.
void cvoronoi(const float* p, float type, const VoronoiSettings& s, float* out);
/// The nearest feature point.
void pvoronoi(const float* p, const VoronoiSettings& s, float* out);

}  // namespace tressora::exprlib
