#pragma once
// The groups of a frame written in the attribute layout of Unreal's groom importer. Strands
// carrying a "groupId" channel are split into one group per id (named "group<id>"); each
// guide joins the group its own "groupId" attribute names, or else the group of the strand
// whose root lies nearest its root, so a group's simulation guides grow among its hair.
// Without the channel everything is one ungrouped frame.

#include <cstdint>
#include <memory>
#include <vector>

#include "core/guide_set.h"
#include "core/strand_set.h"
#include "io/alembic_writer.h"

namespace tressora {

struct GroomLayoutFrame {
    bool grouped = false;
    std::shared_ptr<const StrandSet> strands;  ///< ungrouped: all strands
    std::shared_ptr<const StrandSet> guides;   ///< ungrouped: all guides; null when there are none
    // Grouped: the sets each group points into, and the groups in rising id order.
    std::vector<std::unique_ptr<StrandSet>> parts;
    std::vector<AlembicGroomGroup> groups;
};

/// Splits a frame. `guides` may be null; guides are written as strands of `guideWidth`
/// (scene units) with their attributes as channels. Parallel inside; the result does not
/// depend on the thread count.
GroomLayoutFrame groomLayoutFrame(std::shared_ptr<const StrandSet> strands, const GuideSet* guides, float guideWidth);

}  // namespace tressora
