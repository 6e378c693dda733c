#pragma once
// Graph: a network of operators — nodes with unique names, connections between their
// slots, the result node — and the evaluation state of its nodes (keys, cached outputs,
// timings, notes). Edits need no invalidation: they change the nodes' keys.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <nlohmann/json.hpp>

#include "graph/eval_context.h"
#include "graph/operator.h"

namespace tressora {

class OperatorRegistry;

/// A node's id: handed out from 1 by a counter, never reused within a graph; 0 is "nothing".
using NodeId = std::uint32_t;

/// In which evaluations a node is active.
enum class Evaluation { Always = 0, ViewportOnly, RenderOnly };
/// "always", "viewportOnly" or "renderOnly".
std::string_view evaluationName(Evaluation evaluation);
/// One of the three words; another text throws GraphError.
Evaluation parseEvaluation(std::string_view text);

/// Where an editor draws a node.
struct NodeUi {
    double x = 0.0;
    double y = 0.0;
};

/// What the evaluator remembers of a node's last run.
struct NodeState {
    bool valid = false;
    std::uint64_t key = 0;
    std::vector<Value> outputs;
    std::uint64_t stamp = 0;                     ///< changes only when an output object really changed
    std::vector<std::uint64_t> inputStamps;      ///< the change stamp of each input's source
    bool passThrough = false;                    ///< the last result was the input handed on
    std::uint64_t lastUsed = 0;                  ///< evaluation count of the last evaluation that touched it
};

/// One node of the graph.
struct GraphNode {
    std::unique_ptr<Operator> op;
    std::vector<NodeId> inputSources;     ///< per input slot; 0 means unconnected
    std::vector<unsigned> inputOutputs;   ///< per input slot, the output index on the source
    std::vector<std::string> paramInputs; ///< params turned into extra input slots behind the declared ones
    std::map<std::string, std::vector<std::string>> paramControls;  ///< param -> one control, or three for a vec3
    bool bypass = false;
    Evaluation evaluation = Evaluation::Always;
    std::optional<NodeUi> ui;
    NodeState state;
};

/// Memo of one evaluation: each node's key is computed once.
class NodeKeyLookup {
public:
    /// The key of a node in this evaluation (computed on first ask).
    virtual std::uint64_t key(NodeId id) = 0;
    /// The same, from a const context (operators' contextStamp).
    std::uint64_t key(NodeId id) const { return const_cast<NodeKeyLookup*>(this)->key(id); }

protected:
    ~NodeKeyLookup() = default;
};

class Graph {
public:
    /// An empty graph whose nodes are created through `registry`.
    explicit Graph(const OperatorRegistry& registry);
    ~Graph();
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;

    const OperatorRegistry& registry() const { return *registry_; }

    // ---- nodes and names -------------------------------------------------------------
    /// Takes ownership of an operator and adds it under `name` (a unique name is made from
    /// its type when empty). Throws GraphError for a null operator or a name in use.
    NodeId addNode(std::unique_ptr<Operator> op, const std::string& name = {});
    /// Creates a node of a registered type.
    NodeId addNode(const std::string& type, const std::string& name = {});
    /// Removes a node and every connection from it.
    void removeNode(NodeId id);
    bool hasNode(NodeId id) const { return nodes_.count(id) != 0; }
    const GraphNode& node(NodeId id) const;
    GraphNode& node(NodeId id);
    Operator& op(NodeId id) { return *node(id).op; }
    const Operator& op(NodeId id) const { return *node(id).op; }
    /// All nodes, in id order.
    const std::map<NodeId, GraphNode>& nodes() const { return nodes_; }

    const std::string& nodeName(NodeId id) const;
    NodeId nodeByName(const std::string& name) const;
    /// The node's id, or 0 when no node has that name.
    NodeId findNode(const std::string& name) const;
    void renameNode(NodeId id, const std::string& name);

    NodeId outputNode() const { return output_; }
    void setOutputNode(NodeId id);

    // ---- wiring ------------------------------------------------------------------------
    /// The node's input slots: its declared inputs, then one port per `paramInputs` entry.
    std::vector<Port> effectiveInputs(NodeId id) const;
    /// Connects output `output` of `from` to input slot `input` of `to`; every check and
    /// its message is in graph.cpp. A failure leaves the graph unchanged.
    void connect(NodeId from, unsigned output, NodeId to, unsigned input);
    /// Empties one input slot.
    void disconnect(NodeId to, unsigned input);
    unsigned outputIndex(NodeId id, const std::string& name) const;
    unsigned inputIndex(NodeId id, const std::string& name) const;
    /// The type of what output `output` of `id` gives, following polymorphic Curves outputs upstream.
    PortType resolvedOutputType(NodeId id, unsigned output) const;

