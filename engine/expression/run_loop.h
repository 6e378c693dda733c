#pragma once
// The run loop shared by expressions and scripts, and the per-value operations that the batch
// form of the interpreter uses too. Internal to the expression layer.

#include <cmath>
#include <cstdint>
#include <span>

#include "expression/environment.h"
#include "expression/expression.h"
#include "expression/functions.h"
#include "expression/instruction.h"
#include "expression/interpreter.h"
#include "expression/script.h"

namespace tressora::exprc {

inline float finiteOrZero(float x) { return std::isfinite(x) ? x : 0.0f; }

inline float binaryInline(std::uint8_t code, float a, float b) {
    switch (static_cast<BinaryCode>(code)) {
    case BinaryCode::Add: return a + b;
    case BinaryCode::Subtract: return a - b;
    case BinaryCode::Multiply: return a * b;
    case BinaryCode::Divide: return b == 0.0f ? 0.0f : a / b;
    case BinaryCode::Power:
        return static_cast<float>(std::pow(static_cast<double>(a), static_cast<double>(b)));
    case BinaryCode::Less: return a < b ? 1.0f : 0.0f;
    case BinaryCode::LessEqual: return a <= b ? 1.0f : 0.0f;
    case BinaryCode::Greater: return a > b ? 1.0f : 0.0f;
    case BinaryCode::GreaterEqual: return a >= b ? 1.0f : 0.0f;
    case BinaryCode::Equal: return a == b ? 1.0f : 0.0f;
    case BinaryCode::NotEqual: return a != b ? 1.0f : 0.0f;
    case BinaryCode::Remainder: return b == 0.0f ? 0.0f : std::fmod(a, b);
    }
    return 0.0f;
}

/// out = left `code` right per component; a side that is no vector is used for all three.
/// The switch is outside the loop, so each component costs the operation alone.
inline void binaryVector(std::uint8_t code, const float* left, bool leftVector, const float* right,
                         bool rightVector, float* out) {
    const float a[3] = {left[0], left[leftVector ? 1 : 0], left[leftVector ? 2 : 0]};
    const float b[3] = {right[0], right[rightVector ? 1 : 0], right[rightVector ? 2 : 0]};
    switch (static_cast<BinaryCode>(code)) {
    case BinaryCode::Add:
        for (int k = 0; k < 3; ++k) out[k] = a[k] + b[k];
        return;
    case BinaryCode::Subtract:
        for (int k = 0; k < 3; ++k) out[k] = a[k] - b[k];
        return;
    case BinaryCode::Multiply:
        for (int k = 0; k < 3; ++k) out[k] = a[k] * b[k];
        return;
    default:
        for (int k = 0; k < 3; ++k) out[k] = binaryInline(code, a[k], b[k]);
        return;
    }
}

inline float readChannel(const ExpressionEnvironment& env, std::uint32_t index) {
    if (env.point != ExpressionEnvironment::kNoPoint && index < env.pointChannels.size()) {
        const std::span<const float> table = env.pointChannels[index];
        if (!table.empty()) return env.point < table.size() ? table[env.point] : 0.0f;
    }
    if (index < env.strandChannels.size()) {
        const std::span<const float> table = env.strandChannels[index];
        if (env.strand < table.size()) return table[env.strand];
    }
    return 0.0f;
}

inline float callNumber(const ExpressionInstr& in, const float* args, const ExpressionEnvironment& env,
                        const ProgramTables& tables) {
    switch (in.code) {
    case kFnCurve:
    case kFnLinearcurve:
    case kFnCurvePairs: {
        float v = 0.0f;
        if (in.index < tables.curves.size()) tables.curves[in.index].evaluate(args[0], &v);
        return v;
    }
    case kFnMap:
        if (!env.maps || in.index >= tables.probes.size()) return 0.0f;
        return env.maps->value(tables.probes[in.index].map, tables.probes[in.index].channel, env);
    default: return evalNumberFunction(in.code, args, in.count, env);
    }
}

inline void callVector(const ExpressionInstr& in, const float* args, const ExpressionEnvironment& env,
                       const ProgramTables& tables, float* out) {
    switch (in.code) {
    case kFnCcurve:
        if (in.index < tables.curves.size()) {
            tables.curves[in.index].evaluate(args[0], out);
        } else {
            out[0] = out[1] = out[2] = 0.0f;
        }
        return;
    case kFnCmap: {
        const Vec3f c = env.maps ? env.maps->color(in.index, env) : Vec3f{};
        out[0] = c.x;
        out[1] = c.y;
        out[2] = c.z;
        return;
    }
    default: evalVectorFunction(in.code, args, in.count, env, out); return;
    }
}

/// What a script run adds to the machine: its locals, where its block begins (jumps go to
/// positions in it), its step budget and its functions.
struct ScriptMachine {
    static constexpr bool kScript = true;
    float* locals = nullptr;
    const ExpressionInstr* begin = nullptr;
    const ScriptFunctions* functions = nullptr;
    std::uint64_t steps = 0;
    std::uint64_t budget = 0;
    bool overrun = false;
};

/// A plain expression: no locals, no jumps.
struct PlainMachine {
    static constexpr bool kScript = false;
};

/// The run loop. The top of the stack lives in a register; memory holds the values below it.
/// The first push stores a meaningless value at stack[0], which is never read. A script's
/// block ends with an empty stack; a plain expression leaves its value.
template <class Machine>
inline float* run(const ExpressionInstr* ip, const ExpressionInstr* end, const ExpressionEnvironment& env,
                  const ProgramTables& tables, float* stack, Machine& machine) {
    float tos = 0.0f;
    float* sp = stack;
    while (ip != end) {
        const ExpressionInstr& in = *ip++;
        switch (in.op) {
        case ExpressionOp::PushConst:
            *sp++ = tos;
            tos = in.value;
            break;
        case ExpressionOp::PushVar:
            *sp++ = tos;
            tos = env.slots[in.code];
            break;
        case ExpressionOp::PushChannel:
            *sp++ = tos;
            tos = readChannel(env, in.index);
            break;
        case ExpressionOp::Negate: tos = -tos; break;
        case ExpressionOp::Binary:
            --sp;
            tos = binaryInline(in.code, *sp, tos);
            break;
        case ExpressionOp::Call: {
            *sp = tos;  // the arguments, contiguous: sp[1 - count] .. sp[0]
            const float* args = sp + 1 - in.count;
            tos = finiteOrZero(callNumber(in, args, env, tables));
            sp -= in.count;
            ++sp;
            break;
        }
        case ExpressionOp::Select:
            sp -= 2;
            tos = sp[0] != 0.0f ? sp[1] : tos;
            break;
        case ExpressionOp::NegateVector:
            sp[-2] = -sp[-2];
            sp[-1] = -sp[-1];
            tos = -tos;
            break;
        case ExpressionOp::BinaryVector: {
            *sp = tos;
            float* top = sp + 1;
            const int rightWidth = (in.count & 2) ? 3 : 1;
            const int leftWidth = (in.count & 1) ? 3 : 1;
            float* right = top - rightWidth;
            float* left = right - leftWidth;
            binaryVector(in.code, left, leftWidth == 3, right, rightWidth == 3, left);
            sp = left + 2;
            tos = left[2];
            break;
        }
        case ExpressionOp::SelectVector: {
            // condition at sp[-6], then at sp[-5..-3], else at sp[-2], sp[-1], tos.
            float* base = sp - 6;
            if (base[0] != 0.0f) {
                base[0] = base[1];
                base[1] = base[2];
                tos = base[3];
            } else {
                base[0] = sp[-2];
                base[1] = sp[-1];
            }
            sp = base + 2;
            break;
        }
        case ExpressionOp::CallVector: {
            *sp = tos;
            float* args = sp + 1 - in.count;
            float out[3];
            callVector(in, args, env, tables, out);
            args[0] = finiteOrZero(out[0]);
            args[1] = finiteOrZero(out[1]);
            tos = finiteOrZero(out[2]);
            sp = args + 2;
            break;
        }
        case ExpressionOp::Component:
            tos = in.code == 2 ? tos : sp[in.code - 2];
            sp -= 2;
            break;
        case ExpressionOp::Splat:
            sp[0] = tos;
            sp[1] = tos;
            sp += 2;
            break;
        case ExpressionOp::StoreLocal:
            if constexpr (Machine::kScript) {
                float* to = machine.locals + in.index;
                if (in.count == 3) {
                    to[0] = sp[-2];
                    to[1] = sp[-1];
                    to[2] = tos;
                    sp -= 3;
                    tos = *sp;
                } else {
                    to[0] = tos;
                    tos = *--sp;
                }
            }
            break;
        case ExpressionOp::LoadLocal:
            if constexpr (Machine::kScript) {
                const float* from = machine.locals + in.index;
                *sp = tos;
                if (in.count == 3) {
                    sp[1] = from[0];
                    sp[2] = from[1];
                    sp += 3;
                    tos = from[2];
                } else {
                    ++sp;
                    tos = from[0];
                }
            }
            break;
        case ExpressionOp::Jump:
            if constexpr (Machine::kScript) ip = machine.begin + in.index;
            break;
        case ExpressionOp::JumpIfZero:
            if constexpr (Machine::kScript) {
                const float condition = tos;
                tos = *--sp;
                if (condition == 0.0f) ip = machine.begin + in.index;
            }
            break;
        case ExpressionOp::LoopTest:
            if constexpr (Machine::kScript) {
                const float bound =
                    in.code == 0 ? in.value : machine.locals[static_cast<std::uint32_t>(in.value)];
                if (!(machine.locals[in.count] < bound)) ip = machine.begin + in.index;
            }
            break;
        case ExpressionOp::LoopStep:
            if constexpr (Machine::kScript) {
                machine.locals[in.count] += 1.0f;
                machine.steps += static_cast<std::uint64_t>(in.value);
                if (machine.steps > machine.budget) {
                    machine.overrun = true;
                    return sp;
                }
                ip = machine.begin + in.index;
            }
            break;
        case ExpressionOp::ScriptCall:
            if constexpr (Machine::kScript) {
                *sp = tos;
                float* args = sp + 1 - in.count;
                float out[3];
                machine.functions->call(in.code, args, in.count, out);
                args[0] = finiteOrZero(out[0]);
                args[1] = finiteOrZero(out[1]);
                tos = finiteOrZero(out[2]);
                sp = args + 2;
            }
            break;
        }
    }
    *sp = tos;
    return sp + 1;
}

}  // namespace tressora::exprc
