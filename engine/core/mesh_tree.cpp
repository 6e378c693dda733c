#include "core/mesh_tree.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <numeric>

#if defined(__SSE2__) || defined(_M_X64)
#include <immintrin.h>
#define TRESSORA_TREE_SSE 1
#endif

#include "core/parallel.h"
#include "core/prefetch.h"
#include "core/triangle_geometry.h"

namespace tressora {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr std::size_t kLeafGrain = 1024;

/// The sort key of a centroid coordinate: NaN sorts as +infinity so the ordering stays strict.
float centroidKey(float v) { return std::isnan(v) ? kInf : v; }

/// Bounds of the corner points of the triangles order[first, first + count), padded outward by
/// a few units in the last place of the largest coordinate: a closest point computed on a
/// triangle may round just outside its exact box, and the padding keeps the tree's pruning
/// from ever rejecting a triangle that a full scan would pick.
void leafBounds(const BvhTree& tree, std::uint32_t first, std::uint32_t count,
                std::span<const Vec3f> points, std::span<const MeshTriangle> triangles, float* out) {
    float lo[3] = {kInf, kInf, kInf};
    float hi[3] = {-kInf, -kInf, -kInf};
    for (std::uint32_t k = first; k < first + count; ++k) {
        for (std::int32_t index : triangles[tree.order[k]]) {
            const Vec3f p = points[static_cast<std::size_t>(index)];
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], p[a]);
                hi[a] = std::max(hi[a], p[a]);
            }
        }
    }
    float largest = 0.0f;
    for (int a = 0; a < 3; ++a) largest = std::max({largest, std::fabs(lo[a]), std::fabs(hi[a])});
    const float pad = largest * (4.0f * FLT_EPSILON) + FLT_MIN;
    for (int a = 0; a < 3; ++a) {
        out[a] = lo[a] - pad;
        out[3 + a] = hi[a] + pad;
    }
}

/// Lays the inner nodes' child pairs out in depth-first order for the closest-point walk.
void packPairs(BvhTree& tree) {
    const std::size_t count = tree.nodes.size();
    // Pair index of each inner node, numbered in pre-order with the left subtree first.
    std::vector<std::uint32_t> pairOf(count, 0);
    std::uint32_t next = 0;
    std::vector<std::uint32_t> stack;
    if (!tree.isLeaf(0)) stack.push_back(0);
    while (!stack.empty()) {
        const std::uint32_t n = stack.back();
        stack.pop_back();
        pairOf[n] = next++;
        const std::uint32_t left = tree.nodes[n][0];
        if (!tree.isLeaf(left + 1)) stack.push_back(left + 1);
        if (!tree.isLeaf(left)) stack.push_back(left);
    }
    const auto record = [&](std::uint32_t n) {
        return tree.isLeaf(n) ? tree.nodes[n] : std::array<std::uint32_t, 2>{pairOf[n], 0};
    };
    tree.root = record(0);
    tree.pairs.assign(next, BvhTree::ChildPair{});
    for (std::uint32_t n = 0; n < count; ++n) {
        if (tree.isLeaf(n)) continue;
        BvhTree::ChildPair& pair = tree.pairs[pairOf[n]];
        const std::uint32_t left = tree.nodes[n][0];
        for (std::uint32_t side = 0; side < 2; ++side) {
            const float* b = &tree.bounds[std::size_t{left + side} * 6];
            pair.xy[0][side] = b[0];
            pair.xy[0][2 + side] = b[1];
            pair.xy[1][side] = b[3];
            pair.xy[1][2 + side] = b[4];
            pair.z[side] = b[2];
            pair.z[2 + side] = b[5];
            pair.child[side] = record(left + side);
        }
    }
}

