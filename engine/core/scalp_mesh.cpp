#include "core/scalp_mesh.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <stdexcept>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/prefetch.h"
#include "core/spatial_order.h"
#include "core/triangle_geometry.h"

namespace tressora {
namespace {

constexpr std::uint64_t kUvSeed = 0xC058D8EFD57D2162ull;
constexpr std::uint64_t kRestSeed = 0x29D8D899D59908F9ull;

/// The unnormalised face normal (b - a) x (c - a); its length is twice the area.
Vec3f faceCross(std::span<const Vec3f> p, const MeshTriangle& t) {
    const Vec3f a = p[static_cast<std::size_t>(t[0])];
    return cross(p[static_cast<std::size_t>(t[1])] - a, p[static_cast<std::size_t>(t[2])] - a);
}

/// Half the length of n, or 0 when that is not finite.
float areaOf(Vec3f n) {
    const float a = 0.5f * length(n);
    return std::isfinite(a) ? a : 0.0f;
}

/// Per-triangle areas and their sum, for the current or the rest pose.
float fillAreas(std::span<const Vec3f> points, std::span<const MeshTriangle> triangles,
                std::vector<float>& areas) {
    areas.assign(triangles.size(), 0.0f);
    float total = 0.0f;
    for (std::size_t i = 0; i < triangles.size(); ++i) {
        areas[i] = areaOf(faceCross(points, triangles[i]));
        total += areas[i];
    }
    return total;
}

std::uint64_t hashPoints(std::uint64_t h, std::span<const Vec3f> points) {
    for (const Vec3f& p : points) {
        h = combine(h, floatBits(p.x));
        h = combine(h, floatBits(p.y));
        h = combine(h, floatBits(p.z));
    }
    return h;
}

std::uint64_t hashColorSet(const std::string& name, const std::vector<ScalpMesh::Color>& colors) {
    std::uint64_t h = combineText(0, name);
    for (const auto& c : colors)
        for (float v : c) h = combine(h, floatBits(v));
    return h;
}

std::uint64_t hashPieces(const std::vector<ScalpPiece>& pieces) {
    if (pieces.empty()) return 0;
    std::uint64_t h = hash64(pieces.size() + 0x5CA195ull);
    for (const ScalpPiece& p : pieces) {
        h = combineText(h, p.name);
        h = combine(h, p.firstTriangle);
        h = combine(h, p.triangleCount);
        h = combine(h, p.firstPoint);
        h = combine(h, p.pointCount);
        h = combine(h, static_cast<std::uint64_t>(static_cast<std::int64_t>(p.sourceIndex)));
        if (p.uvTile) h = combine(h, hash64(static_cast<std::uint64_t>(*p.uvTile) + 0x5D1Full));
    }
    return h;
}

template <class T>
std::shared_ptr<const std::vector<T>> emptyArray() {
    static const auto empty = std::make_shared<const std::vector<T>>();
    return empty;
}

}  // namespace

// ---------------------------------------------------------------- LazyBvh

ScalpMesh::LazyBvh::LazyBvh(std::shared_ptr<const std::vector<Vec3f>> points,
                            std::shared_ptr<const std::vector<Triangle>> triangles,
                            std::shared_ptr<LazyBvh> shape)
    : points_(std::move(points)), triangles_(std::move(triangles)), shape_(std::move(shape)) {}

void ScalpMesh::LazyBvh::ensure() {
    std::call_once(once_, [this] {
        if (shape_)
            tree_ = BvhTree::refit(shape_->tree(), *points_, *triangles_);
        else
            tree_ = BvhTree::build(*points_, *triangles_);
        float largest = 0.0f;
        for (const Vec3f& p : *points_)
            largest = std::max({largest, std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)});
        maxAbsCoordinate_ = std::isfinite(largest) ? largest : FLT_MAX;
        // The build's inputs are dropped so a chain of poses does not keep old points alive.
        points_.reset();
        triangles_.reset();
        shape_.reset();
        built_.store(true, std::memory_order_release);
    });
}

