#include "graph/param_set.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "core/errors.h"
#include "core/hash.h"

namespace tressora {

void ParamSet::declare(const ParamSpec& spec) {
    if (values_.emplace(spec.name, spec.defaultValue).second) restamp();
}

void ParamSet::set(const std::string& name, ParamValue value) {
    values_[name] = std::move(value);
    restamp();
}

void ParamSet::setLimits(const std::string& name, Limits limits) {
    auto copy = limits_ ? std::make_shared<std::map<std::string, Limits>>(*limits_)
                        : std::make_shared<std::map<std::string, Limits>>();
    (*copy)[name] = limits;
    limits_ = std::move(copy);
}

ParamSet::Limits ParamSet::limits(const std::string& name) const {
    if (!limits_) return {};
    const auto it = limits_->find(name);
    return it == limits_->end() ? Limits{} : it->second;
}

const ParamValue& ParamSet::get(const std::string& name) const {
    const auto it = values_.find(name);
    if (it == values_.end()) throw GraphError("unknown parameter '" + name + "'");
    return it->second;
}

double ParamSet::clamp(const std::string& name, double v) const {
    if (!limits_) return v;
    const auto it = limits_->find(name);
    if (it == limits_->end()) return v;
    if (it->second.min && v < *it->second.min) v = *it->second.min;
    if (it->second.max && v > *it->second.max) v = *it->second.max;
    return v;
}

bool ParamSet::getBool(const std::string& name, bool fallback) const {
    const ParamValue& v = get(name);
    return std::holds_alternative<bool>(v) ? std::get<bool>(v) : fallback;
}

std::int64_t ParamSet::getInt(const std::string& name, std::int64_t fallback) const {
    const ParamValue& v = get(name);
    if (!std::holds_alternative<std::int64_t>(v)) return fallback;
    const std::int64_t i = std::get<std::int64_t>(v);
    if (!limits_ || !limits_->count(name)) return i;
    return static_cast<std::int64_t>(clamp(name, static_cast<double>(i)));
}

double ParamSet::getFloat(const std::string& name, double fallback) const {
    const ParamValue& v = get(name);
    if (const double* d = std::get_if<double>(&v)) return clamp(name, *d);
    if (const std::int64_t* i = std::get_if<std::int64_t>(&v)) return clamp(name, static_cast<double>(*i));
    if (const bool* b = std::get_if<bool>(&v)) return clamp(name, *b ? 1.0 : 0.0);
    return fallback;
}

std::string ParamSet::getString(const std::string& name, const std::string& fallback) const {
    const ParamValue& v = get(name);
    return std::holds_alternative<std::string>(v) ? std::get<std::string>(v) : fallback;
}

Vec3f ParamSet::getVec3(const std::string& name, Vec3f fallback) const {
    const ParamValue& v = get(name);
    return std::holds_alternative<Vec3f>(v) ? std::get<Vec3f>(v) : fallback;
}

Ramp ParamSet::getRamp(const std::string& name, const Ramp& fallback) const {
    const ParamValue& v = get(name);
    return std::holds_alternative<Ramp>(v) ? std::get<Ramp>(v) : fallback;
}

MapRef ParamSet::getMap(const std::string& name, const MapRef& fallback) const {
    const ParamValue& v = get(name);
    return std::holds_alternative<MapRef>(v) ? std::get<MapRef>(v) : fallback;
}

void ParamSet::restamp() {
    std::uint64_t h = hash64(values_.size());
    for (const auto& [name, value] : values_) h = hashParamValue(combineText(h, name), value);
    stamp_ = h;
}

namespace {

std::string shortest(double v) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
    return std::string(buffer, result.ptr);
}

std::string describe(const UniformValue& value) {
    switch (value.value.index()) {
        case 0: return shortest(std::get<double>(value.value));
        case 1: return std::to_string(std::get<std::int64_t>(value.value));
        case 2: return std::get<bool>(value.value) ? "true" : "false";
        case 3: {
            const Vec3f& v = std::get<Vec3f>(value.value);
            std::string text = "[";
            text.append(shortest(v.x)).append(", ").append(shortest(v.y)).append(", ").append(shortest(v.z));
            return text.append("]");
        }
        default: return std::get<std::string>(value.value);
    }
}

// A number, integer or bool as a double; nothing for vec3 and text.
std::optional<double> scalarOf(const UniformValue& value) {
    if (const double* d = std::get_if<double>(&value.value)) return *d;
    if (const std::int64_t* i = std::get_if<std::int64_t>(&value.value)) return static_cast<double>(*i);
    if (const bool* b = std::get_if<bool>(&value.value)) return *b ? 1.0 : 0.0;
    return std::nullopt;
}

}  // namespace

