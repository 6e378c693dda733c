#pragma once
// Small node types for session tests, registered into a registry of the tests' own: a
// source that grows one strand per scalp triangle, stand-ins named like the motion nodes,
// and nodes that report what the context handed them.

#include <atomic>
#include <memory>
#include <string>

#include "core/errors.h"
#include "core/guide_set.h"
#include "core/scalp_history.h"
#include "core/strand_set.h"
#include "graph/graph_json.h"
#include "graph/operator_registry.h"

namespace tressora::sessionops {

inline ParamSpec param(const std::string& name, ParamValue value) {
    ParamSpec s;
    s.name = name;
    s.defaultValue = std::move(value);
    return s;
}

/// One strand per scalp triangle: rooted at its centre, rising along the face normal in
/// `points` points of `step` length (times the context's scale).
class Sprout : public Operator {
public:
    inline static std::atomic<int> runs{0};
    std::string type() const override { return "Sprout"; }
    std::vector<Port> inputs() const override { return {}; }
    std::vector<ParamSpec> params() const override {
        return {param("points", std::int64_t{4}), param("step", 0.5)};
    }
    std::vector<std::string> sceneInputs() const override { return {"scalp"}; }
    Value evaluate(EvalContext& context, const std::vector<Value>&) override {
        ++runs;
        const SceneItem* item = context.sceneItem("scalp");
        const auto scalp = item ? item->value.as<ScalpMesh>() : nullptr;
        if (!scalp) {
            context.addNote("no scalp");
            return {};
        }
        auto set = std::make_shared<StrandSet>();
        const auto n = paramValues.getInt("points", 4);
        const float step = static_cast<float>(paramValues.getFloat("step", 0.5) * context.scale);
        for (std::size_t f = 0; f < scalp->triangleCount(); ++f) {
            const float third = 1.0f / 3.0f;
            const Vec3f root = scalp->positionAt(static_cast<std::int32_t>(f), third, third);
            const auto& t = scalp->triangles()[f];
            const Vec3f normal = normalized(cross(scalp->points()[t[1]] - scalp->points()[t[0]],
                                                  scalp->points()[t[2]] - scalp->points()[t[0]]));
            std::vector<Vec3f> points;
            for (std::int64_t k = 0; k < n; ++k)
                points.push_back(root + normal * (step * static_cast<float>(k)) + Vec3f{0.1f * static_cast<float>(k), 0, 0});
            set->addStrand(f + 1, {static_cast<std::int32_t>(f), third, third}, points);
        }
        return Value(std::shared_ptr<const StrandSet>(set));
    }
};

/// Passes strands on and notes what the context says: the frame, the scale, the history's
/// frames and the flat guides' count.
class Report : public Operator {
public:
    explicit Report(std::string type = "Report") : type_(std::move(type)) {}
    std::string type() const override { return type_; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands, true}}; }
    std::vector<ParamSpec> params() const override {
        if (type_ != "Jiggle") return {param("label", std::string())};
        return {param("history", std::int64_t{0}), param("loop", false), param("loopStart", std::int64_t{1}),
                param("loopEnd", std::int64_t{1})};
    }
    std::vector<std::string> sceneInputs() const override { return {"scalpHistory", "guides"}; }
    Value evaluate(EvalContext& context, const std::vector<Value>& in) override {
        std::string text = "frame " + std::to_string(static_cast<int>(context.frame));
        if (context.scale != 1.0) text += " scale " + std::to_string(context.scale);
        if (const SceneItem* item = context.sceneItem("scalpHistory"))
            text += " history " + std::to_string(item->value.as<ScalpHistory>()->size());
        if (const SceneItem* item = context.sceneItem("guides"))
            text += " guides " + std::to_string(item->value.as<GuideSet>()->guideCount());
        context.addNote(text);
        return in.at(0);
    }

private:
    std::string type_;
};

/// Fails with a GraphError when its `fail` param is on.
class Fails : public Operator {
public:
    std::string type() const override { return "Fails"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands, true}}; }
    std::vector<ParamSpec> params() const override { return {param("fail", true)}; }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override {
        if (paramValues.getBool("fail", true)) throw GraphError("Fails: asked to fail");
        return in.at(0);
    }
};

/// The graph's result.
class Out : public Operator {
public:
    std::string type() const override { return "Output"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands, true}}; }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override { return in.at(0); }
};

inline const OperatorRegistry& registry() {
    static OperatorRegistry r;
    static const bool filled = [] {
        r.add("Sprout", {"source", "", "", "", false}, [] { return std::make_unique<Sprout>(); });
        r.add("Report", {"utility", "", "", "", false}, [] { return std::make_unique<Report>(); });
        r.add("Jiggle", {"motion", "", "", "", false}, [] { return std::make_unique<Report>("Jiggle"); });
        r.add("Wind", {"motion", "", "", "", false}, [] { return std::make_unique<Report>("Wind"); });
        r.add("Expression", {"field", "", "", "", false}, [] { return std::make_unique<Report>("Expression"); });
        r.add("HairColor", {"color", "", "", "", false}, [] { return std::make_unique<Report>("HairColor"); });
        r.add("Fails", {"utility", "", "", "", false}, [] { return std::make_unique<Fails>(); });
        r.add("Output", {"utility", "", "", "", false}, [] { return std::make_unique<Out>(); });
        return true;
    }();
    (void)filled;
    return r;
}

/// A chain graph "sprout -> <middle...> -> output" with nodes named after their types in
/// lower case, params given per node.
inline nlohmann::json chain(const std::vector<std::pair<std::string, nlohmann::json>>& middle = {}) {
    nlohmann::json nodes = nlohmann::json::array({{{"name", "sprout"}, {"type", "Sprout"}}});
    nlohmann::json connections = nlohmann::json::array();
    std::string last = "sprout";
    for (const auto& [type, params] : middle) {
        std::string name = type;
        name[0] = static_cast<char>(name[0] - 'A' + 'a');
        nlohmann::json node = {{"name", name}, {"type", type}};
        if (!params.is_null()) node["params"] = params;
        nodes.push_back(node);
        connections.push_back({{"from", last}, {"to", name}, {"input", "strands"}});
        last = name;
    }
    nodes.push_back({{"name", "output"}, {"type", "Output"}});
    connections.push_back({{"from", last}, {"to", "output"}, {"input", "strands"}});
    return {{"version", 1}, {"nodes", nodes}, {"connections", connections}, {"output", "output"}};
}

}  // namespace tressora::sessionops
