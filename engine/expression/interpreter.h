#pragma once
// The stack machine that runs compiled expressions. The compiler also runs it to fold
// constant parts, so folding and run time agree to the bit.

#include <cstddef>
#include <span>

#include "expression/environment.h"
#include "expression/expression.h"
#include "expression/instruction.h"

namespace tressora::exprc {

/// The tables a program's Call instructions refer to by index.
struct ProgramTables {
    std::span<const ExpressionCurve> curves;
    std::span<const MapProbe> probes;
};

/// Runs instructions [begin, end) from an empty stack at `stack` and returns one past the
/// top float. The stack must hold one float more than the program's deepest use. Never fails.
float* execute(const ExpressionInstr* begin, const ExpressionInstr* end, const ExpressionEnvironment& env,
               const ProgramTables& tables, float* stack);

/// a `code` b as the Binary instruction computes it.
float binaryOp(std::uint8_t code, float a, float b);

}  // namespace tressora::exprc

namespace tressora {

/// How many points evaluateBatch runs per instruction dispatch.
inline constexpr std::size_t kExpressionBatch = 8;

/// Points that share one environment but for some slots and, optionally, the point index.
/// values[j][i] is slot slots[j] of point i; points[i] (when not null) is its env.point.
struct ExpressionPoints {
    std::span<const ExpressionSlot> slots;
    const float* const* values = nullptr;
    const std::size_t* points = nullptr;
    std::size_t count = 0;
};

/// Runs the expression for each of points.count points: out[i] is bit for bit what evaluate
/// gives for env with point i's slots and index set in. Each instruction is dispatched once
/// per run of kExpressionBatch points, and noise of a point runs four points at a time.
/// Thread-safe; uses a stack in this frame and allocates nothing.
void evaluateBatch(const Expression& expression, const ExpressionEnvironment& env, const ExpressionPoints& points,
                   float* out);

}  // namespace tressora
