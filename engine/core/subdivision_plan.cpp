#include "core/subdivision_plan.h"

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>
#include <unordered_map>

#include "core/hash.h"
#include "core/parallel.h"

namespace tressora {
namespace {

constexpr std::size_t kPlanCacheBytes = std::size_t{256} << 20;

SharedCache<SubdivisionPlan>& planCache() {
    static SharedCache<SubdivisionPlan> cache("subdivision plans", kPlanCacheBytes);
    return cache;
}

/// Faces as vertex loops: sizes[f] corners each, their vertices one after another.
struct Loops {
    std::vector<std::uint32_t> sizes;
    std::vector<std::uint32_t> vertices;
};

/// One polygon's outline from its triangles: the directed edges not cancelled by a reverse
/// edge inside the polygon, chained from the first one. False when they do not form one
/// simple loop (the polygon is then kept as separate triangles).
bool polygonLoop(std::span<const MeshTriangle> tris, std::size_t firstTriangle, std::size_t count,
                 std::vector<std::uint32_t>& loop, std::vector<std::uint32_t>& corners) {
    std::map<std::pair<std::int32_t, std::int32_t>, std::uint32_t> edges;  // (from, to) -> corner
    std::vector<std::pair<std::int32_t, std::int32_t>> inOrder;
    for (std::size_t t = firstTriangle; t < firstTriangle + count; ++t)
        for (int k = 0; k < 3; ++k) {
            const auto e = std::make_pair(tris[t][k], tris[t][(k + 1) % 3]);
            if (!edges.emplace(e, static_cast<std::uint32_t>(t * 3 + k)).second) return false;
            inOrder.push_back(e);
        }
    std::map<std::int32_t, std::pair<std::int32_t, std::uint32_t>> next;  // from -> (to, corner)
    std::pair<std::int32_t, std::int32_t> start{-1, -1};
    for (const auto& e : inOrder) {
        if (edges.count({e.second, e.first})) continue;
        if (!next.emplace(e.first, std::make_pair(e.second, edges[e])).second) return false;
        if (start.first < 0) start = e;
    }
    if (start.first < 0) return false;
    loop.clear();
    corners.clear();
    std::int32_t v = start.first;
    do {
        const auto it = next.find(v);
        if (it == next.end() || loop.size() > next.size()) return false;
        loop.push_back(static_cast<std::uint32_t>(v));
        corners.push_back(it->second.second);
        v = it->second.first;
    } while (v != start.first);
    return loop.size() == next.size();
}

/// Sparse weights of one refined vertex, merged by source and sorted.
using Weights = std::vector<std::pair<std::uint32_t, double>>;

void addTo(Weights& w, std::uint32_t source, double weight) { w.emplace_back(source, weight); }

template <std::size_t N>
std::array<float, N> average(std::array<float, N> a, std::array<float, N> b) {
    for (std::size_t i = 0; i < N; ++i) a[i] = (a[i] + b[i]) * 0.5f;
    return a;
}

}  // namespace

SubdivisionPlan::SubdivisionPlan(const ScalpMesh& mesh, int levels) : levels_(levels) {
    if (levels < 1 || levels > 3) throw std::invalid_argument("SubdivisionPlan: levels must be 1 to 3");
    cageVertices_ = mesh.pointCount();
    cageTriangles_ = mesh.triangleCount();
    cageTopology_ = mesh.topologyHash();
    cagePolygons_ = mesh.polygonHash();

    // The cage's faces: each polygon's outline, or its triangles when it has none.
    const auto tris = mesh.triangles();
    Loops loops;
    std::vector<std::uint32_t> loop, corners;
    auto addTriangle = [&](std::size_t t) {
        loops.sizes.push_back(3);
        for (int k = 0; k < 3; ++k) {
            loops.vertices.push_back(static_cast<std::uint32_t>(tris[t][k]));
            loopCorners_.push_back(static_cast<std::uint32_t>(t * 3 + k));
        }
    };
    std::size_t t = 0;
    const auto polygons = mesh.polygons();
    if (polygons.empty()) {
        for (; t < tris.size(); ++t) addTriangle(t);
    } else {
        for (std::int32_t count : polygons) {
            const auto c = static_cast<std::size_t>(count);
            if (c > 1 && polygonLoop(tris, t, c, loop, corners)) {
                loops.sizes.push_back(static_cast<std::uint32_t>(loop.size()));
                loops.vertices.insert(loops.vertices.end(), loop.begin(), loop.end());
                loopCorners_.insert(loopCorners_.end(), corners.begin(), corners.end());
            } else {
                for (std::size_t k = t; k < t + c; ++k) addTriangle(k);
            }
            t += c;
        }
    }
    loopSizes_ = loops.sizes;

    std::size_t vertexCount = cageVertices_;
    for (int level = 0; level < levels; ++level) {
        const std::size_t faceCount = loops.sizes.size();
        std::vector<std::uint32_t> faceStart(faceCount + 1, 0);
        for (std::size_t f = 0; f < faceCount; ++f) faceStart[f + 1] = faceStart[f] + loops.sizes[f];

        // Edges in order of first appearance, with their faces.
        struct Edge {
            std::uint32_t a, b;
            std::vector<std::uint32_t> faces;
        };
        std::vector<Edge> edges;
        std::unordered_map<std::uint64_t, std::uint32_t> edgeIndex;
        std::vector<std::uint32_t> faceEdges(loops.vertices.size());  // edge from corner i to i + 1
        for (std::size_t f = 0; f < faceCount; ++f) {
            const std::uint32_t n = loops.sizes[f];
            for (std::uint32_t i = 0; i < n; ++i) {
                std::uint32_t a = loops.vertices[faceStart[f] + i], b = loops.vertices[faceStart[f] + (i + 1) % n];
                if (a > b) std::swap(a, b);
                const std::uint64_t key = (static_cast<std::uint64_t>(a) << 32) | b;
                auto [it, fresh] = edgeIndex.emplace(key, static_cast<std::uint32_t>(edges.size()));
                if (fresh) edges.push_back({a, b, {}});
                edges[it->second].faces.push_back(static_cast<std::uint32_t>(f));
                faceEdges[faceStart[f] + i] = it->second;
            }
        }
        std::vector<std::vector<std::uint32_t>> vertexEdges(vertexCount), vertexFaces(vertexCount);
        for (std::uint32_t e = 0; e < edges.size(); ++e) {
            vertexEdges[edges[e].a].push_back(e);
            vertexEdges[edges[e].b].push_back(e);
        }
        for (std::size_t f = 0; f < faceCount; ++f)
            for (std::uint32_t i = faceStart[f]; i < faceStart[f + 1]; ++i)
                vertexFaces[loops.vertices[i]].push_back(static_cast<std::uint32_t>(f));

        auto addFacePoint = [&](Weights& w, std::size_t f, double scale) {
            const double each = scale / loops.sizes[f];
            for (std::uint32_t i = faceStart[f]; i < faceStart[f + 1]; ++i) addTo(w, loops.vertices[i], each);
        };

        const std::size_t refined = vertexCount + edges.size() + faceCount;
        std::vector<Weights> rows(refined);
        parallelRange(0, vertexCount, 1024, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t v = lo; v < hi; ++v) {
                Weights& w = rows[v];
                const auto& ve = vertexEdges[v];
                const auto& vf = vertexFaces[v];
                std::vector<std::uint32_t> creases;
                for (std::uint32_t e : ve)
                    if (edges[e].faces.size() != 2) creases.push_back(e);
                const auto vi = static_cast<std::uint32_t>(v);
                // Isolated points and corners stay where they are: a corner is where the
                // boundary turns more than once, or the point of a single face.
                const bool corner = !creases.empty() && (creases.size() != 2 || vf.size() == 1);
                if (ve.empty() || vf.empty() || corner) {
                    addTo(w, vi, 1.0);
                } else if (creases.size() == 2) {
                    addTo(w, vi, 0.75);
                    for (std::uint32_t e : creases) addTo(w, edges[e].a == vi ? edges[e].b : edges[e].a, 0.125);
                } else {
                    const double n = static_cast<double>(ve.size());
                    addTo(w, vi, (n - 3.0) / n);
                    for (std::uint32_t f : vf) addFacePoint(w, f, 1.0 / (n * static_cast<double>(vf.size())));
                    for (std::uint32_t e : ve) {
                        addTo(w, edges[e].a, 1.0 / (n * n));
                        addTo(w, edges[e].b, 1.0 / (n * n));
                    }
                }
            }
        });
        parallelRange(0, edges.size(), 1024, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t e = lo; e < hi; ++e) {
                Weights& w = rows[vertexCount + e];
                if (edges[e].faces.size() == 2) {
                    addTo(w, edges[e].a, 0.25);
                    addTo(w, edges[e].b, 0.25);
                    addFacePoint(w, edges[e].faces[0], 0.25);
                    addFacePoint(w, edges[e].faces[1], 0.25);
                } else {
                    addTo(w, edges[e].a, 0.5);
                    addTo(w, edges[e].b, 0.5);
                }
            }
        });
        parallelRange(0, faceCount, 1024, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t f = lo; f < hi; ++f) addFacePoint(rows[vertexCount + edges.size() + f], f, 1.0);
        });

        Stencils s;
        s.offsets.reserve(refined + 1);
        s.offsets.push_back(0);
        for (Weights& w : rows) {
            std::sort(w.begin(), w.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
            for (std::size_t i = 0; i < w.size();) {
                double sum = 0.0;
                std::size_t j = i;
                for (; j < w.size() && w[j].first == w[i].first; ++j) sum += w[j].second;
                s.sources.push_back(w[i].first);
                s.weights.push_back(static_cast<float>(sum));
                i = j;
            }
            s.offsets.push_back(static_cast<std::uint32_t>(s.sources.size()));
        }
        stencils_.push_back(std::move(s));

        // The refined faces: a quad per corner of each face, in face order.
        Loops next;
        next.sizes.assign(loops.vertices.size(), 4);
        next.vertices.reserve(loops.vertices.size() * 4);
        const auto edgeBase = static_cast<std::uint32_t>(vertexCount);
        const auto faceBase = static_cast<std::uint32_t>(vertexCount + edges.size());
        for (std::size_t f = 0; f < faceCount; ++f) {
            const std::uint32_t n = loops.sizes[f];
            for (std::uint32_t i = 0; i < n; ++i) {
                next.vertices.push_back(loops.vertices[faceStart[f] + i]);
                next.vertices.push_back(edgeBase + faceEdges[faceStart[f] + i]);
                next.vertices.push_back(faceBase + static_cast<std::uint32_t>(f));
                next.vertices.push_back(edgeBase + faceEdges[faceStart[f] + (i + n - 1) % n]);
            }
        }
        loops = std::move(next);
        vertexCount = refined;
    }

    triangles_.reserve(loops.sizes.size() * 2);
    for (std::size_t q = 0; q < loops.sizes.size(); ++q) {
        const auto* v = &loops.vertices[q * 4];
        const auto a = static_cast<std::int32_t>(v[0]), b = static_cast<std::int32_t>(v[1]),
                   c = static_cast<std::int32_t>(v[2]), d = static_cast<std::int32_t>(v[3]);
        triangles_.push_back({a, b, c});
        triangles_.push_back({a, c, d});
    }
}

