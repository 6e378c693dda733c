#pragma once
// closestOnTriangle for four triangles at once, with SSE. Every lane performs exactly the
// float operations of the one-triangle function, in the same order, for the region that
// function would pick, so the answers are bit for bit the same; lanes whose triangle has no
// area are handed to the one-triangle function itself.

#include "core/triangle_geometry.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <immintrin.h>
#define TRESSORA_CLOSEST_X4 1
#endif

namespace tressora {

/// Four answers: squared distance, barycentrics and point per lane.
struct Closest4 {
    alignas(16) float distanceSquared[4];
    alignas(16) float b1[4];
    alignas(16) float b2[4];
    alignas(16) float x[4];
    alignas(16) float y[4];
    alignas(16) float z[4];
};

#ifdef TRESSORA_CLOSEST_X4
namespace detail {

struct V4 {
    __m128 x, y, z;
};
inline V4 sub(const V4& a, const V4& b) { return {_mm_sub_ps(a.x, b.x), _mm_sub_ps(a.y, b.y), _mm_sub_ps(a.z, b.z)}; }
inline V4 add(const V4& a, const V4& b) { return {_mm_add_ps(a.x, b.x), _mm_add_ps(a.y, b.y), _mm_add_ps(a.z, b.z)}; }
inline V4 scale(const V4& a, __m128 s) { return {_mm_mul_ps(a.x, s), _mm_mul_ps(a.y, s), _mm_mul_ps(a.z, s)}; }
/// (a.x * b.x + a.y * b.y) + a.z * b.z, the order of the scalar dot.
inline __m128 dot4(const V4& a, const V4& b) {
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(a.x, b.x), _mm_mul_ps(a.y, b.y)), _mm_mul_ps(a.z, b.z));
}
inline __m128 select(__m128 mask, __m128 yes, __m128 no) { return _mm_or_ps(_mm_and_ps(mask, yes), _mm_andnot_ps(mask, no)); }

}  // namespace detail