const BvhTree& ScalpMesh::LazyBvh::tree() {
    if (!built_.load(std::memory_order_acquire)) ensure();
    return *tree_;
}

float ScalpMesh::LazyBvh::maxAbsCoordinate() {
    if (!built_.load(std::memory_order_acquire)) ensure();
    return maxAbsCoordinate_;
}

// ---------------------------------------------------------------- construction

ScalpMesh::ScalpMesh() : ScalpMesh(std::vector<Vec3f>{}, std::vector<Triangle>{}) {}

ScalpMesh::ScalpMesh(std::vector<Vec3f> points, std::vector<Triangle> triangles)
    : points_(std::make_shared<const std::vector<Vec3f>>(std::move(points))),
      triangles_(std::make_shared<const std::vector<Triangle>>(std::move(triangles))),
      uvs_(emptyArray<Uv>()),
      restPoints_(emptyArray<Vec3f>()),
      polygons_(emptyArray<std::int32_t>()) {
    derive(true);
    bvh_ = std::make_shared<LazyBvh>(points_, triangles_, nullptr);
}

void ScalpMesh::derive(bool checkTopology) {
    const std::vector<Vec3f>& pts = *points_;
    const std::vector<Triangle>& tris = *triangles_;

    std::uint64_t content = hashPoints(hash64(pts.size()), pts);
    if (checkTopology) {
        std::uint64_t topology = hash64(tris.size() + 0x7090ull);
        for (const Triangle& t : tris) {
            for (std::int32_t index : t) {
                if (index < 0 || static_cast<std::size_t>(index) >= pts.size())
                    throw std::out_of_range("ScalpMesh: triangle index out of range");
                topology = combine(topology, static_cast<std::uint64_t>(index));
            }
        }
        topologyHash_ = topology;
    }

    normals_.assign(pts.size(), Vec3f{});
    triangleAreas_.assign(tris.size(), 0.0f);
    area_ = 0.0f;
    for (std::size_t i = 0; i < tris.size(); ++i) {
        const Triangle& t = tris[i];
        for (std::int32_t index : t) content = combine(content, static_cast<std::uint64_t>(index));
        const Vec3f n = faceCross(pts, t);
        const float a = areaOf(n);
        triangleAreas_[i] = a;
        area_ += a;
        if (a > 0.0f)  // zero-area and non-finite faces leave the normals alone
            for (std::int32_t index : t) normals_[static_cast<std::size_t>(index)] += n;
    }
    for (Vec3f& n : normals_) n = normalized(n);
    contentHash_ = content;
}

// ---------------------------------------------------------------- setters

void ScalpMesh::setUvs(std::vector<Uv> uvs) {
    if (!uvs.empty() && uvs.size() != triangles_->size() * 3)
        throw std::invalid_argument("ScalpMesh: expected one UV per triangle corner");
    std::uint64_t h = 0;
    if (!uvs.empty()) {
        h = kUvSeed;
        for (const Uv& uv : uvs) {
            h = combine(h, floatBits(uv[0]));
            h = combine(h, floatBits(uv[1]));
        }
    }
    uvHash_ = h;
    uvs_ = uvs.empty() ? emptyArray<Uv>() : std::make_shared<const std::vector<Uv>>(std::move(uvs));
}

void ScalpMesh::setColorSet(const std::string& name, std::vector<Color> colors) {
    if (colors.size() != triangles_->size() * 3)
        throw std::invalid_argument("ScalpMesh: expected one color per triangle corner");
    colorHashes_[name] = hashColorSet(name, colors);
    colorSets_[name] = std::make_shared<const std::vector<Color>>(std::move(colors));
}