/// Fills the corner copies and every node's bounds: leaves in parallel from their triangles,
/// then inner nodes from the last to the first, since children always come after their parent.
void fillBounds(BvhTree& tree, std::span<const Vec3f> points, std::span<const MeshTriangle> triangles) {
    const std::size_t count = tree.nodes.size();
    // Three floats past the end, so that a four-wide load of a leaf's last row stays inside.
    tree.corners.assign(tree.order.size() * 9 + 3, 0.0f);
    tree.bounds.assign(count * 6 + 2, 0.0f);
    parallelRange(0, count, kLeafGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t n = lo; n < hi; ++n) {
            if (!tree.isLeaf(static_cast<std::uint32_t>(n))) continue;
            const auto [first, size] = tree.nodes[n];
            leafBounds(tree, first, size, points, triangles, &tree.bounds[n * 6]);
            float* rows = &tree.corners[std::size_t{first} * 9];
            for (std::uint32_t i = 0; i < size; ++i)
                for (int c = 0; c < 3; ++c) {
                    const Vec3f p = points[static_cast<std::size_t>(triangles[tree.order[first + i]][c])];
                    for (int a = 0; a < 3; ++a) rows[static_cast<std::size_t>(c * 3 + a) * size + i] = p[a];
                }
        }
    });
    for (std::size_t n = count; n-- > 0;) {
        if (tree.isLeaf(static_cast<std::uint32_t>(n))) continue;
        const float* l = &tree.bounds[tree.nodes[n][0] * 6];
        const float* r = l + 6;
        float* b = &tree.bounds[n * 6];
        for (int a = 0; a < 3; ++a) {
            b[a] = std::min(l[a], r[a]);
            b[3 + a] = std::max(l[3 + a], r[3 + a]);
        }
    }
    packPairs(tree);
}

/// Squared distance from q to a node's box, zero inside it.
#ifdef TRESSORA_TREE_SSE
inline float boxDistanceSquared(const float* box, __m128 q) {
    const __m128 lo = _mm_loadu_ps(box);
    const __m128 hi = _mm_loadu_ps(box + 3);
    const __m128 lanes = _mm_castsi128_ps(_mm_set_epi32(0, -1, -1, -1));
    __m128 d = _mm_max_ps(_mm_max_ps(_mm_sub_ps(lo, q), _mm_sub_ps(q, hi)), _mm_setzero_ps());
    d = _mm_and_ps(d, lanes);
    d = _mm_mul_ps(d, d);
    alignas(16) float s[4];
    _mm_store_ps(s, d);
    return (s[0] + s[1]) + s[2];
}
#else
inline float boxDistanceSquared(const float* box, const float* q) {
    float s[3];
    for (int a = 0; a < 3; ++a) {
        const float d = std::max(std::max(box[a] - q[a], q[a] - box[3 + a]), 0.0f);
        s[a] = d * d;
    }
    return (s[0] + s[1]) + s[2];
}
#endif

/// Squared distances from q to the boxes of a pair's left and right child, computed exactly
/// as boxDistanceSquared does for each box alone.
#ifdef TRESSORA_TREE_SSE
inline void pairDistancesSquared(const BvhTree::ChildPair& pair, __m128 qxy, __m128 qz, float& left,
                                 float& right) {
    const __m128 zero = _mm_setzero_ps();
    const __m128 lo = _mm_load_ps(pair.xy[0]);
    const __m128 hi = _mm_load_ps(pair.xy[1]);
    const __m128 dxy = _mm_max_ps(_mm_max_ps(_mm_sub_ps(lo, qxy), _mm_sub_ps(qxy, hi)), zero);
    const __m128 z = _mm_load_ps(pair.z);
    const __m128 above = _mm_sub_ps(qz, z);  // lanes 2 and 3: q minus max z
    const __m128 dz = _mm_max_ps(_mm_max_ps(_mm_sub_ps(z, qz), _mm_movehl_ps(above, above)), zero);
    const __m128 sxy = _mm_mul_ps(dxy, dxy);
    const __m128 sum = _mm_add_ps(_mm_add_ps(sxy, _mm_movehl_ps(sxy, sxy)), _mm_mul_ps(dz, dz));
    left = _mm_cvtss_f32(sum);
    right = _mm_cvtss_f32(_mm_shuffle_ps(sum, sum, 1));
}
#else
inline void pairDistancesSquared(const BvhTree::ChildPair& pair, const float* q, float& left, float& right) {
    float d[2];
    for (int side = 0; side < 2; ++side) {
        const float box[6] = {pair.xy[0][side], pair.xy[0][2 + side], pair.z[side],
                              pair.xy[1][side], pair.xy[1][2 + side], pair.z[2 + side]};
        d[side] = boxDistanceSquared(box, q);
    }
    left = d[0];
    right = d[1];
}
#endif

