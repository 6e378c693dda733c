#pragma once
// ParamSet: the current param values of one node, the clamps the node places on what it
// reads, and a stamp over all names and values for the evaluator's cache keys.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "graph/param_spec.h"
#include "graph/param_value.h"
#include "graph/uniform_value.h"

namespace tressora {

class ParamSet {
public:
    /// Bounds applied by getFloat and getInt to a param's value.
    struct Limits {
        std::optional<double> min;
        std::optional<double> max;
    };

    /// Makes the param known with its default value, unless it already holds a value.
    void declare(const ParamSpec& spec);
    /// Sets a value (declared or not) and renews the stamp.
    void set(const std::string& name, ParamValue value);
    /// Places clamps on what getFloat and getInt return for this param.
    void setLimits(const std::string& name, Limits limits);
    /// The clamps placed on a param (none when unset).
    Limits limits(const std::string& name) const;

    bool has(const std::string& name) const { return values_.count(name) != 0; }
    /// The stored value; throws GraphError "unknown parameter '<name>'" when neither set nor declared.
    const ParamValue& get(const std::string& name) const;

    // Typed reads: the value when it has the asked form, `fallback` when it has another.
    // All throw GraphError for a param that is neither set nor declared.
    bool getBool(const std::string& name, bool fallback) const;
    std::int64_t getInt(const std::string& name, std::int64_t fallback) const;
    /// Accepts a float, an int or a bool (true is 1.0).
    double getFloat(const std::string& name, double fallback) const;
    std::string getString(const std::string& name, const std::string& fallback) const;
    Vec3f getVec3(const std::string& name, Vec3f fallback) const;
    Ramp getRamp(const std::string& name, const Ramp& fallback) const;
    MapRef getMap(const std::string& name, const MapRef& fallback) const;

    /// A 64-bit hash over every name and value, renewed when a value changes.
    std::uint64_t stamp() const { return stamp_; }
    const std::map<std::string, ParamValue>& values() const { return values_; }

private:
    void restamp();
    double clamp(const std::string& name, double v) const;

    std::map<std::string, ParamValue> values_;
    std::shared_ptr<const std::map<std::string, Limits>> limits_;
    std::uint64_t stamp_ = 0;
};

/// Turns a value from a connection into a value of the ParamSpec's kind. Throws GraphError
/// "param '<name>' takes <kind> ..." when the kinds do not fit.
ParamValue coerce(const UniformValue& value, const ParamSpec& spec);

/// A stored value (from a file or an edit) made a value of the ParamSpec's kind by the rules of
/// coerce: numbers and bools convert, a choice must be among the choices, and a map is taken
/// only where the param can be mapped. Throws GraphError "param '<name>' takes <kind> ...",
/// worded as coerce words it, with "a ramp" or "a map" for values no connection carries.
ParamValue checkParam(ParamValue value, const ParamSpec& spec);

}  // namespace tressora
