#pragma once
// Param values to and from JSON, as graph documents and tool calls carry them.

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "graph/param_spec.h"
#include "graph/param_value.h"

namespace tressora {

/// Reads a param value by the JSON value's type; `spec` (may be null) decides between int
/// and float and allows ramps written as arrays or as text. Bad values throw GraphError
/// naming the param.
ParamValue paramFromJson(const nlohmann::json& json, const ParamSpec* spec, const std::string& name);

/// The JSON form of a value: numbers as numbers, vec3 as an array of three, ramp and map as
/// objects. paramFromJson reads it back to an equal value.
nlohmann::json paramToJson(const ParamValue& value);
nlohmann::ordered_json paramToOrderedJson(const ParamValue& value);

/// A ramp stored as JSON text ({"keys": [...]} or a bare array of pairs). Throws GraphError
/// "ramp: malformed JSON" or "ramp: needs keys [[position, value], ...]".
Ramp rampFromText(std::string_view text);

}  // namespace tressora