#ifdef TRESSORA_TREE_SSE

/// closestOnTriangle for a triangle whose six corner dot products are already known: the
/// same regions in the same order with the same operations, so the answers are identical.
/// (d1, d2) are ab and ac dotted with x - a, (d3, d4) with x - b, (d5, d6) with x - c.
inline TriangleClosest closestFromDots(Vec3f x, Vec3f a, Vec3f b, Vec3f c, const float* d) {
    const float d1 = d[0], d2 = d[1], d3 = d[2], d4 = d[3], d5 = d[4], d6 = d[5];
    if (d1 <= 0.0f && d2 <= 0.0f) return {a, 0.0f, 0.0f, lengthSquared(x - a), TriangleFeature::Corner0};
    if (d3 >= 0.0f && d4 <= d3) return {b, 1.0f, 0.0f, lengthSquared(x - b), TriangleFeature::Corner1};
    const Vec3f ab = b - a, ac = c - a;
    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0.0f && d1 >= 0.0f && d3 <= 0.0f) {
        const float v = d1 / (d1 - d3);
        const Vec3f p = a + ab * v;
        return {p, v, 0.0f, lengthSquared(x - p), TriangleFeature::Edge01};
    }
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

/// The squared distances from q to up to four triangles at once, one per lane, by the same
/// regions, in the same order and with the same operations as closestFromDots, so each lane
/// equals that triangle's distance bit for bit. Every region is worked out in every lane and
/// the first that applies is kept, so the loop has no branch to mispredict. The leaf's corner
/// rows are loaded four wide; lanes past the leaf's count hold whatever follows and are
/// ignored. A lane whose face region has no positive finite area sum is marked in `flat` for
/// the caller to work out alone, and its distance is left unset. Also hands back the six dot
/// products of each lane, so the winner's point follows without redoing them.
struct LeafLanes {
    alignas(16) float distance[4];
    alignas(16) float dots[6][4];
    int flat;  ///< bit i: lane i needs the flat-triangle fallback
};

