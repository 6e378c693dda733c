#include "expression/code.h"

namespace tressora::exprc {

bool Code::isConstant() const {
    const std::size_t n = vector ? 3 : 1;
    if (ops.size() != n) return false;
    for (const ExpressionInstr& in : ops) {
        if (in.op != ExpressionOp::PushConst) return false;
    }
    return true;
}

bool Code::isBoolean() const {
    if (vector || ops.empty()) return false;
    if (isConstant()) return ops[0].value == 0.0f || ops[0].value == 1.0f;
    const ExpressionInstr& last = ops.back();
    return last.op == ExpressionOp::Binary && last.code >= static_cast<std::uint8_t>(BinaryCode::Less) &&
           last.code <= static_cast<std::uint8_t>(BinaryCode::NotEqual);
}

ExpressionInstr instruction(ExpressionOp op, std::uint8_t code, std::uint16_t count, std::uint32_t index,
                            float value) {
    ExpressionInstr in;
    in.op = op;
    in.code = code;
    in.count = count;
    in.index = index;
    in.value = value;
    return in;
}

Code numberConstant(float value) {
    Code c;
    c.ops.push_back(instruction(ExpressionOp::PushConst, 0, 0, 0, value));
    return c;
}

Code vectorConstant(float x, float y, float z) {
    Code c;
    c.vector = true;
    for (float v : {x, y, z}) c.ops.push_back(instruction(ExpressionOp::PushConst, 0, 0, 0, v));
    return c;
}

Code slotRead(std::uint8_t slot) {
    Code c;
    c.ops.push_back(instruction(ExpressionOp::PushVar, slot));
    return c;
}

Code vectorSlotRead(std::uint8_t first) {
    Code c;
    c.vector = true;
    for (std::uint8_t k = 0; k < 3; ++k) c.ops.push_back(instruction(ExpressionOp::PushVar, first + k));
    return c;
}

void append(Code& to, const Code& from) { to.ops.insert(to.ops.end(), from.ops.begin(), from.ops.end()); }

}  // namespace tressora::exprc
