#pragma once
// Which resolution (segments per strand) each Scatter grows its strands at: the most that
// any Resample downstream of it asks for, else a default set by a Resample fed nothing,
// else 8 segments. And the sentence that explains it on a Scatter or a Resample.

#include <map>
#include <string>

#include "graph/graph.h"

namespace tressora {

/// A segment count and the Resample that set it (0 for the built-in default).
struct Resolution {
    int segments = 8;
    NodeId resample = 0;
    bool operator==(const Resolution&) const = default;
};

/// The resolution of every Scatter that reaches the graph's result, by id. `viewport` says
/// which evaluation's modes decide what is active.
std::map<NodeId, Resolution> strandResolutions(const Graph& graph, bool viewport = false);

/// The sentence for a Scatter or a Resample node; empty for other nodes.
std::string strandResolutionNote(const Graph& graph, NodeId id, bool viewport = false);

}  // namespace tressora