std::size_t SubdivisionPlan::refinedVertexCount() const {
    return stencils_.empty() ? cageVertices_ : stencils_.back().offsets.size() - 1;
}

std::vector<Vec3f> SubdivisionPlan::apply(std::span<const Vec3f> cagePoints) const {
    if (cagePoints.size() != cageVertices_)
        throw std::invalid_argument("SubdivisionPlan: the points are not the cage's");
    std::vector<Vec3f> current(cagePoints.begin(), cagePoints.end()), next;
    for (const Stencils& s : stencils_) {
        next.assign(s.offsets.size() - 1, Vec3f{});
        parallelRange(0, next.size(), 2048, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                Vec3f sum;
                for (std::uint32_t k = s.offsets[i]; k < s.offsets[i + 1]; ++k)
                    sum += current[s.sources[k]] * s.weights[k];
                next[i] = sum;
            }
        });
        current.swap(next);
    }
    return current;
}

std::vector<float> SubdivisionPlan::applyValues(std::span<const float> values, int components) const {
    if (components < 1 || values.size() != cageVertices_ * static_cast<std::size_t>(components))
        throw std::invalid_argument("SubdivisionPlan: the values are not the cage's vertices'");
    const auto c = static_cast<std::size_t>(components);
    std::vector<float> current(values.begin(), values.end()), next;
    for (const Stencils& s : stencils_) {
        next.assign((s.offsets.size() - 1) * c, 0.0f);
        parallelRange(0, s.offsets.size() - 1, 2048, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i)
                for (std::uint32_t k = s.offsets[i]; k < s.offsets[i + 1]; ++k)
                    for (std::size_t j = 0; j < c; ++j) next[i * c + j] += current[s.sources[k] * c + j] * s.weights[k];
        });
        current.swap(next);
    }
    return current;
}