void ScalpMesh::setPolygons(std::vector<std::int32_t> counts) {
    std::int64_t sum = 0;
    for (std::int32_t c : counts) {
        if (c < 0) throw std::invalid_argument("ScalpMesh: a polygon with a negative triangle count");
        sum += c;
    }
    if (!counts.empty() && sum != static_cast<std::int64_t>(triangles_->size()))
        throw std::invalid_argument("ScalpMesh: the polygons' triangles (" + std::to_string(sum) +
                                    ") are not the mesh's (" + std::to_string(triangles_->size()) + ")");
    std::uint64_t h = 0;
    if (!counts.empty()) {
        h = hash64(counts.size() + 0x9017ull);
        for (std::int32_t c : counts) h = combine(h, static_cast<std::uint64_t>(c));
    }
    polygonHash_ = h;
    polygons_ = counts.empty() ? emptyArray<std::int32_t>()
                               : std::make_shared<const std::vector<std::int32_t>>(std::move(counts));
}

void ScalpMesh::setPieces(std::vector<ScalpPiece> pieces) {
    std::uint64_t triangles = 0, points = 0;
    for (const ScalpPiece& p : pieces) {
        if (p.firstTriangle != triangles || p.firstPoint != points)
            throw std::invalid_argument("ScalpMesh: the scalp '" + p.name + "' does not follow the one before it");
        triangles += p.triangleCount;
        points += p.pointCount;
    }
    if (!pieces.empty() && (triangles != triangles_->size() || points != points_->size()))
        throw std::invalid_argument("ScalpMesh: the scalps' triangles and points are not the mesh's");
    piecesHash_ = hashPieces(pieces);
    pieces_ = pieces.empty() ? nullptr : std::make_shared<const std::vector<ScalpPiece>>(std::move(pieces));
}

void ScalpMesh::setRestPoints(std::vector<Vec3f> points) {
    if (points.empty()) {
        restPoints_ = emptyArray<Vec3f>();
        restAreas_.clear();
        restArea_ = 0.0f;
        restHash_ = 0;
        return;
    }
    if (points.size() != points_->size())
        throw std::invalid_argument("ScalpMesh: rest points must match the mesh's point count");
    restHash_ = hashPoints(kRestSeed, points);
    restArea_ = fillAreas(points, *triangles_, restAreas_);
    restPoints_ = std::make_shared<const std::vector<Vec3f>>(std::move(points));
}

ScalpMesh ScalpMesh::withPoints(std::vector<Vec3f> newPoints) const {
    if (newPoints.size() != points_->size())
        throw std::invalid_argument("ScalpMesh: new points must match the mesh's point count");
    ScalpMesh mesh(*this);
    mesh.points_ = std::make_shared<const std::vector<Vec3f>>(std::move(newPoints));
    mesh.derive(false);
    mesh.bvh_ = std::make_shared<LazyBvh>(mesh.points_, mesh.triangles_, bvh_);
    return mesh;
}

// ---------------------------------------------------------------- data access

const std::vector<ScalpMesh::Color>* ScalpMesh::colorSet(const std::string& name) const {
    const auto it = colorSets_.find(name);
    return it == colorSets_.end() ? nullptr : it->second.get();
}

std::vector<std::string> ScalpMesh::colorSetNames() const {
    std::vector<std::string> names;
    for (const auto& entry : colorSets_) names.push_back(entry.first);
    return names;
}

std::span<const ScalpPiece> ScalpMesh::pieces() const {
    if (!pieces_) return {};
    return *pieces_;
}

// ---------------------------------------------------------------- queries

SurfacePoint ScalpMesh::finish(std::int32_t face, float b1, float b2, Vec3f position) const {
    SurfacePoint p;
    p.face = face;
    p.b1 = b1;
    p.b2 = b2;
    p.position = position;
    p.normal = normalAt(face, b1, b2);
    return p;
}

SurfacePoint ScalpMesh::closestPoint(Vec3f position, float maxDistance) const {
    if (triangles_->empty()) return {};
    const TreeHit h = closestInTree(bvh_->tree(), position, maxDistance);
    if (h.face < 0) return {};
    return finish(h.face, h.b1, h.b2, h.position);
}