/// The closest points of four triangles to x. Corner c's coordinate a of lane i is read at
/// rows[(c * 3 + a) * stride + i]; four floats are read from each row, so the last row
/// needs three readable floats past `lanes`. Lanes from `lanes` on are left undefined.
inline void closestOnTriangles4(Vec3f x, const float* rows, std::size_t stride, int lanes, Closest4& out) {
    using namespace detail;
    auto load = [&](int corner) {
        const float* r = rows + static_cast<std::size_t>(corner) * 3 * stride;
        return V4{_mm_loadu_ps(r), _mm_loadu_ps(r + stride), _mm_loadu_ps(r + 2 * stride)};
    };
    const V4 a = load(0), b = load(1), c = load(2);
    const V4 q{_mm_set1_ps(x.x), _mm_set1_ps(x.y), _mm_set1_ps(x.z)};
    const __m128 zero = _mm_setzero_ps(), one = _mm_set1_ps(1.0f);

    const V4 ab = sub(b, a), ac = sub(c, a), ap = sub(q, a);
    const __m128 d1 = dot4(ab, ap), d2 = dot4(ac, ap);
    const V4 bp = sub(q, b);
    const __m128 d3 = dot4(ab, bp), d4 = dot4(ac, bp);
    const __m128 vc = _mm_sub_ps(_mm_mul_ps(d1, d4), _mm_mul_ps(d3, d2));
    const V4 cp = sub(q, c);
    const __m128 d5 = dot4(ab, cp), d6 = dot4(ac, cp);
    const __m128 vb = _mm_sub_ps(_mm_mul_ps(d5, d2), _mm_mul_ps(d1, d6));
    const __m128 va = _mm_sub_ps(_mm_mul_ps(d3, d6), _mm_mul_ps(d5, d4));

    // The face region first; every earlier region in the scalar order then overwrites it
    // where it applies, the earliest last.
    const __m128 sum = _mm_add_ps(_mm_add_ps(va, vb), vc);
    const __m128 inv = _mm_div_ps(one, sum);
    __m128 rb1 = _mm_mul_ps(vb, inv), rb2 = _mm_mul_ps(vc, inv);
    V4 p = add(add(a, scale(ab, rb1)), scale(ac, rb2));

    auto region = [&](__m128 mask, __m128 nb1, __m128 nb2, const V4& np) {
        rb1 = select(mask, nb1, rb1);
        rb2 = select(mask, nb2, rb2);
        p = {select(mask, np.x, p.x), select(mask, np.y, p.y), select(mask, np.z, p.z)};
    };
    // Edge bc.
    const __m128 e43 = _mm_sub_ps(d4, d3), e56 = _mm_sub_ps(d5, d6);
    const __m128 mBc = _mm_and_ps(_mm_cmple_ps(va, zero), _mm_and_ps(_mm_cmpge_ps(e43, zero), _mm_cmpge_ps(e56, zero)));
    const __m128 wBc = _mm_div_ps(e43, _mm_add_ps(e43, e56));
    region(mBc, _mm_sub_ps(one, wBc), wBc, add(b, scale(sub(c, b), wBc)));
    // Edge ac.
    const __m128 mAc = _mm_and_ps(_mm_cmple_ps(vb, zero), _mm_and_ps(_mm_cmpge_ps(d2, zero), _mm_cmple_ps(d6, zero)));
    const __m128 wAc = _mm_div_ps(d2, _mm_sub_ps(d2, d6));
    region(mAc, zero, wAc, add(a, scale(ac, wAc)));
    // Corner c.
    const __m128 mC = _mm_and_ps(_mm_cmpge_ps(d6, zero), _mm_cmple_ps(d5, d6));
    region(mC, zero, one, c);
    // Edge ab.
    const __m128 mAb = _mm_and_ps(_mm_cmple_ps(vc, zero), _mm_and_ps(_mm_cmpge_ps(d1, zero), _mm_cmple_ps(d3, zero)));
    const __m128 vAb = _mm_div_ps(d1, _mm_sub_ps(d1, d3));
    region(mAb, vAb, zero, add(a, scale(ab, vAb)));
    // Corner b.
    const __m128 mB = _mm_and_ps(_mm_cmpge_ps(d3, zero), _mm_cmple_ps(d4, d3));
    region(mB, one, zero, b);
    // Corner a.
    const __m128 mA = _mm_and_ps(_mm_cmple_ps(d1, zero), _mm_cmple_ps(d2, zero));
    region(mA, zero, zero, a);

    const V4 d = sub(q, p);
    _mm_store_ps(out.distanceSquared, dot4(d, d));
    _mm_store_ps(out.b1, rb1);
    _mm_store_ps(out.b2, rb2);
    _mm_store_ps(out.x, p.x);
    _mm_store_ps(out.y, p.y);
    _mm_store_ps(out.z, p.z);

    // Lanes that reached the face region with no usable area take the scalar path.
    const __m128 anyRegion = _mm_or_ps(_mm_or_ps(_mm_or_ps(mBc, mAc), _mm_or_ps(mC, mAb)), _mm_or_ps(mB, mA));
    const __m128 usable = _mm_and_ps(_mm_cmpgt_ps(sum, zero), _mm_cmplt_ps(sum, _mm_set1_ps(INFINITY)));
    const int fallback = _mm_movemask_ps(_mm_andnot_ps(_mm_or_ps(anyRegion, usable), _mm_castsi128_ps(_mm_set1_epi32(-1))));
    for (int i = 0; i < lanes; ++i) {
        if (!(fallback & (1 << i))) continue;
        auto corner = [&](int k) {
            const float* r = rows + static_cast<std::size_t>(k) * 3 * stride + i;
            return Vec3f{r[0], r[stride], r[2 * stride]};
        };
        const TriangleClosest s = closestOnTriangle(x, corner(0), corner(1), corner(2));
        out.distanceSquared[i] = s.distanceSquared;
        out.b1[i] = s.b1;
        out.b2[i] = s.b2;
        out.x[i] = s.point.x;
        out.y[i] = s.point.y;
        out.z[i] = s.point.z;
    }
}
#endif

}  // namespace tressora
