#pragma once
// Operator: one node type of the procedural graph. A class declares its ports and params
// and turns input values into output values for one evaluation. Concrete classes are
// private to their source files and reached through register<Name>Operator.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "graph/eval_context.h"
#include "graph/param_set.h"
#include "graph/param_spec.h"
#include "graph/port.h"
#include "graph/value.h"

namespace tressora {

struct InputChanges;
struct StrandChanges;
class NodeKeyLookup;

/// A per-strand channel a node writes or reads. `param` names the param whose text gave the
/// channel's name; it is empty for a channel the node always has.
struct ChannelInfo {
    std::string name;
    ChannelMode mode = ChannelMode::Writes;
    std::string param;
    bool operator==(const ChannelInfo&) const = default;
};

class Operator {
public:
    /// Called for each node inside a node that holds a graph, with its path; false stops the walk.
    using InnerVisitor = std::function<bool(const std::string& path, Operator& inner)>;

    virtual ~Operator() = default;

    /// The type name, as registered.
    virtual std::string type() const = 0;
    /// The declared input ports, in slot order.
    virtual std::vector<Port> inputs() const = 0;
    /// The primary output; "out" of type Strands unless overridden.
    virtual Port output() const;
    /// All outputs; the one of `output` unless overridden.
    virtual std::vector<Port> outputs() const;

    /// The computation. Runs on the evaluator's thread; may use parallel loops inside.
    virtual Value evaluate(EvalContext& context, const std::vector<Value>& inputs) = 0;
    /// One value per output; wraps `evaluate` unless overridden.
    virtual std::vector<Value> evaluateOutputs(EvalContext& context, const std::vector<Value>& inputs);
    /// Incremental evaluation from the previous result; false (the default) means "not done".
    virtual bool evaluateIncremental(EvalContext& context, const std::vector<Value>& inputs,
                                     const InputChanges& changes, const Value& previous, Value& result,
                                     StrandChanges& resultChanges);
    virtual bool evaluateOutputsIncremental(EvalContext& context, const std::vector<Value>& inputs,
                                            const InputChanges& changes, const std::vector<Value>& previous,
                                            std::vector<Value>& results, StrandChanges& resultChanges);

    /// Takes over another instance's derived caches when this one replaces it (same class only).
    virtual void adoptState(Operator& previous);
    /// Moves state keyed on the identity of an output object to the object that replaced it.
    virtual void rebindState(const StrandSet* computedFor, const std::shared_ptr<const StrandSet>& replacement);

    /// The param table of the type.
    virtual std::vector<ParamSpec> params() const;
    /// Params that depend on the node's content (a compound's exposed params, a script's).
    virtual std::vector<ParamSpec> dynamicParams() const;
    /// Names of the scene items the node reads through the context; they enter its key.
    virtual std::vector<std::string> sceneInputs() const;
    /// The stamp of a scene item as far as this node is concerned.
    virtual std::uint64_t sceneInputStamp(const std::string& name, const SceneItem& item) const;
    /// What the output depends on outside the graph (a file's stamp); 0 for nothing.
    virtual std::uint64_t externalStamp() const;
    /// What in the context matters for this node beyond the common part; 0 for nothing.
    virtual std::uint64_t contextStamp(const NodeKeyLookup& lookup, int nodeId, const EvalContext& context) const;
    virtual int scalpRole() const;
    /// A message about this evaluation that is not an error; empty for none.
    virtual std::string note(const EvalContext& context) const;
    virtual bool usesScalpArea() const;
    /// Whether input `index` reaches the result.
    virtual bool inputActive(int index) const;
    /// Walks the nodes of an inner graph with paths "<prefix><name>"; true when not stopped.
    virtual bool forEachInner(const std::string& prefix, const InnerVisitor& visitor);
    /// Channels the node writes or reads; by default the params marked as writing a channel
    /// whose text is neither empty nor begins with "_".
    virtual std::vector<ChannelInfo> channels() const;
    /// Whether channels of the strands on input `index` reach the output; input 0 only by default.
    virtual bool passesChannels(int index) const;
    /// The class's family word for the catalogue.
    virtual std::string role() const;
    /// The current version of the type.
    virtual int version() const;

    /// The node's current param values and limits.
    ParamSet paramValues;
    /// The version of the type that wrote this node's params; 0 or negative when unset.
    int savedVersion = 0;
};

/// The params common to all nodes: `affect`, in the group "Common".
const std::vector<ParamSpec>& commonParams();

/// Whether the node has the common `affect` param (see the rule in operator.cpp).
bool hasAffect(const Operator& op);

/// The node's full param list: `params`, `dynamicParams`, then the common ones it has.
std::vector<ParamSpec> allParams(const Operator& op);
/// Names of the params the node holds but does not declare (kept from a newer file, or mistyped).
std::vector<std::string> undeclaredParams(const Operator& op);

/// The ParamSpec of one of the node's params by name, or nothing.
std::optional<ParamSpec> findParam(const Operator& op, const std::string& name);

/// Declares every param of the node so that each reads its default until set.
void declareParams(Operator& op);

/// The ports the node's params offer, in param order.
std::vector<Port> paramPorts(const Operator& op);

}  // namespace tressora
