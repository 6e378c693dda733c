#include "core/distance_field.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <limits>
#include <map>
#include <stdexcept>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/triangle_geometry.h"

namespace tressora {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr std::size_t kDefaultCacheMb = 512;

std::size_t cacheLimitFromEnvironment() {
    const char* text = std::getenv("TRESSORA_FIELD_CACHE_MB");
    if (!text || !*text) return kDefaultCacheMb << 20;
    char* end = nullptr;
    const long long mb = std::strtoll(text, &end, 10);
    if (end == text || *end != '\0' || mb < 0) return kDefaultCacheMb << 20;
    return static_cast<std::size_t>(mb) << 20;
}

SharedCache<MeshDistanceField>& fieldCache() {
    static SharedCache<MeshDistanceField> cache("distance fields", cacheLimitFromEnvironment());
    return cache;
}

/// The angle at corner a of triangle (a, b, c), 0 when an edge has no length.
float cornerAngle(Vec3f a, Vec3f b, Vec3f c) {
    const Vec3f u = normalized(b - a), v = normalized(c - a);
    if (lengthSquared(u) == 0.0f || lengthSquared(v) == 0.0f) return 0.0f;
    return std::acos(std::clamp(dot(u, v), -1.0f, 1.0f));
}

}  // namespace

MeshDistanceField::MeshDistanceField(std::shared_ptr<const ScalpMesh> mesh, float cellSize, float band,
                                     int resolution)
    : mesh_(std::move(mesh)) {
    if (resolution < 2 || resolution > 1024)
        throw std::invalid_argument("MeshDistanceField: resolution must be 2 to 1024");
    if (!(band > 0.0f) || !std::isfinite(band))
        throw std::invalid_argument("MeshDistanceField: band must be above 0");
    if (!mesh_) throw std::invalid_argument("MeshDistanceField: no mesh");

    // Bounds of the points used by triangles.
    Vec3f lo{kInf, kInf, kInf}, hi{-kInf, -kInf, -kInf};
    const auto points = mesh_->points();
    for (const auto& t : mesh_->triangles())
        for (std::int32_t i : t)
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], points[static_cast<std::size_t>(i)][a]);
                hi[a] = std::max(hi[a], points[static_cast<std::size_t>(i)][a]);
            }
    if (mesh_->triangleCount() == 0 || !std::isfinite(lo.x + lo.y + lo.z + hi.x + hi.y + hi.z)) lo = hi = Vec3f{};

    const Vec3f size = hi - lo;
    const float longest = std::max({size.x, size.y, size.z}) + 2.0f * band;
    cell_ = longest / static_cast<float>(resolution);
    if (cellSize > cell_) cell_ = cellSize;
    if (!(cell_ > 0.0f)) cell_ = band;
    band_ = std::max(band, 2.0f * cell_);
    const float pad = band_ + cell_;
    origin_ = lo - Vec3f{pad, pad, pad};
    for (int a = 0; a < 3; ++a)
        dims_[a] = std::max(2, static_cast<int>(std::ceil((size[a] + 2.0f * pad) / cell_)) + 1);

    // Pseudo-normals.
    const auto tris = mesh_->triangles();
    faceNormals_.resize(tris.size());
    edgeNormals_.assign(tris.size() * 3, Vec3f{});
    cornerNormals_.assign(points.size(), Vec3f{});
    std::map<std::pair<std::int32_t, std::int32_t>, Vec3f> edgeSums;
    for (std::size_t f = 0; f < tris.size(); ++f) {
        const auto& t = tris[f];
        const Vec3f p[3] = {points[static_cast<std::size_t>(t[0])], points[static_cast<std::size_t>(t[1])],
                            points[static_cast<std::size_t>(t[2])]};
        const Vec3f n = normalized(cross(p[1] - p[0], p[2] - p[0]));
        faceNormals_[f] = n;
        for (int k = 0; k < 3; ++k) {
            cornerNormals_[static_cast<std::size_t>(t[k])] += n * cornerAngle(p[k], p[(k + 1) % 3], p[(k + 2) % 3]);
            edgeSums[std::minmax(t[k], t[(k + 1) % 3])] += n;
        }
    }
    for (std::size_t f = 0; f < tris.size(); ++f)
        for (int k = 0; k < 3; ++k) edgeNormals_[f * 3 + k] = edgeSums[std::minmax(tris[f][k], tris[f][(k + 1) % 3])];

    fillGrid();
}

