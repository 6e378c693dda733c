#pragma once
// Where Scatter's roots come from: candidates with stable ids over the triangles (or one per
// cell of a UV grid), their random spots, and the tests that thin them (a density map, the
// neighbourhood of the guides). Every decision is a function of a root's id, so a root that
// exists at one density, preview share or thread count has the same id and spot at another.

#include <cstdint>
#include <memory>
#include <vector>

#include "core/guide_set.h"
#include "core/point_index.h"
#include "core/scalp_mesh.h"
#include "core/tube_shape.h"
#include "graph/field_value.h"

namespace tressora {

/// The roots of one set of inputs: ids and random spots, in (face, j) or cell order. Shared
/// by pointer between the node's cache and its evaluations; the relaxed spots are kept
/// beside it, made only when asked for.
struct RootTable {
    std::vector<std::uint64_t> ids;
    std::vector<StrandRoot> roots;
};

/// Keeps roots near the guides: within a radius of a guide's root, or, for a guide whose tube
/// has a shape, on the tube's root section laid on the scalp (padded by a share of its
/// half-width). Immutable; any number of threads.
class GuideFilter {
public:
    /// `library` resolves custom tube shapes (unknown names read as round).
    GuideFilter(const GuideSet& guides, float radius, float margin, const TubeShapeLibrary& library);
    /// Whether a root at this world position is kept.
    bool contains(Vec3f position) const;
    /// A hash of the radius, the disc centres and the footprints.
    std::uint64_t stamp() const { return stamp_; }

private:
    struct Footprint {
        Vec3f origin, side, up;
        std::vector<Point2> outline;  ///< the root section, in (side, up) coordinates
        float margin = 0.0f;
        float reach = 0.0f;  ///< the farthest a kept point lies from the origin
    };
    bool onFootprint(const Footprint& footprint, Vec3f position) const;

    float radiusSquared_ = 0.0f;
    PointIndex discs_;
    std::vector<Footprint> footprints_;
    PointIndex footprintOrigins_;
    float footprintReach_ = 0.0f;
    std::uint64_t stamp_ = 0;
};

/// What thins candidates: the density map (null when constant) over its greatest value, and
/// the guide filter (null when none). `scalp` places roots for both tests.
struct RootFilter {
    std::shared_ptr<const FieldValue> density;
    double densityMax = 0.0;
    std::shared_ptr<const GuideFilter> guides;
    const ScalpMesh* scalp = nullptr;

    bool active() const { return (density && densityMax > 0.0) || guides; }
};

/// The density map's value at each root (read through a one-point strand per root, placed on
/// `scalp`). Parallel over roots.
std::vector<float> densityAtRoots(const FieldValue& field, const ScalpMesh& scalp,
                                  const std::vector<std::uint64_t>& ids, const std::vector<StrandRoot>& roots);

/// Whether a root with this id passes the map at the value `density` (of `densityMax`): the
/// same salted draw in every layout.
bool passesDensity(std::uint64_t id, float density, double densityMax);

/// The random spot of a root of that id on a triangle: uniform over the triangle.
StrandRoot randomSpot(std::uint64_t id, std::int32_t face);

/// Candidates over the triangles of `shape` in (face, j) order: each triangle's expected count
/// is its area times `densityMax`; candidates whose unit(id) is not below `generate` are left
/// out when `generate` is below 1. Fills ids and roots. Parallel over triangles.
void makeCandidates(const ScalpMesh& shape, double densityMax, std::int64_t seed, float generate, RootTable& table);

/// One candidate per cell of a rows x columns grid over the UVs of `shape` whose centre
/// (moved by up to `jitter` of the cell) lies on a triangle, in row-major order. The same
/// `generate` rule as makeCandidates. `shape` must have UVs. Parallel over triangles.
void makeGridCandidates(const ScalpMesh& shape, int rows, int columns, float jitter, std::int64_t seed,
                        float generate, RootTable& table);

/// Removes the roots the filter drops, order kept. Parallel over roots.
void thinRoots(const RootFilter& filter, RootTable& table);

/// Whether each of the given roots passes the filter (1) or not (0). Parallel over roots.
std::vector<std::uint8_t> rootsPass(const RootFilter& filter, const std::vector<std::uint64_t>& ids,
                                    const std::vector<StrandRoot>& roots);

}  // namespace tressora
