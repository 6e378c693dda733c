#pragma once
// Frames along guide curves and on the scalp: a child guide's offsets are expressed in a
// frame carried along its parent from the parent's frameUp, and a guide's rootLocal curve
// in the surface frame at its root.

#include <span>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/vec.h"

namespace tressora {

/// An orthonormal frame: side (x), up (y) and tangent or normal (z) axes, and an origin.
struct Frame {
    Vec3f origin;
    Vec3f side{1, 0, 0};
    Vec3f up{0, 1, 0};
    Vec3f axis{0, 0, 1};

    /// Frame coordinates of a world point, and of a world direction.
    Vec3f toLocal(Vec3f p) const { return toLocalDirection(p - origin); }
    Vec3f toLocalDirection(Vec3f d) const { return {dot(d, side), dot(d, up), dot(d, axis)}; }
    /// The world point of frame coordinates, and the world direction.
    Vec3f toWorld(Vec3f local) const { return origin + toWorldDirection(local); }
    Vec3f toWorldDirection(Vec3f local) const { return side * local.x + up * local.y + axis * local.z; }
};

/// A frame at each point of a curve: `axis` along the curve (the next segment's direction,
/// the last segment's at the tip), `up` from frameUp at the root carried along by the
/// rotation that takes each tangent to the next, `side` = up x axis; origins at the points.
/// A frameUp that is zero or along the first tangent is replaced by the world axis least
/// aligned with it.
std::vector<Frame> carriedFrames(std::span<const Vec3f> points, Vec3f frameUp);

/// The surface frame at a root: origin on the surface, `up` the interpolated normal, `side`
/// along the face's first edge, `axis` = side x up. World axes when the face is invalid.
Frame rootFrame(const ScalpMesh& scalp, StrandRoot root);

/// The curve resampled to `count` points evenly spaced along its length (count >= 2).
/// A curve of no length repeats its first point.
std::vector<Vec3f> resampleCurve(std::span<const Vec3f> points, std::size_t count);

/// Values spaced evenly along a curve (by index) resampled to `count` values by linear
/// interpolation; used when a parent's point count changes under its children's offsets.
std::vector<Vec3f> resampleByIndex(std::span<const Vec3f> values, std::size_t count);

}  // namespace tressora
