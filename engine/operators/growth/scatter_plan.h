#pragma once
// How much Scatter makes in one evaluation: the limits on the planned strand count, and the
// preview's shares: what the viewport shows, what every preview holds, and which candidates
// are made at all. Every share is tested against unit(id), so a strand shown at one preview
// density is shown at every higher one.

#include <cstdint>
#include <string>

namespace tressora {

struct ScatterPlanInput {
    double plannedCount = 0.0;       ///< area times the greatest density, or rows times columns
    bool grid = false;               ///< the uvGrid layout (for the messages)
    int segments = 8;                ///< segments per strand (points are one more)
    float previewFraction = 1.0f;    ///< the groom's preview density; 1 for a full evaluation
    double previewPointBudget = 0.0; ///< 0 or less: no budget
    bool previewAll = false;         ///< every root in the viewport too
    std::uint64_t memoryBytes = 0;   ///< the memory the process can use; 0: unknown, no check
};

struct ScatterPlan {
    float fraction = 1.0f;       ///< share of roots shown; 1 or more shows all
    float floorFraction = 1.0f;  ///< share that every preview holds
    float generate = 1.0f;       ///< share of candidates made
    bool capped = false;         ///< the point budget lowered the fraction
    std::string note;            ///< a warning for a heavy groom; empty for none
};

/// Checks the limits and plans the preview. Throws GraphError for a count that is not a
/// finite number, more than 50M strands, more points than a preview or memory holds, or
/// strands whose arrays would not fit in `memoryBytes`.
ScatterPlan planScatter(const ScatterPlanInput& input);

/// The preview mark of a root in an evaluation: -1 left out, 1 shown and held by every
/// preview, 0 shown in this preview only, 2 not in this preview's share but held by all.
int previewMark(std::uint64_t id, const ScatterPlan& plan);

}  // namespace tressora
