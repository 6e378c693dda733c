#pragma once
// ParamSpec: how a node type declares one param, and what follows from the declaration
// (its value kind, display decimals, the port it offers, its catalogue JSON).

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "graph/param_value.h"
#include "graph/port.h"

namespace tressora {

/// Whether a param's text names a per-strand channel the node writes or reads.
enum class ChannelMode { None = 0, Writes, Reads };

/// What connection a param offers: worked out from the ParamSpec (Auto), always a Value port,
/// or none.
enum class ParamPort { Auto = 0, Value, None };

/// "param P is shown (or its unit applies) only while param `param`'s text is one of `in`".
struct ParamCondition {
    std::string param;
    std::vector<std::string> in;
    bool operator==(const ParamCondition&) const = default;
};

/// One declared param. Operators list these in their `params` table.
struct ParamSpec {
    std::string name;
    ParamValue defaultValue;  ///< its alternative is the param's kind
    std::string description;  ///< shown to users; "(mappable" in it makes the param mappable
    std::string unit;         ///< "fraction", "angle", "pixels", "color", "turns", "seconds" or a length word
    std::vector<std::string> choices;
    std::optional<double> softMin;
    std::optional<double> softMax;
    bool animatable = false;
    std::string group;
    bool advanced = false;
    std::optional<ParamCondition> showWhen;
    std::optional<ParamCondition> unitWhen;
    bool worldDirection = false;
    bool vectorExpression = false;
    bool colorField = false;
    ChannelMode channel = ChannelMode::None;
    bool channelOptional = false;
    ParamPort port = ParamPort::Auto;
    /// The param sets how many strands, points or cards there are, or where they go: it must
    /// be the same on every frame, so it cannot be keyed or fed a value that changes in time.
    bool topology = false;

    ParamKind kind() const { return kindOf(defaultValue); }
    /// True when the description holds "(mappable".
    bool mappable() const;
    /// Digits after the decimal point for display.
    int decimals() const;
    /// The kind shown to connections: bool, integer, number, choice/text, vec3, or any.
    ValueKind valueKind() const;
};

/// The port a param offers, or nothing. Such a port has the param's name and is optional.
std::optional<Port> paramPort(const ParamSpec& spec);

/// The catalogue form of a param: an object with keys in a fixed order, each left out at its
/// default except name, kind, default and description.
nlohmann::ordered_json paramSpecToJson(const ParamSpec& spec);

}  // namespace tressora
