// The evaluator: pulls a node's value, evaluating its inputs first, and reuses whatever did
// not change. The unit of reuse is a content hash of everything a node's result depends on
// (its key), so edits, frames and params invalidate without any dirty flags.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <set>
#include <unordered_set>

#include "core/errors.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "graph/affect_mix.h"
#include "graph/field_value.h"
#include "graph/graph.h"
#include "graph/uniform_value.h"

namespace tressora {

namespace {

constexpr std::uint64_t kBypassConstant = 0x9e3779b97ffc766aull;
constexpr std::uint64_t kEmptySlot = 0xE5E5'0000'0000'E5E5ull;
constexpr std::uint64_t kVersionSalt = 0x7e5000;

// Output stamps come from one process-wide counter: a new stamp means a new object.
std::uint64_t nextStamp() {
    static std::atomic<std::uint64_t> counter{0};
    return ++counter;
}

std::uint64_t hashUniform(std::uint64_t h, const UniformValue& v) {
    h = combine(h, static_cast<std::uint64_t>(v.kind));
    switch (v.value.index()) {
        case 0: return combine(h, doubleBits(std::get<double>(v.value)));
        case 1: return combine(h, static_cast<std::uint64_t>(std::get<std::int64_t>(v.value)));
        case 2: return combine(h, std::get<bool>(v.value) ? 1 : 0);
        case 3: {
            const Vec3f& p = std::get<Vec3f>(v.value);
            return combine(combine(combine(h, floatBits(p.x)), floatBits(p.y)), floatBits(p.z));
        }
        default: return combineText(h, std::get<std::string>(v.value));
    }
}

// The context's words, with the frame when it matters to the node.
std::uint64_t contextHash(const EvalContext& c, bool withFrame) {
    std::uint64_t h = hash64(0xC0DE);
    h = combine(h, floatBits(c.previewFraction));
    h = combine(h, doubleBits(c.previewPointBudget));
    h = combine(h, static_cast<std::uint64_t>(static_cast<std::int64_t>(c.segments)));
    h = combine(h, c.viewport ? 1 : 0);
    h = combine(h, static_cast<std::uint64_t>(static_cast<std::int64_t>(c.resolutionKnown)));
    if (withFrame) h = combine(h, doubleBits(c.frame));
    if (c.scale != 1.0) h = combine(h, doubleBits(c.scale));
    return h;
}

bool sameContent(const Value& a, const Value& b) {
    if (a.identity() == b.identity()) return true;
    if (a.index() != b.index()) return false;
    const auto sa = a.as<StrandSet>(), sb = b.as<StrandSet>();
    return sa && sb && sa->sameContent(*sb);
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        if (line.empty()) continue;
        if (!text.empty()) text += '\n';
        text += line;
    }
    return text;
}

// Puts a private copy of the params in place for one run and restores the node's own after.
class ParamOverride {
public:
    ParamOverride(Operator& op, const ParamSet& replacement) : op_(op), saved_(op.paramValues) {
        op_.paramValues = replacement;
    }
    ~ParamOverride() { op_.paramValues = std::move(saved_); }
    ParamOverride(const ParamOverride&) = delete;
    ParamOverride& operator=(const ParamOverride&) = delete;

private:
    Operator& op_;
    ParamSet saved_;
};

// The buffers a value reaches, for the cache's memory accounting: the arrays of a strand set
// (shared arrays count once across nodes), nothing for other values.
template <class Visit>
void forEachBuffer(const Value& value, Visit&& visit) {
    if (const auto strands = value.as<StrandSet>())
        strands->forEachBlock([&](const void* data, std::size_t bytes) { visit(data, bytes); });
}

}  // namespace

// One top-level evaluation: its memo of keys and values and the nodes it touched.
class GraphEvaluation final : public NodeKeyLookup {
public:
    GraphEvaluation(Graph& graph, EvalContext& context) : graph_(graph), context_(context) {}

    std::uint64_t key(NodeId id) override { return graph_.nodeKey(id, context_, keys_); }

