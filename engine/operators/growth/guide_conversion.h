#pragma once
// Conversions between guides and strands: the ToStrands and ToGuides node types, and the
// functions that let strand nodes work on guides (a guide set as strands and back).

#include <memory>

#include "core/guide_set.h"
#include "core/strand_set.h"

namespace tressora {

class OperatorRegistry;

void registerToStrandsOperator(OperatorRegistry& registry);
void registerToGuidesOperator(OperatorRegistry& registry);

/// The guides as strands: each guide's id, root and points, widths of `width`. With
/// `channels`, the guides' attributes become strand channels and their per-point layers
/// point channels (0 where a guide has none). Serial; guides are few.
std::shared_ptr<StrandSet> strandsFromGuides(const GuideSet& guides, float width, bool channels);

/// The guides again after a strand node worked on `strands` (made by strandsFromGuides with
/// channels, one strand per guide in order): each guide takes its strand's points and
/// per-point layers and keeps its id, root, tube and attributes. Throws GraphError when
/// the strand count is not the guide count.
std::shared_ptr<GuideSet> guidesWithStrandPoints(const GuideSet& guides, const StrandSet& strands);

}  // namespace tressora
