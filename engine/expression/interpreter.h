#pragma once
// The stack machine that runs compiled expressions. The compiler also runs it to fold
// constant parts, so folding and run time agree to the bit.

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
