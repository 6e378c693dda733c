#include "operators/growth/interpolate_clearance.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tressora {
namespace {

/// Cells along the scalp's longest side at most, and at least.
constexpr int kMaxCells = 256;
constexpr int kMinCells = 64;
/// Grid cells per strand length: the detail a bulge under a strand needs.
constexpr float kCellsPerStrand = 16.0f;
/// Segments over which a strand eases back to its groomed path past a bulge.
constexpr float kEaseSegments = 3.0f;
/// Rounds of lifting a point and putting it back at its segment's length.
constexpr int kRounds = 6;

}  // namespace

std::shared_ptr<const Clearance> Clearance::make(const std::shared_ptr<const ScalpMesh>& scalp, float strandLength,
                                                 std::string* note) {
    Vec3f lo{1e30f, 1e30f, 1e30f}, hi{-1e30f, -1e30f, -1e30f};
    for (const Vec3f& p : scalp->points())
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], p[a]);
            hi[a] = std::max(hi[a], p[a]);
        }
    const float size = scalp->pointCount() ? std::max({hi.x - lo.x, hi.y - lo.y, hi.z - lo.z}) : 0.0f;
    if (!(size > 0.0f) || !(scalp->area() > 0.0f) || !std::isfinite(size)) {
        if (note) *note = "keepClearance: its scalp has no size";
        return nullptr;
    }
    // Fine enough for the strands, coarse enough for the grid.
    float cell = size / static_cast<float>(kMinCells);
    if (strandLength > 0.0f) cell = std::min(cell, strandLength / kCellsPerStrand);
    if (size / cell > static_cast<float>(kMaxCells)) {
        if (note) *note = "keepClearance: its scalp is too big for the clearance field's grid";
        return nullptr;
    }
    auto field = sharedDistanceField(scalp, cell, 4.0f * cell, kMaxCells);
    // The push keeps a thousandth of the scalp's size off the skin.
    return std::shared_ptr<const Clearance>(new Clearance(std::move(field), 0.001f * size));
}

void Clearance::apply(std::span<Vec3f> points) const {
    const std::size_t n = points.size();
    if (n < 2) return;
    // Scratch reused by each worker thread: the segment lengths and the groomed path.
    thread_local std::vector<float> segments;
    thread_local std::vector<Vec3f> groomed;
    segments.resize(n);
    groomed.assign(points.begin(), points.end());
    for (std::size_t j = 1; j < n; ++j) segments[j] = length(points[j] - points[j - 1]);

    Vec3f carried;  // the lift of the last lifted point, eased out after it
    float sinceLift = kEaseSegments;
    for (std::size_t j = 1; j < n; ++j) {
        Vec3f target = points[j];
        if (sinceLift < kEaseSegments) {
            // Past the bulge the lift fades over a few segments (a smooth half cosine).
            sinceLift += 1.0f;
            target = groomed[j] + carried * (0.5f + 0.5f * std::cos(3.14159265f * sinceLift / kEaseSegments));
        }
        const Vec3f previous = points[j - 1];
        const auto onSegment = [&](Vec3f p) {
            const Vec3f dir = normalized(p - previous);
            return lengthSquared(dir) > 0.0f ? previous + dir * segments[j] : p;
        };
        Vec3f p = onSegment(target);
        bool lifted = false;
        for (int round = 0; round < kRounds; ++round) {
            Vec3f gradient;
            const float d = field_->sample(p, &gradient);
            if (d >= margin_) break;
            lifted = true;
            const Vec3f up = normalized(gradient);
            if (d > -0.999f * field_->band() && lengthSquared(up) > 0.0f) {
                p += up * ((margin_ - d) * 1.0001f);
            } else {
                // Deeper than the field's band: out to the closest skin point.
                const SurfacePoint skin = field_->mesh().closestPoint(p);
                if (skin.face < 0) break;
                p = skin.position + skin.normal * margin_;
            }
            p = onSegment(p);
        }
        if (lifted) {
            carried = p - groomed[j];
            sinceLift = 0.0f;
        }
        points[j] = p;
    }
}

}  // namespace tressora
