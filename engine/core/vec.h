#pragma once
// Small plain value types shared by every layer.

#include <cmath>
#include <cstdint>

namespace tressora {

/// Three 32-bit floats: a position or a direction in scene units.
struct Vec3f {
    float x = 0.0f, y = 0.0f, z = 0.0f;

    constexpr Vec3f() = default;
    constexpr Vec3f(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}

    constexpr float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    constexpr float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }

    constexpr Vec3f operator+(Vec3f o) const { return {x + o.x, y + o.y, z + o.z}; }
    constexpr Vec3f operator-(Vec3f o) const { return {x - o.x, y - o.y, z - o.z}; }
    constexpr Vec3f operator-() const { return {-x, -y, -z}; }
    constexpr Vec3f operator*(float s) const { return {x * s, y * s, z * s}; }
    constexpr Vec3f operator/(float s) const { return {x / s, y / s, z / s}; }
    constexpr Vec3f& operator+=(Vec3f o) { x += o.x; y += o.y; z += o.z; return *this; }
    constexpr Vec3f& operator-=(Vec3f o) { x -= o.x; y -= o.y; z -= o.z; return *this; }
    constexpr Vec3f& operator*=(float s) { x *= s; y *= s; z *= s; return *this; }
    constexpr bool operator==(const Vec3f&) const = default;
};

constexpr Vec3f operator*(float s, Vec3f v) { return v * s; }
constexpr float dot(Vec3f a, Vec3f b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
constexpr Vec3f cross(Vec3f a, Vec3f b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float length(Vec3f v) { return std::sqrt(dot(v, v)); }
constexpr float lengthSquared(Vec3f v) { return dot(v, v); }
/// The unit vector along v, or zero for a zero-length v.
inline Vec3f normalized(Vec3f v) {
    const float l = length(v);
    return l > 0.0f ? v / l : Vec3f{};
}

/// A unit vector at right angles to the unit vector t (any such one, the same for the same t).
inline Vec3f anyPerpendicular(Vec3f t) {
    const Vec3f other = t.x < 0.9f && t.x > -0.9f ? Vec3f{1, 0, 0} : Vec3f{0, 1, 0};
    return normalized(cross(t, other));
}

/// Where a strand grows from: a scalp triangle (-1 for none) and two barycentric
/// coordinates on it (the third is one minus their sum).
struct StrandRoot {
    std::int32_t face = -1;
    float u = 0.0f;
    float v = 0.0f;
    constexpr bool operator==(const StrandRoot&) const = default;
};

}  // namespace tressora