inline void leafDistances(const float* rows, std::uint32_t count, __m128 qx, __m128 qy, __m128 qz, LeafLanes& out) {
    const auto row = [&](int r) { return _mm_loadu_ps(rows + static_cast<std::size_t>(r) * count); };
    const __m128 ax = row(0), ay = row(1), az = row(2);
    const __m128 bx = row(3), by = row(4), bz = row(5);
    const __m128 cx = row(6), cy = row(7), cz = row(8);
    const __m128 abx = _mm_sub_ps(bx, ax), aby = _mm_sub_ps(by, ay), abz = _mm_sub_ps(bz, az);
    const __m128 acx = _mm_sub_ps(cx, ax), acy = _mm_sub_ps(cy, ay), acz = _mm_sub_ps(cz, az);
    // dot(u, v) = (u.x v.x + u.y v.y) + u.z v.z, as in the one-triangle form
    const auto dot = [](__m128 ux, __m128 uy, __m128 uz, __m128 vx, __m128 vy, __m128 vz) {
        return _mm_add_ps(_mm_add_ps(_mm_mul_ps(ux, vx), _mm_mul_ps(uy, vy)), _mm_mul_ps(uz, vz));
    };
    const auto square = [&](__m128 x, __m128 y, __m128 z) { return dot(x, y, z, x, y, z); };
    const __m128 apx = _mm_sub_ps(qx, ax), apy = _mm_sub_ps(qy, ay), apz = _mm_sub_ps(qz, az);
    const __m128 bpx = _mm_sub_ps(qx, bx), bpy = _mm_sub_ps(qy, by), bpz = _mm_sub_ps(qz, bz);
    const __m128 cpx = _mm_sub_ps(qx, cx), cpy = _mm_sub_ps(qy, cy), cpz = _mm_sub_ps(qz, cz);
    const __m128 d1 = dot(abx, aby, abz, apx, apy, apz), d2 = dot(acx, acy, acz, apx, apy, apz);
    const __m128 d3 = dot(abx, aby, abz, bpx, bpy, bpz), d4 = dot(acx, acy, acz, bpx, bpy, bpz);
    const __m128 d5 = dot(abx, aby, abz, cpx, cpy, cpz), d6 = dot(acx, acy, acz, cpx, cpy, cpz);
    _mm_store_ps(out.dots[0], d1);
    _mm_store_ps(out.dots[1], d2);
    _mm_store_ps(out.dots[2], d3);
    _mm_store_ps(out.dots[3], d4);
    _mm_store_ps(out.dots[4], d5);
    _mm_store_ps(out.dots[5], d6);

    const __m128 zero = _mm_setzero_ps();
    const auto le = [](__m128 x, __m128 y) { return _mm_cmple_ps(x, y); };
    const auto both = [](__m128 x, __m128 y) { return _mm_and_ps(x, y); };
    // The distance of the point a + u * t to q, t per lane.
    const auto along = [&](__m128 ux, __m128 uy, __m128 uz, __m128 ox, __m128 oy, __m128 oz, __m128 t) {
        return square(_mm_sub_ps(qx, _mm_add_ps(ox, _mm_mul_ps(ux, t))), _mm_sub_ps(qy, _mm_add_ps(oy, _mm_mul_ps(uy, t))),
                      _mm_sub_ps(qz, _mm_add_ps(oz, _mm_mul_ps(uz, t))));
    };

    // The regions from the last to the first, each later one overwriting what it covers.
    const __m128 vc = _mm_sub_ps(_mm_mul_ps(d1, d4), _mm_mul_ps(d3, d2));
    const __m128 vb = _mm_sub_ps(_mm_mul_ps(d5, d2), _mm_mul_ps(d1, d6));
    const __m128 va = _mm_sub_ps(_mm_mul_ps(d3, d6), _mm_mul_ps(d5, d4));
    const __m128 sum = _mm_add_ps(_mm_add_ps(va, vb), vc);
    const __m128 inv = _mm_div_ps(_mm_set1_ps(1.0f), sum);
    const __m128 v = _mm_mul_ps(vb, inv), w = _mm_mul_ps(vc, inv);
    // a + ab * v + ac * w, left to right
    __m128 result = square(_mm_sub_ps(qx, _mm_add_ps(_mm_add_ps(ax, _mm_mul_ps(abx, v)), _mm_mul_ps(acx, w))),
                           _mm_sub_ps(qy, _mm_add_ps(_mm_add_ps(ay, _mm_mul_ps(aby, v)), _mm_mul_ps(acy, w))),
                           _mm_sub_ps(qz, _mm_add_ps(_mm_add_ps(az, _mm_mul_ps(abz, v)), _mm_mul_ps(acz, w))));
    // A face lane is fine when 0 < sum < infinity; NaN fails both tests.
    const __m128 faceOk = both(_mm_cmpgt_ps(sum, zero), _mm_cmplt_ps(sum, _mm_set1_ps(kInf)));
    const auto take = [&](__m128 mask, __m128 value) {
        result = _mm_or_ps(_mm_and_ps(mask, value), _mm_andnot_ps(mask, result));
    };

    const __m128 e43 = _mm_sub_ps(d4, d3), e56 = _mm_sub_ps(d5, d6);
    const __m128 m12 = both(both(le(va, zero), le(zero, e43)), le(zero, e56));
    take(m12, along(_mm_sub_ps(cx, bx), _mm_sub_ps(cy, by), _mm_sub_ps(cz, bz), bx, by, bz,
                    _mm_div_ps(e43, _mm_add_ps(e43, e56))));
    const __m128 m02 = both(both(le(vb, zero), le(zero, d2)), le(d6, zero));
    take(m02, along(acx, acy, acz, ax, ay, az, _mm_div_ps(d2, _mm_sub_ps(d2, d6))));
    const __m128 mc2 = both(le(zero, d6), le(d5, d6));
    take(mc2, square(cpx, cpy, cpz));
    const __m128 m01 = both(both(le(vc, zero), le(zero, d1)), le(d3, zero));
    take(m01, along(abx, aby, abz, ax, ay, az, _mm_div_ps(d1, _mm_sub_ps(d1, d3))));
    const __m128 mc1 = both(le(zero, d3), le(d4, d3));
    take(mc1, square(bpx, bpy, bpz));
    const __m128 mc0 = both(le(d1, zero), le(d2, zero));
    take(mc0, square(apx, apy, apz));
    const __m128 decided = _mm_or_ps(_mm_or_ps(_mm_or_ps(m12, m02), _mm_or_ps(mc2, m01)), _mm_or_ps(mc1, mc0));
    _mm_store_ps(out.distance, result);
    out.flat = _mm_movemask_ps(_mm_andnot_ps(_mm_or_ps(decided, faceOk), _mm_castsi128_ps(_mm_set1_epi32(-1))));
}

