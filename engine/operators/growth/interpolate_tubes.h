#pragma once
// Filling tube guides: a strand rooted inside a guide's tube keeps its place in the tube's
// section from root to tip, so it follows the tube as it flattens, twists and tapers; one
// rooted just outside leans toward riding the tube across a soft edge.

#include <cstdint>
#include <span>
#include <vector>

#include "core/guide_frame.h"
#include "core/guide_set.h"
#include "core/point_index.h"
#include "core/tube_shape.h"
#include "operators/growth/interpolate_bindings.h"
#include "operators/growth/interpolate_blend.h"

namespace tressora {

class TubeRider {
public:
    /// Prepares the tubes of `guides` (those with a positive width at the root) along
    /// `curves`, the same guides as the blend follows them. `softEdge` is the share of a
    /// tube's half-width outside its outline over which strands lean toward riding it.
    TubeRider(const GuideSet& guides, const GuideCurves& curves, float softEdge);

    /// Whether any guide has a tube.
    bool any() const { return !tubed_.empty(); }
    /// A hash of the tubes and the soft edge: what decides where strands are placed.
    std::uint64_t key() const { return key_; }

    /// The tube a strand rooted at `root` lies in (the most central where several hold it),
    /// else the one whose soft edge it leans on most, else none. Read-only: any thread.
    TubeSpot place(Vec3f root) const;

    /// Moves the strand toward its place in the tube: at parameter t of its points (by
    /// index) the tube's section at t of the guide's length, shifted so the root stays;
    /// `points` receive that, mixed in by spot.ride. Read-only: any thread.
    void ride(const TubeSpot& spot, Vec3f root, Vec3f normal, std::span<Vec3f> points) const;

private:
    struct TubeGuide {
        std::vector<Point2> outline;
        std::vector<Frame> frames;  ///< one per point of the guide's curve
        GuideTube tube;
    };

    const GuideCurves& curves_;
    float softEdge_ = 0.0f;
    std::uint64_t key_ = 0;
    std::vector<std::uint32_t> tubed_;        ///< guide indices with a tube
    std::vector<TubeGuide> tubes_;            ///< by guide index (empty records without a tube)
    PointIndex tubedRoots_;                   ///< roots of the tubed guides, in tubed_ order
};

/// The distance from the centre to the outline along the unit direction `dir`; 0 when the
/// ray meets no edge.
float outlineReach(const std::vector<Point2>& outline, Point2 dir);

}  // namespace tressora
