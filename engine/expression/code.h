#pragma once
// Pieces of compiled program as the parser builds them: an instruction list and
// whether it leaves a number or a vector on the stack. A piece that computes nothing
// (one PushConst, or three for a vector) is a constant, which is what folding makes.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "expression/expression.h"
#include "expression/instruction.h"

namespace tressora::exprc {

struct Code {
    std::vector<ExpressionInstr> ops;
    bool vector = false;

    std::size_t size() const { return ops.size(); }
    /// One PushConst for a number, three for a vector.
    bool isConstant() const;
    /// Component k of a constant (0 for a number).
    float constant(int k = 0) const { return ops[static_cast<std::size_t>(k)].value; }
    /// True when the piece is known to leave 0 or 1: a comparison or a constant 0 or 1.
    bool isBoolean() const;
};

ExpressionInstr instruction(ExpressionOp op, std::uint8_t code = 0, std::uint16_t count = 0,
                            std::uint32_t index = 0, float value = 0.0f);
Code numberConstant(float value);
Code vectorConstant(float x, float y, float z);
/// PushVar of one slot, or of three slots from `first` for a vector.
Code slotRead(std::uint8_t slot);
Code vectorSlotRead(std::uint8_t first);
/// The change in stack height an instruction makes, in floats.
int stackEffect(const ExpressionInstr& in);
/// Adds what a PushVar instruction reads to the uses flags.
void noteUses(ExpressionUses& uses, const ExpressionInstr& in);
/// Appends from's instructions to to's.
void append(Code& to, const Code& from);

}  // namespace tressora::exprc
