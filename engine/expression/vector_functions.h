#pragma once
// The vector functions of the expression library that need more than a line.

#include "core/vec.h"

namespace tressora::exprlib {

/// The angle between a and b in radians; a zero length counts as 1.
float angleBetween(Vec3f a, Vec3f b);
/// v turned by `angle` radians about the normalised axis (Rodrigues); v for a zero axis.
Vec3f rotate(Vec3f v, Vec3f axis, float angle);
/// v turned by the rotation that takes +Y onto the direction of upvec; v for a zero upvec.
Vec3f turnUp(Vec3f v, Vec3f upvec);

}  // namespace tressora::exprlib
