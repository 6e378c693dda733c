#pragma once
// Nearest points among a fixed set: a k-d tree with exact answers. Neighbours come out in
// the order a direct computation would give, nearest first with ties by lower index, and
// with the same squared distances, computed as lengthSquared(query - point).

#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "core/vec.h"

namespace tressora {

class PointIndex {
public:
    /// The index returned when nothing was found (an empty index or a NaN query).
    static constexpr std::uint32_t npos = std::numeric_limits<std::uint32_t>::max();

    PointIndex() = default;
    /// Builds the index over a copy of the points (fewer than 2^32 - 1 of them).
    explicit PointIndex(std::span<const Vec3f> points);

    std::size_t size() const { return indices_.size(); }
    bool empty() const { return indices_.empty(); }

    /// The index of the closest point and its squared distance in outDistanceSquared;
    /// npos (and infinity) when the index is empty. Read-only: any number of threads.
    std::uint32_t nearest(Vec3f query, float& outDistanceSquared) const;

    /// The k nearest points, nearest first, written to outIndices and outDistancesSquared
    /// (each with room for k values). Returns how many were found: min(k, size()).
    /// Read-only: any number of threads.
    std::size_t kNearest(Vec3f query, std::size_t k, std::uint32_t* outIndices,
                         float* outDistancesSquared) const;

    /// Every point within `radius` (squared distance not above radius squared), nearest
    /// first, appended to `out` as (index, squared distance) pairs.
    void within(Vec3f query, float radius, std::vector<std::pair<std::uint32_t, float>>& out) const;

private:
    struct Node {
        float lo[3];
        float hi[3];
        std::uint32_t first = 0;  ///< leaf: first position in the point arrays; inner: left child
        std::uint32_t count = 0;  ///< leaf: point count; inner: 0 (right child is left + 1)
    };

    float boxDistanceSquared(const Node& node, Vec3f q) const;
    template <class Visit>
    void walk(Vec3f q, float& bound, Visit&& visit) const;

    std::vector<Node> nodes_;
    std::vector<Vec3f> points_;           ///< in tree order
    std::vector<std::uint32_t> indices_;  ///< original index of each point in tree order
};

}  // namespace tressora
