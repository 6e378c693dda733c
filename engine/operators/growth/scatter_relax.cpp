#include "operators/growth/scatter_relax.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/point_index.h"
#include "operators/growth/scatter_neighbours.h"

namespace tressora {

namespace {

constexpr std::size_t kGrain = 256;
constexpr int kIterations = 30;
constexpr std::size_t kNeighbours = 13;
constexpr float kFrozenActivity = 0.02f;
constexpr std::uint32_t kNone = PointIndex::npos;

float segmentDistance(Vec3f p, const BorderSegment& s) {
    const Vec3f ab = s.b - s.a;
    const float len2 = lengthSquared(ab);
    const float t = len2 > 0.0f ? std::clamp(dot(p - s.a, ab) / len2, 0.0f, 1.0f) : 0.0f;
    return length(s.a + ab * t - p);
}

/// Finds the nearest border segment within a reach of a point: segments are indexed by
/// samples along them no farther apart than the reach.
class BorderLookup {
public:
    BorderLookup(std::vector<BorderSegment> segments, float reach) : segments_(std::move(segments)), reach_(reach) {
        std::vector<Vec3f> samples;
        for (std::uint32_t s = 0; s < segments_.size(); ++s) {
            const BorderSegment& seg = segments_[s];
            const int pieces = std::max(1, static_cast<int>(std::ceil(length(seg.b - seg.a) / reach)));
            for (int k = 0; k <= pieces; ++k) {
                samples.push_back(seg.a + (seg.b - seg.a) * (static_cast<float>(k) / pieces));
                owner_.push_back(s);
            }
        }
        index_ = PointIndex(samples);
    }
    bool empty() const { return segments_.empty(); }
    const BorderSegment& segment(std::uint32_t s) const { return segments_[s]; }

    /// The nearest segment within the reach (lowest index on ties), or kNone.
    std::uint32_t nearest(Vec3f p, std::vector<std::pair<std::uint32_t, float>>& scratch) const {
        scratch.clear();
        index_.within(p, reach_ * 1.5f, scratch);
        std::uint32_t best = kNone;
        float bestDistance = reach_;
        for (const auto& [sample, d2] : scratch) {
            const std::uint32_t s = owner_[sample];
            const float d = segmentDistance(p, segments_[s]);
            if (d < bestDistance || (d == bestDistance && s < best)) best = s, bestDistance = d;
        }
        return best;
    }

private:
    std::vector<BorderSegment> segments_;
    std::vector<std::uint32_t> owner_;
    PointIndex index_;
    float reach_;
};

Vec3f snapped(Vec3f p, float step) {
    return {std::round(p.x / step) * step, std::round(p.y / step) * step, std::round(p.z / step) * step};
}

/// The state of the roots that take part (radius above 0), by position among them.
struct RelaxState {
    std::vector<std::uint32_t> rootIndex;  ///< index into the table
    std::vector<Vec3f> position[2];
    std::vector<Vec3f> normal;
    std::vector<float> radius;
    std::vector<StrandRoot> spot;  ///< the last spot taken on the surface
    std::vector<std::uint32_t> neighbours;
    std::vector<std::uint32_t> border;
    std::vector<float> activity;
    std::vector<int> frozen;  ///< -1 while moving, else the iteration it froze at
    std::vector<std::uint8_t> moved;  ///< moved since its last projection
};

void findNeighbours(RelaxState& st, int current, const BorderLookup& border, float spacing) {
    const std::vector<Vec3f>& pos = st.position[current];
    // Thirteen neighbours of evenly spread roots lie within about twice the spacing.
    const NeighbourGrid index(pos, 3.0f * spacing);
    const std::size_t m = pos.size();
    parallelRange(0, m, kGrain, [&](std::size_t lo, std::size_t hi) {
        std::vector<std::pair<std::uint32_t, float>> scratch;
        for (std::size_t j = lo; j < hi; ++j) {
            // A frozen root neither moves nor is asked about its neighbours again.
            if (st.frozen[j] >= 0) continue;
            std::uint32_t* list = &st.neighbours[j * kNeighbours];
            const std::size_t n = index.nearestOthers(static_cast<std::uint32_t>(j), kNeighbours, list);
            std::fill(list + n, list + kNeighbours, kNone);
            st.border[j] = border.empty() ? kNone : border.nearest(pos[j], scratch);
        }
    });
}

void step(RelaxState& st, int current, const BorderLookup& border) {
    const std::vector<Vec3f>& from = st.position[current];
    std::vector<Vec3f>& to = st.position[1 - current];
    parallelRange(0, from.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t j = lo; j < hi; ++j) {
            if (st.frozen[j] >= 0) {
                to[j] = from[j];
                continue;
            }
            const float r = st.radius[j];
            Vec3f push{};
            for (std::size_t k = 0; k < kNeighbours; ++k) {
                const std::uint32_t n = st.neighbours[j * kNeighbours + k];
                if (n == kNone) break;
                const float R = r + st.radius[n];
                const Vec3f away = from[j] - from[n];
                const float D = length(away);
                if (!(D < R)) continue;
                const float w = (1.0f - D / R) * (1.0f - D / R);
                // Stacked roots part along a small direction of their own.
                const Vec3f dir = D > R * 1e-6f ? away / D
                                                : Vec3f{unit(st.rootIndex[j]) - 0.5f, unit(st.rootIndex[n]) - 0.5f, 0.0f};
                push += dir * w;
            }
            if (st.border[j] != kNone) {
                const BorderSegment& seg = border.segment(st.border[j]);
                const float s = 2.0f * segmentDistance(from[j], seg);
                if (s < 2.0f * r) push += seg.inward * ((1.0f - s / (2.0f * r)) * (1.0f - s / (2.0f * r)));
            }
            const Vec3f nrm = st.normal[j];
            push -= nrm * dot(push, nrm);
            push *= 0.6f * r;
            const float len = length(push);
            if (len > 0.5f * r) push *= 0.5f * r / len;
            to[j] = snapped(from[j] + push, r / 1024.0f);
            const float moved = length(to[j] - from[j]);
            st.activity[j] = moved / r;
            if (moved > 0.0f) st.moved[j] = 1;
        }
    });
}

