#pragma once
// Distance along a mesh: the graph of its edges, and fronts that spread outward from a
// point on the surface over that graph, answering how far another surface point lies when
// walking on the skin rather than through the air (across an ear, a fold, a thin shell).

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/shared_cache.h"
#include "core/vec.h"

namespace tressora {

/// The mesh's points joined by its triangles' edges, each weighted by its length.
class SurfaceGraph {
public:
    explicit SurfaceGraph(const ScalpMesh& mesh);

    std::size_t pointCount() const { return points_.size(); }
    std::span<const Vec3f> points() const { return points_; }
    std::span<const ScalpMesh::Triangle> triangles() const { return triangles_; }
    /// The neighbours of point p and the lengths of the edges to them.
    std::span<const std::uint32_t> neighbours(std::size_t p) const {
        return {neighbour_.data() + start_[p], start_[p + 1] - start_[p]};
    }
    std::span<const float> edgeLengths(std::size_t p) const {
        return {length_.data() + start_[p], start_[p + 1] - start_[p]};
    }
    std::size_t byteSize() const;

private:
    std::vector<Vec3f> points_;
    std::vector<ScalpMesh::Triangle> triangles_;
    std::vector<std::uint32_t> start_;
    std::vector<std::uint32_t> neighbour_;
    std::vector<float> length_;
};

/// The graph of a mesh, built on first request and kept in a process-wide cache ("surface
/// graphs") by the mesh's content. Thread-safe.
std::shared_ptr<const SurfaceGraph> sharedSurfaceGraph(const std::shared_ptr<const ScalpMesh>& mesh);
CacheStats surfaceGraphCacheStats();

/// Distances along the surface from one source point, out to a limit.
class SurfaceFront {
public:
    /// Spreads from `source` (a point on triangle source.face) over the graph to every point
    /// within `maxDistance` along the edges. A source off the mesh reaches nothing.
    SurfaceFront(const SurfaceGraph& graph, StrandRoot source, float maxDistance);

    /// The surface distance to the point at `position` on triangle target.face: through the
    /// nearest reached corner of that triangle, never below the straight distance (straight
    /// across a triangle sharing a corner with the source's); nothing when no corner was
    /// reached. Read-only: any thread.
    std::optional<float> distanceTo(StrandRoot target, Vec3f position) const;

private:
    const SurfaceGraph* graph_;
    StrandRoot source_;
    Vec3f sourcePosition_;
    std::vector<std::pair<std::uint32_t, float>> reached_;  ///< point, distance; by point
};

/// One front per source, made in parallel (grain 16).
class SurfaceFronts {
public:
    SurfaceFronts(std::shared_ptr<const SurfaceGraph> graph, std::span<const StrandRoot> sources,
                  std::span<const float> maxDistances);
    std::size_t size() const { return fronts_.size(); }
    const SurfaceFront& operator[](std::size_t i) const { return fronts_[i]; }

private:
    std::shared_ptr<const SurfaceGraph> graph_;
    std::vector<SurfaceFront> fronts_;
};

}  // namespace tressora
