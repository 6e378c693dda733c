#pragma once
// keepClearance: strands blended from guides rooted where the skin is flatter sink into a
// bulge between them (an ear, a cheek). The sunk part is lifted just onto the skin with its
// segment lengths kept, and past the bulge the strand eases back to its groomed path.

#include <memory>
#include <span>
#include <string>

#include "core/distance_field.h"
#include "core/scalp_mesh.h"
#include "core/vec.h"

namespace tressora {

class Clearance {
public:
    /// The clearance over `scalp` for strands of about `strandLength`, or null with a note in
    /// *note (the scalp has no size, or is too big for the field's grid at that detail).
    static std::shared_ptr<const Clearance> make(const std::shared_ptr<const ScalpMesh>& scalp, float strandLength,
                                                 std::string* note);

    /// Lifts the points of one strand (root first) that lie in the skin or closer to it than
    /// the margin, keeps its segment lengths and eases the rest back to `points` as given.
    /// Read-only: any thread.
    void apply(std::span<Vec3f> points) const;

    /// The distance kept from the skin.
    float margin() const { return margin_; }
    const MeshDistanceField& field() const { return *field_; }

private:
    Clearance(std::shared_ptr<const MeshDistanceField> field, float margin) : field_(std::move(field)), margin_(margin) {}

    std::shared_ptr<const MeshDistanceField> field_;
    float margin_ = 0.0f;
};

}  // namespace tressora