    // ---- edits -------------------------------------------------------------------------
    void setParam(NodeId id, const std::string& name, ParamValue value);
    void setBypass(NodeId id, bool bypass);
    void setEvaluation(NodeId id, Evaluation evaluation);
    /// Drives a param by controls (one, or three for a vec3); empty `controls` removes the drive.
    void setParamControls(NodeId id, const std::string& param, std::vector<std::string> controls);
    /// Turns params into extra input slots (replacing the list). Connections to the old
    /// extra slots are dropped.
    void setParamInputs(NodeId id, std::vector<std::string> params);

    /// Editor data kept as it stands.
    const nlohmann::json& backdrops() const { return backdrops_; }
    void setBackdrops(nlohmann::json backdrops) { backdrops_ = std::move(backdrops); }

    // ---- walks -------------------------------------------------------------------------
    /// Depth-first from `id` toward its sources, each node once, following only active
    /// strand inputs (a bypassed node stands for its first input). `visit(path, op)` false
    /// ends the walk, and the function then returns false.
    bool forEachActiveUpstream(NodeId id, const std::function<bool(const std::string&, Operator&)>& visit);
    /// Ids of the nodes upstream of `id` (itself included) by the same rules.
    std::vector<NodeId> activeUpstream(NodeId id) const;
    /// The names of the controls that drive params, each once, sorted.
    std::vector<std::string> controlNames() const;

    // ---- evaluation (evaluator.cpp) -----------------------------------------------------
    /// Evaluates node `id` (and what it needs) for `context`; one value per output.
    std::vector<Value> evaluate(NodeId id, EvalContext& context);
    /// One output of a node; "<type> has no output <index>" past the end.
    Value evaluateOutput(NodeId id, unsigned output, EvalContext& context);
    /// The cache key of a node in `context`, memoised in `memo`.
    std::uint64_t nodeKey(NodeId id, const EvalContext& context, std::unordered_map<NodeId, std::uint64_t>& memo) const;
    /// Whether the node acts as bypassed in `context` (flag, or its mode leaves it out).
    bool isBypassed(NodeId id, const EvalContext& context) const;

    void clearCache();
    void setCacheEnabled(bool enabled) { cacheEnabled_ = enabled; }
    bool cacheEnabled() const { return cacheEnabled_; }
    /// The cache limit in bytes (from TRESSORA_CACHE_LIMIT_MB unless set here).
    std::uint64_t cacheLimit() const { return cacheLimit_; }
    void setCacheLimit(std::uint64_t bytes) { cacheLimit_ = bytes; }

    const std::map<NodeId, double>& nodeMs() const { return nodeMs_; }
    const std::map<NodeId, double>& nodeFullMs() const { return nodeFullMs_; }
    const std::map<NodeId, std::string>& nodeModes() const { return nodeModes_; }
    const std::map<NodeId, std::string>& nodeNotes() const { return nodeNotes_; }
    std::uint64_t evaluationCount() const { return evaluationCount_; }
    std::uint64_t evictionCount() const { return evictionCount_; }
    std::uint64_t incrementalHits() const { return incrementalHits_; }
    /// How many times operators' evaluate ran (for tests and stats).
    std::uint64_t operatorRuns() const { return operatorRuns_; }
    /// With keepInputs, the value of every node the last evaluation touched.
    const std::map<NodeId, std::vector<Value>>& keptValues() const { return keptValues_; }

private:
    friend class GraphEvaluation;

    struct CacheEntry {
        std::vector<Value> outputs;
        std::uint64_t stamp = 0;
    };

    std::string uniqueName(const std::string& base) const;
    bool reaches(NodeId from, NodeId target) const;
    void evict(NodeId result);

    const OperatorRegistry* registry_;
    std::map<NodeId, GraphNode> nodes_;
    std::map<std::string, NodeId> ids_;
    std::map<NodeId, std::string> names_;
    NodeId nextId_ = 1;
    NodeId output_ = 0;
    nlohmann::json backdrops_ = nlohmann::json::array();

    std::unordered_map<std::uint64_t, CacheEntry> cache_;
    std::uint64_t cacheLimit_;
    bool cacheEnabled_ = true;
    std::uint64_t evaluationCount_ = 0;
    std::uint64_t evictionCount_ = 0;
    std::uint64_t incrementalHits_ = 0;
    std::uint64_t operatorRuns_ = 0;
    std::map<NodeId, double> nodeMs_, nodeFullMs_;
    std::map<NodeId, std::string> nodeModes_, nodeNotes_;
    std::map<NodeId, std::vector<Value>> keptValues_;
};

/// A graph together with its name-to-id table, as a groom file and the agent tools hold it;
/// in this engine the graph keeps its names itself.
using GraphDocument = Graph;

/// The cache limit that TRESSORA_CACHE_LIMIT_MB gives (read once per process): megabytes as
/// a number, 0 allowed; unset, empty, unparsable or negative means 2048 MB.
std::uint64_t cacheLimitFromEnvironment();

}  // namespace tressora
