#include "graph/graph.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <set>

#include "core/errors.h"
#include "graph/operator_registry.h"

namespace tressora {

namespace {

constexpr std::array<std::string_view, 3> kEvaluationNames = {"always", "viewportOnly", "renderOnly"};

bool isStrandLike(PortType t) { return t == PortType::Strands || t == PortType::Curves; }

}  // namespace

std::string_view evaluationName(Evaluation evaluation) {
    return kEvaluationNames[static_cast<std::size_t>(evaluation)];
}

Evaluation parseEvaluation(std::string_view text) {
    for (std::size_t i = 0; i < kEvaluationNames.size(); ++i)
        if (kEvaluationNames[i] == text) return static_cast<Evaluation>(i);
    throw GraphError("unknown evaluation '" + std::string(text) + "' (always, viewportOnly or renderOnly)");
}

std::uint64_t cacheLimitFromEnvironment() {
    static const std::uint64_t limit = [] {
        constexpr std::uint64_t kDefault = 2048ull * 1048576ull;
        const char* text = std::getenv("TRESSORA_CACHE_LIMIT_MB");
        if (!text || !*text) return kDefault;
        char* end = nullptr;
        const double mb = std::strtod(text, &end);
        if (end == text || *end != '\0' || !(mb >= 0.0) || mb > 1e12) return kDefault;
        return static_cast<std::uint64_t>(mb * 1048576.0);
    }();
    return limit;
}

Graph::Graph(const OperatorRegistry& registry) : registry_(&registry), cacheLimit_(cacheLimitFromEnvironment()) {}
Graph::~Graph() = default;

// ---- nodes and names ---------------------------------------------------------------------

std::string Graph::uniqueName(const std::string& base) const {
    std::string stem = base.empty() ? std::string("node") : base;
    stem[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(stem[0])));
    if (!ids_.count(stem)) return stem;
    for (int i = 2;; ++i) {
        std::string candidate = stem + std::to_string(i);
        if (!ids_.count(candidate)) return candidate;
    }
}

NodeId Graph::addNode(std::unique_ptr<Operator> op, const std::string& name) {
    if (!op) throw GraphError("addNode: null operator");
    const std::string chosen = name.empty() ? uniqueName(op->type()) : name;
    if (ids_.count(chosen)) throw GraphError("duplicate node name '" + chosen + "'");
    const NodeId id = nextId_++;
    GraphNode node;
    const std::size_t slots = op->inputs().size();
    node.inputSources.assign(slots, 0);
    node.inputOutputs.assign(slots, 0);
    node.op = std::move(op);
    nodes_.emplace(id, std::move(node));
    ids_[chosen] = id;
    names_[id] = chosen;
    return id;
}

NodeId Graph::addNode(const std::string& type, const std::string& name) {
    return addNode(registry_->create(type), name);
}

void Graph::removeNode(NodeId id) {
    node(id);  // throws for an unknown id
    for (auto& [other, n] : nodes_) {
        for (std::size_t slot = 0; slot < n.inputSources.size(); ++slot) {
            if (n.inputSources[slot] == id) {
                n.inputSources[slot] = 0;
                n.inputOutputs[slot] = 0;
            }
        }
    }
    nodes_.erase(id);
    ids_.erase(names_[id]);
    names_.erase(id);
    if (output_ == id) output_ = 0;
    nodeMs_.erase(id);
    nodeFullMs_.erase(id);
    nodeModes_.erase(id);
    nodeNotes_.erase(id);
}

const GraphNode& Graph::node(NodeId id) const {
    const auto it = nodes_.find(id);
    if (it == nodes_.end()) throw GraphError("unknown node " + std::to_string(id));
    return it->second;
}

GraphNode& Graph::node(NodeId id) { return const_cast<GraphNode&>(static_cast<const Graph&>(*this).node(id)); }

const std::string& Graph::nodeName(NodeId id) const {
    const auto it = names_.find(id);
    if (it == names_.end()) throw GraphError("unknown node " + std::to_string(id));
    return it->second;
}

NodeId Graph::nodeByName(const std::string& name) const {
    const NodeId id = findNode(name);
    if (!id) throw GraphError("unknown node '" + name + "'");
    return id;
}

NodeId Graph::findNode(const std::string& name) const {
    const auto it = ids_.find(name);
    return it == ids_.end() ? 0 : it->second;
}

void Graph::renameNode(NodeId id, const std::string& name) {
    const std::string old = nodeName(id);
    if (old == name) return;
    if (name.empty()) throw GraphError("a node needs a name");
    if (ids_.count(name)) throw GraphError("duplicate node name '" + name + "'");
    ids_.erase(old);
    ids_[name] = id;
    names_[id] = name;
}

void Graph::setOutputNode(NodeId id) {
    if (id) node(id);
    output_ = id;
}

// ---- wiring ----------------------------------------------------------------------------

