// Script: a node written as a script. Its `definition` is a whole script node file (the header
// of params, what the script writes, and the script); the header's params become the node's
// params and the script is compiled once per definition. A node that can't run hands its
// strands on with a note saying why, so a faulty script never stops an evaluation.

#include "operators/script/script_node.h"

#include <mutex>

#include "core/errors.h"
#include "core/hash.h"
#include "graph/node_definition.h"
#include "graph/operator_registry.h"
#include "graph/ramp.h"
#include "library/node_file.h"
#include "maps/map_fields.h"
#include "maps/strand_environment.h"
#include "operators/growth/node_support.h"
#include "operators/script/script_runner.h"

namespace tressora {
namespace {

constexpr std::size_t kRampSamples = 256;

/// The script node's header as the compiler takes it.
std::vector<ScriptParamDecl> headerDecls(const nlohmann::json& params) {
    std::vector<ScriptParamDecl> decls;
    if (!params.is_array()) return decls;
    for (const nlohmann::json& p : params) {
        ScriptParamDecl d;
        d.name = p.value("name", "");
        d.type = scriptParamType(p.value("type", "number")).value_or(ScriptParamType::Number);
        if (p.contains("min") && p["min"].is_number()) d.min = p["min"].get<double>();
        if (p.contains("max") && p["max"].is_number()) d.max = p["max"].get<double>();
        decls.push_back(std::move(d));
    }
    return decls;
}

std::vector<std::string> writesOf(const nlohmann::json& definition) {
    std::vector<std::string> writes;
    for (const nlohmann::json& w : definition.value("writes", nlohmann::json::array({"P"})))
        writes.push_back(w.get<std::string>());
    return writes;
}

/// A ramp as a curve of straight segments through samples of it.
ExpressionCurve rampCurve(const Ramp& ramp) {
    std::vector<CurveKey> keys(kRampSamples + 1);
    for (std::size_t k = 0; k <= kRampSamples; ++k) {
        const double x = double(k) / double(kRampSamples);
        keys[k].position = static_cast<float>(x);
        keys[k].value[0] = static_cast<float>(evaluateRamp(ramp, x));
        keys[k].interp = CurveInterp::Linear;
    }
    return ExpressionCurve(std::move(keys), 1);
}

class ScriptOperator final : public Operator, public NodeDefinition {
public:
    ScriptOperator() { readDefinition(defaultScriptNodeFile()); }

    std::string type() const override { return "Script"; }
    std::string role() const override { return "shape"; }

    std::vector<Port> inputs() const override {
        std::vector<Port> ports;
        const nlohmann::json& list = definition_.value("inputs", nlohmann::json::array());
        for (const nlohmann::json& in : list) {
            Port p;
            p.name = in.value("name", "strands");
            p.type = ports.empty() ? PortType::Strands : PortType::Guides;
            p.optional = ports.empty() ? false : in.value("optional", true);
            ports.push_back(std::move(p));
        }
        if (ports.empty()) ports.push_back({"strands", PortType::Strands});
        return ports;
    }

    Port output() const override {
        const nlohmann::json& out = definition_.value("output", nlohmann::json::object());
        return {out.value("name", "strands"), PortType::Strands};
    }

    std::vector<ParamSpec> dynamicParams() const override { return specs_; }
    std::vector<std::string> sceneInputs() const override { return {"scalp"}; }
    std::uint64_t sceneInputStamp(const std::string&, const SceneItem& item) const override {
        const auto scalp = item.value.as<ScalpMesh>();
        return scalp ? combine(scalp->topologyHash(), scalp->contentHash()) : 0;
    }
    std::uint64_t contextStamp(const NodeKeyLookup&, int, const EvalContext& context) const override {
        std::uint64_t h = definitionHash_;
        if (program_ && program_->readsTime) h = combine(h, floatBits(static_cast<float>(context.frame)));
        return h;
    }

    std::vector<ChannelInfo> channels() const override {
        std::vector<ChannelInfo> list = Operator::channels();
        if (!program_) return list;
        for (const ScriptOutput& o : program_->outputs)
            if (o.written && !o.channel().empty()) list.push_back({o.channel(), ChannelMode::Writes, ""});
        for (const std::string& c : program_->readChannels) list.push_back({c, ChannelMode::Reads, ""});
        return list;
    }

    std::string note(const EvalContext&) const override {
        std::lock_guard lock(mutex_);
        return note_;
    }

    void readDefinition(const nlohmann::json& definition) override {
        const NodeFile file = checkNodeFile(definition);
        if (file.kind != NodeFileKind::Script)
            throw GraphError("a Script node's definition holds a \"script\", not a \"graph\"");
        definition_ = file.document;
        specs_ = scriptHeaderParams(definition_.value("params", nlohmann::json::array()));
        decls_ = headerDecls(definition_.value("params", nlohmann::json::array()));
        // Values of params the new header still declares stay; the others go with the old header.
        ParamSet kept;
        for (const auto& entry : paramValues.values()) {
            const std::string& name = entry.first;
            const bool declared = name == "affect" || std::any_of(specs_.begin(), specs_.end(),
                                                                  [&](const ParamSpec& s) { return s.name == name; });
            if (declared) kept.set(name, entry.second);
        }
        paramValues = std::move(kept);
        for (const ParamSpec& s : specs_) {
            for (const ScriptParamDecl& d : decls_) {
                if (d.name == s.name && (d.min || d.max)) paramValues.setLimits(s.name, {d.min, d.max});
            }
        }
        definitionHash_ = combineText(0x5C41, definition_.dump());
        // A script that does not compile still makes a node: it runs as a pass-through and says why.
        program_.reset();
        compileError_.clear();
        try {
            program_ = std::make_shared<const ScriptProgram>(
                compileScript(definition_.value("script", ""), decls_, writesOf(definition_)));
        } catch (const ScriptError& e) {
            compileError_ = e.what();
        }
    }

