#pragma once
// Nearest neighbours of points spread over a surface at a known spacing, through a uniform
// grid of cells searched ring by ring. The answers are exactly those of a PointIndex (nearest
// first, ties by lower index, the same squared distances), found faster when the points are
// about evenly spread, as relaxing roots are.

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "core/point_index.h"
#include "core/vec.h"

namespace tressora {

class NeighbourGrid {
public:
    /// Indexes a copy of the points in cells of `cell`: best when the nearest k of a point
    /// lie within one cell of it, so that the cells around it answer.
    NeighbourGrid(std::span<const Vec3f> points, float cell);

    /// The k nearest points to point `self` other than itself, nearest first, into out (room
    /// for k); returns how many. Read-only: any number of threads.
    std::size_t nearestOthers(std::uint32_t self, std::size_t k, std::uint32_t* out) const;

private:
    struct Cell {
        std::int32_t x, y, z;
    };
    Cell cellOf(Vec3f p) const;
    std::size_t bucketOf(Cell c) const;
    std::size_t fallback(std::uint32_t self, std::size_t k, std::uint32_t* out) const;

    std::vector<Vec3f> points_;
    float cell_;
    std::size_t mask_ = 0;
    std::vector<std::uint32_t> bucketStart_;  ///< per bucket, into order_; one more at the end
    std::vector<std::uint32_t> order_;        ///< point indices by bucket, ascending within each
    std::vector<Vec3f> sorted_;               ///< the points in the order of order_
    mutable std::once_flag treeOnce_;
    mutable std::unique_ptr<PointIndex> tree_;  ///< for the rare query that strays far
};

}  // namespace tressora
