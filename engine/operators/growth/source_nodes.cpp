// The nodes that bring the scene's meshes into the graph (Scalp, ColliderMesh) and the one
// that hands the groom's strands out of it (Output).

#include "operators/growth/source_nodes.h"

#include "core/scalp_mesh.h"
#include "graph/operator_registry.h"
#include "operators/growth/node_support.h"

namespace tressora {

namespace {

// A mesh the scene publishes under `key`, or nothing when it has none.
Value sceneMesh(const EvalContext& context, const std::string& key) {
    const SceneItem* item = context.sceneItem(key);
    if (!item || !item->value.holds<ScalpMesh>()) return {};
    return item->value;
}

class ScalpOperator final : public Operator {
public:
    std::string type() const override { return "Scalp"; }
    std::string role() const override { return "source"; }
    std::vector<Port> inputs() const override { return {}; }
    Port output() const override { return {"out", PortType::Mesh}; }

    std::vector<ParamSpec> params() const override {
        return {ParamRow("input", std::string("scalp"),
                         "Which of the groom's scalps: scalp (its own mesh) or the name of another scalp of the groom "
                         "(Maya: Attribute Editor > Scalps), so a Scatter fed this node grows hair on that mesh alone")
                    .animatable()};
    }

    std::vector<std::string> sceneInputs() const override {
        if (ownScalp()) return {"scalp"};
        return {"scalp", itemName()};
    }

    // 1 for the groom's own scalp, 2 for another scalp of the groom named by `input`.
    int scalpRole() const override { return ownScalp() ? 1 : 2; }

    Value evaluate(EvalContext& context, const std::vector<Value>&) override { return sceneMesh(context, itemName()); }

    std::string note(const EvalContext& context) const override {
        if (!sceneMesh(context, itemName()).empty()) return {};
        if (ownScalp()) return "the groom has no scalp mesh";
        return "no scalp named '" + name() + "' on the groom (its scalps are listed in Attribute Editor > Scalps)";
    }

private:
    std::string name() const { return paramValues.getString("input", "scalp"); }
    bool ownScalp() const {
        const std::string n = name();
        return n.empty() || n == "scalp";
    }
    std::string itemName() const { return ownScalp() ? std::string("scalp") : "scalp:" + name(); }
};

class ColliderMeshOperator final : public Operator {
public:
    ColliderMeshOperator() { paramValues.setLimits("friction", {-1.0, 1.0}); }
    std::string type() const override { return "ColliderMesh"; }
    std::string role() const override { return "source"; }
    std::vector<Port> inputs() const override { return {}; }
    Port output() const override { return {"out", PortType::Mesh}; }

    std::vector<ParamSpec> params() const override {
        return {ParamRow("name", std::string("collider"),
                         "The collider mesh's name, as registered with the groom (Maya: Attribute Editor > Colliders, "
                         "or tressora.add_collider)")
                    .animatable(),
                ParamRow("friction", -1.0,
                         "How much simulated hair resting on this mesh is kept from sliding, 0-1, in a Simulate node "
                         "it feeds (-1: the Simulate node's friction)")};
    }

    std::vector<std::string> sceneInputs() const override { return {itemName()}; }

    Value evaluate(EvalContext& context, const std::vector<Value>&) override { return sceneMesh(context, itemName()); }

    std::string note(const EvalContext& context) const override {
        if (!sceneMesh(context, itemName()).empty()) return {};
        return "no collider named '" + paramValues.getString("name", "collider") +
               "' on the groom (register it in Attribute Editor > Colliders, or with tressora.add_collider)";
    }

private:
    std::string itemName() const { return "collider:" + paramValues.getString("name", "collider"); }
};

class OutputOperator final : public Operator {
public:
    std::string type() const override { return "Output"; }
    std::string role() const override { return "utility"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }

    Value evaluate(EvalContext&, const std::vector<Value>& inputs) override {
        return requireInput(inputs, 0, "Output", "strands");
    }
};

}  // namespace

void registerScalpOperator(OperatorRegistry& registry) {
    registry.add("Scalp", typeInfo("source", "The mesh the hair grows on.", "mesh skin body surface"),
                 [] { return std::make_unique<ScalpOperator>(); });
}

void registerColliderMeshOperator(OperatorRegistry& registry) {
    registry.add("ColliderMesh",
                 typeInfo("source", "Another mesh (a body, a collar) for Collide to keep strands out of.",
                              "body collar obstacle mesh"),
                 [] { return std::make_unique<ColliderMeshOperator>(); });
}

void registerOutputOperator(OperatorRegistry& registry) {
    registry.add("Output", typeInfo("utility", "What the groom shows and renders.", "result render final"),
                 [] { return std::make_unique<OutputOperator>(); });
}

}  // namespace tressora
