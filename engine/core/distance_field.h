#pragma once
// A signed distance field round a mesh, on a regular grid: positive on the side the normals
// point to (outside a closed mesh), negative behind. Grid points within the band of the
// surface hold exact distances; those farther away hold plus or minus the band, the sign
// carried over from their neighbours. Between grid points the field is trilinear.
// Fields are built once per mesh and parameters and shared through a process-wide cache
// ("distance fields") whose size TRESSORA_FIELD_CACHE_MB limits.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/shared_cache.h"
#include "core/vec.h"

namespace tressora {

class MeshDistanceField {
public:
    /// Builds the field. cellSize is the grid spacing (0 or less: the longest side of the
    /// grid over `resolution`); at most `resolution` cells run along any side, so a small
    /// cellSize on a large mesh is coarsened. band is the distance up to which values are
    /// exact; it is raised to two cells when smaller. Throws std::invalid_argument for a
    /// resolution outside 2 to 1024 or a band not above 0. Builds in parallel.
    MeshDistanceField(std::shared_ptr<const ScalpMesh> mesh, float cellSize, float band, int resolution);

    /// The signed distance at p, clamped to plus or minus the band. Outside the grid it is
    /// computed directly from the mesh. Read-only: any number of threads.
    float distance(Vec3f p) const { return sample(p, nullptr); }
    /// The distance and, when gradient is not null, its gradient (the direction that leads
    /// away from the surface; unnormalised inside the grid).
    float sample(Vec3f p, Vec3f* gradient) const;
    /// The exact signed distance to the mesh, without grid or band (a full closest-point
    /// query). Infinity for a mesh without triangles.
    float exactDistance(Vec3f p) const;

    float band() const { return band_; }
    float cellSize() const { return cell_; }
    Vec3f origin() const { return origin_; }
    std::array<int, 3> vertexCounts() const { return dims_; }
    const ScalpMesh& mesh() const { return *mesh_; }
    /// The memory the field holds, for the cache's accounting.
    std::size_t byteSize() const;

private:
    /// The signed distance of p given its closest point on the mesh.
    float signedFrom(Vec3f p, const SurfacePoint& closest) const;
    void fillGrid();
    void fillFarSigns(std::vector<std::uint8_t>& known);
    float at(int x, int y, int z) const {
        return values_[(static_cast<std::size_t>(z) * dims_[1] + y) * dims_[0] + x];
    }

    std::shared_ptr<const ScalpMesh> mesh_;
    float band_ = 0.0f;
    float cell_ = 1.0f;
    Vec3f origin_;
    std::array<int, 3> dims_{2, 2, 2};
    std::vector<float> values_;
    // Pseudo-normals that decide the side of a closest point lying on a face, an edge
    // (the sum of its faces' normals) or a corner (angle-weighted).
    std::vector<Vec3f> faceNormals_;
    std::vector<Vec3f> edgeNormals_;  ///< three per face: edges 01, 12, 20
    std::vector<Vec3f> cornerNormals_;
};

/// The shared field for this mesh and these parameters, built on first request and cached
/// under "distance fields", within TRESSORA_FIELD_CACHE_MB megabytes (default 512).
std::shared_ptr<const MeshDistanceField> sharedDistanceField(std::shared_ptr<const ScalpMesh> mesh,
                                                             float cellSize, float band, int resolution);

/// The statistics of the distance-field cache.
CacheStats distanceFieldCacheStats();

/// Empties the distance-field cache and reads TRESSORA_FIELD_CACHE_MB again.
void resetDistanceFieldCache();

}  // namespace tressora
