#include "expression/code.h"

#include "expression/environment.h"

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

/// The change in stack height an instruction makes.
int stackEffect(const ExpressionInstr& in) {
    switch (in.op) {
    case ExpressionOp::PushConst:
    case ExpressionOp::PushVar:
    case ExpressionOp::PushChannel: return 1;
    case ExpressionOp::Negate:
    case ExpressionOp::NegateVector: return 0;
    case ExpressionOp::Binary: return -1;
    case ExpressionOp::Call: return 1 - in.count;
    case ExpressionOp::Select: return -2;
    case ExpressionOp::BinaryVector: return 3 - ((in.count & 1) ? 3 : 1) - ((in.count & 2) ? 3 : 1);
    case ExpressionOp::SelectVector: return -4;
    case ExpressionOp::CallVector: return 3 - in.count;
    case ExpressionOp::Component: return -2;
    case ExpressionOp::Splat: return 2;
    case ExpressionOp::StoreLocal: return -in.count;
    case ExpressionOp::LoadLocal: return in.count;
    case ExpressionOp::JumpIfZero: return -1;
    case ExpressionOp::ScriptCall: return 3 - in.count;
    case ExpressionOp::Jump:
    case ExpressionOp::LoopTest:
    case ExpressionOp::LoopStep: return 0;
    }
    return 0;
}

void noteUses(ExpressionUses& uses, const ExpressionInstr& in) {
    if (in.op != ExpressionOp::PushVar) return;
    const int slot = in.code;
    if (slot <= kSlotNz || slot == kSlotLift) uses.surface = true;
    if (slot >= kSlotPrefX && slot <= kSlotPrefZ) uses.restPose = true;
    if (slot >= kSlotLength && slot <= kSlotTipZ) uses.shape = true;
    if (slot == kSlotLongest) uses.longest = true;
    if (slot >= kSlotT && slot <= kSlotPointIndex) uses.perPoint = true;
    if (slot == kSlotT || slot == kSlotPx || slot == kSlotPy || slot == kSlotPz) uses.pointPosition = true;
}


void append(Code& to, const Code& from) { to.ops.insert(to.ops.end(), from.ops.begin(), from.ops.end()); }

}  // namespace tressora::exprc
