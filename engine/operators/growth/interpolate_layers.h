#pragma once
// Values painted on the guides reach the strands through Interpolate: each guide attribute
// becomes a strand channel and each per-point layer a point channel, blended with the
// weights the strand blends the guides' shapes with.

#include "core/guide_set.h"
#include "core/strand_set.h"
#include "operators/growth/interpolate_bindings.h"

namespace tressora {

/// Adds (or overwrites) on `out` a strand channel per guide attribute and a point channel
/// per guide layer, each strand's values the weighted blend of its bound guides' (a layer
/// read at the same share of each guide's points). Parallel over strands, grain 256.
void carryGuideLayers(const GuideSet& guides, const BindingTable& bindings, StrandSet& out);

}  // namespace tressora
