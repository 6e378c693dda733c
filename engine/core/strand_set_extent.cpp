// Bounds of a strand set, cached per 2048-strand chunk so that a set whose strands barely
// changed can recompute only the chunks that hold the changes.

#include <algorithm>
#include <numeric>
#include <span>
#include <vector>

#include "core/parallel.h"
#include "core/strand_set.h"

namespace tressora {
namespace {

using Extent = StrandSet::Extent;

// The extent of strands [first, last). A strand with a NaN or infinite coordinate marks the
// chunk not finite and ends it: what follows is not looked at.
Extent chunkExtent(const std::uint64_t* offsets, const Vec3f* points, std::size_t first, std::size_t last) {
    Extent e;
    for (std::size_t s = first; s < last; ++s) {
        const std::uint64_t begin = offsets[s], end = offsets[s + 1];
        float length = 0.0f;
        float nonFinite = 0.0f;  // stays exactly 0 unless a coordinate is NaN or infinite
        for (std::uint64_t j = begin; j < end; ++j) {
            const Vec3f p = points[j];
            if (p.x < e.min.x) e.min.x = p.x;
            if (p.y < e.min.y) e.min.y = p.y;
            if (p.z < e.min.z) e.min.z = p.z;
            if (p.x > e.max.x) e.max.x = p.x;
            if (p.y > e.max.y) e.max.y = p.y;
            if (p.z > e.max.z) e.max.z = p.z;
            if (j > begin) length += tressora::length(p - points[j - 1]);
            nonFinite += (p.x - p.x) + (p.y - p.y) + (p.z - p.z);
        }
        if (nonFinite != 0.0f) {  // NaN compares unequal too
            e.finite = false;
            break;
        }
        if (length > e.longest) e.longest = length;
    }
    return e;
}

// Recomputes the chunks listed in `which`, in parallel, one chunk per task.
void computeChunks(std::vector<Extent>& chunks, std::span<const std::size_t> which, const std::uint64_t* offsets,
                   const Vec3f* points, std::size_t strands) {
    parallelRange(0, which.size(), 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t k = lo; k < hi; ++k) {
            const std::size_t first = which[k] * StrandSet::kExtentChunk;
            const std::size_t last = std::min(first + StrandSet::kExtentChunk, strands);
            chunks[which[k]] = chunkExtent(offsets, points, first, last);
        }
    });
}

Extent mergeExtents(const std::vector<Extent>& chunks) {
    Extent all;
    for (const Extent& c : chunks) {
        for (int a = 0; a < 3; ++a) {
            if (c.min[a] < all.min[a]) all.min[a] = c.min[a];
            if (c.max[a] > all.max[a]) all.max[a] = c.max[a];
        }
        if (c.longest > all.longest) all.longest = c.longest;
        all.finite = all.finite && c.finite;
    }
    return all;
}

}  // namespace

StrandSet::Extent StrandSet::extent() const {
    if (cachesValid_.load(std::memory_order_acquire)) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (cachesValid_.load(std::memory_order_relaxed) && extent_) return *extent_;
    }
    // Computed outside the lock; two threads may both compute it, and the later store wins.
    auto chunks = std::make_shared<std::vector<Extent>>(chunkCount());
    std::vector<std::size_t> all(chunks->size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    computeChunks(*chunks, all, offsets_.data(), points_.data(), strandCount());
    const Extent overall = mergeExtents(*chunks);
    storeCaches(std::make_shared<const Extent>(overall), std::move(chunks));
    return overall;
}

StrandSet::Extent StrandSet::extentAfter(const StrandSet& previous, std::span<const std::size_t> changedStrands) const {
    if (cachesValid_.load(std::memory_order_acquire)) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (cachesValid_.load(std::memory_order_relaxed) && extent_) return *extent_;
    }
    std::shared_ptr<const std::vector<Extent>> before;
    if (&previous != this && previous.cachesValid_.load(std::memory_order_acquire)) {
        std::lock_guard<std::mutex> lock(previous.mutex_);
        if (previous.cachesValid_.load(std::memory_order_relaxed)) before = previous.chunkExtents_;
    }
    const std::size_t count = chunkCount();
    if (!before || before->size() != count || previous.strandCount() != strandCount() ||
        previous.pointCount() != pointCount()) {
        return extent();
    }

    // The chunks that hold a changed strand, each once (the list is ascending).
    std::vector<std::size_t> dirty;
    for (std::size_t strand : changedStrands) {
        const std::size_t chunk = strand / kExtentChunk;
        if (chunk >= count) continue;
        if (!dirty.empty() && dirty.back() == chunk) continue;
        dirty.push_back(chunk);
    }

    auto chunks = std::make_shared<std::vector<Extent>>(*before);
    computeChunks(*chunks, dirty, offsets_.data(), points_.data(), strandCount());
    const Extent overall = mergeExtents(*chunks);
    storeCaches(std::make_shared<const Extent>(overall), std::move(chunks));
    return overall;
}

}  // namespace tressora