#endif

/// Tests a leaf's triangles in order; a strictly smaller distance replaces the best, so of
/// equal distances the first tested is kept.
void testLeaf(const BvhTree& tree, std::uint32_t first, std::uint32_t count, Vec3f query, float& best,
              TreeHit& hit) {
#ifdef TRESSORA_TREE_SSE
    LeafLanes lanes;
    leafDistances(&tree.corners[std::size_t{first} * 9], count, _mm_set1_ps(query.x), _mm_set1_ps(query.y),
                  _mm_set1_ps(query.z), lanes);
#endif
    for (std::uint32_t i = 0; i < count; ++i) {
#ifdef TRESSORA_TREE_SSE
        // Only a lane that beats the best is worked out in full.
        if (!((lanes.flat >> i) & 1) && !(lanes.distance[i] < best)) continue;
#endif
        const Vec3f a = tree.corner(first, count, i, 0), b = tree.corner(first, count, i, 1),
                    c = tree.corner(first, count, i, 2);
#ifdef TRESSORA_TREE_SSE
        const float d[6] = {lanes.dots[0][i], lanes.dots[1][i], lanes.dots[2][i],
                            lanes.dots[3][i], lanes.dots[4][i], lanes.dots[5][i]};
        const TriangleClosest closest = closestFromDots(query, a, b, c, d);
#else
        const TriangleClosest closest = closestOnTriangle(query, a, b, c);
#endif
        if (!(closest.distanceSquared < best)) continue;
        best = closest.distanceSquared;
        hit.face = static_cast<std::int32_t>(tree.order[first + i]);
        hit.b1 = closest.b1;
        hit.b2 = closest.b2;
        hit.position = closest.point;
        hit.distanceSquared = closest.distanceSquared;
    }
}

}  // namespace

