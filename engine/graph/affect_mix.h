#pragma once
// Mixing a node's output strands with its input by the common `affect` param.

#include <memory>
#include <string_view>

#include "core/strand_set.h"
#include "graph/field_value.h"

namespace tressora {

/// Whether a channel holds ids (clumpId, guideId...): such channels switch at 0.5 rather than blend.
bool isIdChannel(std::string_view name);

/// The node's result mixed with the strands as they came in: per point by `affect`
/// (1 the result, 0 the input, linear between) for points, widths and point channels; per
/// strand for strand channels. Both sets must have the same strand and point counts.
std::shared_ptr<const StrandSet> mixByAffect(const StrandSet& input, const StrandSet& result,
                                             const FieldValue& affect);

}  // namespace tressora