    const std::vector<Value>& evaluate(NodeId id);
    const std::set<NodeId>& touched() const { return touched_; }
    std::unordered_map<NodeId, std::uint64_t>& keys() { return keys_; }
    std::map<NodeId, std::vector<Value>> takeValues() { return std::move(values_); }

private:
    std::vector<Value> run(NodeId id, GraphNode& node, std::uint64_t key);
    void checkInputKinds(NodeId id, const GraphNode& node, const std::vector<Port>& ports,
                         const std::vector<Value>& inputs) const;
    ParamSet resolveParams(NodeId id, const GraphNode& node, const std::vector<Port>& ports,
                           std::vector<Value>& inputs) const;
    std::shared_ptr<const FieldValue> affectField(const GraphNode& node, const std::vector<Port>& ports,
                                                  const std::vector<Value>& inputs, const ParamSet& params) const;

    Graph& graph_;
    EvalContext& context_;
    std::unordered_map<NodeId, std::uint64_t> keys_;
    std::map<NodeId, std::vector<Value>> values_;
    std::set<NodeId> touched_;
};

bool Graph::isBypassed(NodeId id, const EvalContext& context) const {
    const GraphNode& n = node(id);
    return n.bypass || (n.evaluation == Evaluation::ViewportOnly && !context.viewport) ||
           (n.evaluation == Evaluation::RenderOnly && context.viewport);
}

std::uint64_t Graph::nodeKey(NodeId id, const EvalContext& context,
                             std::unordered_map<NodeId, std::uint64_t>& memo) const {
    if (const auto it = memo.find(id); it != memo.end()) return it->second;
    const GraphNode& n = node(id);
    const Operator& op = *n.op;
    const bool bypassed = isBypassed(id, context);

    const bool withFrame = !context.frameMatters || context.frameMatters(static_cast<int>(id));
    std::uint64_t h = combineText(contextHash(context, withFrame), op.type());
    h = combine(h, bypassed ? kBypassConstant : kGolden);

    const std::vector<Port> slots = effectiveInputs(id);
    if (bypassed && !slots.empty() && slots[0].type == op.output().type && !n.inputSources.empty() &&
        n.inputSources[0]) {
        // A bypassed node is its first input: nothing of its own enters, so editing its
        // params invalidates nothing.
        std::uint64_t k = nodeKey(n.inputSources[0], context, memo);
        if (n.inputOutputs[0] != 0) k = combine(k, n.inputOutputs[0]);
        memo[id] = k;
        return k;
    }

    h = combine(h, op.paramValues.stamp());
    if (op.savedVersion > 0 && op.savedVersion != op.version())
        h = combine(h, static_cast<std::uint64_t>(op.savedVersion) + kVersionSalt);
    h = combine(h, op.externalStamp());
    {
        // Operators may ask for other nodes' keys through the lookup; it shares this memo.
        struct Lookup final : NodeKeyLookup {
            const Graph& g;
            const EvalContext& c;
            std::unordered_map<NodeId, std::uint64_t>& m;
            Lookup(const Graph& g_, const EvalContext& c_, std::unordered_map<NodeId, std::uint64_t>& m_)
                : g(g_), c(c_), m(m_) {}
            std::uint64_t key(NodeId other) override { return g.nodeKey(other, c, m); }
        } lookup(*this, context, memo);
        h = combine(h, op.contextStamp(lookup, static_cast<int>(id), context));
    }
    for (const auto& [param, controls] : n.paramControls) {
        h = combineText(h, param);
        for (const std::string& control : controls) {
            const SceneItem* item = context.sceneItem("control:" + control);
            if (!item) continue;
            if (const auto u = item->value.as<UniformValue>()) h = hashUniform(h, *u);
            else h = combine(h, item->stamp);
        }
    }
    for (const std::string& name : op.sceneInputs()) {
        for (unsigned char c : name) h = combine(h, c);
        if (const SceneItem* item = context.sceneItem(name)) h = combine(h, op.sceneInputStamp(name, *item));
    }
    const std::size_t count = std::max(slots.size(), n.inputSources.size());
    h = combine(h, count);
    for (std::size_t slot = 0; slot < count; ++slot) {
        const bool filled = slot < n.inputSources.size() && n.inputSources[slot];
        h = combine(h, filled ? n.inputOutputs[slot] : kEmptySlot);
    }
    for (std::size_t slot = 0; slot < count; ++slot) {
        if (slot >= n.inputSources.size() || !n.inputSources[slot]) continue;
        h = combine(h, nodeKey(n.inputSources[slot], context, memo));
        if (n.inputOutputs[slot] != 0) h = combine(h, n.inputOutputs[slot]);
    }
    memo[id] = h;
    return h;
}

