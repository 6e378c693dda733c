#pragma once
// The triangle mesh that hair grows on. Everything a hair operator asks of the surface goes
// through it: closest point, ray hit, interpolating a UV, colour or normal at a root.
// A mesh is filled by one owner through the setters, then published as
// shared_ptr<const ScalpMesh>; from then on only its lazily built spatial tree changes.

#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/mesh_tree.h"
#include "core/vec.h"

namespace tressora {

/// A consecutive run of the mesh's triangles and points that is a scalp of its own (a mesh
/// assembled from several named scalps).
struct ScalpPiece {
    std::string name;
    std::uint64_t firstTriangle = 0;
    std::uint64_t triangleCount = 0;
    std::uint64_t firstPoint = 0;
    std::uint64_t pointCount = 0;
    /// Which of the groom's scalps the piece came from (0: the main one).
    std::int32_t sourceIndex = 0;
    /// The UDIM tile the piece's UVs are painted in, when it has one of its own.
    std::optional<std::uint32_t> uvTile;

    bool operator==(const ScalpPiece&) const = default;
};

/// A query's answer: the face (-1 when nothing was found), barycentric weights of corners 1
/// and 2 (corner 0 weighs 1 minus their sum), the point and the interpolated unit normal.
struct SurfacePoint {
    std::int32_t face = -1;
    float b1 = 0.0f;
    float b2 = 0.0f;
    Vec3f position;
    Vec3f normal;
};

/// A ray hit: the surface point and the parameter t along the (unnormalised) direction.
struct RayHit {
    SurfacePoint point;
    float t = 0.0f;
};

class ScalpMesh {
public:
    using Triangle = MeshTriangle;
    using Uv = std::array<float, 2>;
    using Color = std::array<float, 4>;
    using BvhTree = tressora::BvhTree;

    /// The spatial tree, built on first use under a one-time initialisation so concurrent
    /// first queries wait for one build. A tree made for a mesh of the same topology
    /// (kept by withPoints) is refitted instead of rebuilt.
    class LazyBvh {
    public:
        LazyBvh(std::shared_ptr<const std::vector<Vec3f>> points,
                std::shared_ptr<const std::vector<Triangle>> triangles, std::shared_ptr<LazyBvh> shape);
        /// The tree, built or refitted on the first call. Thread-safe.
        const BvhTree& tree();
        /// The largest absolute coordinate of any point (the largest float if not finite).
        float maxAbsCoordinate();
        bool built() const { return built_.load(std::memory_order_acquire); }

    private:
        void ensure();

        std::once_flag once_;
        std::shared_ptr<const BvhTree> tree_;
        std::atomic<bool> built_{false};
        float maxAbsCoordinate_ = 0.0f;
        // Held only until the build: what to build from, and the tree to refit.
        std::shared_ptr<const std::vector<Vec3f>> points_;
        std::shared_ptr<const std::vector<Triangle>> triangles_;
        std::shared_ptr<LazyBvh> shape_;
    };

    /// An empty mesh: no points, no triangles, area 0.
    ScalpMesh();
    /// A mesh of these points and triangles with normals, areas and hashes derived.
    /// Throws std::out_of_range "ScalpMesh: triangle index out of range" for an index below 0
    /// or at or past the point count.
    ScalpMesh(std::vector<Vec3f> points, std::vector<Triangle> triangles);

    // ---- setters (one owner, before publication); a failed setter changes nothing ----

    /// Per-corner UVs: empty, or three per triangle in triangle order.
    void setUvs(std::vector<Uv> uvs);
    /// Adds or replaces the colour set `name`: four floats per triangle corner.
    void setColorSet(const std::string& name, std::vector<Color> colors);
    /// The triangle count of each source polygon, in order; empty for a mesh made as triangles.
    void setPolygons(std::vector<std::int32_t> counts);
    /// Consecutive pieces covering the whole mesh; empty removes them.
    void setPieces(std::vector<ScalpPiece> pieces);
    /// The pose at which hair is defined, one point per mesh point; empty clears rest data.
    void setRestPoints(std::vector<Vec3f> points);
    void setName(std::string name) { name_ = std::move(name); }

    /// A new mesh with the same topology, UVs, colours, rest data, polygons, pieces and name
    /// and these points; its tree is refitted from this mesh's tree. Throws
    /// std::invalid_argument when the count differs.
    ScalpMesh withPoints(std::vector<Vec3f> newPoints) const;

    // ---- data ----

    std::span<const Vec3f> points() const { return *points_; }
    std::span<const Triangle> triangles() const { return *triangles_; }
    std::span<const Vec3f> normals() const { return normals_; }
    std::span<const float> triangleAreas() const { return triangleAreas_; }
    float area() const { return area_; }
    std::size_t pointCount() const { return points_->size(); }
    std::size_t triangleCount() const { return triangles_->size(); }

