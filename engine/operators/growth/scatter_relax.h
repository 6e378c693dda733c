#pragma once
// Even spreading of Scatter's roots (blue noise) and the blend from the even spots to the
// random ones. Roots push their neighbours apart over the surface, a scalp's open border
// pushes them in, and every step is snapped to a fine lattice so that equal inputs settle
// to the same spots on any number of threads.

#include <cstdint>
#include <vector>

#include "core/scalp_mesh.h"
#include "operators/growth/scatter_roots.h"

namespace tressora {

/// The spacing constant: a root's radius is this over the square root of its density.
inline constexpr double kRelaxSpacing = 1.0746;

/// The relaxed spot of each root of `roots` (same order, same ids). `shape` is the surface
/// the roots lie on; `filter` gives each root's density (its radius) and says whether a
/// projected spot may be taken. Needs filter.densityMax above 0. Parallel over roots.
std::vector<StrandRoot> relaxRoots(const ScalpMesh& shape, const RootFilter& filter,
                                   const std::vector<std::uint64_t>& ids, const std::vector<StrandRoot>& roots);

/// The roots at randomness t (0 to 2): t = 1 the random spots, t = 0 the even ones, between
/// (and past 1) the surface point closest to even + (random - even) * t, looked for near that
/// path. Parallel over roots.
std::vector<StrandRoot> mixRoots(const ScalpMesh& shape, const std::vector<StrandRoot>& random,
                                 const std::vector<StrandRoot>& even, float t);

/// The open border of `shape` as segments, with corners closer than `tolerance` taken as one
/// (so seams of split vertices are no border). Each segment has an inward unit direction
/// along the surface.
struct BorderSegment {
    Vec3f a, b;
    Vec3f inward;
};
std::vector<BorderSegment> openBorder(const ScalpMesh& shape, float tolerance);

}  // namespace tressora