std::shared_ptr<const BvhTree> BvhTree::build(std::span<const Vec3f> points,
                                              std::span<const MeshTriangle> triangles) {
    auto tree = std::make_shared<BvhTree>();
    const std::size_t n = triangles.size();
    if (n == 0) return tree;

    // Each triangle's centroid is the centre of its bounding box.
    std::vector<Vec3f> centroid(n);
    parallelRange(0, n, 4096, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const MeshTriangle& t = triangles[i];
            const Vec3f a = points[static_cast<std::size_t>(t[0])];
            const Vec3f b = points[static_cast<std::size_t>(t[1])];
            const Vec3f c = points[static_cast<std::size_t>(t[2])];
            Vec3f m;
            for (int k = 0; k < 3; ++k) {
                const float mn = std::min({a[k], b[k], c[k]});
                const float mx = std::max({a[k], b[k], c[k]});
                m[k] = centroidKey((mn + mx) * 0.5f);
            }
            centroid[i] = m;
        }
    });

    tree->order.resize(n);
    std::iota(tree->order.begin(), tree->order.end(), 0u);
    tree->nodes.reserve(n / 2 + 1);
    tree->nodes.push_back({0, 0});

    struct Work {
        std::uint32_t node, first, last, depth;
    };
    std::vector<Work> stack{{0, 0, static_cast<std::uint32_t>(n), 1}};
    std::uint32_t depth = 0;
    while (!stack.empty()) {
        const Work w = stack.back();
        stack.pop_back();
        depth = std::max(depth, w.depth);
        const std::uint32_t count = w.last - w.first;

        Vec3f lo{kInf, kInf, kInf}, hi{-kInf, -kInf, -kInf};
        for (std::uint32_t k = w.first; k < w.last; ++k) {
            const Vec3f c = centroid[tree->order[k]];
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], c[a]);
                hi[a] = std::max(hi[a], c[a]);
            }
        }
        const Vec3f extent = hi - lo;
        int axis = 0;
        if (extent[1] > extent[axis]) axis = 1;
        if (extent[2] > extent[axis]) axis = 2;

        auto begin = tree->order.begin();
        if (count < 5) {
            std::sort(begin + w.first, begin + w.last);
            tree->nodes[w.node] = {w.first, count};
            continue;
        }
        // A leaf holds at most four triangles (the leaf test works four lanes at a time), so
        // triangles whose centres cannot be told apart (stacked copies, points that are not
        // finite) are split by index instead.
        const std::uint32_t mid = w.first + count / 2;
        if (extent[axis] > 0.0f) {
            std::nth_element(begin + w.first, begin + mid, begin + w.last,
                             [&](std::uint32_t a, std::uint32_t b) {
                                 const float ca = centroid[a][axis], cb = centroid[b][axis];
                                 return ca < cb || (ca == cb && a < b);
                             });
        } else {
            std::sort(begin + w.first, begin + w.last);
        }
        const auto left = static_cast<std::uint32_t>(tree->nodes.size());
        tree->nodes.push_back({0, 0});
        tree->nodes.push_back({0, 0});
        tree->nodes[w.node] = {left, 0};
        stack.push_back({left, w.first, mid, w.depth + 1});
        stack.push_back({left + 1, mid, w.last, w.depth + 1});
    }
    tree->depth = depth;
    fillBounds(*tree, points, triangles);
    return tree;
}

std::shared_ptr<const BvhTree> BvhTree::refit(const BvhTree& shape, std::span<const Vec3f> points,
                                              std::span<const MeshTriangle> triangles) {
    auto tree = std::make_shared<BvhTree>();
    tree->nodes = shape.nodes;
    tree->order = shape.order;
    tree->depth = shape.depth;
    if (!tree->nodes.empty()) fillBounds(*tree, points, triangles);
    return tree;
}

TreeHit closestInTree(const BvhTree& tree, Vec3f query, float maxDistance) {
    TreeHit hit;
    if (tree.nodes.empty() || std::isnan(query.x) || std::isnan(query.y) || std::isnan(query.z)) return hit;
    float best = maxDistance < std::sqrt(FLT_MAX) ? maxDistance * maxDistance : kInf;

#ifdef TRESSORA_TREE_SSE
    const __m128 q = _mm_set_ps(0.0f, query.z, query.y, query.x);
    const __m128 qxy = _mm_set_ps(query.y, query.y, query.x, query.x);
    const __m128 qz = _mm_set1_ps(query.z);
#define TRESSORA_PAIR_QUERY qxy, qz
#else
    const float q[3] = {query.x, query.y, query.z};
#define TRESSORA_PAIR_QUERY q
#endif
    // A node is known by its child record (see BvhTree::ChildPair), read with its sibling's
    // when the parent was opened, so popping an entry starts no new memory access. The data
    // a record leads to (its children's pair or its triangles) is prefetched as soon as the
    // record is read, for the near child as well as for the far one on the stack.
    using Record = std::array<std::uint32_t, 2>;
    struct Entry {
        Record node;
        float distance;
    };
    const BvhTree::ChildPair* pairs = tree.pairs.data();
    auto prefetch = [&](const Record& node) {
        if (node[1] != 0) {
            const char* first = reinterpret_cast<const char*>(&tree.corners[std::size_t{node[0]} * 9]);
            const char* last = reinterpret_cast<const char*>(&tree.corners[std::size_t{node[0] + node[1]} * 9]);
            for (const char* p = first; p < last; p += 64) prefetchRead(p);
        } else {
            prefetchRead(pairs + node[0]);
        }
    };
    Entry stack[64];
    int top = 0;
    // The near child is walked into at once rather than pushed and popped: nothing can
    // change the best distance in between, so this is the same order as a push and a pop.
    Record node = tree.root;
    bool walking = boxDistanceSquared(tree.bounds.data(), q) < best;
    for (;;) {
        if (!walking) {
            while (top > 0 && !(stack[top - 1].distance < best)) --top;
            if (top == 0) break;
            node = stack[--top].node;
        }
        walking = false;
        if (node[1] != 0) {
            testLeaf(tree, node[0], node[1], query, best, hit);
            continue;
        }
        const BvhTree::ChildPair& pair = pairs[node[0]];
        float dl, dr;
        pairDistancesSquared(pair, TRESSORA_PAIR_QUERY, dl, dr);
        // The far child waits on the stack; the near one goes first, the left one on a tie.
        const bool leftFirst = dl <= dr;
        const Record left = pair.child[0], right = pair.child[1];
        const Record nearNode = leftFirst ? left : right;
        const Record farNode = leftFirst ? right : left;
        const float nearDistance = leftFirst ? dl : dr, farDistance = leftFirst ? dr : dl;
        if (nearDistance < best) walking = true;
        if (farDistance < best) {
            prefetch(farNode);
            stack[top++] = {farNode, farDistance};
        }
        if (walking) node = nearNode;
    }
#undef TRESSORA_PAIR_QUERY
    return hit;
}