/// Freezes every moving root that, with all of its neighbours, has settled. True while some
/// root still moves.
bool freeze(RelaxState& st, int iteration) {
    const std::size_t m = st.radius.size();
    std::vector<int> next(st.frozen);
    parallelRange(0, m, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t j = lo; j < hi; ++j) {
            if (st.frozen[j] >= 0 || !(st.activity[j] < kFrozenActivity)) continue;
            bool settled = true;
            for (std::size_t k = 0; k < kNeighbours && settled; ++k) {
                const std::uint32_t n = st.neighbours[j * kNeighbours + k];
                if (n != kNone && !(st.activity[n] < kFrozenActivity)) settled = false;
            }
            if (settled) next[j] = iteration;
        }
    });
    st.frozen.swap(next);
    return std::any_of(st.frozen.begin(), st.frozen.end(), [](int f) { return f < 0; });
}

/// Lays the roots that moved back on the surface, where the filter lets them stand; a root
/// whose new spot is refused goes back to its last spot.
void project(RelaxState& st, int current, const ScalpMesh& shape, const RootFilter& filter,
             const std::vector<std::uint64_t>& ids) {
    std::vector<Vec3f>& pos = st.position[current];
    std::vector<std::uint32_t> which;
    for (std::uint32_t j = 0; j < pos.size(); ++j)
        if (st.moved[j]) which.push_back(j);
    std::vector<SurfacePoint> found(which.size());
    std::vector<std::uint64_t> foundIds(which.size());
    std::vector<StrandRoot> spots(which.size());
    parallelRange(0, which.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t k = lo; k < hi; ++k) {
            const std::uint32_t j = which[k];
            found[k] = shape.closestPoint(pos[j], 4.0f * st.radius[j]);
            foundIds[k] = ids[st.rootIndex[j]];
            spots[k] = found[k].face >= 0 ? StrandRoot{found[k].face, found[k].b1, found[k].b2} : st.spot[j];
        }
    });
    const std::vector<std::uint8_t> pass = rootsPass(filter, foundIds, spots);
    parallelRange(0, which.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t k = lo; k < hi; ++k) {
            const std::uint32_t j = which[k];
            st.moved[j] = 0;
            if (found[k].face >= 0 && pass[k]) {
                st.spot[j] = spots[k];
                pos[j] = found[k].position;
                st.normal[j] = found[k].normal;
            } else {
                pos[j] = shape.positionAt(st.spot[j].face, st.spot[j].u, st.spot[j].v);
            }
        }
    });
}

}  // namespace

