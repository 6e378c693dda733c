#pragma once
// An instance's frame as a point instancer stores it: a position, a unit quaternion and a
// scale per axis.

#include <array>

#include "core/instances.h"
#include "core/vec.h"

namespace tressora {

struct InstanceTransform {
    Vec3f position;
    std::array<float, 4> orientation{1.0f, 0.0f, 0.0f, 0.0f};  ///< (w, x, y, z)
    Vec3f scale{1.0f, 1.0f, 1.0f};
};

/// Splits three frame axes into per-axis scales (an axis's length, 1 where the length is not
/// positive) and the rotation whose matrix has the scaled-down axes as columns, as a
/// quaternion by the trace method.
InstanceTransform decomposeAxes(Vec3f origin, Vec3f x, Vec3f y, Vec3f z);

/// The transform that places a prototype as placePoint does for this frame.
InstanceTransform placedTransform(const InstanceFrame& frame);

}  // namespace tressora