namespace {

/// Runs one(i) for every query index, in spatial order and in parallel; few queries run in
/// their own order on the calling thread, where sorting would cost more than it saves. In
/// spatial order the queries and their answer slots are read and written out of order, so
/// each is fetched a few queries ahead (`ahead(i)`) rather than waited for.
template <class One, class Ahead>
void inSpatialOrder(std::span<const Vec3f> queries, One&& one, Ahead&& ahead) {
    constexpr std::size_t kSortFrom = 2048;
    constexpr std::size_t kAhead = 8;
    if (queries.size() < kSortFrom) {
        for (std::size_t i = 0; i < queries.size(); ++i) one(i);
        return;
    }
    const std::vector<std::uint32_t> order = spatialOrder(queries);
    parallelRange(0, order.size(), 1024, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t k = lo; k < hi; ++k) {
            if (k + kAhead < hi) ahead(order[k + kAhead]);
            one(order[k]);
        }
    });
}

}  // namespace

void ScalpMesh::closestPoints(std::span<const Vec3f> queries, std::span<SurfacePoint> out,
                              float maxDistance) const {
    if (out.size() != queries.size())
        throw std::invalid_argument("ScalpMesh::closestPoints: one answer slot per query is needed");
    inSpatialOrder(
        queries, [&](std::size_t i) { out[i] = closestPoint(queries[i], maxDistance); },
        [&](std::size_t i) {
            prefetchRead(&queries[i]);
            prefetchWrite(&out[i]);
        });
}

void ScalpMesh::closestPoints(std::span<const Vec3f> queries, std::span<const float> maxDistances,
                              std::span<SurfacePoint> out) const {
    if (out.size() != queries.size() || maxDistances.size() != queries.size())
        throw std::invalid_argument("ScalpMesh::closestPoints: one limit and one answer slot per query are needed");
    inSpatialOrder(
        queries, [&](std::size_t i) { out[i] = closestPoint(queries[i], maxDistances[i]); },
        [&](std::size_t i) {
            prefetchRead(&queries[i]);
            prefetchRead(&maxDistances[i]);
            prefetchWrite(&out[i]);
        });
}

SurfacePoint ScalpMesh::closestPointBrute(Vec3f position) const {
    const std::vector<Vec3f>& p = *points_;
    std::int32_t bestFace = -1;
    TriangleClosest best;
    float bestDistance = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < triangles_->size(); ++i) {
        const Triangle& t = (*triangles_)[i];
        const TriangleClosest c = closestOnTriangle(position, p[static_cast<std::size_t>(t[0])],
                                                    p[static_cast<std::size_t>(t[1])],
                                                    p[static_cast<std::size_t>(t[2])]);
        if (c.distanceSquared < bestDistance) {
            bestDistance = c.distanceSquared;
            best = c;
            bestFace = static_cast<std::int32_t>(i);
        }
    }
    if (bestFace < 0) return {};
    return finish(bestFace, best.b1, best.b2, best.point);
}

bool ScalpMesh::intersect(Vec3f origin, Vec3f direction, RayHit& hit, float tMin, float tMax) const {
    if (triangles_->empty() || !(lengthSquared(direction) > 0.0f)) return false;
    LazyBvh& lazy = *bvh_;
    const BvhTree& tree = lazy.tree();
    // The box margin grows with the size of the numbers involved, so that a triangle lying
    // in a box face is never lost to rounding however far from the origin the mesh sits.
    const float scale = std::max({lazy.maxAbsCoordinate(), std::fabs(origin.x), std::fabs(origin.y),
                                  std::fabs(origin.z), 1e-30f});
    const float margin = scale * (8.0f * FLT_EPSILON);
    TreeHit h;
    if (!rayInTree(tree, origin, direction, tMin, tMax, margin, h)) return false;
    hit.point = finish(h.face, h.b1, h.b2, h.position);
    hit.t = h.t;
    return true;
}