std::vector<Port> Graph::effectiveInputs(NodeId id) const {
    const GraphNode& n = node(id);
    std::vector<Port> ports = n.op->inputs();
    for (const std::string& param : n.paramInputs) {
        const std::optional<ParamSpec> spec = findParam(*n.op, param);
        std::optional<Port> port = spec ? paramPort(*spec) : std::nullopt;
        ports.push_back(port ? *port : Port{param, PortType::Value, true, ValueKind::Any});
    }
    return ports;
}

unsigned Graph::outputIndex(NodeId id, const std::string& name) const {
    const std::vector<Port> outs = op(id).outputs();
    for (std::size_t i = 0; i < outs.size(); ++i)
        if (outs[i].name == name) return static_cast<unsigned>(i);
    throw GraphError(op(id).type() + " has no output '" + name + "'");
}

unsigned Graph::inputIndex(NodeId id, const std::string& name) const {
    const std::vector<Port> ins = effectiveInputs(id);
    for (std::size_t i = 0; i < ins.size(); ++i)
        if (ins[i].name == name) return static_cast<unsigned>(i);
    throw GraphError(op(id).type() + " has no input '" + name + "'");
}

PortType Graph::resolvedOutputType(NodeId id, unsigned output) const {
    NodeId current = id;
    unsigned index = output;
    for (int hop = 0; hop < 1000; ++hop) {
        const GraphNode& n = node(current);
        const std::vector<Port> outs = n.op->outputs();
        if (index >= outs.size()) return PortType::Curves;
        if (outs[index].type != PortType::Curves) return outs[index].type;
        const std::vector<Port> ins = n.op->inputs();
        bool followed = false;
        for (std::size_t slot = 0; slot < ins.size() && slot < n.inputSources.size(); ++slot) {
            if (ins[slot].type == PortType::Curves && n.inputSources[slot]) {
                current = n.inputSources[slot];
                index = n.inputOutputs[slot];
                followed = true;
                break;
            }
        }
        if (!followed) return PortType::Curves;
    }
    return PortType::Curves;
}

bool Graph::reaches(NodeId from, NodeId target) const {
    std::vector<NodeId> stack = {from};
    std::set<NodeId> visited;
    while (!stack.empty()) {
        const NodeId id = stack.back();
        stack.pop_back();
        if (id == target) return true;
        if (!visited.insert(id).second) continue;
        for (NodeId source : node(id).inputSources)
            if (source) stack.push_back(source);
    }
    return false;
}

void Graph::connect(NodeId from, unsigned output, NodeId to, unsigned input) {
    const GraphNode& target = node(to);
    const GraphNode& source = node(from);
    const std::vector<Port> slots = effectiveInputs(to);
    if (input >= slots.size())
        throw GraphError(target.op->type() + " has no input slot " + std::to_string(input));
    const std::vector<Port> outs = source.op->outputs();
    if (output >= outs.size()) throw GraphError(source.op->type() + " has no output " + std::to_string(output));

    const PortType r = resolvedOutputType(from, output);
    const Port& slot = slots[input];
    if (r == PortType::Field && slot.type == PortType::Value)
        throw GraphError("type mismatch: Field -> Value: '" + slot.name +
                         "' takes one value for the whole node, and a field gives one per strand (drive it with a "
                         "Value node, or an Expression set to give a value)");
    if (r != slot.type) {
        const bool fits = (r == PortType::Value && slot.type == PortType::Field) ||
                          (slot.type == PortType::Curves && (r == PortType::Strands || r == PortType::Guides)) ||
                          (r == PortType::Curves && (slot.type == PortType::Strands || slot.type == PortType::Guides));
        if (!fits)
            throw GraphError("type mismatch: " + std::string(portTypeName(r)) + " -> " +
                             std::string(portTypeName(slot.type)));
    }
    if (r == PortType::Value) {
        const ValueKind sourceKind = outs[output].valueKind;
        const bool fieldSlot = slot.type == PortType::Field;
        const ValueKind slotKind =
            fieldSlot && slot.valueKind == ValueKind::Any ? ValueKind::Number : slot.valueKind;
        if (!valueKindsCompatible(sourceKind, slotKind))
            throw GraphError("type mismatch: a " + std::string(valueKindName(sourceKind)) + " Value cannot feed '" +
                             slot.name + "', which takes " +
                             (fieldSlot ? std::string("a field or a number") : std::string(valueKindName(slotKind))));
    }
    if (reaches(from, to)) throw GraphError("connection would create a cycle");

    GraphNode& t = node(to);
    if (t.inputSources.size() < slots.size()) {
        t.inputSources.resize(slots.size(), 0);
        t.inputOutputs.resize(slots.size(), 0);
    }
    t.inputSources[input] = from;
    t.inputOutputs[input] = output;
}

void Graph::disconnect(NodeId to, unsigned input) {
    GraphNode& t = node(to);
    if (input < t.inputSources.size()) {
        t.inputSources[input] = 0;
        t.inputOutputs[input] = 0;
    }
}

// ---- edits -----------------------------------------------------------------------------