bool rayInTree(const BvhTree& tree, Vec3f origin, Vec3f direction, float tMin, float tMax,
               float margin, TreeHit& hit) {
    if (tree.nodes.empty()) return false;
    const float len = length(direction);
    if (!(len > 0.0f)) return false;
    const float tEps = margin / len;
    float inv[3];
    for (int a = 0; a < 3; ++a) {
        const float d = direction[a];
        inv[a] = std::fabs(d) > 1e-30f ? 1.0f / d : std::copysign(1e30f, d);
    }
    float best = tMax;
    bool found = false;

    // The parameter at which the ray enters a node's box widened by the margin; infinity
    // for a miss or an entry past the best hit.
    auto entry = [&](std::uint32_t node) {
        const float* b = &tree.bounds[node * 6];
        float tNear = tMin - tEps;
        float tFar = best + tEps;
        for (int a = 0; a < 3; ++a) {
            const float t0 = (b[a] - margin - origin[a]) * inv[a];
            const float t1 = (b[3 + a] + margin - origin[a]) * inv[a];
            tNear = std::max(tNear, std::min(t0, t1));
            tFar = std::min(tFar, std::max(t0, t1));
        }
        return tNear <= tFar ? tNear : kInf;
    };

    struct Entry {
        std::uint32_t node;
        float t;
    };
    Entry stack[64];
    int top = 0;
    stack[top++] = {0, entry(0)};
    while (top > 0) {
        const Entry e = stack[--top];
        if (!(e.t < best)) continue;
        const auto& node = tree.nodes[e.node];
        if (node[1] != 0) {
            for (std::uint32_t i = 0; i < node[1]; ++i) {
                const Vec3f a = tree.corner(node[0], node[1], i, 0), b = tree.corner(node[0], node[1], i, 1),
                            c = tree.corner(node[0], node[1], i, 2);
                float t, u, v;
                if (rayTriangle(origin, direction, a, b, c, t, u, v) && t >= tMin && t < best) {
                    best = t;
                    found = true;
                    hit.face = static_cast<std::int32_t>(tree.order[node[0] + i]);
                    hit.b1 = u;
                    hit.b2 = v;
                    hit.t = t;
                    hit.position = a + (b - a) * u + (c - a) * v;
                }
            }
            continue;
        }
        const std::uint32_t left = node[0];
        const float tl = entry(left), tr = entry(left + 1);
        if (tl <= tr) {
            if (tr < best) stack[top++] = {left + 1, tr};
            if (tl < best) stack[top++] = {left, tl};
        } else {
            if (tl < best) stack[top++] = {left, tl};
            if (tr < best) stack[top++] = {left + 1, tr};
        }
    }
    return found;
}

}  // namespace tressora
