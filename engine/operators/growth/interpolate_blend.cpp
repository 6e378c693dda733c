#include "operators/growth/interpolate_blend.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

#include "core/parallel.h"
#include "graph/ramp.h"
#include "operators/growth/interpolate_clearance.h"
#include "operators/growth/interpolate_tubes.h"

namespace tressora {
namespace {

/// Spline points per span between two guide points when following the smooth curve.
constexpr int kSplineSteps = 8;
/// Distinct strand point counts that get per-guide tables; others sample the curves directly.
constexpr std::size_t kMaxTables = 8;
/// Guide curves a strand may blend at once on the stack.
constexpr std::size_t kMaxBound = 16;

Vec3f normalAtRoot(const ScalpMesh* scalp, StrandRoot root) {
    if (!scalp || root.face < 0 || static_cast<std::size_t>(root.face) >= scalp->triangleCount()) return {};
    return scalp->normalAt(root.face, root.u, root.v);
}

/// Each guide's offsets from its root at `count` points spaced evenly along its length.
struct OffsetTable {
    std::size_t count = 0;
    std::vector<Vec3f> offsets;  ///< guide g's at [g * count, (g + 1) * count)
};

Vec3f offsetAt(const GuideCurves& guides, std::size_t g, std::size_t j, std::size_t count) {
    const float t = count > 1 ? static_cast<float>(j) / static_cast<float>(count - 1) : 0.0f;
    return guides.at(g, t * guides.lengths[g]) - guides.roots[g];
}

OffsetTable makeTable(const GuideCurves& guides, std::size_t count) {
    OffsetTable table;
    table.count = count;
    table.offsets.resize(guides.size() * count);
    parallelRange(0, guides.size(), 16, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t g = lo; g < hi; ++g)
            for (std::size_t j = 0; j < count; ++j) table.offsets[g * count + j] = offsetAt(guides, g, j, count);
    });
    return table;
}

/// Tables for the most common point counts of the strands (a groom usually has one).
std::vector<OffsetTable> makeTables(const StrandSet& in, const GuideCurves& guides) {
    std::map<std::size_t, std::size_t> counts;
    const auto offsets = in.offsets();
    for (std::size_t s = 0; s < in.strandCount(); ++s) ++counts[offsets[s + 1] - offsets[s]];
    std::vector<std::pair<std::size_t, std::size_t>> byUse;
    for (const auto& [count, uses] : counts)
        if (count > 0) byUse.emplace_back(uses, count);
    std::sort(byUse.begin(), byUse.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first > b.first : a.second < b.second;
    });
    std::vector<OffsetTable> tables;
    for (std::size_t i = 0; i < byUse.size() && i < kMaxTables; ++i) tables.push_back(makeTable(guides, byUse[i].second));
    return tables;
}

const OffsetTable* findTable(const std::vector<OffsetTable>& tables, std::size_t count) {
    for (const OffsetTable& t : tables)
        if (t.count == count) return &t;
    return nullptr;
}

/// The blend of the bound guides' offsets, turned onto the strand and added to its root.
void blendShape(const GuideCurves& guides, const OffsetTable* table, std::span<const std::uint32_t> bound,
                std::span<const float> weights, std::span<const RootTurn> turns, Vec3f root, std::span<Vec3f> out) {
    const std::size_t n = out.size();
    for (std::size_t j = 0; j < n; ++j) out[j] = root;
    for (std::size_t k = 0; k < bound.size(); ++k) {
        const std::size_t g = bound[k];
        const float w = weights[k];
        const RootTurn& turn = turns[k];
        for (std::size_t j = 0; j < n; ++j) {
            const Vec3f offset = table ? table->offsets[g * n + j] : offsetAt(guides, g, j, n);
            out[j] += turn.apply(offset) * w;
        }
    }
}

}  // namespace

Vec3f GuideCurves::at(std::size_t g, float distance) const {
    const std::size_t first = offsets[g];
    const std::size_t last = offsets[g + 1];
    if (last == first) return roots[g];
    if (last - first == 1 || !(distance > 0.0f)) return points[first];
    if (distance >= arcs[last - 1]) return points[last - 1];
    // The first point whose arc length lies beyond the distance ends the segment.
    const auto begin = arcs.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end = arcs.begin() + static_cast<std::ptrdiff_t>(last);
    const std::size_t i = static_cast<std::size_t>(std::upper_bound(begin, end, distance) - arcs.begin());
    const float a = arcs[i - 1];
    const float span = arcs[i] - a;
    const float f = span > 0.0f ? (distance - a) / span : 0.0f;
    return points[i - 1] + (points[i] - points[i - 1]) * f;
}