void Graph::setParam(NodeId id, const std::string& name, ParamValue value) {
    Operator& op = *node(id).op;
    if (const std::optional<ParamSpec> spec = findParam(op, name)) {
        try {
            value = checkParam(std::move(value), *spec);
        } catch (const GraphError& e) {
            throw GraphError("node '" + nodeName(id) + "': " + e.what());
        }
    }
    op.paramValues.set(name, std::move(value));
}

void Graph::setBypass(NodeId id, bool bypass) { node(id).bypass = bypass; }
void Graph::setEvaluation(NodeId id, Evaluation evaluation) { node(id).evaluation = evaluation; }

void Graph::setParamControls(NodeId id, const std::string& param, std::vector<std::string> controls) {
    GraphNode& n = node(id);
    if (controls.empty()) {
        n.paramControls.erase(param);
        return;
    }
    const std::string type = n.op->type();
    const std::optional<ParamSpec> spec = findParam(*n.op, param);
    if (!spec) throw GraphError(type + " has no param '" + param + "' to key");
    const ParamKind kind = spec->kind();
    if (kind != ParamKind::Float && kind != ParamKind::Int && kind != ParamKind::Bool && kind != ParamKind::Vec3)
        throw GraphError(type + " param '" + param + "' cannot be keyed: only numbers, switches and vectors can");
    if (spec->topology)
        throw GraphError(type + " param '" + param +
                         "' cannot be keyed: it sets how many strands, points or cards there are, or where they go, "
                         "which must stay the same on every frame");
    for (const std::string& control : controls)
        if (control.empty()) throw GraphError(type + " param '" + param + "': a control needs a name");
    if (kind == ParamKind::Vec3 && controls.size() != 3)
        throw GraphError(type + " param '" + param + "' is keyed by three controls (x, y, z)");
    if (kind != ParamKind::Vec3 && controls.size() != 1)
        throw GraphError(type + " param '" + param + "' is keyed by one control");
    n.paramControls[param] = std::move(controls);
}

void Graph::setParamInputs(NodeId id, std::vector<std::string> params) {
    GraphNode& n = node(id);
    const std::string type = n.op->type();
    const std::vector<Port> declared = n.op->inputs();
    std::set<std::string> seen;
    for (const std::string& param : params) {
        const std::optional<ParamSpec> spec = findParam(*n.op, param);
        if (!spec) throw GraphError(type + " has no param '" + param + "' to expose");
        if (spec->port == ParamPort::None)
            throw GraphError(type + " param '" + param + "' cannot be an input: it sets the node's own ports");
        if (!paramPort(*spec))
            throw GraphError(type + " param '" + param + "' cannot be an input: no node gives what it holds");
        for (const Port& port : declared)
            if (port.name == param) throw GraphError("param '" + param + "' has the name of an input of " + type);
        if (!seen.insert(param).second) throw GraphError("param '" + param + "' exposed twice");
    }
    const std::size_t slots = declared.size() + params.size();
    // Connections of the old extra slots do not carry over to other params.
    n.inputSources.resize(std::min(n.inputSources.size(), declared.size()));
    n.inputOutputs.resize(n.inputSources.size());
    n.inputSources.resize(slots, 0);
    n.inputOutputs.resize(slots, 0);
    n.paramInputs = std::move(params);
}

// ---- walks -----------------------------------------------------------------------------

std::vector<NodeId> Graph::activeUpstream(NodeId id) const {
    std::vector<NodeId> order;
    std::set<NodeId> entered;
    std::vector<NodeId> stack = {id};
    while (!stack.empty()) {
        const NodeId current = stack.back();
        stack.pop_back();
        if (!current || !entered.insert(current).second) continue;
        order.push_back(current);
        const GraphNode& n = node(current);
        const std::vector<Port> ins = effectiveInputs(current);
        std::vector<NodeId> next;
        if (n.bypass && !ins.empty() && ins[0].type == n.op->output().type && !n.inputSources.empty() &&
            n.inputSources[0]) {
            next.push_back(n.inputSources[0]);
        } else {
            const std::size_t count = std::min(ins.size(), n.inputSources.size());
            for (std::size_t slot = 0; slot < count; ++slot) {
                if (!isStrandLike(ins[slot].type) || !n.op->inputActive(static_cast<int>(slot))) continue;
                if (n.inputSources[slot]) next.push_back(n.inputSources[slot]);
            }
        }
        // Push in reverse so that the first slot is walked first.
        for (auto it = next.rbegin(); it != next.rend(); ++it) stack.push_back(*it);
    }
    return order;
}

bool Graph::forEachActiveUpstream(NodeId id, const std::function<bool(const std::string&, Operator&)>& visit) {
    for (NodeId current : activeUpstream(id)) {
        const std::string& name = nodeName(current);
        Operator& o = *node(current).op;
        if (!visit(name, o)) return false;
        if (!o.forEachInner(name + "/", visit)) return false;
    }
    return true;
}

std::vector<std::string> Graph::controlNames() const {
    std::set<std::string> names;
    for (const auto& [id, n] : nodes_)
        for (const auto& [param, controls] : n.paramControls) names.insert(controls.begin(), controls.end());
    return {names.begin(), names.end()};
}

}  // namespace tressora
