#pragma once
// Resampling whole strand sets: every strand gets the same number of points, spaced evenly
// along its length, with widths and point channels carried along.

#include <cstddef>

#include "core/strand_set.h"

namespace tressora {

/// A copy of `strands` in which every strand has `count` points (count >= 2) spaced evenly by
/// arc length, root and tip kept. Widths and point channels are interpolated at the same
/// places; ids, roots, strand channels and instances are kept. A strand of no length repeats
/// its first point. Parallel over strands; the result never depends on the thread count.
StrandSet resampleStrands(const StrandSet& strands, std::size_t count);

}  // namespace tressora
