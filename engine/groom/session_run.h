#pragma once
// One evaluation of a groom session, split from the session so that a detached evaluation
// runs the same steps on its own graph: the request, what the session gathered for it on
// its own thread (context, scalps, carry), and what the run gives back to be folded in.

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "graph/graph.h"
#include "groom/follow_carry.h"

namespace tressora {

/// One call's wishes.
struct EvalRequest {
    double frame = 1.0;
    float density = 1.0f;       ///< the preview fraction: share of strands kept, 0-1
    double auxScale = 1.0;      ///< multiplies the scale reference's factor
    std::string node;           ///< evaluate this node instead of the graph's output
    bool keepInputs = false;    ///< keep the run's intermediate values (Graph::keptValues)
    bool viewport = false;      ///< a viewport evaluation rather than a render
    bool skipFollow = false;    ///< leave the strands where the rest pose grew them
    bool skipHistory = false;   ///< hand no earlier scalp poses to motion nodes
    std::string tag;            ///< what asks (shown as the stats' view)
};

/// A follow carry and the rest strands it was made for, with its last carried result.
struct CarryCache {
    std::shared_ptr<const FollowCarry> carry;
    std::shared_ptr<const StrandSet> madeFor;
    std::uint64_t restStamp = 0;
    std::shared_ptr<const StrandSet> carried;  ///< madeFor carried onto the scalp of carriedStamp
    std::uint64_t carriedStamp = 0;
};

/// What the session gathered for one evaluation.
struct SessionRun {
    EvalRequest request;
    NodeId node = 0;
    EvalContext context;
    bool follow = false;  ///< evaluated at rest, carried by each root
    std::shared_ptr<const ScalpMesh> rest;
    std::shared_ptr<const ScalpMesh> current;
    std::uint64_t restStamp = 0;
    std::uint64_t currentStamp = 0;
    CarryCache carry;
    std::vector<std::string> messages;  ///< the session's own sentences for the user
    std::size_t historyFrames = 0;
    std::chrono::steady_clock::time_point start;
};

/// What one evaluation made.
struct SessionResult {
    std::shared_ptr<const StrandSet> strands;      ///< what the caller gets (carried when following)
    std::shared_ptr<const StrandSet> graphStrands; ///< what the graph gave
    CarryCache carry;
    double graphMs = 0.0;
    double followMs = 0.0;
    /// Node name and milliseconds of each node the run touched (0 for a node answered from
    /// its last state), in id order.
    std::vector<std::pair<std::string, double>> timings;
};

/// A fresh stamp for a scene item: process-wide, so items of different sessions never share one.
std::uint64_t nextItemStamp();

/// Lets each node of `to` take over what the node of the same name and type in `from` holds:
/// its operator's derived caches (adoptState) and its last results. Keys are content hashes,
/// so a taken-over result is reused only where nothing it depends on changed.
void takeOverNodes(Graph& to, Graph& from);

/// Asks the graph for the node's value and, when following, carries the strands from the
/// rest scalp onto the current one. Runs on any thread; touches only `graph` and `run`.
SessionResult runSession(Graph& graph, SessionRun& run);

}  // namespace tressora
