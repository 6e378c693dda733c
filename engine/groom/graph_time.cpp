#include "groom/graph_time.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <memory>
#include <set>
#include <string_view>

#include "core/errors.h"
#include "expression/expression.h"

namespace tressora {

namespace {

// Node types whose result changes with the frame whatever their params.
constexpr std::array<std::string_view, 6> kMovingTypes = {"Wind", "Jiggle", "Simulate", "ImportCurves", "Reference",
                                                          "Control"};

bool isWordChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// Whether `word` stands in `text` as a whole identifier.
bool containsWord(std::string_view text, std::string_view word) {
    for (std::size_t at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) {
        const bool startsWord = at == 0 || !isWordChar(text[at - 1]);
        const std::size_t end = at + word.size();
        if (startsWord && (end == text.size() || !isWordChar(text[end]))) return true;
    }
    return false;
}

// An expression reads time when its program does (aliases such as $F included); text that
// does not compile on its own (it needs its node's variables, or is a script) is judged by
// its words.
bool textReadsTime(const std::string& text) {
    try {
        return Expression::compile(text, {}, ExpressionWant::Either)->readsTime();
    } catch (const ExpressionError&) {
        return containsWord(text, "frame") || containsWord(text, "time");
    }
}

bool mapReadsTime(const MapRef& map) {
    if (map.source == MapSource::Expression) return textReadsTime(map.text);
    if (map.source == MapSource::Texture)
        return map.text.find("<f>") != std::string::npos || map.text.find('#') != std::string::npos;
    return false;
}

bool operatorReadsTime(Operator& op) {
    if (std::find(kMovingTypes.begin(), kMovingTypes.end(), op.type()) != kMovingTypes.end()) return true;
    const bool textual = op.type() == "Expression" || op.type() == "Script";
    for (const auto& [name, value] : op.paramValues.values()) {
        if (const MapRef* map = std::get_if<MapRef>(&value); map && mapReadsTime(*map)) return true;
        if (const std::string* text = std::get_if<std::string>(&value); textual && text && textReadsTime(*text))
            return true;
    }
    bool inner = false;
    op.forEachInner("", [&inner](const std::string&, Operator& node) {
        inner = operatorReadsTime(node);
        return !inner;
    });
    return inner;
}

// The active Jiggle nodes on the strands' way to `id`.
template <class Visit>
void forEachJiggle(Graph& graph, NodeId id, Visit&& visit) {
    forEachWorkingUpstream(graph, id, [&visit](const std::string&, Operator& op) {
        if (op.type() == "Jiggle") visit(op.paramValues);
        return true;
    });
}

std::int64_t intParam(const ParamSet& params, const std::string& name) {
    return params.has(name) ? params.getInt(name, 0) : 0;
}

}  // namespace

bool forEachWorkingUpstream(Graph& graph, NodeId id, const std::function<bool(const std::string&, Operator&)>& visit) {
    if (!id || !graph.hasNode(id)) return true;
    return graph.forEachActiveUpstream(id, [&](const std::string& path, Operator& op) {
        const NodeId node = graph.findNode(path);  // nodes inside a compound have no id here
        if (node && graph.node(node).bypass) return true;
        return visit(path, op);
    });
}

bool graphReadsTime(Graph& graph, NodeId id) {
    if (!id || !graph.hasNode(id)) return false;
    std::vector<NodeId> stack{id};
    std::set<NodeId> seen{id};
    while (!stack.empty()) {
        const NodeId current = stack.back();
        stack.pop_back();
        GraphNode& node = graph.node(current);
        if (!node.paramControls.empty() || operatorReadsTime(*node.op)) return true;
        // A bypassed node stands for its first input alone.
        const std::vector<Port> slots = graph.effectiveInputs(current);
        const bool passes = node.bypass && !slots.empty() && slots[0].type == node.op->output().type &&
                            !node.inputSources.empty() && node.inputSources[0];
        const std::size_t count = passes ? 1 : node.inputSources.size();
        for (std::size_t slot = 0; slot < count; ++slot) {
            const NodeId source = node.inputSources[slot];
            if (source && seen.insert(source).second) stack.push_back(source);
        }
    }
    return false;
}

std::function<bool(int id)> frameMattersFor(Graph& graph) {
    auto moving = std::make_shared<std::set<int>>();
    for (const auto& [id, node] : graph.nodes())
        if (graphReadsTime(graph, id)) moving->insert(static_cast<int>(id));
    return [moving](int id) { return moving->count(id) != 0; };
}

int scalpHistoryFrames(Graph& graph, NodeId id) {
    std::int64_t frames = 0;
    forEachJiggle(graph, id, [&frames](const ParamSet& params) { frames = std::max(frames, intParam(params, "history")); });
    return static_cast<int>(std::min<std::int64_t>(frames, 1 << 20));
}

std::vector<double> scalpHistoryLoopFrames(Graph& graph, NodeId id, double frame) {
    std::set<double> frames{frame};
    forEachJiggle(graph, id, [&](const ParamSet& params) {
        const std::int64_t history = std::min<std::int64_t>(intParam(params, "history"), 1 << 20);
        const bool loop = params.has("loop") && params.getBool("loop", false);
        const double start = static_cast<double>(intParam(params, "loopStart"));
        const double length = static_cast<double>(intParam(params, "loopEnd")) - start;
        for (std::int64_t k = 1; k <= history; ++k) {
            double f = frame - static_cast<double>(k);
            if (loop && length > 0.0 && f < start) f += length * std::ceil((start - f) / length);
            frames.insert(f);
        }
    });
    return {frames.begin(), frames.end()};
}

}  // namespace tressora
