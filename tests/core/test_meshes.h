#pragma once
// Meshes for tests and benchmarks: a subdivided icosahedron (closed, about n * 20 * 4^levels
// triangles), a flat grid and random triangle soups, all deterministic.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "core/hash.h"
#include "core/scalp_mesh.h"

namespace tressora::testing {

/// A closed sphere: an icosahedron subdivided `levels` times, points pushed onto `radius`.
inline ScalpMesh icosphere(int levels, float radius = 1.0f, Vec3f centre = {}) {
    const float t = (1.0f + std::sqrt(5.0f)) / 2.0f;
    std::vector<Vec3f> p = {{-1, t, 0}, {1, t, 0}, {-1, -t, 0}, {1, -t, 0}, {0, -1, t}, {0, 1, t},
                            {0, -1, -t}, {0, 1, -t}, {t, 0, -1}, {t, 0, 1}, {-t, 0, -1}, {-t, 0, 1}};
    std::vector<ScalpMesh::Triangle> f = {{0, 11, 5}, {0, 5, 1},  {0, 1, 7},   {0, 7, 10}, {0, 10, 11},
                                          {1, 5, 9},  {5, 11, 4}, {11, 10, 2}, {10, 7, 6}, {7, 1, 8},
                                          {3, 9, 4},  {3, 4, 2},  {3, 2, 6},   {3, 6, 8},  {3, 8, 9},
                                          {4, 9, 5},  {2, 4, 11}, {6, 2, 10},  {8, 6, 7},  {9, 8, 1}};
    for (int level = 0; level < levels; ++level) {
        std::map<std::pair<int, int>, int> middle;
        auto mid = [&](int a, int b) {
            const auto key = std::minmax(a, b);
            const auto it = middle.find(key);
            if (it != middle.end()) return it->second;
            p.push_back((p[static_cast<std::size_t>(a)] + p[static_cast<std::size_t>(b)]) * 0.5f);
            const int index = static_cast<int>(p.size()) - 1;
            middle.emplace(key, index);
            return index;
        };
        std::vector<ScalpMesh::Triangle> next;
        next.reserve(f.size() * 4);
        for (const auto& tri : f) {
            const int a = mid(tri[0], tri[1]), b = mid(tri[1], tri[2]), c = mid(tri[2], tri[0]);
            next.push_back({tri[0], a, c});
            next.push_back({tri[1], b, a});
            next.push_back({tri[2], c, b});
            next.push_back({a, b, c});
        }
        f = std::move(next);
    }
    for (Vec3f& v : p) v = centre + normalized(v) * radius;
    return ScalpMesh(std::move(p), std::move(f));
}

/// A closed head-like shape: a latitude-longitude sphere of `rings` bands and `segments`
/// slices (2 * segments * (rings - 1) triangles), stretched into an egg with a flattened
/// face and a gentle ripple so that its triangles are not all alike.
inline ScalpMesh head(int rings, int segments, float radius = 10.0f) {
    std::vector<Vec3f> p;
    std::vector<ScalpMesh::Triangle> f;
    const float pi = 3.14159265f;
    p.push_back({0, radius * 1.15f, 0});  // crown
    for (int r = 1; r < rings; ++r) {
        const float theta = pi * r / rings;
        for (int s = 0; s < segments; ++s) {
            const float phi = 2.0f * pi * s / segments;
            Vec3f d{std::sin(theta) * std::cos(phi), std::cos(theta), std::sin(theta) * std::sin(phi)};
            const float ripple = 1.0f + 0.03f * std::sin(7.0f * phi) * std::sin(5.0f * theta);
            const float face = d.z > 0.5f ? 1.0f - 0.3f * (d.z - 0.5f) : 1.0f;
            p.push_back(Vec3f{d.x * 0.85f, d.y * (d.y > 0 ? 1.15f : 1.0f), d.z * face} * (radius * ripple));
        }
    }
    p.push_back({0, -radius, 0});  // chin
    const int last = static_cast<int>(p.size()) - 1;
    auto at = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    for (int s = 0; s < segments; ++s) f.push_back({0, at(1, s + 1), at(1, s)});
    for (int r = 1; r + 1 < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            f.push_back({at(r, s), at(r, s + 1), at(r + 1, s + 1)});
            f.push_back({at(r, s), at(r + 1, s + 1), at(r + 1, s)});
        }
    for (int s = 0; s < segments; ++s) f.push_back({last, at(rings - 1, s), at(rings - 1, s + 1)});
    return ScalpMesh(std::move(p), std::move(f));
}

/// A flat grid of n x n quads in the plane z = 0 over [0, size]^2, two triangles per quad.
inline ScalpMesh grid(int n, float size = 1.0f) {
    std::vector<Vec3f> p;
    std::vector<ScalpMesh::Triangle> f;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) p.push_back({size * i / n, size * j / n, 0.0f});
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const int a = j * (n + 1) + i, b = a + 1, c = a + n + 1, d = c + 1;
            f.push_back({a, b, d});
            f.push_back({a, d, c});
        }
    return ScalpMesh(std::move(p), std::move(f));
}

/// A deterministic float in [lo, hi) from a stream.
inline float drawIn(DrawStream& s, float lo, float hi) { return lo + (hi - lo) * s.nextUnit(); }

/// A random point in the box [lo, hi]^3.
inline Vec3f drawPoint(DrawStream& s, float lo, float hi) {
    const float x = drawIn(s, lo, hi), y = drawIn(s, lo, hi), z = drawIn(s, lo, hi);
    return {x, y, z};
}

/// A soup of random triangles in [-1, 1]^3: points shared at random, some slivers and some
/// of zero area (repeated corners), to stress the tree's ties and degenerate cases.
inline ScalpMesh randomSoup(std::uint64_t seed, int triangles, int points) {
    DrawStream s(seed);
    std::vector<Vec3f> p;
    for (int i = 0; i < points; ++i) p.push_back(drawPoint(s, -1.0f, 1.0f));
    std::vector<ScalpMesh::Triangle> f;
    for (int i = 0; i < triangles; ++i) {
        const auto pick = [&] { return static_cast<int>(s.next() % static_cast<std::uint64_t>(points)); };
        ScalpMesh::Triangle t{pick(), pick(), pick()};
        if (i % 17 == 0) t[2] = t[1];  // a zero-area face
        f.push_back(t);
    }
    return ScalpMesh(std::move(p), std::move(f));
}

/// Small random triangles (each about `size` across) scattered in [-1, 1]^3, none sharing
/// points: many near-ties between boxes, the case where pruning mistakes would show.
inline ScalpMesh scatteredTriangles(std::uint64_t seed, int triangles, float size) {
    DrawStream s(seed);
    std::vector<Vec3f> p;
    std::vector<ScalpMesh::Triangle> f;
    for (int i = 0; i < triangles; ++i) {
        const Vec3f c = drawPoint(s, -1.0f, 1.0f);
        const int first = static_cast<int>(p.size());
        for (int k = 0; k < 3; ++k) p.push_back(c + drawPoint(s, -size, size));
        f.push_back({first, first + 1, first + 2});
    }
    return ScalpMesh(std::move(p), std::move(f));
}

}  // namespace tressora::testing
