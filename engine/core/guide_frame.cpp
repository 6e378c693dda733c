#include "core/guide_frame.h"

#include <algorithm>
#include <cmath>

namespace tressora {
namespace {

/// A unit vector across `axis`: `preferred` without its part along axis, or the world axis
/// least aligned with `axis` when that leaves nothing.
Vec3f across(Vec3f axis, Vec3f preferred) {
    Vec3f up = preferred - axis * dot(preferred, axis);
    if (lengthSquared(up) > 1e-12f * std::max(1.0f, lengthSquared(preferred))) return normalized(up);
    const Vec3f world[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    int best = 0;
    for (int a = 1; a < 3; ++a)
        if (std::fabs(axis[a]) < std::fabs(axis[best])) best = a;
    up = world[best] - axis * dot(world[best], axis);
    return normalized(up);
}

/// v turned by the rotation that takes unit vector `from` to unit vector `to`.
Vec3f rotateLike(Vec3f v, Vec3f from, Vec3f to) {
    const Vec3f k = cross(from, to);
    const float s = length(k), c = dot(from, to);
    if (s < 1e-7f) return v;  // parallel: nothing to turn (antiparallel is left to `across`)
    const Vec3f u = k / s;
    return v * c + cross(u, v) * s + u * (dot(u, v) * (1.0f - c));
}

}  // namespace

std::vector<Frame> carriedFrames(std::span<const Vec3f> points, Vec3f frameUp) {
    const std::size_t n = points.size();
    std::vector<Frame> frames(n);
    if (n == 0) return frames;
    // Tangents: the next segment's direction; zero-length segments borrow the last good one.
    std::vector<Vec3f> tangent(n);
    Vec3f last{0, 1, 0};
    bool any = false;
    for (std::size_t k = 0; k + 1 < n; ++k) {
        const Vec3f d = normalized(points[k + 1] - points[k]);
        if (lengthSquared(d) > 0.0f) {
            if (!any)
                for (std::size_t j = 0; j < k; ++j) tangent[j] = d;
            last = d;
            any = true;
        }
        tangent[k] = last;
    }
    if (!any)
        for (std::size_t k = 0; k + 1 < n; ++k) tangent[k] = last;
    tangent[n - 1] = last;

    Vec3f up = across(tangent[0], frameUp);
    for (std::size_t k = 0; k < n; ++k) {
        if (k > 0) up = across(tangent[k], rotateLike(up, tangent[k - 1], tangent[k]));
        frames[k].origin = points[k];
        frames[k].axis = tangent[k];
        frames[k].up = up;
        frames[k].side = cross(up, tangent[k]);
    }
    return frames;
}

Frame rootFrame(const ScalpMesh& scalp, StrandRoot root) {
    Frame f;
    if (root.face < 0 || static_cast<std::size_t>(root.face) >= scalp.triangleCount()) return f;
    f.origin = scalp.positionAt(root.face, root.u, root.v);
    const auto& t = scalp.triangles()[static_cast<std::size_t>(root.face)];
    const auto p = scalp.points();
    const Vec3f a = p[static_cast<std::size_t>(t[0])], b = p[static_cast<std::size_t>(t[1])],
                c = p[static_cast<std::size_t>(t[2])];
    Vec3f normal = scalp.normalAt(root.face, root.u, root.v);
    if (lengthSquared(normal) == 0.0f) normal = normalized(cross(b - a, c - a));
    if (lengthSquared(normal) == 0.0f) normal = {0, 1, 0};
    f.up = normal;
    f.side = across(normal, b - a);
    f.axis = cross(f.side, f.up);
    return f;
}

std::vector<Vec3f> resampleCurve(std::span<const Vec3f> points, std::size_t count) {
    count = std::max<std::size_t>(count, 2);
    std::vector<Vec3f> out(count, points.empty() ? Vec3f{} : points[0]);
    if (points.size() < 2) return out;
    std::vector<double> along(points.size(), 0.0);
    for (std::size_t k = 1; k < points.size(); ++k) along[k] = along[k - 1] + length(points[k] - points[k - 1]);
    const double total = along.back();
    if (!(total > 0.0)) return out;
    std::size_t seg = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double s = total * static_cast<double>(i) / static_cast<double>(count - 1);
        while (seg + 2 < points.size() && along[seg + 1] < s) ++seg;
        const double span = along[seg + 1] - along[seg];
        const float f = span > 0.0 ? static_cast<float>(std::clamp((s - along[seg]) / span, 0.0, 1.0)) : 0.0f;
        out[i] = points[seg] + (points[seg + 1] - points[seg]) * f;
    }
    out.back() = points.back();
    return out;
}

std::vector<Vec3f> resampleByIndex(std::span<const Vec3f> values, std::size_t count) {
    std::vector<Vec3f> out(count, values.empty() ? Vec3f{} : values[0]);
    if (values.size() < 2 || count < 2) return out;
    for (std::size_t i = 0; i < count; ++i) {
        const float x = static_cast<float>(i) * static_cast<float>(values.size() - 1) / static_cast<float>(count - 1);
        const std::size_t k = std::min(static_cast<std::size_t>(x), values.size() - 2);
        const float f = x - static_cast<float>(k);
        out[i] = values[k] + (values[k + 1] - values[k]) * f;
    }
    return out;
}

}  // namespace tressora
