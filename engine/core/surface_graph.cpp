#include "core/surface_graph.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <queue>

#include "core/parallel.h"

namespace tressora {
namespace {

SharedCache<SurfaceGraph>& graphCache() {
    static SharedCache<SurfaceGraph> cache("surface graphs", std::size_t{256} << 20);
    return cache;
}

bool onMesh(const SurfaceGraph& graph, std::int32_t face) {
    return face >= 0 && static_cast<std::size_t>(face) < graph.triangles().size();
}

Vec3f pointOn(const SurfaceGraph& graph, StrandRoot root) {
    const auto& tri = graph.triangles()[static_cast<std::size_t>(root.face)];
    const Vec3f a = graph.points()[static_cast<std::size_t>(tri[0])];
    const Vec3f b = graph.points()[static_cast<std::size_t>(tri[1])];
    const Vec3f c = graph.points()[static_cast<std::size_t>(tri[2])];
    return a + (b - a) * root.u + (c - a) * root.v;
}

}  // namespace

SurfaceGraph::SurfaceGraph(const ScalpMesh& mesh)
    : points_(mesh.points().begin(), mesh.points().end()),
      triangles_(mesh.triangles().begin(), mesh.triangles().end()) {
    // Each undirected edge once per direction, sorted so the layout is fixed.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> edges;
    edges.reserve(triangles_.size() * 6);
    for (const auto& tri : triangles_)
        for (int k = 0; k < 3; ++k) {
            const auto a = static_cast<std::uint32_t>(tri[k]);
            const auto b = static_cast<std::uint32_t>(tri[(k + 1) % 3]);
            if (a == b) continue;
            edges.emplace_back(a, b);
            edges.emplace_back(b, a);
        }
    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
    start_.assign(points_.size() + 1, 0);
    for (const auto& e : edges) ++start_[e.first + 1];
    for (std::size_t p = 0; p < points_.size(); ++p) start_[p + 1] += start_[p];
    neighbour_.resize(edges.size());
    length_.resize(edges.size());
    for (std::size_t i = 0; i < edges.size(); ++i) {
        neighbour_[i] = edges[i].second;
        length_[i] = length(points_[edges[i].second] - points_[edges[i].first]);
    }
}

std::size_t SurfaceGraph::byteSize() const {
    return points_.size() * sizeof(Vec3f) + triangles_.size() * sizeof(ScalpMesh::Triangle) +
           start_.size() * sizeof(std::uint32_t) + neighbour_.size() * (sizeof(std::uint32_t) + sizeof(float));
}

std::shared_ptr<const SurfaceGraph> sharedSurfaceGraph(const std::shared_ptr<const ScalpMesh>& mesh) {
    if (!mesh) return nullptr;
    return graphCache().getOrMake(
        mesh->contentHash(), [&] { return std::make_shared<const SurfaceGraph>(*mesh); },
        [](const SurfaceGraph& g) { return g.byteSize(); });
}

CacheStats surfaceGraphCacheStats() { return graphCache().stats(); }

SurfaceFront::SurfaceFront(const SurfaceGraph& graph, StrandRoot source, float maxDistance)
    : graph_(&graph), source_(source) {
    if (!onMesh(graph, source.face)) return;
    sourcePosition_ = pointOn(graph, source);
    // Dijkstra from the source triangle's corners; ties settle by point index.
    using Item = std::pair<float, std::uint32_t>;
    std::priority_queue<Item, std::vector<Item>, std::greater<>> queue;
    const auto& tri = graph.triangles()[static_cast<std::size_t>(source.face)];
    for (int k = 0; k < 3; ++k) {
        const auto p = static_cast<std::uint32_t>(tri[k]);
        queue.emplace(length(graph.points()[p] - sourcePosition_), p);
    }
    std::vector<std::uint32_t> settledPoints;
    std::vector<float> settledDistances;
    auto settled = [&](std::uint32_t p) {
        return std::find(settledPoints.begin(), settledPoints.end(), p) != settledPoints.end();
    };
    // A small front keeps its settled set in a vector; a large one switches to a flag array.
    std::vector<char> flags;
    while (!queue.empty()) {
        const auto [d, p] = queue.top();
        queue.pop();
        if (d > maxDistance) break;
        const bool done = flags.empty() ? settled(p) : flags[p] != 0;
        if (done) continue;
        settledPoints.push_back(p);
        settledDistances.push_back(d);
        if (!flags.empty()) flags[p] = 1;
        else if (settledPoints.size() > 64) {
            flags.assign(graph.pointCount(), 0);
            for (std::uint32_t s : settledPoints) flags[s] = 1;
        }
        const auto next = graph.neighbours(p);
        const auto lengths = graph.edgeLengths(p);
        for (std::size_t i = 0; i < next.size(); ++i) {
            const float nd = d + lengths[i];
            if (nd <= maxDistance) queue.emplace(nd, next[i]);
        }
    }
    reached_.resize(settledPoints.size());
    for (std::size_t i = 0; i < settledPoints.size(); ++i) reached_[i] = {settledPoints[i], settledDistances[i]};
    std::sort(reached_.begin(), reached_.end());
}

std::optional<float> SurfaceFront::distanceTo(StrandRoot target, Vec3f position) const {
    if (!onMesh(*graph_, target.face) || !onMesh(*graph_, source_.face)) return std::nullopt;
    // Within the source's triangle or one touching it the way is straight: the edges would
    // only overestimate it there.
    const auto& tri = graph_->triangles()[static_cast<std::size_t>(target.face)];
    const auto& own = graph_->triangles()[static_cast<std::size_t>(source_.face)];
    for (int k = 0; k < 3; ++k)
        if (tri[k] == own[0] || tri[k] == own[1] || tri[k] == own[2]) return length(position - sourcePosition_);
    std::optional<float> best;
    for (int k = 0; k < 3; ++k) {
        const auto p = static_cast<std::uint32_t>(tri[k]);
        const auto it = std::lower_bound(reached_.begin(), reached_.end(), std::pair<std::uint32_t, float>{p, -1.0f});
        if (it == reached_.end() || it->first != p) continue;
        const float d = it->second + length(position - graph_->points()[p]);
        if (!best || d < *best) best = d;
    }
    // The way along the skin is never shorter than the straight one.
    if (best) best = std::max(*best, length(position - sourcePosition_));
    return best;
}

SurfaceFronts::SurfaceFronts(std::shared_ptr<const SurfaceGraph> graph, std::span<const StrandRoot> sources,
                             std::span<const float> maxDistances)
    : graph_(std::move(graph)) {
    fronts_.reserve(sources.size());
    for (std::size_t i = 0; i < sources.size(); ++i) fronts_.emplace_back(*graph_, StrandRoot{}, 0.0f);
    parallelRange(0, sources.size(), 16, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) fronts_[i] = SurfaceFront(*graph_, sources[i], maxDistances[i]);
    });
}

}  // namespace tressora
