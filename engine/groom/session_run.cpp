#include "groom/session_run.h"

#include <atomic>
#include <map>

namespace tressora {

namespace {

double msSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// A node the evaluation ran has a new time entry; one answered from its last state keeps
// the old entry and took no time of its own.
std::vector<std::pair<std::string, double>> timingsOf(const Graph& graph, const std::map<NodeId, double>& before) {
    std::vector<std::pair<std::string, double>> out;
    for (const auto& [id, node] : graph.nodes()) {
        if (node.state.lastUsed != graph.evaluationCount()) continue;
        const auto now = graph.nodeMs().find(id);
        const auto old = before.find(id);
        const bool ran = now != graph.nodeMs().end() && (old == before.end() || old->second != now->second);
        out.emplace_back(graph.nodeName(id), ran ? now->second : 0.0);
    }
    return out;
}

}  // namespace

std::uint64_t nextItemStamp() {
    // Far from the small numbers that tests and hand-made catalogues use.
    static std::atomic<std::uint64_t> counter{0x5CE0'0000'0000'0000ull};
    return ++counter;
}

void takeOverNodes(Graph& to, Graph& from) {
    to.setCacheLimit(from.cacheLimit());
    for (const auto& [id, node] : to.nodes()) {
        const NodeId source = from.findNode(to.nodeName(id));
        if (!source || from.op(source).type() != node.op->type()) continue;
        to.op(id).adoptState(from.op(source));
        to.node(id).state = from.node(source).state;
    }
}

SessionResult runSession(Graph& graph, SessionRun& run) {
    SessionResult result;
    const std::map<NodeId, double> before = graph.nodeMs();
    const auto graphStart = std::chrono::steady_clock::now();
    const Value value = graph.evaluateOutput(run.node, 0, run.context);
    result.graphMs = msSince(graphStart);
    result.timings = timingsOf(graph, before);
    // A guides result is for viewers; the writers take strands only.
    result.graphStrands = value.as<StrandSet>();
    result.strands = result.graphStrands;
    result.carry = run.carry;
    if (!run.follow || !result.graphStrands || run.currentStamp == run.restStamp) return result;

    const auto followStart = std::chrono::steady_clock::now();
    CarryCache& cache = result.carry;
    if (!cache.carry || cache.madeFor != result.graphStrands || cache.restStamp != run.restStamp) {
        // Roots are placed once per rest strands and rest scalp; every frame reuses them.
        cache = {};
        cache.carry = std::make_shared<const FollowCarry>(*result.graphStrands, *run.rest);
        cache.madeFor = result.graphStrands;
        cache.restStamp = run.restStamp;
    }
    if (!cache.carried || cache.carriedStamp != run.currentStamp) {
        cache.carried = cache.carry->carry(*result.graphStrands, *run.rest, *run.current);
        cache.carriedStamp = run.currentStamp;
    }
    result.strands = cache.carried;
    result.followMs = msSince(followStart);
    return result;
}

}  // namespace tressora