std::vector<BorderSegment> openBorder(const ScalpMesh& shape, float tolerance) {
    const std::span<const Vec3f> points = shape.points();
    const std::span<const ScalpMesh::Triangle> triangles = shape.triangles();
    // Corners within the tolerance are one: each point stands for the lowest index near it.
    std::vector<std::uint32_t> same(points.size());
    const PointIndex index(points);
    parallelRange(0, points.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
        std::vector<std::pair<std::uint32_t, float>> near;
        for (std::size_t i = lo; i < hi; ++i) {
            near.clear();
            index.within(points[i], tolerance, near);
            std::uint32_t lowest = static_cast<std::uint32_t>(i);
            for (const auto& [j, d2] : near) lowest = std::min(lowest, j);
            same[i] = lowest;
        }
    });
    // (low corner, high corner, triangle, edge) for every edge; an edge met once is open.
    std::vector<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint8_t>> edges;
    edges.reserve(triangles.size() * 3);
    for (std::uint32_t t = 0; t < triangles.size(); ++t)
        for (std::uint8_t e = 0; e < 3; ++e) {
            const std::uint32_t a = same[static_cast<std::size_t>(triangles[t][e])];
            const std::uint32_t b = same[static_cast<std::size_t>(triangles[t][(e + 1) % 3])];
            if (a != b) edges.emplace_back(std::min(a, b), std::max(a, b), t, e);
        }
    std::sort(edges.begin(), edges.end());
    std::vector<BorderSegment> border;
    for (std::size_t i = 0; i < edges.size();) {
        std::size_t j = i + 1;
        while (j < edges.size() && std::get<0>(edges[j]) == std::get<0>(edges[i]) &&
               std::get<1>(edges[j]) == std::get<1>(edges[i]))
            ++j;
        if (j == i + 1) {
            const auto& [lowCorner, highCorner, t, e] = edges[i];
            const auto& tri = triangles[t];
            const Vec3f a = points[static_cast<std::size_t>(tri[e])];
            const Vec3f b = points[static_cast<std::size_t>(tri[(e + 1) % 3])];
            const Vec3f c = points[static_cast<std::size_t>(tri[(e + 2) % 3])];
            const Vec3f along = normalized(b - a);
            const Vec3f inward = normalized((c - a) - along * dot(c - a, along));
            border.push_back({a, b, inward});
        }
        i = j;
    }
    return border;
}

std::vector<StrandRoot> relaxRoots(const ScalpMesh& shape, const RootFilter& filter,
                                   const std::vector<std::uint64_t>& ids, const std::vector<StrandRoot>& roots) {
    std::vector<StrandRoot> even(roots);
    if (roots.size() < 2 || !(filter.densityMax > 0.0)) return even;
    const float base = static_cast<float>(kRelaxSpacing / std::sqrt(filter.densityMax));

    // Radii: from the map's value at each root, or the base spacing.
    std::vector<float> radii(roots.size(), base);
    if (filter.density) {
        const std::vector<float> values = densityAtRoots(*filter.density, *filter.scalp, ids, roots);
        parallelRange(0, roots.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i)
                radii[i] = values[i] > 0.0f ? static_cast<float>(kRelaxSpacing / std::sqrt(values[i])) : 0.0f;
        });
    }
    RelaxState st;
    for (std::uint32_t i = 0; i < roots.size(); ++i)
        if (radii[i] > 0.0f && std::isfinite(radii[i])) st.rootIndex.push_back(i);
    const std::size_t m = st.rootIndex.size();
    if (m < 2) return even;
    st.position[0].resize(m);
    st.position[1].resize(m);
    st.normal.resize(m);
    st.radius.resize(m);
    st.spot.resize(m);
    st.neighbours.resize(m * kNeighbours);
    st.border.resize(m);
    st.activity.assign(m, 1.0f);
    st.frozen.assign(m, -1);
    st.moved.assign(m, 0);
    float greatest = 0.0f;
    for (std::size_t j = 0; j < m; ++j) greatest = std::max(greatest, radii[st.rootIndex[j]]);
    parallelRange(0, m, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t j = lo; j < hi; ++j) {
            const StrandRoot root = roots[st.rootIndex[j]];
            st.spot[j] = root;
            st.position[0][j] = shape.positionAt(root.face, root.u, root.v);
            st.normal[j] = shape.normalAt(root.face, root.u, root.v);
            st.radius[j] = radii[st.rootIndex[j]];
        }
    });
    const BorderLookup border(openBorder(shape, base / 2.0f), 3.0f * greatest + base);

    int current = 0;
    for (int i = 0; i < kIterations; ++i) {
        if (i % 4 == 0) findNeighbours(st, current, border, base);
        step(st, current, border);
        current = 1 - current;
        const bool moving = freeze(st, i);
        if ((i + 1) % 4 == 0 || i + 1 == kIterations || !moving) project(st, current, shape, filter, ids);
        if (!moving) break;
    }
    for (std::size_t j = 0; j < m; ++j) even[st.rootIndex[j]] = st.spot[j];
    return even;
}

std::vector<StrandRoot> mixRoots(const ScalpMesh& shape, const std::vector<StrandRoot>& random,
                                 const std::vector<StrandRoot>& even, float t) {
    if (t == 1.0f || even.size() != random.size()) return random;
    if (t == 0.0f) return even;
    std::vector<StrandRoot> out(random.size());
    parallelRange(0, random.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const StrandRoot a = even[i], b = random[i];
            if (a == b) {
                out[i] = a;
                continue;
            }
            const Vec3f pa = shape.positionAt(a.face, a.u, a.v);
            const Vec3f pb = shape.positionAt(b.face, b.u, b.v);
            const Vec3f p = pa + (pb - pa) * t;
            const SurfacePoint s = shape.closestPoint(p, 2.0f * std::max(1.0f, t) * length(pb - pa) + 1e-6f);
            if (s.face >= 0) out[i] = {s.face, s.b1, s.b2};
            else out[i] = t >= 0.5f ? b : a;
        }
    });
    return out;
}

}  // namespace tressora