float MeshDistanceField::signedFrom(Vec3f p, const SurfacePoint& closest) const {
    const auto& t = mesh_->triangles()[static_cast<std::size_t>(closest.face)];
    const auto points = mesh_->points();
    const TriangleClosest c = closestOnTriangle(p, points[static_cast<std::size_t>(t[0])],
                                                points[static_cast<std::size_t>(t[1])],
                                                points[static_cast<std::size_t>(t[2])]);
    const std::size_t f = static_cast<std::size_t>(closest.face);
    Vec3f pseudo;
    switch (c.feature) {
        case TriangleFeature::Face: pseudo = faceNormals_[f]; break;
        case TriangleFeature::Corner0: pseudo = cornerNormals_[static_cast<std::size_t>(t[0])]; break;
        case TriangleFeature::Corner1: pseudo = cornerNormals_[static_cast<std::size_t>(t[1])]; break;
        case TriangleFeature::Corner2: pseudo = cornerNormals_[static_cast<std::size_t>(t[2])]; break;
        case TriangleFeature::Edge01: pseudo = edgeNormals_[f * 3]; break;
        case TriangleFeature::Edge12: pseudo = edgeNormals_[f * 3 + 1]; break;
        case TriangleFeature::Edge02: pseudo = edgeNormals_[f * 3 + 2]; break;
    }
    const float d = std::sqrt(c.distanceSquared);
    return dot(p - c.point, pseudo) < 0.0f ? -d : d;
}

void MeshDistanceField::fillGrid() {
    const std::size_t nx = static_cast<std::size_t>(dims_[0]);
    const std::size_t rows = static_cast<std::size_t>(dims_[1]) * static_cast<std::size_t>(dims_[2]);
    values_.assign(rows * nx, band_);
    std::vector<std::uint8_t> known(values_.size(), 0);
    if (mesh_->triangleCount() == 0) return;
    parallelRange(0, rows, 4, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t row = lo; row < hi; ++row) {
            const float y = origin_.y + cell_ * static_cast<float>(row % static_cast<std::size_t>(dims_[1]));
            const float z = origin_.z + cell_ * static_cast<float>(row / static_cast<std::size_t>(dims_[1]));
            for (std::size_t x = 0; x < nx; ++x) {
                const Vec3f p{origin_.x + cell_ * static_cast<float>(x), y, z};
                const SurfacePoint c = mesh_->closestPoint(p, band_);
                if (c.face < 0) continue;
                values_[row * nx + x] = signedFrom(p, c);
                known[row * nx + x] = 1;
            }
        }
    });
    fillFarSigns(known);
}

void MeshDistanceField::fillFarSigns(std::vector<std::uint8_t>& known) {
    // Each connected region of grid points beyond the band takes the sign most of the band
    // points bordering it have: regions inside a closed mesh are negative, the rest positive.
    const int nx = dims_[0], ny = dims_[1], nz = dims_[2];
    std::vector<std::uint8_t> visited(values_.size(), 0);
    std::vector<std::size_t> members;
    std::deque<std::size_t> queue;
    for (std::size_t seed = 0; seed < values_.size(); ++seed) {
        if (known[seed] || visited[seed]) continue;
        members.clear();
        int votes = 0;
        visited[seed] = 1;
        queue.push_back(seed);
        while (!queue.empty()) {
            const std::size_t i = queue.front();
            queue.pop_front();
            members.push_back(i);
            const int x = static_cast<int>(i % static_cast<std::size_t>(nx));
            const int y = static_cast<int>((i / static_cast<std::size_t>(nx)) % static_cast<std::size_t>(ny));
            const int z = static_cast<int>(i / (static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny)));
            const int step[6][3] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}};
            for (const auto& s : step) {
                const int ax = x + s[0], ay = y + s[1], az = z + s[2];
                if (ax < 0 || ay < 0 || az < 0 || ax >= nx || ay >= ny || az >= nz) continue;
                const std::size_t j = (static_cast<std::size_t>(az) * ny + ay) * nx + ax;
                if (known[j]) {
                    votes += values_[j] < 0.0f ? -1 : 1;
                } else if (!visited[j]) {
                    visited[j] = 1;
                    queue.push_back(j);
                }
            }
        }
        const float value = votes < 0 ? -band_ : band_;
        for (std::size_t i : members) values_[i] = value;
    }
}

