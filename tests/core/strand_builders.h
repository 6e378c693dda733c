#pragma once
// Builders of strand sets for the core tests.

#include <cstdint>
#include <numeric>
#include <vector>

#include "core/hash.h"
#include "core/strand_set.h"

namespace tressora::testing {

/// A set of `strands` strands with 0 to maxPoints - 1 points each (ids 1000 + i), random
/// coordinates in [-10, 10), widths, a strand channel "clumpId" (default 7) and a point
/// channel "curl" (default 0.5), all drawn from `seed`.
inline StrandSet randomSet(std::size_t strands, std::uint64_t seed, std::uint32_t maxPoints = 9) {
    StrandSet set;
    DrawStream draw(seed);
    std::vector<Vec3f> points;
    std::vector<float> widths;
    for (std::size_t i = 0; i < strands; ++i) {
        const std::uint32_t count = static_cast<std::uint32_t>(draw.next() % maxPoints);
        points.resize(count);
        widths.resize(count);
        for (std::uint32_t k = 0; k < count; ++k) {
            points[k] = {draw.nextUnit() * 20 - 10, draw.nextUnit() * 20 - 10, draw.nextUnit() * 20 - 10};
            widths[k] = draw.nextUnit();
        }
        const StrandRoot root{static_cast<std::int32_t>(draw.next() % 100) - 1, draw.nextUnit(), draw.nextUnit()};
        set.addStrand(1000 + i, root, points, widths);
    }
    std::span<float> clump = set.addStrandChannel("clumpId", 7.0f);
    for (float& v : clump) v = static_cast<float>(draw.next() % 50);
    std::span<float> curl = set.addPointChannel("curl", 0.5f);
    for (float& v : curl) v = draw.nextUnit();
    return set;
}

/// The indices 0 .. count - 1.
inline std::vector<std::size_t> allIndices(std::size_t count) {
    std::vector<std::size_t> indices(count);
    std::iota(indices.begin(), indices.end(), std::size_t{0});
    return indices;
}

/// The extent of a set's content computed afresh (a subset carries no caches).
inline StrandSet::Extent freshExtent(const StrandSet& set) { return set.subset(allIndices(set.strandCount())).extent(); }

}  // namespace tressora::testing
