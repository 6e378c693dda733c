#pragma once
// Catmull-Clark refinement of a polygon mesh, planned once per topology: for each level a
// table of stencils (each refined vertex as weights of the level's vertices), so refining a
// new pose costs only the weighted sums. Boundary edges and corners follow the crease rules
// (boundary curves are cubic B-splines; corners, the points of a single face, stay);
// non-manifold edges are treated like boundaries. UVs and colours are refined per corner,
// linearly in each face.

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/shared_cache.h"
#include "core/vec.h"

namespace tressora {

class SubdivisionPlan {
public:
    /// The plan for `levels` levels (1 to 3) of the mesh's polygons (its polygon table, or
    /// each triangle a polygon of its own), cached under "subdivision plans". Throws
    /// std::invalid_argument "SubdivisionPlan: levels must be 1 to 3".
    static std::shared_ptr<const SubdivisionPlan> of(const ScalpMesh& mesh, int levels);

    /// Builds a plan without the cache. Same failure as of().
    SubdivisionPlan(const ScalpMesh& mesh, int levels);

    int levels() const { return levels_; }
    std::size_t cageVertexCount() const { return cageVertices_; }
    std::size_t refinedVertexCount() const;
    /// The refined faces as triangles, two per quad, quads in the order of their cage faces.
    const std::vector<MeshTriangle>& refinedTriangles() const { return triangles_; }

    /// Refined points from new cage points. Throws std::invalid_argument
    /// "SubdivisionPlan: the points are not the cage's" when the count differs.
    /// Parallel inside; the result does not depend on the thread count.
    std::vector<Vec3f> apply(std::span<const Vec3f> cagePoints) const;

    /// Refined per-vertex values of `components` floats each. Throws
    /// std::invalid_argument "SubdivisionPlan: the values are not the cage's vertices'".
    std::vector<float> applyValues(std::span<const float> values, int components) const;

    /// The refined mesh of a cage of this plan's topology: points, rest points, UVs, colour
    /// sets, polygons (two triangles per quad) and name. Throws std::invalid_argument
    /// "SubdivisionPlan: not this plan's cage" for another topology.
    ScalpMesh refine(const ScalpMesh& cage) const;

    std::size_t byteSize() const;

private:
    /// Each refined vertex of one level as weights of the level's input vertices.
    struct Stencils {
        std::vector<std::uint32_t> offsets;  ///< one more than the refined vertex count
        std::vector<std::uint32_t> sources;
        std::vector<float> weights;
    };

    template <class T>
    std::vector<T> refineCorners(std::span<const T> triangleCorners) const;

    int levels_ = 0;
    std::size_t cageVertices_ = 0;
    std::size_t cageTriangles_ = 0;
    std::uint64_t cageTopology_ = 0;
    std::uint64_t cagePolygons_ = 0;
    std::vector<Stencils> stencils_;
    /// The cage faces as loops: the corner count of each, and for every loop corner the
    /// triangle corner (3 * face + k) whose UV and colour it takes.
    std::vector<std::uint32_t> loopSizes_;
    std::vector<std::uint32_t> loopCorners_;
    std::vector<MeshTriangle> triangles_;
};

/// The statistics of the subdivision-plan cache.
CacheStats subdivisionPlanCacheStats();

}  // namespace tressora