float MeshDistanceField::sample(Vec3f p, Vec3f* gradient) const {
    float g[3];
    int cellIndex[3];
    bool inside = true;
    for (int a = 0; a < 3; ++a) {
        g[a] = (p[a] - origin_[a]) / cell_;
        if (!(g[a] >= 0.0f && g[a] <= static_cast<float>(dims_[a] - 1))) inside = false;
    }
    if (!inside) {
        // Beyond the grid: direct from the mesh, with a central-difference gradient.
        auto direct = [&](Vec3f q) {
            const SurfacePoint c = mesh_->closestPoint(q, band_);
            return c.face < 0 ? band_ : signedFrom(q, c);
        };
        const float d = direct(p);
        if (gradient) {
            const float h = cell_ * 0.5f;
            for (int a = 0; a < 3; ++a) {
                Vec3f plus = p, minus = p;
                plus[a] += h;
                minus[a] -= h;
                (*gradient)[a] = (direct(plus) - direct(minus)) / (2.0f * h);
            }
        }
        return d;
    }
    float f[3];
    for (int a = 0; a < 3; ++a) {
        cellIndex[a] = std::min(static_cast<int>(g[a]), dims_[a] - 2);
        f[a] = g[a] - static_cast<float>(cellIndex[a]);
    }
    const int x = cellIndex[0], y = cellIndex[1], z = cellIndex[2];
    const float c000 = at(x, y, z), c100 = at(x + 1, y, z), c010 = at(x, y + 1, z), c110 = at(x + 1, y + 1, z);
    const float c001 = at(x, y, z + 1), c101 = at(x + 1, y, z + 1), c011 = at(x, y + 1, z + 1),
                c111 = at(x + 1, y + 1, z + 1);
    auto lerp = [](float a, float b, float t) { return a + (b - a) * t; };
    const float c00 = lerp(c000, c100, f[0]), c10 = lerp(c010, c110, f[0]);
    const float c01 = lerp(c001, c101, f[0]), c11 = lerp(c011, c111, f[0]);
    const float c0 = lerp(c00, c10, f[1]), c1 = lerp(c01, c11, f[1]);
    if (gradient) {
        const float dx0 = lerp(c100 - c000, c110 - c010, f[1]), dx1 = lerp(c101 - c001, c111 - c011, f[1]);
        const float dy0 = lerp(c010 - c000, c110 - c100, f[0]), dy1 = lerp(c011 - c001, c111 - c101, f[0]);
        *gradient = Vec3f{lerp(dx0, dx1, f[2]), lerp(dy0, dy1, f[2]), c1 - c0} / cell_;
    }
    return lerp(c0, c1, f[2]);
}

float MeshDistanceField::exactDistance(Vec3f p) const {
    const SurfacePoint c = mesh_->closestPoint(p);
    return c.face < 0 ? kInf : signedFrom(p, c);
}

std::size_t MeshDistanceField::byteSize() const {
    return sizeof(*this) + values_.capacity() * sizeof(float) +
           (faceNormals_.capacity() + edgeNormals_.capacity() + cornerNormals_.capacity()) * sizeof(Vec3f);
}

std::shared_ptr<const MeshDistanceField> sharedDistanceField(std::shared_ptr<const ScalpMesh> mesh,
                                                             float cellSize, float band, int resolution) {
    if (!mesh) throw std::invalid_argument("MeshDistanceField: no mesh");
    std::uint64_t key = combine(mesh->contentHash(), floatBits(cellSize));
    key = combine(key, floatBits(band));
    key = combine(key, static_cast<std::uint64_t>(static_cast<std::int64_t>(resolution)));
    return fieldCache().getOrMake(
        key, [&] { return std::make_shared<const MeshDistanceField>(mesh, cellSize, band, resolution); },
        [](const MeshDistanceField& f) { return f.byteSize(); });
}

CacheStats distanceFieldCacheStats() { return fieldCache().stats(); }

void resetDistanceFieldCache() {
    fieldCache().clear();
    fieldCache().setLimit(cacheLimitFromEnvironment());
}

}  // namespace tressora
