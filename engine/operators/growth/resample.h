#pragma once
// The Resample node type, and the resampling of strands to given point counts that other
// nodes share.

#include <cstdint>
#include <memory>
#include <span>

#include "core/strand_set.h"

namespace tressora {

class OperatorRegistry;

void registerResampleOperator(OperatorRegistry& registry);

/// A new set whose strand i has counts[i] points laid along strand i of `in` by arc length
/// (with `curvature`, gathered where the strand bends), with widths and point channels
/// interpolated alike; ids, roots, strand channels and instances are shared with `in`. A
/// strand of fewer than 2 points, or a count below 2, is copied as far as it goes. Parallel
/// over strands (grain 256); the result does not depend on the thread count.
std::shared_ptr<StrandSet> resampleStrands(const StrandSet& in, std::span<const std::uint32_t> counts,
                                           bool curvature);

}  // namespace tressora
