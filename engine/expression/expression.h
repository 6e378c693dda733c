#pragma once
// A compiled expression: the small language that drives every procedural value in a
// groom, compiled once into a flat program of 12-byte instructions and then run per
// strand or per point on many threads. Running never fails and allocates nothing;
// every fault is a compile error with its line and column.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "core/vec.h"
#include "expression/curves.h"
#include "expression/environment.h"
#include "expression/instruction.h"

namespace tressora {

/// A name the caller fixes at compile time (a node's own variables): folded in as a constant.
struct ExpressionVariable {
    std::string name;
    bool isVector = false;
    Vec3f value;  ///< a number is value.x
};

/// What the caller takes: a number, a vector, or either.
enum class ExpressionWant { Number = 0, Vector = 1, Either = 2 };

/// What an expression reads of its environment, so the caller sets up only that and runs a
/// program that varies by nothing per point once per strand.
struct ExpressionUses {
    bool surface = false;        ///< u, v, the root point or normal, lift
    bool restPose = false;       ///< the rest-pose root
    bool shape = false;          ///< length, longest, reach, straightness, lift, the tip
    bool longest = false;        ///< the longest strand's length
    bool perPoint = false;       ///< anything that varies along the strand
    bool pointPosition = false;  ///< the point itself or its parameter (t, px, py, pz)
    bool operator==(const ExpressionUses&) const = default;
};

/// One map() call: the map (an index into mapNames) and its channel, 0 r, 1 g, 2 b, 3 a,
/// 4 luminance.
struct MapProbe {
    std::uint32_t map = 0;
    std::uint8_t channel = 4;
    bool operator==(const MapProbe&) const = default;
};

class Expression {
public:
    /// Compiles text. `variables` are the caller's names, each a number or a vector, fixed now
    /// and folded in; `want` is the result type the caller takes. Throws ExpressionError whose
    /// text names the expression and the line and column of the fault.
    static std::shared_ptr<const Expression> compile(std::string_view text,
                                                     std::span<const ExpressionVariable> variables = {},
                                                     ExpressionWant want = ExpressionWant::Number);

    /// Runs the program for env's element and gives its number (the x of a vector program).
    /// Always finite: a non-finite result is 0. Thread-safe; uses a stack in this frame.
    float evaluate(const ExpressionEnvironment& env) const;
    /// As evaluate, for three floats (a number program gives its number three times).
    Vec3f evaluateVector(const ExpressionEnvironment& env) const;

    const std::string& source() const { return source_; }
    const std::vector<ExpressionInstr>& program() const { return program_; }
    /// Channel names read, in first-read order; PushChannel's index counts in this list.
    const std::vector<std::string>& readChannels() const { return readChannels_; }
    /// Map names as written in map() and cmap(), in first-use order.
    const std::vector<std::string>& mapNames() const { return mapNames_; }
    const std::vector<MapProbe>& mapProbes() const { return mapProbes_; }
    const std::vector<ExpressionCurve>& curves() const { return curves_; }
    bool isVector() const { return isVector_; }
    bool readsTime() const { return readsTime_; }
    /// The deepest stack use of the program, in floats (at most 128).
    int maxStack() const { return maxStack_; }
    const ExpressionUses& uses() const { return uses_; }
    /// True when the program is a constant (it reads nothing).
    bool isConstant() const;

private:
    Expression() = default;

    std::string source_;
    std::vector<ExpressionInstr> program_;
    std::vector<std::string> readChannels_;
    std::vector<std::string> mapNames_;
    std::vector<MapProbe> mapProbes_;
    std::vector<ExpressionCurve> curves_;
    bool isVector_ = false;
    bool readsTime_ = false;
    int maxStack_ = 0;
    ExpressionUses uses_;
};

/// A node's `variables` object: each key a name (letters, digits and _), each value a number
/// or an array of three numbers. Null gives none. Throws ExpressionError.
std::vector<ExpressionVariable> expressionVariablesFromJson(const nlohmann::json& value);

}  // namespace tressora