template <class T>
std::vector<T> SubdivisionPlan::refineCorners(std::span<const T> triangleCorners) const {
    // Corner data of the cage loops, then each level: a face's corner i becomes a quad with
    // the corner's value, the midpoints of its two edges and the face's mean.
    std::vector<T> corners(loopCorners_.size());
    for (std::size_t i = 0; i < loopCorners_.size(); ++i) corners[i] = triangleCorners[loopCorners_[i]];
    std::vector<std::uint32_t> sizes = loopSizes_;
    for (int level = 0; level < levels_; ++level) {
        std::vector<T> next;
        next.reserve(corners.size() * 4);
        std::size_t start = 0;
        for (std::uint32_t n : sizes) {
            T mean{};
            for (std::uint32_t i = 0; i < n; ++i)
                for (std::size_t j = 0; j < mean.size(); ++j) mean[j] += corners[start + i][j] / static_cast<float>(n);
            for (std::uint32_t i = 0; i < n; ++i) {
                const T& here = corners[start + i];
                next.push_back(here);
                next.push_back(average(here, corners[start + (i + 1) % n]));
                next.push_back(mean);
                next.push_back(average(here, corners[start + (i + n - 1) % n]));
            }
            start += n;
        }
        sizes.assign(corners.size(), 4);
        corners = std::move(next);
    }
    // Quad corners (a, b, c, d) to the triangles (a, b, c) and (a, c, d).
    std::vector<T> out;
    out.reserve(corners.size() / 4 * 6);
    for (std::size_t q = 0; q + 3 < corners.size(); q += 4)
        for (int k : {0, 1, 2, 0, 2, 3}) out.push_back(corners[q + static_cast<std::size_t>(k)]);
    return out;
}

