#pragma once
// An order of points that keeps neighbours in space near each other in the list, for running
// many independent queries against one spatial structure: queries taken in this order reuse
// the nodes their neighbours just brought into cache instead of each fetching its own path.

#include <cstdint>
#include <span>
#include <vector>

#include "core/vec.h"

namespace tressora {

/// The indices 0 to n - 1 of `points`, grouped by cells of a grid over the points' bounding
/// box (two to sixteen points a cell on average) with the cells taken in Morton order, and in index order
/// within a cell. Points with a coordinate that is not finite go in the first cell. The order
/// depends on the points alone, never on the thread count. Throws std::length_error for 2^32
/// points or more.
std::vector<std::uint32_t> spatialOrder(std::span<const Vec3f> points);

}  // namespace tressora