    nlohmann::json writeDefinition() const override { return definition_; }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        {
            std::lock_guard lock(mutex_);
            note_.clear();
        }
        const Value input = inputs.empty() ? Value() : inputs[0];
        const auto strands = input.as<StrandSet>();
        if (!strands) return input;
        const std::string who = "script node '" + context.nodeName + "'";
        try {
            if (!program_) throw GraphError(compileError_);
            const auto guides = inputs.size() > 1 ? inputs[1].as<GuideSet>() : nullptr;
            std::shared_ptr<const ScalpMesh> scalp;
            if (const SceneItem* item = context.sceneItem("scalp")) scalp = item->value.as<ScalpMesh>();
            const ScriptParamValues values = readParams(context, *strands);
            const std::shared_ptr<const BoundMaps> maps = bindMapNames(program_->mapNames, context, "");
            ScriptRunResult result = runScript(*program_, strands, guides.get(), scalp.get(), values,
                                               expressionEnvironment(context), maps.get(), who);
            setNote(result.notes);
            return Value(std::move(result.strands));
        } catch (const std::exception& e) {
            setNote({"Error: " + who + " cannot run and hands its strands on: " + e.what()});
            return input;
        }
    }

private:
    void setNote(const std::vector<std::string>& notes) {
        std::string text;
        for (const std::string& n : notes) text += (text.empty() ? "" : "; ") + n;
        std::lock_guard lock(mutex_);
        note_ = std::move(text);
    }

    ScriptParamValues readParams(const EvalContext& context, const StrandSet& strands) const {
        ScriptParamValues values;
        const MapBinding binding = strandBinding(strands);
        for (const ScriptParamSlot& p : program_->params) {
            Vec3f constant;
            std::shared_ptr<const ScalarField> field;
            if (!paramValues.has(p.name)) throw GraphError("a value for every param is needed");
            switch (p.type) {
            case ScriptParamType::Number:
            case ScriptParamType::Length:
                constant.x = static_cast<float>(paramValues.getFloat(p.name, 0.0));
                field = fieldFromParam(p.name, paramValues.get(p.name), context, binding);
                if (field) field->strandIndexed(strands);
                break;
            case ScriptParamType::Int: constant.x = static_cast<float>(paramValues.getInt(p.name, 0)); break;
            case ScriptParamType::Bool: constant.x = paramValues.getBool(p.name, false) ? 1.0f : 0.0f; break;
            case ScriptParamType::Enum: {
                const std::string chosen = paramValues.getString(p.name, "");
                const std::vector<std::string>& choices = choicesOf(p.name);
                const auto it = std::find(choices.begin(), choices.end(), chosen);
                constant.x = it == choices.end() ? 0.0f : static_cast<float>(it - choices.begin());
                break;
            }
            case ScriptParamType::Color: constant = paramValues.getVec3(p.name, Vec3f{}); break;
            case ScriptParamType::Ramp: break;
            }
            values.constants.push_back(constant);
            values.fields.push_back(std::move(field));
        }
        // Ramps in the order of their index.
        std::vector<const ScriptParamSlot*> ramps;
        for (const ScriptParamSlot& p : program_->params)
            if (p.ramp >= 0) ramps.push_back(&p);
        std::sort(ramps.begin(), ramps.end(), [](const ScriptParamSlot* a, const ScriptParamSlot* b) { return a->ramp < b->ramp; });
        for (const ScriptParamSlot* p : ramps) values.ramps.push_back(rampCurve(paramValues.getRamp(p->name, Ramp{})));
        return values;
    }

    const std::vector<std::string>& choicesOf(const std::string& name) const {
        static const std::vector<std::string> none;
        for (const ParamSpec& s : specs_)
            if (s.name == name) return s.choices;
        return none;
    }

    nlohmann::json definition_;
    std::vector<ParamSpec> specs_;
    std::vector<ScriptParamDecl> decls_;
    std::shared_ptr<const ScriptProgram> program_;
    std::string compileError_;
    std::uint64_t definitionHash_ = 0;
    mutable std::mutex mutex_;
    std::string note_;
};

}  // namespace

void compileScriptNode(const nlohmann::json& definition) {
    const NodeFile file = checkNodeFile(definition);
    if (file.kind != NodeFileKind::Script) throw GraphError("a Script node's definition holds a \"script\", not a \"graph\"");
    compileScript(file.document.value("script", ""), headerDecls(file.document.value("params", nlohmann::json::array())),
                  writesOf(file.document));
}

void registerScriptOperator(OperatorRegistry& registry) {
    OperatorInfo info;
    info.category = "shape";
    info.description = "A script node: a script in the expression language run per strand and per point.";
    info.keywords = "script custom code";
    info.hidden = true;
    registry.add("Script", info, [] { return std::make_unique<ScriptOperator>(); });
}

}  // namespace tressora
