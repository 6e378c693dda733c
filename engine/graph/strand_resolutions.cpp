#include "graph/strand_resolutions.h"

#include <set>
#include <vector>

namespace tressora {

namespace {

constexpr int kDefaultSegments = 8;

std::string countText(int segments) {
    return std::to_string(segments) + " segments (" + std::to_string(segments + 1) + " points)";
}

bool isType(const Graph& g, NodeId id, const char* type) { return g.op(id).type() == type; }

int segmentsOf(const Graph& g, NodeId id) {
    const ParamSet& p = g.op(id).paramValues;
    return p.has("segments") ? static_cast<int>(p.getInt("segments", 0)) : 0;
}

bool fedNothing(const Graph& g, NodeId id) {
    const GraphNode& n = g.node(id);
    return n.inputSources.empty() || n.inputSources[0] == 0;
}

bool leftOut(const Graph& g, NodeId id, bool viewport) {
    const GraphNode& n = g.node(id);
    return n.bypass || (n.evaluation == Evaluation::ViewportOnly && !viewport) ||
           (n.evaluation == Evaluation::RenderOnly && viewport);
}

// Nodes upstream of `from` along strand inputs, `from` included. A node that is left out
// stands for its first input alone.
std::set<NodeId> upstream(const Graph& g, NodeId from, bool viewport) {
    std::set<NodeId> seen;
    std::vector<NodeId> stack = {from};
    while (!stack.empty()) {
        const NodeId id = stack.back();
        stack.pop_back();
        if (!id || !seen.insert(id).second) continue;
        const GraphNode& n = g.node(id);
        const std::vector<Port> ports = g.effectiveInputs(id);
        if (leftOut(g, id, viewport)) {
            if (!n.inputSources.empty()) stack.push_back(n.inputSources[0]);
            continue;
        }
        for (std::size_t slot = 0; slot < n.inputSources.size() && slot < ports.size(); ++slot) {
            const PortType t = ports[slot].type;
            if ((t == PortType::Strands || t == PortType::Curves) && n.op->inputActive(static_cast<int>(slot)))
                stack.push_back(n.inputSources[slot]);
        }
    }
    return seen;
}

struct Analysis {
    std::set<NodeId> active;                    // nodes that take part in the result
    std::map<NodeId, std::set<NodeId>> above;   // per active Resample, the nodes upstream of it
    std::map<NodeId, Resolution> resolutions;   // per active Scatter
    NodeId defaultSetter = 0;                   // the Resample fed nothing that sets the default
    int defaultSegments = 0;
};

Analysis analyse(const Graph& g, bool viewport) {
    Analysis a;
    if (g.outputNode()) {
        for (NodeId id : upstream(g, g.outputNode(), viewport))
            if (!leftOut(g, id, viewport)) a.active.insert(id);
    }
    for (NodeId id : a.active)
        if (isType(g, id, "Resample")) a.above[id] = upstream(g, id, viewport);
    for (const auto& [id, n] : g.nodes()) {
        if (!isType(g, id, "Resample") || !fedNothing(g, id)) continue;
        const int s = segmentsOf(g, id);
        if (s > a.defaultSegments) {
            a.defaultSegments = s;
            a.defaultSetter = id;
        }
    }
    for (NodeId scatter : a.active) {
        if (!isType(g, scatter, "Scatter")) continue;
        Resolution best{0, 0};
        for (const auto& [resample, above] : a.above) {
            const int s = segmentsOf(g, resample);
            if (s > best.segments && above.count(scatter)) best = {s, resample};
        }
        if (!best.resample && a.defaultSetter) best = {a.defaultSegments, a.defaultSetter};
        if (!best.resample) best = {kDefaultSegments, 0};
        a.resolutions[scatter] = best;
    }
    return a;
}

std::string joinNames(const Graph& g, const std::vector<NodeId>& ids) {
    std::string text;
    for (NodeId id : ids) text += (text.empty() ? "" : ", ") + g.nodeName(id);
    return text;
}

std::string scatterNote(const Graph& g, const Analysis& a, NodeId id) {
    const auto it = a.resolutions.find(id);
    const Resolution r = it == a.resolutions.end() ? Resolution{kDefaultSegments, 0} : it->second;
    if (!r.resample)
        return "Its strands grow with " + countText(r.segments) +
               ": no Resample after this Scatter sets their resolution (add one to its branch)";
    if (r.resample == a.defaultSetter && !a.above.count(r.resample))
        return "Its strands grow with " + countText(r.segments) + ", set by Resample " + g.nodeName(r.resample) +
               " (fed nothing, it sets the default: no Resample after this Scatter does)";
    return "Its strands grow with " + countText(r.segments) + ", set by Resample " + g.nodeName(r.resample) +
           " (the most segments any Resample after it asks for)";
}

std::string resampleNote(const Graph& g, const Analysis& a, NodeId id) {
    bool anyScatter = false;
    for (const auto& [other, n] : g.nodes()) anyScatter = anyScatter || isType(g, other, "Scatter");
    std::vector<NodeId> setsFor;
    for (const auto& [scatter, r] : a.resolutions)
        if (r.resample == id) setsFor.push_back(scatter);

    if (fedNothing(g, id)) {
        if (!anyScatter) return "Fed nothing: it sets no Scatter's resolution (connect it after the strands it should resample)";
        if (!setsFor.empty())
            return "Fed nothing: it sets the default resolution, " + countText(segmentsOf(g, id)) +
                   ", of every Scatter with no Resample after it (Scatter " + joinNames(g, setsFor) + ")";
        return "Fed nothing: it sets the default resolution, which no Scatter takes (each has a Resample after it, or "
               "another Resample fed nothing asks for more)";
    }
    const auto above = a.above.find(id);
    if (above == a.above.end())
        return "Its strands reach no Output: it sets no Scatter's resolution (connect it on the way to the Output)";
    std::vector<NodeId> scatters;
    for (NodeId n : above->second)
        if (isType(g, n, "Scatter") && a.active.count(n)) scatters.push_back(n);
    if (scatters.empty()) return "No Scatter comes before it: it sets no Scatter's resolution (a Resample sets only its own branch's)";
    if (segmentsOf(g, id) <= 0) return "Sets no Scatter's resolution (0 segments keeps each strand's)";
    if (setsFor.empty()) {
        NodeId winner = 0;
        for (NodeId scatter : scatters) {
            const auto r = a.resolutions.find(scatter);
            if (r != a.resolutions.end() && r->second.resample && r->second.resample != id) {
                winner = r->second.resample;
                break;
            }
        }
        return "Sets no Scatter's resolution: Resample " + (winner ? g.nodeName(winner) : std::string("?")) +
               " after it asks for more";
    }
    return "Sets the resolution of Scatter " + joinNames(g, setsFor) + ": " + countText(segmentsOf(g, id)) +
           " (a Resample sets only its own branch's)";
}

}  // namespace

std::map<NodeId, Resolution> strandResolutions(const Graph& graph, bool viewport) {
    return analyse(graph, viewport).resolutions;
}

std::string strandResolutionNote(const Graph& graph, NodeId id, bool viewport) {
    if (isType(graph, id, "Scatter")) return scatterNote(graph, analyse(graph, viewport), id);
    if (isType(graph, id, "Resample")) return resampleNote(graph, analyse(graph, viewport), id);
    return {};
}

}  // namespace tressora