const std::vector<Value>& GraphEvaluation::evaluate(NodeId id) {
    if (const auto it = values_.find(id); it != values_.end()) return it->second;
    GraphNode& node = graph_.node(id);
    const std::uint64_t k = key(id);
    touched_.insert(id);

    NodeState& state = node.state;
    if (!(state.valid && state.key == k)) {
        const auto hit = graph_.cacheEnabled_ ? graph_.cache_.find(k) : graph_.cache_.end();
        if (hit != graph_.cache_.end()) {
            state.valid = true;
            state.key = k;
            state.outputs = hit->second.outputs;
            state.stamp = hit->second.stamp;
        } else {
            std::vector<Value> outputs = run(id, node, k);
            const bool unchanged = state.valid && state.outputs.size() == outputs.size() &&
                                   std::equal(outputs.begin(), outputs.end(), state.outputs.begin(), sameContent);
            // An unchanged result keeps its old objects and stamp, so that what depends on
            // stamps downstream stays stable.
            if (!unchanged) {
                state.outputs = std::move(outputs);
                state.stamp = nextStamp();
            }
            state.valid = true;
            state.key = k;
            if (graph_.cacheEnabled_) graph_.cache_[k] = {state.outputs, state.stamp};
        }
    }
    return values_.emplace(id, state.outputs).first->second;
}

void GraphEvaluation::checkInputKinds(NodeId id, const GraphNode& node, const std::vector<Port>& ports,
                                      const std::vector<Value>& inputs) const {
    for (std::size_t slot = 0; slot < inputs.size() && slot < ports.size(); ++slot) {
        const bool wantsStrands = ports[slot].type == PortType::Strands;
        const bool wantsGuides = ports[slot].type == PortType::Guides;
        const bool mismatch = (wantsStrands && inputs[slot].holds<GuideSet>()) ||
                              (wantsGuides && inputs[slot].holds<StrandSet>());
        if (!mismatch) continue;
        const std::string& name = graph_.nodeName(id);
        throw GraphError((name.empty() ? std::string() : "node '" + name + "': ") + node.op->type() + " input '" +
                         ports[slot].name + "' takes " + (wantsStrands ? "strands" : "guides") + " but gets " +
                         (wantsStrands ? "guides" : "strands") + " from the node before it");
    }
}

ParamSet GraphEvaluation::resolveParams(NodeId id, const GraphNode& node, const std::vector<Port>& ports,
                                        std::vector<Value>& inputs) const {
    (void)id;
    ParamSet params = node.op->paramValues;
    const std::size_t declared = node.op->inputs().size();
    for (std::size_t i = 0; i < node.paramInputs.size(); ++i) {
        const std::size_t slot = declared + i;
        if (slot >= inputs.size() || inputs[slot].empty()) continue;
        const std::string& param = node.paramInputs[i];
        const std::optional<ParamSpec> spec = findParam(*node.op, param);
        if (!spec) continue;
        const Value& value = inputs[slot];
        const bool valuePort = slot < ports.size() && ports[slot].type == PortType::Value;
        if (const auto uniform = value.as<UniformValue>()) {
            params.set(param, coerce(*uniform, *spec));
        } else if (const auto ramp = value.as<Ramp>()) {
            if (valuePort) throw GraphError(param + " takes one value for the whole node, not a value per strand or a curve");
            params.set(param, *ramp);
        } else if (value.holds<FieldValue>() && valuePort) {
            throw GraphError(param + " takes one value for the whole node, not a value per strand or a curve");
        }
        // A field stays a field: the operator reads it from its input slot.
    }
    for (const auto& [param, controls] : node.paramControls) {
        const std::optional<ParamSpec> spec = findParam(*node.op, param);
        if (!spec) continue;
        std::vector<UniformValue> values;
        for (const std::string& control : controls) {
            const SceneItem* item = context_.sceneItem("control:" + control);
            const auto u = item ? item->value.as<UniformValue>() : nullptr;
            if (!u) break;
            values.push_back(*u);
        }
        if (values.size() != controls.size()) continue;  // an unset control leaves the param as stored
        if (values.size() == 3) {
            ParamSpec component = *spec;
            component.defaultValue = 0.0;
            Vec3f v;
            for (int c = 0; c < 3; ++c) v[c] = static_cast<float>(std::get<double>(coerce(values[c], component)));
            params.set(param, v);
        } else {
            params.set(param, coerce(values[0], *spec));
        }
    }
    return params;
}

