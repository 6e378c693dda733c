#pragma once
// What a graph needs of time: whether its result can change from frame to frame, and which
// earlier poses of the scalp its motion nodes look back at.

#include <functional>
#include <string>
#include <vector>

#include "graph/graph.h"

namespace tressora {

/// Graph::forEachActiveUpstream from `id` leaving out the nodes whose bypass flag is set
/// (they hand their input on and do nothing of their own). False when `visit` stopped the
/// walk; nothing is visited for an id that is no node.
bool forEachWorkingUpstream(Graph& graph, NodeId id, const std::function<bool(const std::string&, Operator&)>& visit);

/// Whether any active node upstream of `id` (through every kind of input, and inside nodes
/// that hold graphs) depends on the frame: a node type that moves by itself (Wind, Jiggle,
/// Simulate, ImportCurves, Reference, Control), a param driven by a control, an expression
/// that reads frame or time, or a texture whose path names frames ("<f>", "#").
bool graphReadsTime(Graph& graph, NodeId id);

/// The nodes of the graph whose result can change with the frame (graphReadsTime of each),
/// as the evaluation context's frameMatters: the others keep their cached results across
/// frames. Worked out now, so it holds for copies of the graph with the same node ids.
std::function<bool(int id)> frameMattersFor(Graph& graph);

/// How many earlier frames of the scalp the motion nodes upstream of `id` look back at
/// (the largest `history` of an active Jiggle); 0 for none.
int scalpHistoryFrames(Graph& graph, NodeId id);

/// The frames, sorted and each once, at which the scalp must be known to evaluate `id` at
/// `frame`: the frame itself and, per active Jiggle, its `history` frames before it; under
/// the node's `loop`, a frame before `loopStart` is read from the end of the loop.
std::vector<double> scalpHistoryLoopFrames(Graph& graph, NodeId id, double frame);

}  // namespace tressora
