#pragma once
// The spatial tree of a triangle mesh: a bounding-volume hierarchy with sorted leaves of at
// most four triangles and adjacent child nodes, walked near-first with an explicit stack.
// The tree's structure depends on the topology and the first pose only; a tree made for one
// pose is refitted to another pose of the same topology by recomputing its bounds and corners.

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/vec.h"

namespace tressora {

/// Three point indices; a face index is the triangle's index in the mesh's array.
using MeshTriangle = std::array<std::int32_t, 3>;

/// The tree proper. Node 0 is the root. An inner node holds (left child, 0) and its right
/// child is the left one plus 1; a leaf holds (first position in `order`, triangle count).
struct BvhTree {
    std::vector<std::array<std::uint32_t, 2>> nodes;
    /// Six floats per node (min x, y, z, max x, y, z), then two floats of padding so that
    /// four-wide loads of the last node stay inside the array.
    std::vector<float> bounds;
    /// Triangle indices in tree order; each leaf's run is in ascending index order.
    std::vector<std::uint32_t> order;
    /// The corner points of each leaf's triangles, so that a leaf reads them from one
    /// contiguous run instead of chasing indices across the mesh. A leaf (first, count) owns
    /// the floats from 9 * first on, laid out as nine rows of `count` values (corner 0 x, y,
    /// z, corner 1 x, ...). Derived from the pose, like the bounds.
    std::vector<float> corners;

    /// Corner c (0 to 2) of the i-th triangle of the leaf starting at `first` with `count`.
    Vec3f corner(std::uint32_t first, std::uint32_t count, std::uint32_t i, int c) const {
        const float* row = &corners[std::size_t{first} * 9 + static_cast<std::size_t>(c) * 3 * count + i];
        return {row[0], row[count], row[2 * std::size_t{count}]};
    }
    /// The number of nodes on the longest path from the root to a leaf.
    std::uint32_t depth = 0;

    /// What the closest-point walk reads when it opens an inner node: both children's
    /// bounds and records in one 64-byte line, laid out for two-wide box tests. A child
    /// record is (first, count) for a leaf, as in `nodes`, and (its own pair's index in
    /// `pairs`, 0) for an inner node. Pairs are stored in depth-first order, so the pair of a
    /// left child follows its parent's. Derived from the structure and the pose.
    struct alignas(64) ChildPair {
        float xy[2][4];  ///< min, then max: x of left, x of right, y of left, y of right
        float z[4];      ///< min z of left, right, max z of left, right
        std::array<std::uint32_t, 2> child[2];
    };
    static_assert(sizeof(ChildPair) == 64, "a child pair fills one cache line");
    std::vector<ChildPair> pairs;
    /// The root's record in the form of a child record (see ChildPair).
    std::array<std::uint32_t, 2> root{0, 0};

    bool isLeaf(std::uint32_t node) const { return nodes[node][1] != 0; }

    /// Builds the tree over all triangles (none gives an empty tree). Indices must be valid.
    static std::shared_ptr<const BvhTree> build(std::span<const Vec3f> points,
                                                std::span<const MeshTriangle> triangles);
    /// A tree with `shape`'s structure and order and bounds recomputed from `points`, for a
    /// mesh of the same topology in another pose.
    static std::shared_ptr<const BvhTree> refit(const BvhTree& shape, std::span<const Vec3f> points,
                                                std::span<const MeshTriangle> triangles);
};

/// A tree query's answer: the face (-1 for none), barycentrics of corners 1 and 2, the point
/// on the face, and either the squared distance (closest point) or the ray parameter.
struct TreeHit {
    std::int32_t face = -1;
    float b1 = 0.0f;
    float b2 = 0.0f;
    Vec3f position;
    float distanceSquared = 0.0f;
    float t = 0.0f;
};

/// The closest point of the mesh to `query` within `maxDistance` (any value at or above the
/// square root of the largest float means no limit). Of equal distances the first triangle
/// tested wins. Read-only: safe from any number of threads.
TreeHit closestInTree(const BvhTree& tree, Vec3f query, float maxDistance);

/// The nearest hit of the ray origin + t * direction with t in [tMin, tMax). `margin` widens
/// every box so that rounding cannot hide a triangle lying on a box face. Returns false for
/// no hit. Read-only: safe from any number of threads.
bool rayInTree(const BvhTree& tree, Vec3f origin, Vec3f direction, float tMin, float tMax,
               float margin, TreeHit& hit);

}  // namespace tressora