ScalpMesh SubdivisionPlan::refine(const ScalpMesh& cage) const {
    if (cage.topologyHash() != cageTopology_ || cage.polygonHash() != cagePolygons_ ||
        cage.pointCount() != cageVertices_ || cage.triangleCount() != cageTriangles_)
        throw std::invalid_argument("SubdivisionPlan: not this plan's cage");
    ScalpMesh mesh(apply(cage.points()), triangles_);
    mesh.setName(cage.name());
    if (cage.hasUvs()) mesh.setUvs(refineCorners<ScalpMesh::Uv>(cage.uvs()));
    for (const std::string& name : cage.colorSetNames())
        mesh.setColorSet(name, refineCorners<ScalpMesh::Color>(*cage.colorSet(name)));
    if (cage.hasRest()) mesh.setRestPoints(apply(cage.restPoints()));
    mesh.setPolygons(std::vector<std::int32_t>(triangles_.size() / 2, 2));
    return mesh;
}

std::size_t SubdivisionPlan::byteSize() const {
    std::size_t bytes = sizeof(*this) + triangles_.capacity() * sizeof(MeshTriangle) +
                        (loopSizes_.capacity() + loopCorners_.capacity()) * sizeof(std::uint32_t);
    for (const Stencils& s : stencils_)
        bytes += (s.offsets.capacity() + s.sources.capacity()) * sizeof(std::uint32_t) +
                 s.weights.capacity() * sizeof(float);
    return bytes;
}

std::shared_ptr<const SubdivisionPlan> SubdivisionPlan::of(const ScalpMesh& mesh, int levels) {
    if (levels < 1 || levels > 3) throw std::invalid_argument("SubdivisionPlan: levels must be 1 to 3");
    std::uint64_t key = combine(mesh.topologyHash(), mesh.polygonHash());
    key = combine(key, mesh.pointCount());
    key = combine(key, static_cast<std::uint64_t>(levels));
    return planCache().getOrMake(
        key, [&] { return std::make_shared<const SubdivisionPlan>(mesh, levels); },
        [](const SubdivisionPlan& p) { return p.byteSize(); });
}

CacheStats subdivisionPlanCacheStats() { return planCache().stats(); }

}  // namespace tressora