std::shared_ptr<const FieldValue> GraphEvaluation::affectField(const GraphNode& node, const std::vector<Port>& ports,
                                                               const std::vector<Value>& inputs,
                                                               const ParamSet& params) const {
    for (std::size_t slot = node.op->inputs().size(); slot < ports.size() && slot < inputs.size(); ++slot)
        if (ports[slot].name == "affect")
            if (auto field = inputs[slot].as<FieldValue>()) return field;
    const ParamValue& value = params.get("affect");
    if (const MapRef* map = std::get_if<MapRef>(&value)) {
        if (context_.maps) return context_.maps->fieldFor(*map);
        return nullptr;  // no sampler for maps in this evaluation: the node works everywhere
    }
    return std::make_shared<ConstantFieldValue>(static_cast<float>(params.getFloat("affect", 1.0)));
}

std::vector<Value> GraphEvaluation::run(NodeId id, GraphNode& node, std::uint64_t key) {
    (void)key;
    Operator& op = *node.op;
    const std::vector<Port> ports = graph_.effectiveInputs(id);

    std::vector<Value> inputs(std::max(ports.size(), node.inputSources.size()));
    for (std::size_t slot = 0; slot < node.inputSources.size(); ++slot) {
        const NodeId source = node.inputSources[slot];
        if (!source) continue;
        const std::vector<Value>& outs = evaluate(source);
        if (node.inputOutputs[slot] < outs.size()) inputs[slot] = outs[node.inputOutputs[slot]];
    }
    inputs.resize(ports.size());

    const ParamSet params = resolveParams(id, node, ports, inputs);
    checkInputKinds(id, node, ports, inputs);

    bool bypassed = graph_.isBypassed(id, context_);
    std::shared_ptr<const FieldValue> affect;
    if (!bypassed && hasAffect(op)) {
        affect = affectField(node, ports, inputs, params);
        if (const auto* constant = dynamic_cast<const ConstantFieldValue*>(affect.get())) {
            if (constant->value() == 0.0f) bypassed = true;
            if (constant->value() == 1.0f) affect.reset();
        }
    }

    const std::vector<Port> outPorts = op.outputs();
    context_.notes.clear();
    std::vector<Value> outputs;
    const auto start = std::chrono::steady_clock::now();
    if (bypassed) {
        const PortType firstType = ports.empty() ? PortType::Strands : ports[0].type;
        outputs.resize(outPorts.size());
        for (std::size_t o = 0; o < outPorts.size(); ++o)
            if (!inputs.empty() && outPorts[o].type == firstType) outputs[o] = inputs[0];
        graph_.nodeModes_[id] = "bypass";
        node.state.passThrough = true;
    } else {
        {
            ParamOverride guard(op, params);
            context_.nodeName = graph_.nodeName(id);
            // The incremental path (evaluateIncremental with the inputs' changes) slots in here.
            outputs = op.evaluateOutputs(context_, inputs);
            ++graph_.operatorRuns_;
        }
        if (outputs.size() != outPorts.size())
            throw GraphError(op.type() + " made " + std::to_string(outputs.size()) + " values for " +
                             std::to_string(outPorts.size()) + " outputs");
        const auto in = inputs.empty() ? nullptr : inputs[0].as<StrandSet>();
        const auto out = outputs.empty() ? nullptr : outputs[0].as<StrandSet>();
        if (affect && in && out && in != out) {
            if (in->strandCount() != out->strandCount() || in->pointCount() != out->pointCount()) {
                context_.addNote("affect is not applied: this node changes how many strands or points there are");
            } else {
                auto mixed = mixByAffect(*in, *out, *affect);
                op.rebindState(out.get(), mixed);
                outputs[0] = Value(mixed);
            }
        }
        graph_.nodeModes_[id] = out ? "full " + std::to_string(out->strandCount()) : "full";
        node.state.passThrough = in && out && in == out;
    }
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    graph_.nodeMs_[id] = ms;
    if (!bypassed) graph_.nodeFullMs_[id] = ms;

    std::vector<std::string> notes = std::move(context_.notes);
    context_.notes.clear();
    notes.push_back(op.note(context_));
    for (const std::string& unknown : undeclaredParams(op))
        notes.push_back("unknown param '" + unknown + "' is kept but does nothing (" + op.type() + " has no such param)");
    graph_.nodeNotes_[id] = joined(notes);
    return outputs;
}

