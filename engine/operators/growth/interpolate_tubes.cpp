#include "operators/growth/interpolate_tubes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "core/hash.h"
#include "core/tube.h"

namespace tressora {
namespace {

/// Tubes a strand's root is tested against: the nearest tubed guide roots.
constexpr std::size_t kTubeCandidates = 8;
/// Points of a built-in outline.
constexpr int kOutlineResolution = 32;

std::uint64_t hashList(std::uint64_t h, const std::vector<float>& list) {
    h = combine(h, list.size());
    for (float f : list) h = combine(h, floatBits(f));
    return h;
}

}  // namespace

float outlineReach(const std::vector<Point2>& outline, Point2 dir) {
    float best = 0.0f;
    bool found = false;
    const std::size_t n = outline.size();
    for (std::size_t i = 0, j = n - 1; i < n; j = i++) {
        const Point2 a = outline[j], b = outline[i];
        const float ex = b[0] - a[0], ey = b[1] - a[1];
        const float den = dir[0] * ey - dir[1] * ex;
        if (std::fabs(den) < 1e-12f) continue;
        // Solve t * dir = a + s * e for t (along the ray) and s (along the edge).
        const float t = (a[0] * ey - a[1] * ex) / den;
        const float s = (a[0] * dir[1] - a[1] * dir[0]) / den;
        if (t <= 0.0f || s < 0.0f || s > 1.0f) continue;
        if (!found || t < best) best = t;
        found = true;
    }
    return found ? best : 0.0f;
}

TubeRider::TubeRider(const GuideSet& guides, const GuideCurves& curves, float softEdge)
    : curves_(curves), softEdge_(std::max(softEdge, 0.0f)) {
    key_ = combine(hash64(0x7b3e5ull), floatBits(softEdge_));
    tubes_.resize(guides.guideCount());
    std::vector<Vec3f> roots;
    for (std::size_t g = 0; g < guides.guideCount(); ++g) {
        const GuideTube& tube = guides.tube(g);
        if (tube.width.empty() || !(tube.width.front() > 0.0f) || curves.offsets[g + 1] - curves.offsets[g] < 2) continue;
        TubeGuide& t = tubes_[g];
        t.tube = tube;
        t.outline = tubeShapeOutline(tube.shape.empty() ? "round" : tube.shape, {}, kOutlineResolution);
        const std::span<const Vec3f> curve{curves.points.data() + curves.offsets[g],
                                           curves.offsets[g + 1] - curves.offsets[g]};
        t.frames = carriedFrames(curve, tube.frameUp);
        tubed_.push_back(static_cast<std::uint32_t>(g));
        roots.push_back(curves.roots[g]);
        key_ = combine(key_, g);
        key_ = hashList(key_, tube.width);
        key_ = hashList(key_, tube.aspect);
        key_ = hashList(key_, tube.twist);
        key_ = combineText(key_, tube.shape);
        key_ = combine(key_, floatBits(tube.frameUp.x) | (floatBits(tube.frameUp.y) << 32));
        key_ = combine(key_, floatBits(tube.frameUp.z));
    }
    tubedRoots_ = PointIndex(roots);
}

TubeSpot TubeRider::place(Vec3f root) const {
    TubeSpot best;
    if (tubed_.empty()) return best;
    std::array<std::uint32_t, kTubeCandidates> found{};
    std::array<float, kTubeCandidates> d2{};
    const std::size_t n = tubedRoots_.kNearest(root, kTubeCandidates, found.data(), d2.data());
    float bestCentral = std::numeric_limits<float>::infinity();
    for (std::size_t c = 0; c < n; ++c) {
        const std::uint32_t g = tubed_[found[c]];
        const TubeGuide& t = tubes_[g];
        const Frame& frame = t.frames.front();
        // The root seen along the guide's axis onto its root section, untwisted and read in
        // the outline's unit square.
        const Vec3f local = frame.toLocal(root);
        const float width = tubeValueAt(t.tube.width, 0.0f);
        const float aspect = std::max(tubeValueAt(t.tube.aspect, 0.0f), 1e-6f);
        const float twist = tubeValueAt(t.tube.twist, 0.0f);
        const float cs = std::cos(-twist), sn = std::sin(-twist);
        const float x = local.x * cs - local.y * sn;
        const float y = local.x * sn + local.y * cs;
        const float u = x / width;
        const float v = y / (width * aspect);
        const float r = std::sqrt(u * u + v * v);
        const float edge = r > 0.0f ? outlineReach(t.outline, {u / r, v / r}) : 1.0f;
        if (!(edge > 0.0f)) continue;
        const float outside = r - edge;  // in half-widths at the root
        float ride = 0.0f;
        if (outside < 0.0f) ride = 1.0f;
        else if (softEdge_ > 0.0f && outside < softEdge_) ride = 1.0f - outside / softEdge_;
        if (!(ride > 0.0f)) continue;
        // Inside several: the most central; otherwise the strongest lean.
        const float central = ride >= 1.0f ? r / edge : 1.0f + (1.0f - ride);
        if (central < bestCentral) {
            bestCentral = central;
            best = {static_cast<std::int32_t>(g), u, v, ride};
        }
    }
    return best;
}

void TubeRider::ride(const TubeSpot& spot, Vec3f root, Vec3f /*normal*/, std::span<Vec3f> points) const {
    if (spot.guide < 0 || points.empty()) return;
    const std::size_t g = static_cast<std::size_t>(spot.guide);
    const TubeGuide& t = tubes_[g];
    if (t.frames.empty()) return;
    const std::size_t first = curves_.offsets[g];
    const std::size_t count = curves_.offsets[g + 1] - first;
    const float length = curves_.lengths[g];
    const std::size_t n = points.size();
    Vec3f shift;
    for (std::size_t j = 0; j < n; ++j) {
        const float param = n > 1 ? static_cast<float>(j) / static_cast<float>(n - 1) : 0.0f;
        const float distance = param * length;
        // The frame of the curve segment the point falls in.
        const auto arcs = curves_.arcs.begin() + static_cast<std::ptrdiff_t>(first);
        std::size_t i = static_cast<std::size_t>(std::upper_bound(arcs, arcs + static_cast<std::ptrdiff_t>(count),
                                                                  distance) - arcs);
        i = std::min(i == 0 ? 0 : i - 1, count - 1);
        const Frame& frame = t.frames[i];
        const Point2 s = sectionPoint({spot.u, spot.v}, tubeValueAt(t.tube.width, param),
                                      tubeValueAt(t.tube.aspect, param), tubeValueAt(t.tube.twist, param));
        Vec3f on = curves_.at(g, distance) + frame.side * s[0] + frame.up * s[1];
        if (j == 0) shift = root - on;
        on += shift;
        points[j] = points[j] + (on - points[j]) * spot.ride;
    }
}

}  // namespace tressora
