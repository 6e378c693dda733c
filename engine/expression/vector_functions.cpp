#include "expression/vector_functions.h"

#include <algorithm>
#include <cmath>

namespace tressora::exprlib {

float angleBetween(Vec3f a, Vec3f b) {
    float lengths = length(a) * length(b);
    if (!(lengths > 0.0f)) lengths = 1.0f;
    return std::acos(std::clamp(dot(a, b) / lengths, -1.0f, 1.0f));
}

Vec3f rotate(Vec3f v, Vec3f axis, float angle) {
    const Vec3f k = normalized(axis);
    if (k == Vec3f{}) return v;
    const float c = std::cos(angle), s = std::sin(angle);
    return v * c + cross(k, v) * s + k * (dot(k, v) * (1.0f - c));
}

Vec3f turnUp(Vec3f v, Vec3f upvec) {
    const Vec3f u = normalized(upvec);
    if (u == Vec3f{}) return v;
    // The axis is +Y x u, its length the sine of the turn and u.y its cosine.
    const Vec3f axis{u.z, 0.0f, -u.x};
    const float s = length(axis);
    if (s < 1e-7f) return u.y > 0.0f ? v : Vec3f{v.x, -v.y, -v.z};
    const Vec3f k = axis / s;
    const float c = u.y;
    return v * c + cross(k, v) * s + k * (dot(k, v) * (1.0f - c));
}

}  // namespace tressora::exprlib
