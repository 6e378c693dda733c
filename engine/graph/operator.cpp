#include "graph/operator.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tressora {

Port Operator::output() const { return Port{"out", PortType::Strands, false, ValueKind::Any}; }
std::vector<Port> Operator::outputs() const { return {output()}; }

std::vector<Value> Operator::evaluateOutputs(EvalContext& context, const std::vector<Value>& inputs) {
    return {evaluate(context, inputs)};
}

bool Operator::evaluateIncremental(EvalContext&, const std::vector<Value>&, const InputChanges&, const Value&, Value&,
                                   StrandChanges&) {
    return false;
}

bool Operator::evaluateOutputsIncremental(EvalContext&, const std::vector<Value>&, const InputChanges&,
                                          const std::vector<Value>&, std::vector<Value>&, StrandChanges&) {
    return false;
}

void Operator::adoptState(Operator&) {}
void Operator::rebindState(const StrandSet*, const std::shared_ptr<const StrandSet>&) {}
std::vector<ParamSpec> Operator::params() const { return {}; }
std::vector<ParamSpec> Operator::dynamicParams() const { return {}; }
std::vector<std::string> Operator::sceneInputs() const { return {}; }
std::uint64_t Operator::sceneInputStamp(const std::string&, const SceneItem& item) const { return item.stamp; }
std::uint64_t Operator::externalStamp() const { return 0; }
std::uint64_t Operator::contextStamp(const NodeKeyLookup&, int, const EvalContext&) const { return 0; }
int Operator::scalpRole() const { return 0; }
std::string Operator::note(const EvalContext&) const { return {}; }
bool Operator::usesScalpArea() const { return false; }
bool Operator::inputActive(int) const { return true; }
bool Operator::forEachInner(const std::string&, const InnerVisitor&) { return true; }

std::vector<ChannelInfo> Operator::channels() const {
    std::vector<ChannelInfo> out;
    for (const ParamSpec& spec : params()) {
        if (spec.channel != ChannelMode::Writes || spec.kind() != ParamKind::String) continue;
        const std::string name = paramValues.has(spec.name) ? paramValues.getString(spec.name, "")
                                                            : std::get<std::string>(spec.defaultValue);
        if (name.empty() || name[0] == '_') continue;
        out.push_back({name, ChannelMode::Writes, spec.name});
    }
    return out;
}

bool Operator::passesChannels(int index) const { return index == 0; }
std::string Operator::role() const { return {}; }
int Operator::version() const { return 1; }

const std::vector<ParamSpec>& commonParams() {
    static const std::vector<ParamSpec> common = [] {
        ParamSpec affect;
        affect.name = "affect";
        affect.defaultValue = 1.0;
        affect.unit = "fraction";
        affect.group = "Common";
        affect.description =
            "Where the node works, 0-1 per strand (mappable, per point): 1 its whole result, 0 the strands as they "
            "came in, between a mix of the two. Map it to a Group node's group (an attribute map of the group's "
            "name), a painted map or an expression. IDs (clumpId...) switch at 0.5. A node that adds, removes or "
            "resamples strands leaves it alone";
        return std::vector<ParamSpec>{affect};
    }();
    return common;
}

bool hasAffect(const Operator& op) {
    // Types that add, remove, resample or route strands, or that hold graphs: mixing their
    // result with their input per strand would mean nothing.
    static constexpr std::array<std::string_view, 16> kWithout = {
        "Output", "Resample", "Cull",     "Merge",  "Switch",      "Blend",    "Mirror", "Cards",
        "StrandMesh", "Instance", "Scales", "Split", "Interpolate", "Compound", "Input",  "Group"};
    const std::string type = op.type();
    if (std::find(kWithout.begin(), kWithout.end(), type) != kWithout.end()) return false;
    const std::vector<Port> in = op.inputs();
    if (in.empty()) return false;
    if (in[0].type != PortType::Strands && in[0].type != PortType::Curves) return false;
    const std::vector<Port> out = op.outputs();
    return out.size() == 1 && out[0].type == in[0].type;
}

std::vector<ParamSpec> allParams(const Operator& op) {
    std::vector<ParamSpec> all = op.params();
    std::vector<ParamSpec> dynamic = op.dynamicParams();
    all.insert(all.end(), dynamic.begin(), dynamic.end());
    if (hasAffect(op)) all.insert(all.end(), commonParams().begin(), commonParams().end());
    return all;
}

std::optional<ParamSpec> findParam(const Operator& op, const std::string& name) {
    for (ParamSpec& spec : allParams(op))
        if (spec.name == name) return std::move(spec);
    return std::nullopt;
}

std::vector<std::string> undeclaredParams(const Operator& op) {
    const std::vector<ParamSpec> declared = allParams(op);
    std::vector<std::string> out;
    for (const auto& entry : op.paramValues.values()) {
        const std::string& name = entry.first;
        if (std::none_of(declared.begin(), declared.end(), [&](const ParamSpec& s) { return s.name == name; }))
            out.push_back(name);
    }
    return out;
}

void declareParams(Operator& op) {
    for (const ParamSpec& spec : allParams(op)) op.paramValues.declare(spec);
}

std::vector<Port> paramPorts(const Operator& op) {
    std::vector<Port> ports;
    for (const ParamSpec& spec : allParams(op))
        if (auto port = paramPort(spec)) ports.push_back(std::move(*port));
    return ports;
}

}  // namespace tressora
