#pragma once
// UniformValue: one value for a whole node, as Value, Control and Expression nodes give it
// on a Value output.

#include <cstdint>
#include <string>
#include <variant>

#include "core/vec.h"
#include "graph/value_kind.h"

namespace tressora {

struct UniformValue {
    ValueKind kind = ValueKind::Number;
    /// number: double; integer: int64; bool: bool; vec3: Vec3f; choice and text: string.
    std::variant<double, std::int64_t, bool, Vec3f, std::string> value = 0.0;

    static UniformValue number(double v) { return {ValueKind::Number, v}; }
    static UniformValue integer(std::int64_t v) { return {ValueKind::Integer, v}; }
    static UniformValue boolean(bool v) { return {ValueKind::Bool, v}; }
    static UniformValue vec3(Vec3f v) { return {ValueKind::Vec3, v}; }
    static UniformValue text(std::string v) { return {ValueKind::Text, std::move(v)}; }
    static UniformValue choice(std::string v) { return {ValueKind::Choice, std::move(v)}; }
};

}  // namespace tressora