ParamValue coerce(const UniformValue& value, const ParamSpec& spec) {
    const std::string prefix =
        "param '" + spec.name + "' takes " + std::string(valueKindName(spec.valueKind()));
    const auto refuse = [&]() -> GraphError { return GraphError(prefix + " and cannot take " + describe(value)); };
    const std::optional<double> scalar = scalarOf(value);

    switch (spec.kind()) {
        case ParamKind::Bool:
            if (const bool* b = std::get_if<bool>(&value.value)) return *b;
            if (const std::int64_t* i = std::get_if<std::int64_t>(&value.value)) return *i != 0;
            if (scalar) return *scalar != 0.0;
            throw refuse();
        case ParamKind::Float:
            if (const std::int64_t* i = std::get_if<std::int64_t>(&value.value)) return static_cast<double>(*i);
            if (scalar) return *scalar;
            throw refuse();
        case ParamKind::Int: {
            if (const std::int64_t* i = std::get_if<std::int64_t>(&value.value)) return *i;
            if (!scalar) throw refuse();
            const double t = std::trunc(*scalar);
            if (!(t >= -9223372036854775808.0 && t < 9223372036854775808.0))
                throw GraphError(prefix + ": " + describe(value) + " is out of range for an integer");
            return static_cast<std::int64_t>(t);
        }
        case ParamKind::Vec3:
            if (const Vec3f* v = std::get_if<Vec3f>(&value.value)) return *v;
            // A single number feeds all three components, as the kinds' compatibility allows.
            if (scalar) return Vec3f(float(*scalar), float(*scalar), float(*scalar));
            throw refuse();
        case ParamKind::String: {
            const std::string* text = std::get_if<std::string>(&value.value);
            if (!text) throw refuse();
            if (spec.choices.empty() ||
                std::find(spec.choices.begin(), spec.choices.end(), *text) != spec.choices.end())
                return *text;
            std::string list;
            for (const std::string& choice : spec.choices) list += (list.empty() ? "" : ", ") + choice;
            throw GraphError(prefix + ": '" + *text + "' is not one of its choices (" + list + ")");
        }
        case ParamKind::Ramp:
        case ParamKind::Map: break;
    }
    throw refuse();
}

namespace {

// A stored value as a connection would carry it; ramps and maps have no such form.
std::optional<UniformValue> uniformOf(const ParamValue& value) {
    if (const bool* b = std::get_if<bool>(&value)) return UniformValue::boolean(*b);
    if (const std::int64_t* i = std::get_if<std::int64_t>(&value)) return UniformValue::integer(*i);
    if (const double* d = std::get_if<double>(&value)) return UniformValue::number(*d);
    if (const Vec3f* v = std::get_if<Vec3f>(&value)) return UniformValue::vec3(*v);
    if (const std::string* t = std::get_if<std::string>(&value)) return UniformValue::text(*t);
    return std::nullopt;
}

// Numbers and vectors that a map may drive instead.
bool takesMap(const ParamSpec& spec) {
    return spec.kind() == ParamKind::Map || spec.mappable() || spec.vectorExpression || spec.colorField;
}

}  // namespace

ParamValue checkParam(ParamValue value, const ParamSpec& spec) {
    if (std::holds_alternative<MapRef>(value) && takesMap(spec)) return value;
    const std::optional<UniformValue> uniform = uniformOf(value);
    const bool plain = spec.kind() != ParamKind::Ramp && spec.kind() != ParamKind::Map;
    if (plain && uniform) return coerce(*uniform, spec);
    if (!plain && value.index() == spec.defaultValue.index()) return value;
    throw GraphError("param '" + spec.name + "' takes " + std::string(valueKindName(spec.valueKind())) +
                     " and cannot take " +
                     (uniform ? describe(*uniform) : std::holds_alternative<Ramp>(value) ? "a ramp" : "a map"));
}

}  // namespace tressora
