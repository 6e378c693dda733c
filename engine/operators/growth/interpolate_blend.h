#pragma once
// The per-frame half of Interpolate: every strand takes the blend of its bound guides'
// shapes (or only their length), laid along it by arc length and turned from each guide's
// root normal to the strand's. One pass over the strands, with no search.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "core/guide_set.h"
#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "graph/param_value.h"
#include "operators/growth/interpolate_bindings.h"

namespace tressora {

class Clearance;
class TubeRider;

/// The guides as one evaluation blends them: per guide its root, root normal (zero when
/// unknown), length, and the curve it is followed along (its polyline, or a dense polyline
/// of the smooth curve through its points) with the arc length at each point.
struct GuideCurves {
    std::vector<Vec3f> roots;
    std::vector<Vec3f> normals;
    std::vector<float> lengths;
    std::vector<std::uint64_t> offsets{0};  ///< guide g's curve is [offsets[g], offsets[g + 1])
    std::vector<Vec3f> points;
    std::vector<float> arcs;

    std::size_t size() const { return roots.size(); }
    /// The point of guide g at arc length `distance` from its root (clamped to the curve).
    Vec3f at(std::size_t g, float distance) const;
};

/// Prepares the guides: normals from the scalp at the guides' roots (zero without a scalp or
/// for a root off it); with `smooth` each guide is followed along the centripetal Catmull-Rom
/// spline through its points. Parallel over guides, 16 at a time.
GuideCurves prepareGuideCurves(const GuideSet& guides, const ScalpMesh* scalp, bool smooth);

/// Points along a centripetal Catmull-Rom spline through `points` (the ends extended by
/// mirroring), `steps` per span, first and last point kept.
std::vector<Vec3f> centripetalSpline(std::span<const Vec3f> points, int steps);

/// The smallest rotation taking unit normal `from` to unit normal `to`, as three rows. The
/// identity between nearly parallel normals (or a zero one); a half turn about an axis
/// perpendicular to `from` between opposite ones.
struct RootTurn {
    Vec3f row0{1, 0, 0}, row1{0, 1, 0}, row2{0, 0, 1};
    bool identity = true;
    Vec3f apply(Vec3f v) const { return identity ? v : Vec3f{dot(row0, v), dot(row1, v), dot(row2, v)}; }
};
RootTurn rootTurn(Vec3f from, Vec3f to);

enum class Take { Shape, Length };

struct BlendSettings {
    Take take = Take::Shape;
    bool preserveLength = false;
    float limitDistance = 0.0f;  ///< 0: every strand follows the guides fully
    Ramp falloff;                ///< influence over d / limitDistance
    const Clearance* clearance = nullptr;  ///< keeps blended shapes out of the skin; null: off
};

/// Writes the blended strands into `out` (a copy of `in`, same layout). `influence` receives
/// each strand's guide influence when limitDistance is above 0 and it is not empty; `tubes`
/// (may be null) moves strands bound into tubes onto their place in the tube. Parallel over
/// strands, grain 256; each strand is written by one iteration alone.
void blendStrands(const StrandSet& in, const GuideCurves& guides, const BindingTable& bindings,
                  const BlendSettings& settings, const ScalpMesh* scalp, const TubeRider* tubes,
                  std::span<Vec3f> out, std::span<float> influence);

/// The polyline length of some points.
float polylineLength(std::span<const Vec3f> points);

/// Scales the segments of `points` about its first point so that its length is `length`;
/// a strand without length is left as it is.
void scaleToLength(std::span<Vec3f> points, float length);

}  // namespace tressora
