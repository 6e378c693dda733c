#include "graph/operator_registry.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>

#include "core/errors.h"
#include "graph/param_spec.h"

namespace tressora {

namespace {

// The fixed catalogue sequence of the types, family by family.
constexpr std::array<std::string_view, 70> kOrder = {
    "Scalp", "Guides", "ColliderMesh", "ImportCurves", "Reference", "Input",
    "Scatter", "Interpolate", "Cull",
    "Length", "Width", "Resample", "Direction", "Flow", "Part", "Smooth", "Mirror", "RestoreLength", "Sculpt",
    "Subdivide",
    "Bend", "Transform", "Tie", "BlendNeighbors", "Gravity", "Displace",
    "Collide", "SelfCollide", "MeshCut",
    "Clump", "Twist", "Braid", "Noise", "Curl", "Flyaway", "Static", "Tangle", "Wet", "Instance", "Scales",
    "Wind", "Jiggle", "Simulate",
    "Propagate", "Plume", "Split",
    "HairColor", "Bands", "FeatherColor", "RenderData",
    "ToGuides", "ToStrands", "StrandMesh",
    "Map", "Expression", "Control", "FieldNoise", "FieldRemap", "FieldCombine", "Curve",
    "Value", "Group", "Blend", "Attribute", "Merge", "Switch", "Output", "Compound", "Script",
    "Cards"};

nlohmann::ordered_json portToJson(const Port& port, bool withOptional) {
    nlohmann::ordered_json j;
    j["name"] = port.name;
    j["type"] = portTypeName(port.type);
    if (withOptional) j["optional"] = port.optional;
    return j;
}

}  // namespace

const std::vector<CategoryInfo>& operatorCategories() {
    static const std::vector<CategoryInfo> categories = {
        {"source", "Sources"}, {"grow", "Grow"},         {"shape", "Shape"},   {"deform", "Deform"},
        {"collide", "Collide"}, {"look", "Look"},        {"motion", "Motion"}, {"feathers", "Feathers"},
        {"color", "Color"},    {"convert", "Convert"},   {"field", "Fields & Curves"},
        {"utility", "Utility"}, {"games", "Games"}};
    return categories;
}

int categoryOrder(std::string_view id) {
    const auto& categories = operatorCategories();
    for (std::size_t i = 0; i < categories.size(); ++i)
        if (categories[i].id == id) return static_cast<int>(i);
    return static_cast<int>(categories.size());
}

std::string_view categoryTitle(std::string_view id) {
    for (const CategoryInfo& c : operatorCategories())
        if (c.id == id) return c.title;
    return {};
}

int operatorOrder(std::string_view type) {
    const auto it = std::find(kOrder.begin(), kOrder.end(), type);
    return static_cast<int>(it - kOrder.begin());
}

std::string operatorLabel(std::string_view type, const OperatorInfo& info) {
    if (!info.label.empty()) return info.label;
    std::string label;
    for (std::size_t i = 0; i < type.size(); ++i) {
        const auto c = static_cast<unsigned char>(type[i]);
        if (i > 0 && std::isupper(c) && std::islower(static_cast<unsigned char>(type[i - 1]))) label += ' ';
        label += type[i];
    }
    return label;
}

void OperatorRegistry::add(const std::string& name, OperatorInfo info, Factory factory) {
    if (!types_.emplace(name, Entry{std::move(info), std::move(factory)}).second)
        throw std::logic_error("operator type '" + name + "' is registered twice");
}

std::unique_ptr<Operator> OperatorRegistry::create(const std::string& name) const {
    const auto it = types_.find(name);
    if (it == types_.end()) throw GraphError("unknown operator type '" + name + "'");
    std::unique_ptr<Operator> op = it->second.factory();
    declareParams(*op);
    return op;
}

const OperatorInfo* OperatorRegistry::info(const std::string& name) const {
    const auto it = types_.find(name);
    return it == types_.end() ? nullptr : &it->second.info;
}

std::vector<std::string> OperatorRegistry::names() const {
    std::vector<std::string> out;
    out.reserve(types_.size());
    for (const auto& entry : types_) out.push_back(entry.first);
    return out;
}

nlohmann::ordered_json OperatorRegistry::catalogueRecord(const std::string& name) const {
    const OperatorInfo* typeInfo = info(name);
    if (!typeInfo) throw GraphError("unknown operator type '" + name + "'");
    const std::unique_ptr<Operator> op = create(name);
    const std::string role = op->role();
    const std::string category = typeInfo->category.empty() ? role : typeInfo->category;

    nlohmann::ordered_json j;
    j["type"] = name;
    nlohmann::ordered_json fixed = nlohmann::ordered_json::array();
    for (const ChannelInfo& channel : op->channels())
        if (channel.param.empty()) fixed.push_back(channel.name);
    j["fixedChannels"] = std::move(fixed);
    j["version"] = op->version();
    j["category"] = category;
    j["categoryTitle"] = categoryTitle(category);
    j["categoryOrder"] = categoryOrder(category);
    j["order"] = operatorOrder(name);
    j["role"] = role;
    j["label"] = operatorLabel(name, *typeInfo);
    j["keywords"] = typeInfo->keywords;
    j["hidden"] = typeInfo->hidden;
    j["description"] = typeInfo->description;
    nlohmann::ordered_json inputs = nlohmann::ordered_json::array();
    for (const Port& port : op->inputs()) inputs.push_back(portToJson(port, true));
    j["inputs"] = std::move(inputs);
    j["output"] = portToJson(op->output(), false);
    nlohmann::ordered_json outputs = nlohmann::ordered_json::array();
    for (const Port& port : op->outputs()) outputs.push_back(portToJson(port, false));
    j["outputs"] = std::move(outputs);
    nlohmann::ordered_json params = nlohmann::ordered_json::array();
    for (const ParamSpec& spec : allParams(*op)) params.push_back(paramSpecToJson(spec));
    j["params"] = std::move(params);
    return j;
}

nlohmann::ordered_json OperatorRegistry::catalogue() const {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const auto& entry : types_) all.push_back(catalogueRecord(entry.first));
    return all;
}

}  // namespace tressora
