#include "operators/growth/scatter_neighbours.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/nearest_list.h"
#include "core/parallel.h"

namespace tressora {

namespace {

/// Rings searched before a query falls back on the tree.
constexpr int kMaxRing = 6;

}  // namespace

NeighbourGrid::NeighbourGrid(std::span<const Vec3f> points, float cell)
    : points_(points.begin(), points.end()), cell_(cell > 0.0f && std::isfinite(cell) ? cell : 1.0f) {
    std::size_t buckets = 16;
    while (buckets < 2 * points_.size()) buckets *= 2;
    mask_ = buckets - 1;
    // A counting sort by bucket keeps each bucket's points in ascending index order.
    std::vector<std::uint32_t> bucket(points_.size());
    parallelRange(0, points_.size(), 4096, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) bucket[i] = static_cast<std::uint32_t>(bucketOf(cellOf(points_[i])));
    });
    bucketStart_.assign(buckets + 1, 0);
    for (const std::uint32_t b : bucket) ++bucketStart_[b + 1];
    for (std::size_t b = 0; b < buckets; ++b) bucketStart_[b + 1] += bucketStart_[b];
    order_.resize(points_.size());
    std::vector<std::uint32_t> fill(bucketStart_.begin(), bucketStart_.end() - 1);
    for (std::uint32_t i = 0; i < points_.size(); ++i) order_[fill[bucket[i]]++] = i;
    sorted_.resize(points_.size());
    for (std::size_t s = 0; s < order_.size(); ++s) sorted_[s] = points_[order_[s]];
}

NeighbourGrid::Cell NeighbourGrid::cellOf(Vec3f p) const {
    const auto axis = [this](float v) {
        const float c = std::floor(v / cell_);
        return static_cast<std::int32_t>(std::clamp(c, -1e9f, 1e9f));
    };
    return {axis(p.x), axis(p.y), axis(p.z)};
}

std::size_t NeighbourGrid::bucketOf(Cell c) const {
    // Spreads neighbouring cells over the buckets; a cheap mix is enough for that.
    const std::uint64_t h = static_cast<std::uint64_t>(static_cast<std::uint32_t>(c.x)) * 0x9E3779B97F4A7C15ull ^
                            static_cast<std::uint64_t>(static_cast<std::uint32_t>(c.y)) * 0xC2B2AE3D27D4EB4Full ^
                            static_cast<std::uint64_t>(static_cast<std::uint32_t>(c.z)) * 0x165667B19E3779F9ull;
    return static_cast<std::size_t>(h ^ (h >> 29)) & mask_;
}

std::size_t NeighbourGrid::fallback(std::uint32_t self, std::size_t k, std::uint32_t* out) const {
    std::call_once(treeOnce_, [this] { tree_ = std::make_unique<PointIndex>(points_); });
    std::vector<std::uint32_t> found(k + 1);
    std::vector<float> d2(k + 1);
    const std::size_t n = tree_->kNearest(points_[self], k + 1, found.data(), d2.data());
    std::size_t count = 0;
    for (std::size_t i = 0; i < n && count < k; ++i)
        if (found[i] != self) out[count++] = found[i];
    return count;
}

std::size_t NeighbourGrid::nearestOthers(std::uint32_t self, std::size_t k, std::uint32_t* out) const {
    if (k == 0) return 0;
    const Vec3f q = points_[self];
    if (!std::isfinite(q.x) || !std::isfinite(q.y) || !std::isfinite(q.z)) return fallback(self, k, out);
    const Cell home = cellOf(q);
    // How far q lies inside its cell: every point of a cell beyond ring r is farther than
    // r cells plus this.
    float inside = std::numeric_limits<float>::max();
    for (int a = 0; a < 3; ++a) {
        const float lo = static_cast<float>((&home.x)[a]) * cell_;
        inside = std::min({inside, q[a] - lo, lo + cell_ - q[a]});
    }
    inside = std::max(inside, 0.0f);

    constexpr std::size_t kMax = 32;
    if (k > kMax) return fallback(self, k, out);
    float best[kMax];
    std::uint32_t index[kMax];
    std::size_t found = 0;
    // Cells that share a bucket read it twice: the insertion skips a point it holds already.
    for (int ring = 0; ring <= kMaxRing; ++ring) {
        for (int dz = -ring; dz <= ring; ++dz)
            for (int dy = -ring; dy <= ring; ++dy)
                for (int dx = -ring; dx <= ring; ++dx) {
                    if (std::max({std::abs(dx), std::abs(dy), std::abs(dz)}) != ring) continue;
                    const std::size_t b = bucketOf({home.x + dx, home.y + dy, home.z + dz});
                    for (std::uint32_t s = bucketStart_[b]; s < bucketStart_[b + 1]; ++s) {
                        const std::uint32_t i = order_[s];
                        if (i == self) continue;
                        const float d2 = lengthSquared(q - sorted_[s]);
                        if (found == k && !nearerThan(d2, i, best[k - 1], index[k - 1])) continue;
                        if (std::find(index, index + found, i) != index + found) continue;
                        found = offerNearest(d2, i, best, index, found, k);
                    }
                }
        // Slightly less than the true reach, so rounding in the cell of a point never lets a
        // nearer one hide in a ring not yet read.
        const float reach = (static_cast<float>(ring) * cell_ + inside) * (1.0f - 1e-5f);
        if (found == std::min(k, points_.size() - 1) && found > 0 && best[found - 1] < reach * reach) {
            std::copy(index, index + found, out);
            return found;
        }
    }
    return fallback(self, k, out);
}

}  // namespace tressora