std::vector<Value> Graph::evaluate(NodeId id, EvalContext& context) {
    node(id);  // an unknown id fails before anything runs
    std::vector<Value> result;
    const auto body = [&] {
        if (!cacheEnabled_) cache_.clear();
        GraphEvaluation evaluation(*this, context);
        try {
            result = evaluation.evaluate(id);
        } catch (...) {
            ++evaluationCount_;
            throw;
        }
        ++evaluationCount_;
        for (NodeId touched : evaluation.touched()) node(touched).state.lastUsed = evaluationCount_;
        keptValues_.clear();
        if (context.keepInputs) keptValues_ = evaluation.takeValues();

        // The map keeps only entries that some node's key for this context still names.
        if (!cache_.empty()) {
            std::unordered_set<std::uint64_t> present;
            for (const auto& [nodeId, n] : nodes_) present.insert(evaluation.key(nodeId));
            for (auto it = cache_.begin(); it != cache_.end();)
                it = present.count(it->first) ? std::next(it) : cache_.erase(it);
        }
        evict(id);
    };
    if (context.threads > 0) {
        tbb::task_arena arena(context.threads);
        arena.execute(body);
    } else {
        body();
    }
    return result;
}

Value Graph::evaluateOutput(NodeId id, unsigned output, EvalContext& context) {
    const std::vector<Value> outputs = evaluate(id, context);
    if (output >= outputs.size())
        throw GraphError(op(id).type() + " has no output " + std::to_string(output));
    return outputs[output];
}

void Graph::clearCache() {
    cache_.clear();
    for (auto& [id, n] : nodes_) n.state = NodeState{};
}

void Graph::evict(NodeId result) {
    // Distinct buffers across all holders: shared arrays count once.
    struct Buffer {
        std::size_t bytes = 0;
        int holders = 0;
    };
    std::unordered_map<const void*, Buffer> buffers;
    std::map<NodeId, std::vector<const void*>> held;
    for (auto& [id, n] : nodes_) {
        if (!n.state.valid) continue;
        std::set<const void*> mine;
        for (const Value& v : n.state.outputs)
            forEachBuffer(v, [&](const void* data, std::size_t bytes) {
                if (mine.insert(data).second) buffers[data].bytes = bytes;
            });
        const auto entry = cache_.find(n.state.key);
        if (entry != cache_.end())
            for (const Value& v : entry->second.outputs)
                forEachBuffer(v, [&](const void* data, std::size_t bytes) {
                    if (mine.insert(data).second) buffers[data].bytes = bytes;
                });
        for (const void* data : mine) ++buffers[data].holders;
        held[id].assign(mine.begin(), mine.end());
    }
    std::uint64_t total = 0;
    for (const auto& [data, b] : buffers) total += b.bytes;
    if (total <= cacheLimit_) return;

    struct Candidate {
        NodeId id;
        std::uint64_t lastUsed;
        double cost;
    };
    std::vector<Candidate> order;
    for (const auto& [id, pointers] : held) {
        std::uint64_t bytes = 0;
        for (const void* data : pointers) bytes += buffers[data].bytes;
        const auto ms = nodeFullMs_.find(id);
        const double cost = (ms == nodeFullMs_.end() ? 0.0 : ms->second) / static_cast<double>(bytes ? bytes : 1);
        order.push_back({id, nodes_.at(id).state.lastUsed, cost});
    }
    std::stable_sort(order.begin(), order.end(), [](const Candidate& a, const Candidate& b) {
        if (a.lastUsed != b.lastUsed) return a.lastUsed < b.lastUsed;
        return a.cost < b.cost;
    });
    for (const Candidate& c : order) {
        if (total <= cacheLimit_) break;
        if (c.id == result) continue;
        std::uint64_t alone = 0;
        for (const void* data : held[c.id])
            if (buffers[data].holders == 1) alone += buffers[data].bytes;
        if (alone == 0) continue;
        GraphNode& n = nodes_.at(c.id);
        cache_.erase(n.state.key);
        n.state = NodeState{};
        total -= alone;
        for (const void* data : held[c.id]) --buffers[data].holders;
        ++evictionCount_;
    }
}

}  // namespace tressora
