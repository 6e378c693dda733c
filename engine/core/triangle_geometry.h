#pragma once
// Exact per-triangle primitives shared by the spatial tree and the brute-force queries.
// Both paths call the same functions, so a tree query and a full scan agree bit for bit
// on the distance or hit parameter of any one triangle.

#include <cmath>
#include <cstdint>

#include "core/vec.h"

// The closest-point test runs several times per query in the tree's inner loop; inlining it
// there saves about a tenth of a query's instructions.
#if defined(__GNUC__)
#define TRESSORA_FORCE_INLINE __attribute__((always_inline)) inline
#elif defined(_MSC_VER)
#define TRESSORA_FORCE_INLINE __forceinline
#else
#define TRESSORA_FORCE_INLINE inline
#endif

namespace tressora {

/// Where on a triangle a closest point lies: inside the face, on a corner or on an edge.
enum class TriangleFeature : std::uint8_t { Face, Corner0, Corner1, Corner2, Edge01, Edge02, Edge12 };

/// The point of a triangle nearest to a query: barycentric weights of corners 1 and 2
/// (corner 0 weighs 1 - b1 - b2), the position, the squared distance to the query and the
/// feature it lies on.
struct TriangleClosest {
    Vec3f point;
    float b1 = 0.0f;
    float b2 = 0.0f;
    float distanceSquared = 0.0f;
    TriangleFeature feature = TriangleFeature::Face;
};

namespace detail {

/// The nearest point of segment [p, q] to x, as a parameter along it.
inline float segmentParameter(Vec3f x, Vec3f p, Vec3f q) {
    const Vec3f d = q - p;
    const float len2 = dot(d, d);
    if (!(len2 > 0.0f)) return 0.0f;
    const float t = dot(x - p, d) / len2;
    return t < 0.0f ? 0.0f : (t > 1.0f ? 1.0f : t);
}

/// Closest point of a triangle with no area: the nearest of its three edges.
inline TriangleClosest closestOnFlatTriangle(Vec3f x, Vec3f a, Vec3f b, Vec3f c) {
    TriangleClosest best;
    bool first = true;
    auto consider = [&](float b1, float b2, TriangleFeature feature) {
        const Vec3f p = a + (b - a) * b1 + (c - a) * b2;
        const float d2 = lengthSquared(x - p);
        if (first || d2 < best.distanceSquared) best = {p, b1, b2, d2, feature};
        first = false;
    };
    const float tab = segmentParameter(x, a, b);
    consider(tab, 0.0f, TriangleFeature::Edge01);
    const float tac = segmentParameter(x, a, c);
    consider(0.0f, tac, TriangleFeature::Edge02);
    const float tbc = segmentParameter(x, b, c);
    consider(1.0f - tbc, tbc, TriangleFeature::Edge12);
    return best;
}

}  // namespace detail

/// The exact closest point of triangle (a, b, c) to x by Voronoi regions: each corner, then
/// each edge, then the face. Regions on a corner or an edge give exact zero weights.
/// A triangle of zero area falls back on its edges and never yields NaN for finite input.
TRESSORA_FORCE_INLINE TriangleClosest closestOnTriangle(Vec3f x, Vec3f a, Vec3f b, Vec3f c) {
    const Vec3f ab = b - a, ac = c - a, ap = x - a;
    const float d1 = dot(ab, ap), d2 = dot(ac, ap);
    if (d1 <= 0.0f && d2 <= 0.0f) return {a, 0.0f, 0.0f, lengthSquared(x - a), TriangleFeature::Corner0};

    const Vec3f bp = x - b;
    const float d3 = dot(ab, bp), d4 = dot(ac, bp);
    if (d3 >= 0.0f && d4 <= d3) return {b, 1.0f, 0.0f, lengthSquared(x - b), TriangleFeature::Corner1};

    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0.0f && d1 >= 0.0f && d3 <= 0.0f) {
        const float v = d1 / (d1 - d3);
        const Vec3f p = a + ab * v;
        return {p, v, 0.0f, lengthSquared(x - p), TriangleFeature::Edge01};
    }

    const Vec3f cp = x - c;
    const float d5 = dot(ab, cp), d6 = dot(ac, cp);
    if (d6 >= 0.0f && d5 <= d6) return {c, 0.0f, 1.0f, lengthSquared(x - c), TriangleFeature::Corner2};

    const float vb = d5 * d2 - d1 * d6;
    if (vb <= 0.0f && d2 >= 0.0f && d6 <= 0.0f) {
        const float w = d2 / (d2 - d6);
        const Vec3f p = a + ac * w;
        return {p, 0.0f, w, lengthSquared(x - p), TriangleFeature::Edge02};
    }

    const float va = d3 * d6 - d5 * d4;
    if (va <= 0.0f && (d4 - d3) >= 0.0f && (d5 - d6) >= 0.0f) {
        const float w = (d4 - d3) / ((d4 - d3) + (d5 - d6));
        const Vec3f p = b + (c - b) * w;
        return {p, 1.0f - w, w, lengthSquared(x - p), TriangleFeature::Edge12};
    }

    const float sum = va + vb + vc;
    if (!(sum > 0.0f) || !std::isfinite(sum)) return detail::closestOnFlatTriangle(x, a, b, c);
    const float inv = 1.0f / sum;
    const float v = vb * inv, w = vc * inv;
    const Vec3f p = a + ab * v + ac * w;
    return {p, v, w, lengthSquared(x - p), TriangleFeature::Face};
}

/// A ray's hit on a triangle (both sides count): the parameter t along the direction and
/// the barycentric weights of corners 1 and 2. Returns false for a miss or a ray parallel
/// to the triangle's plane. Moeller-Trumbore.
inline bool rayTriangle(Vec3f origin, Vec3f direction, Vec3f a, Vec3f b, Vec3f c, float& t,
                        float& b1, float& b2) {
    const Vec3f e1 = b - a, e2 = c - a;
    const Vec3f pvec = cross(direction, e2);
    const float det = dot(e1, pvec);
    if (det == 0.0f || !std::isfinite(det)) return false;
    const float inv = 1.0f / det;
    const Vec3f tvec = origin - a;
    const float u = dot(tvec, pvec) * inv;
    if (!(u >= 0.0f && u <= 1.0f)) return false;
    const Vec3f qvec = cross(tvec, e1);
    const float v = dot(direction, qvec) * inv;
    if (!(v >= 0.0f && u + v <= 1.0f)) return false;
    t = dot(e2, qvec) * inv;
    b1 = u;
    b2 = v;
    return std::isfinite(t);
}

}  // namespace tressora