    std::uint64_t contentHash() const { return contentHash_; }
    std::uint64_t topologyHash() const { return topologyHash_; }
    std::uint64_t uvHash() const { return uvHash_; }
    std::uint64_t restHash() const { return restHash_; }
    const std::map<std::string, std::uint64_t>& colorHashes() const { return colorHashes_; }
    std::uint64_t polygonHash() const { return polygonHash_; }
    std::uint64_t piecesHash() const { return piecesHash_; }

    std::span<const Uv> uvs() const { return *uvs_; }
    bool hasUvs() const { return !uvs_->empty(); }
    /// The colour sets by name; null when there is no such set.
    const std::vector<Color>* colorSet(const std::string& name) const;
    std::vector<std::string> colorSetNames() const;

    std::span<const Vec3f> restPoints() const { return *restPoints_; }
    bool hasRest() const { return !restPoints_->empty(); }
    std::span<const float> restAreas() const { return restAreas_; }
    float restArea() const { return restArea_; }

    std::span<const std::int32_t> polygons() const { return *polygons_; }
    const std::string& name() const { return name_; }
    /// The pieces, or an empty span on a mesh with one piece.
    std::span<const ScalpPiece> pieces() const;

    // ---- queries (read-only, any number of threads) ----

    /// The closest point of the surface within maxDistance; face -1 when none lies within.
    SurfacePoint closestPoint(Vec3f position,
                              float maxDistance = std::numeric_limits<float>::infinity()) const;
    /// The closest point to each of many queries: out[i] is exactly closestPoint(queries[i],
    /// maxDistance). The queries run in parallel and in spatial order (see spatialOrder), so
    /// points given in no particular order cost about what neighbouring points cost. Throws
    /// std::invalid_argument when out's size differs from the queries'.
    void closestPoints(std::span<const Vec3f> queries, std::span<SurfacePoint> out,
                       float maxDistance = std::numeric_limits<float>::infinity()) const;
    /// The same with a limit for each query, maxDistances[i] for queries[i].
    void closestPoints(std::span<const Vec3f> queries, std::span<const float> maxDistances,
                       std::span<SurfacePoint> out) const;
    /// The closest point found by trying every triangle in index order (lowest face wins ties).
    SurfacePoint closestPointBrute(Vec3f position) const;
    /// The nearest hit of origin + t * direction for t in [tMin, tMax) on either side of the
    /// surface. False for a mesh with no triangles, a zero direction or a miss.
    bool intersect(Vec3f origin, Vec3f direction, RayHit& hit, float tMin = 0.0f,
                   float tMax = std::numeric_limits<float>::infinity()) const;
    /// The same by trying every triangle in index order.
    bool intersectBrute(Vec3f origin, Vec3f direction, RayHit& hit, float tMin = 0.0f,
                        float tMax = std::numeric_limits<float>::infinity()) const;

    /// Barycentric interpolation at (face, b1, b2); an invalid face gives zero.
    Vec3f positionAt(std::int32_t face, float b1, float b2) const;
    /// The interpolated point normals, normalised.
    Vec3f normalAt(std::int32_t face, float b1, float b2) const;
    /// The interpolated corner UVs; zero without UVs.
    Uv uvAt(std::int32_t face, float b1, float b2) const;
    /// The interpolated corner colours of a set; all zero for an unknown name, a face out of
    /// range or a short array.
    Color colorAt(const std::string& name, std::int32_t face, float b1, float b2) const;
    /// The interpolated rest point; the current position without rest data.
    Vec3f restPositionAt(std::int32_t face, float b1, float b2) const;

    /// The lazily built spatial tree (shared with copies and used as withPoints' template).
    const std::shared_ptr<LazyBvh>& bvh() const { return bvh_; }

private:
    void derive(bool checkTopology);
    SurfacePoint finish(std::int32_t face, float b1, float b2, Vec3f position) const;
    /// a + (b - a) * b1 + (c - a) * b2 over one of the point arrays; zero for a bad face.
    Vec3f interpolate(const std::vector<Vec3f>& points, std::int32_t face, float b1, float b2) const;

    std::shared_ptr<const std::vector<Vec3f>> points_;
    std::shared_ptr<const std::vector<Triangle>> triangles_;
    std::vector<Vec3f> normals_;
    std::vector<float> triangleAreas_;
    float area_ = 0.0f;
    std::uint64_t contentHash_ = 0;
    std::uint64_t topologyHash_ = 0;
    std::uint64_t uvHash_ = 0;
    std::uint64_t restHash_ = 0;
    std::map<std::string, std::uint64_t> colorHashes_;
    std::shared_ptr<const std::vector<Uv>> uvs_;
    std::map<std::string, std::shared_ptr<const std::vector<Color>>> colorSets_;
    std::shared_ptr<const std::vector<Vec3f>> restPoints_;
    std::vector<float> restAreas_;
    float restArea_ = 0.0f;
    std::shared_ptr<const std::vector<std::int32_t>> polygons_;
    std::uint64_t polygonHash_ = 0;
    std::string name_;
    std::shared_ptr<const std::vector<ScalpPiece>> pieces_;
    std::uint64_t piecesHash_ = 0;
    std::shared_ptr<LazyBvh> bvh_;
};

}  // namespace tressora
