#include "groom/hair_look.h"

#include <algorithm>

#include "graph/param_json.h"
#include "groom/graph_time.h"
#include "groom/groom_session.h"
#include "operators/color/pigment.h"

namespace tressora {
namespace {

// A specular of 0.3 is a full highlight tint.
constexpr double kFullTintSpecular = 0.3;

/// A float param's value; a mapped one stands as the middle of its map's range.
double number(const Operator& op, const std::string& name, double fallback) {
    if (!op.paramValues.has(name)) return fallback;
    if (const auto* map = std::get_if<MapRef>(&op.paramValues.get(name))) return 0.5 * (map->min + map->max);
    return op.paramValues.getFloat(name, fallback);
}

bool mappedOrAbove(const Operator& op, const std::string& name, double threshold) {
    return op.paramValues.has(name) &&
           (std::holds_alternative<MapRef>(op.paramValues.get(name)) || number(op, name, 0.0) > threshold);
}

nlohmann::json paramsJson(const Operator& op) {
    nlohmann::json out = nlohmann::json::object();
    for (const auto& [name, value] : op.paramValues.values()) out[name] = paramToJson(value);
    return out;
}

}  // namespace

HairLook hairLookOf(Graph& graph, NodeId output) {
    HairLook look;
    const Operator* hairColor = nullptr;
    const Operator* renderData = nullptr;
    const Operator* feathers = nullptr;
    bool patterned = false;
    forEachWorkingUpstream(graph, output, [&](const std::string&, Operator& op) {
        const std::string type = op.type();
        if (type == "HairColor" || type == "Bands" || type == "FeatherColor") ++look.colorNodes;
        if (type == "Blend") ++look.colorBlends;
        if (type == "HairColor" && !hairColor) hairColor = &op;
        if (type == "RenderData" && !renderData) renderData = &op;
        if (type == "FeatherColor" && !feathers) feathers = &op;
        if (type == "Bands" || type == "FeatherColor") patterned = true;
        return true;
    });
    if (hairColor) {
        const Operator& op = *hairColor;
        look.melanin = number(op, "melanin", 0.35);
        look.specular = number(op, "specular", 0.3);
        look.roughness = number(op, "roughness", 0.5);
        look.tilt = number(op, "tilt", 3.0);
        look.specularRandom = number(op, "specularRandom", 0.0);
        look.roughnessRandom = number(op, "roughnessRandom", 0.0);
        look.colorsByRgb = op.paramValues.getString("mode", "melanin") == "color" ||
                           !op.paramValues.getString("map", "").empty() || mappedOrAbove(op, "tipStrength", 0.0);
        look.hairColorParams = paramsJson(op);
    }
    look.colorsByRgb = look.colorsByRgb || patterned;
    if (feathers && mappedOrAbove(*feathers, "iridescence", 0.0)) {
        look.iridescent = true;
        look.iridescenceColor = feathers->paramValues.getVec3("iridescenceColor", {0, 0, 0});
        look.iridescenceShift = number(*feathers, "iridescenceShift", 0.3);
    }
    if (renderData) look.renderDataParams = paramsJson(*renderData);
    look.lobes = look.specular > 0.0 ? 2 : 0;
    const float tint = static_cast<float>(std::clamp(look.specular / kFullTintSpecular, 0.0, 1.0));
    look.specularTint = {tint, tint, tint};
    look.azimuthalRoughness = look.roughness;
    look.shift = look.tilt;
    return look;
}

nlohmann::json hairLookToJson(const HairLook& look) {
    const auto rgb = [](Vec3f c) { return nlohmann::json::array({c.x, c.y, c.z}); };
    nlohmann::json j = nlohmann::json::object();
    j["melanin"] = look.melanin;
    j["specular"] = look.specular;
    j["roughness"] = look.roughness;
    j["tilt"] = look.tilt;
    j["colorNodes"] = look.colorNodes;
    j["colorBlends"] = look.colorBlends;
    j["specularRandom"] = look.specularRandom;
    j["roughnessRandom"] = look.roughnessRandom;
    j["colorsByRgb"] = look.colorsByRgb;
    j["iridescent"] = look.iridescent;
    j["iridescenceColor"] = rgb(look.iridescenceColor);
    j["iridescenceShift"] = look.iridescenceShift;
    j["lobes"] = look.lobes;
    j["specularTint"] = rgb(look.specularTint);
    j["azimuthalRoughness"] = look.azimuthalRoughness;
    j["shift"] = look.shift;
    j["hairColorParams"] = look.hairColorParams;
    j["renderDataParams"] = look.renderDataParams;
    return j;
}

ExportColouring lookColouring() {
    ExportColouring colouring;
    colouring.melanin = [](float melanin, float redness) { return melaninColor(melanin, redness, {1, 1, 1}); };
    colouring.display = [](Vec3f colour) { return displayColor(colour); };
    return colouring;
}

void applyHairLook(const HairLook& look, VrsceneWriterOptions& options) {
    options.primaryTint = look.specularTint;
    options.glossiness = static_cast<float>(std::clamp(1.0 - look.roughness, 0.0, 1.0));
    options.highlightShift = static_cast<float>(look.shift);
    options.colouring = lookColouring();
}

HairLook GroomSession::hairLook() {
    return graph_ ? hairLookOf(*graph_, graph_->outputNode()) : HairLook{};
}

std::string GroomSession::hairLookJson() {
    return hairLookToJson(hairLook()).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace tressora
