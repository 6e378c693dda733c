#pragma once
// The plan of a Clump node: which strands are the clumps' centers and which center each
// strand gathers toward. It is worked out once per set of strands (by their ids and roots)
// and the params that choose centers, and shared as a constant while only the pull runs from
// frame to frame. Every choice follows ids and the seed, never the order of work, so a
// clump keeps its number across frames, thread counts and preview densities.

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "core/vec.h"

namespace tressora {

/// Where clump centers come from.
enum class CenterSource { Pick, InputPoints, InputCurves };

/// The params and inputs that choose centers; everything else only shapes the pull.
struct CenterChoice {
    CenterSource source = CenterSource::Pick;
    bool bySize = false;            ///< clumpBy "size": the count follows the scalp's area
    std::int64_t count = 300;
    double size = 1.0;
    float randomness = 0.3f;        ///< 0 even, 1 random, up to 2
    std::int64_t seed = 0;
    bool followTubes = false;
    std::string regionChannel = "region";
    /// Each strand's chance to be a picked center (empty: 1 for every strand).
    std::vector<float> centerWeight;
    /// The scalp the picked spots lie on (null: spots are drawn among the strands' roots).
    std::shared_ptr<const ScalpMesh> scalp;
    /// The centers input: their ids and root positions (inputPoints and inputCurves).
    std::vector<std::uint64_t> inputIds;
    std::vector<Vec3f> inputRoots;
};

struct CenterPlan {
    static constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
    /// Nearest centers kept per clump for copyAmount.
    static constexpr std::size_t kNeighbours = 8;

    /// Per strand: the index of its clump, or kNone (a region or tube without a center).
    std::vector<std::uint32_t> clumpOf;
    /// Per clump: the strand whose curve is its axis (pick, inputPoints), or the index of the
    /// center curve (inputCurves).
    std::vector<std::uint32_t> axis;
    /// Per clump: the id its identity comes from (the center strand's, or the curve's).
    std::vector<std::uint64_t> centerIds;
    /// Per clump: its root position when planned, for neighbours and flattening.
    std::vector<Vec3f> roots;
    /// Per clump: up to kNeighbours other clumps, nearest root first (kNone pads).
    std::vector<std::array<std::uint32_t, kNeighbours>> neighbours;
};

/// The number a clump gives its strands' channel, from its center's id: a whole number below
/// 2^23, exact in a float and the same for the same id everywhere.
float clumpNumber(std::uint64_t centerId);

/// How many clumps `choice` asks for on a scalp of that area (count, or area over size squared).
std::size_t plannedClumpCount(const CenterChoice& choice, double area);

/// Works out the plan. Strands in a "_preview" mark outside every preview (0 or -1) are never
/// picked as centers, so the centers are the same at any preview density. Parallel inside;
/// the result does not depend on the thread count.
std::shared_ptr<const CenterPlan> buildCenterPlan(const StrandSet& strands, const CenterChoice& choice);

/// A hash of what the plan of these strands depends on: ids, roots on the scalp (not their
/// positions, so a moving scalp keeps its plan), the channels that choose (preview marks,
/// regions, tubes) and the choice. Parallel over fixed chunks.
std::uint64_t centerPlanKey(const StrandSet& strands, const CenterChoice& choice);

}  // namespace tressora
