#pragma once
// FollowCarry: how strands grown on the rest pose of the scalp ride along with its motion.
// Each strand's root keeps a triangle and barycentric weights on the rest scalp; on every
// frame the frame of that triangle at rest and in the current pose give a rigid transform
// that moves the whole strand.

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/strand_set.h"

namespace tressora {

/// Where one root sits: a triangle of the scalp (-1 for none) and the weights of its
/// corners 1 and 2.
struct RootCarry {
    std::int32_t face = -1;
    float b1 = 0.0f;
    float b2 = 0.0f;
};

class FollowCarry {
public:
    /// Each strand's place on `rest`: its root when that names a triangle of `rest`, else the
    /// closest point of `rest` to its first point. Parallel over strands.
    FollowCarry(const StrandSet& strands, const ScalpMesh& rest);

    std::span<const RootCarry> roots() const { return roots_; }

    /// The strands moved rigidly, each by the transform from its triangle's frame on `rest`
    /// to the same triangle's frame on `current` (same topology). A strand without triangle,
    /// or on a triangle with no area, moves with its root point alone. The strands must be
    /// those the carry was made for. Parallel over strands; arrays other than points shared.
    std::shared_ptr<const StrandSet> carry(const StrandSet& strands, const ScalpMesh& rest,
                                           const ScalpMesh& current) const;

private:
    std::vector<RootCarry> roots_;
};

}  // namespace tressora