std::vector<Vec3f> centripetalSpline(std::span<const Vec3f> points, int steps) {
    const std::size_t n = points.size();
    if (n < 3 || steps < 2) return {points.begin(), points.end()};
    std::vector<Vec3f> out;
    out.reserve((n - 1) * static_cast<std::size_t>(steps) + 1);
    const auto knot = [](Vec3f a, Vec3f b) { return std::max(std::sqrt(length(b - a)), 1e-6f); };
    for (std::size_t i = 0; i + 1 < n; ++i) {
        const Vec3f p1 = points[i];
        const Vec3f p2 = points[i + 1];
        const Vec3f p0 = i > 0 ? points[i - 1] : p1 * 2.0f - p2;
        const Vec3f p3 = i + 2 < n ? points[i + 2] : p2 * 2.0f - p1;
        const float t0 = 0.0f;
        const float t1 = t0 + knot(p0, p1);
        const float t2 = t1 + knot(p1, p2);
        const float t3 = t2 + knot(p2, p3);
        out.push_back(p1);
        for (int s = 1; s < steps; ++s) {
            const float t = t1 + (t2 - t1) * static_cast<float>(s) / static_cast<float>(steps);
            const Vec3f a1 = p0 * ((t1 - t) / (t1 - t0)) + p1 * ((t - t0) / (t1 - t0));
            const Vec3f a2 = p1 * ((t2 - t) / (t2 - t1)) + p2 * ((t - t1) / (t2 - t1));
            const Vec3f a3 = p2 * ((t3 - t) / (t3 - t2)) + p3 * ((t - t2) / (t3 - t2));
            const Vec3f b1 = a1 * ((t2 - t) / (t2 - t0)) + a2 * ((t - t0) / (t2 - t0));
            const Vec3f b2 = a2 * ((t3 - t) / (t3 - t1)) + a3 * ((t - t1) / (t3 - t1));
            out.push_back(b1 * ((t2 - t) / (t2 - t1)) + b2 * ((t - t1) / (t2 - t1)));
        }
    }
    out.push_back(points[n - 1]);
    return out;
}

GuideCurves prepareGuideCurves(const GuideSet& guides, const ScalpMesh* scalp, bool smooth) {
    const std::size_t count = guides.guideCount();
    GuideCurves curves;
    curves.roots.resize(count);
    curves.normals.resize(count);
    curves.lengths.resize(count);
    // Each guide's curve, made in parallel, then laid into the flat arrays in guide order.
    std::vector<std::vector<Vec3f>> shapes(count);
    parallelRange(0, count, 16, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t g = lo; g < hi; ++g) {
            const auto pts = guides.guidePoints(g);
            shapes[g] = smooth ? centripetalSpline(pts, kSplineSteps) : std::vector<Vec3f>(pts.begin(), pts.end());
            curves.roots[g] = pts.empty() ? Vec3f{} : pts[0];
            curves.normals[g] = normalAtRoot(scalp, guides.roots()[g]);
        }
    });
    for (std::size_t g = 0; g < count; ++g) {
        curves.offsets.push_back(curves.offsets.back() + shapes[g].size());
        float arc = 0.0f;
        for (std::size_t i = 0; i < shapes[g].size(); ++i) {
            if (i > 0) arc += length(shapes[g][i] - shapes[g][i - 1]);
            curves.points.push_back(shapes[g][i]);
            curves.arcs.push_back(arc);
        }
        curves.lengths[g] = arc;
    }
    return curves;
}

RootTurn rootTurn(Vec3f from, Vec3f to) {
    RootTurn turn;
    if (lengthSquared(from) == 0.0f || lengthSquared(to) == 0.0f) return turn;
    const float c = dot(from, to);
    if (c > 0.999999f) return turn;
    turn.identity = false;
    if (c < -0.999999f) {
        // Opposite normals: half a turn about an axis across `from` (the world axis least
        // along it, made perpendicular), i.e. 2 a a^T - I.
        const Vec3f ax = std::fabs(from.x) <= std::fabs(from.y) && std::fabs(from.x) <= std::fabs(from.z)
                             ? Vec3f{1, 0, 0}
                             : (std::fabs(from.y) <= std::fabs(from.z) ? Vec3f{0, 1, 0} : Vec3f{0, 0, 1});
        const Vec3f a = normalized(cross(from, ax));
        turn.row0 = {2 * a.x * a.x - 1, 2 * a.x * a.y, 2 * a.x * a.z};
        turn.row1 = {2 * a.y * a.x, 2 * a.y * a.y - 1, 2 * a.y * a.z};
        turn.row2 = {2 * a.z * a.x, 2 * a.z * a.y, 2 * a.z * a.z - 1};
        return turn;
    }
    // Rodrigues' rotation about from x to, written without the angle.
    const Vec3f v = cross(from, to);
    const float k = 1.0f / (1.0f + c);
    turn.row0 = {v.x * v.x * k + c, v.x * v.y * k - v.z, v.x * v.z * k + v.y};
    turn.row1 = {v.y * v.x * k + v.z, v.y * v.y * k + c, v.y * v.z * k - v.x};
    turn.row2 = {v.z * v.x * k - v.y, v.z * v.y * k + v.x, v.z * v.z * k + c};
    return turn;
}