bool ScalpMesh::intersectBrute(Vec3f origin, Vec3f direction, RayHit& hit, float tMin, float tMax) const {
    if (triangles_->empty() || !(lengthSquared(direction) > 0.0f)) return false;
    const std::vector<Vec3f>& p = *points_;
    float best = tMax;
    std::int32_t bestFace = -1;
    float bestU = 0.0f, bestV = 0.0f;
    for (std::size_t i = 0; i < triangles_->size(); ++i) {
        const Triangle& tri = (*triangles_)[i];
        float t, u, v;
        if (rayTriangle(origin, direction, p[static_cast<std::size_t>(tri[0])],
                        p[static_cast<std::size_t>(tri[1])], p[static_cast<std::size_t>(tri[2])], t, u, v) &&
            t >= tMin && t < best) {
            best = t;
            bestFace = static_cast<std::int32_t>(i);
            bestU = u;
            bestV = v;
        }
    }
    if (bestFace < 0) return false;
    hit.point = finish(bestFace, bestU, bestV, positionAt(bestFace, bestU, bestV));
    hit.t = best;
    return true;
}

// ---------------------------------------------------------------- interpolation

Vec3f ScalpMesh::interpolate(const std::vector<Vec3f>& p, std::int32_t face, float b1, float b2) const {
    if (face < 0 || static_cast<std::size_t>(face) >= triangles_->size()) return {};
    const Triangle& t = (*triangles_)[static_cast<std::size_t>(face)];
    const Vec3f a = p[static_cast<std::size_t>(t[0])];
    return a + (p[static_cast<std::size_t>(t[1])] - a) * b1 + (p[static_cast<std::size_t>(t[2])] - a) * b2;
}

Vec3f ScalpMesh::positionAt(std::int32_t face, float b1, float b2) const { return interpolate(*points_, face, b1, b2); }

Vec3f ScalpMesh::restPositionAt(std::int32_t face, float b1, float b2) const {
    return interpolate(restPoints_->empty() ? *points_ : *restPoints_, face, b1, b2);
}

Vec3f ScalpMesh::normalAt(std::int32_t face, float b1, float b2) const {
    if (face < 0 || static_cast<std::size_t>(face) >= triangles_->size()) return {};
    const Triangle& t = (*triangles_)[static_cast<std::size_t>(face)];
    const float b0 = 1.0f - b1 - b2;
    return normalized(normals_[static_cast<std::size_t>(t[0])] * b0 +
                      normals_[static_cast<std::size_t>(t[1])] * b1 +
                      normals_[static_cast<std::size_t>(t[2])] * b2);
}

ScalpMesh::Uv ScalpMesh::uvAt(std::int32_t face, float b1, float b2) const {
    const std::vector<Uv>& uv = *uvs_;
    const std::size_t f = static_cast<std::size_t>(face);
    if (face < 0 || f * 3 + 2 >= uv.size()) return {0.0f, 0.0f};
    const float b0 = 1.0f - b1 - b2;
    const Uv& u0 = uv[f * 3];
    const Uv& u1 = uv[f * 3 + 1];
    const Uv& u2 = uv[f * 3 + 2];
    return {u0[0] * b0 + u1[0] * b1 + u2[0] * b2, u0[1] * b0 + u1[1] * b1 + u2[1] * b2};
}

ScalpMesh::Color ScalpMesh::colorAt(const std::string& name, std::int32_t face, float b1, float b2) const {
    const std::vector<Color>* set = colorSet(name);
    const std::size_t f = static_cast<std::size_t>(face);
    if (!set || face < 0 || f >= triangles_->size() || f * 3 + 2 >= set->size()) return {0, 0, 0, 0};
    const float b0 = 1.0f - b1 - b2;
    Color out;
    for (int k = 0; k < 4; ++k)
        out[k] = (*set)[f * 3][k] * b0 + (*set)[f * 3 + 1][k] * b1 + (*set)[f * 3 + 2][k] * b2;
    return out;
}

}  // namespace tressora