float polylineLength(std::span<const Vec3f> points) {
    float total = 0.0f;
    for (std::size_t i = 1; i < points.size(); ++i) total += length(points[i] - points[i - 1]);
    return total;
}

void scaleToLength(std::span<Vec3f> points, float target) {
    const float current = polylineLength(points);
    if (!(current > 0.0f) || points.size() < 2) return;
    const float scale = target / current;
    Vec3f previousIn = points[0];
    for (std::size_t i = 1; i < points.size(); ++i) {
        const Vec3f here = points[i];
        points[i] = points[i - 1] + (here - previousIn) * scale;
        previousIn = here;
    }
}

void blendStrands(const StrandSet& in, const GuideCurves& guides, const BindingTable& bindings,
                  const BlendSettings& settings, const ScalpMesh* scalp, const TubeRider* tubes,
                  std::span<Vec3f> out, std::span<float> influence) {
    const std::vector<OffsetTable> tables = settings.take == Take::Shape ? makeTables(in, guides)
                                                                         : std::vector<OffsetTable>{};
    const bool limited = settings.limitDistance > 0.0f;
    const auto inPoints = in.points();
    const auto roots = in.roots();
    parallelRange(0, in.strandCount(), 256, [&](std::size_t lo, std::size_t hi) {
        std::array<RootTurn, kMaxBound> turns{};
        std::vector<Vec3f> blended;
        for (std::size_t s = lo; s < hi; ++s) {
            const BindingChunk& chunk = *bindings.chunks[s / BindingChunk::kStrands];
            const std::size_t c = s - chunk.first;
            float follow = 1.0f;
            if (limited) {
                const float d = chunk.nearest[c];
                follow = d < settings.limitDistance
                             ? std::clamp(static_cast<float>(evaluateRamp(settings.falloff, d / settings.limitDistance)),
                                          0.0f, 1.0f)
                             : 0.0f;
                if (!influence.empty()) influence[s] = follow;
            }
            const PointRange range = in.pointRange(s);
            const std::size_t n = range.size();
            if (n == 0 || !(follow > 0.0f)) continue;
            const std::span<const Vec3f> incoming = inPoints.subspan(range.begin, n);
            const std::span<const std::uint32_t> bound{chunk.guide.data() + chunk.start[c],
                                                       std::min<std::size_t>(chunk.start[c + 1] - chunk.start[c],
                                                                             kMaxBound)};
            const std::span<const float> weights{chunk.weight.data() + chunk.start[c], bound.size()};
            blended.resize(n);
            if (settings.take == Take::Shape) {
                const Vec3f normal = normalAtRoot(scalp, roots[s]);
                for (std::size_t k = 0; k < bound.size(); ++k) turns[k] = rootTurn(guides.normals[bound[k]], normal);
                blendShape(guides, findTable(tables, n), bound, weights, {turns.data(), bound.size()}, incoming[0],
                           blended);
                if (settings.preserveLength) {
                    float target = 0.0f;
                    for (std::size_t k = 0; k < bound.size(); ++k) target += weights[k] * guides.lengths[bound[k]];
                    scaleToLength(blended, target);
                }
                if (tubes && !chunk.tube.empty() && chunk.tube[c].guide >= 0)
                    tubes->ride(chunk.tube[c], incoming[0], normal, blended);
                if (settings.clearance) settings.clearance->apply(blended);
            } else {
                std::copy(incoming.begin(), incoming.end(), blended.begin());
                float target = 0.0f;
                for (std::size_t k = 0; k < bound.size(); ++k) target += weights[k] * guides.lengths[bound[k]];
                scaleToLength(blended, target);
            }
            Vec3f* dst = out.data() + range.begin;
            if (follow >= 1.0f) {
                std::copy(blended.begin(), blended.end(), dst);
            } else {
                for (std::size_t j = 0; j < n; ++j) dst[j] = incoming[j] + (blended[j] - incoming[j]) * follow;
            }
        }
    });
}

}  // namespace tressora
