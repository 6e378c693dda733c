#include "expression/interpreter.h"

#include <cmath>

#include "expression/functions.h"

namespace tressora {
namespace exprc {
namespace {

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

}  // namespace

float binaryOp(std::uint8_t code, float a, float b) { return binaryInline(code, a, b); }

float* execute(const ExpressionInstr* ip, const ExpressionInstr* end, const ExpressionEnvironment& env,
               const ProgramTables& tables, float* sp) {
    for (; ip != end; ++ip) {
        switch (ip->op) {
        case ExpressionOp::PushConst: *sp++ = ip->value; break;
        case ExpressionOp::PushVar: *sp++ = env.slots[ip->code]; break;
        case ExpressionOp::PushChannel: *sp++ = readChannel(env, ip->index); break;
        case ExpressionOp::Negate: sp[-1] = -sp[-1]; break;
        case ExpressionOp::Binary:
            sp[-2] = binaryInline(ip->code, sp[-2], sp[-1]);
            --sp;
            break;
        case ExpressionOp::Call:
            sp -= ip->count;
            *sp = finiteOrZero(callNumber(*ip, sp, env, tables));
            ++sp;
            break;
        case ExpressionOp::Select:
            sp -= 2;
            sp[-1] = sp[-1] != 0.0f ? sp[0] : sp[1];
            break;
        case ExpressionOp::NegateVector:
            sp[-3] = -sp[-3];
            sp[-2] = -sp[-2];
            sp[-1] = -sp[-1];
            break;
        case ExpressionOp::BinaryVector: {
            const int rightWidth = (ip->count & 2) ? 3 : 1;
            const int leftWidth = (ip->count & 1) ? 3 : 1;
            const float* right = sp - rightWidth;
            float* left = sp - rightWidth - leftWidth;
            float r[3];
            for (int k = 0; k < 3; ++k) {
                r[k] = binaryInline(ip->code, left[leftWidth == 3 ? k : 0], right[rightWidth == 3 ? k : 0]);
            }
            left[0] = r[0];
            left[1] = r[1];
            left[2] = r[2];
            sp = left + 3;
            break;
        }
        case ExpressionOp::SelectVector: {
            sp -= 7;
            const float* chosen = sp[0] != 0.0f ? sp + 1 : sp + 4;
            const float x = chosen[0], y = chosen[1], z = chosen[2];
            sp[0] = x;
            sp[1] = y;
            sp[2] = z;
            sp += 3;
            break;
        }
        case ExpressionOp::CallVector: {
            sp -= ip->count;
            float out[3];
            callVector(*ip, sp, env, tables, out);
            sp[0] = finiteOrZero(out[0]);
            sp[1] = finiteOrZero(out[1]);
            sp[2] = finiteOrZero(out[2]);
            sp += 3;
            break;
        }
        case ExpressionOp::Component:
            sp -= 3;
            sp[0] = sp[ip->code];
            ++sp;
            break;
        case ExpressionOp::Splat:
            sp[0] = sp[-1];
            sp[1] = sp[-1];
            sp += 2;
            break;
        }
    }
    return sp;
}

}  // namespace exprc

float Expression::evaluate(const ExpressionEnvironment& env) const {
    float stack[kExpressionStackSize];
    const float* top = exprc::execute(program_.data(), program_.data() + program_.size(), env,
                                      {curves_, mapProbes_}, stack);
    const float r = isVector_ ? top[-3] : top[-1];
    return std::isfinite(r) ? r : 0.0f;
}

Vec3f Expression::evaluateVector(const ExpressionEnvironment& env) const {
    float stack[kExpressionStackSize];
    const float* top = exprc::execute(program_.data(), program_.data() + program_.size(), env,
                                      {curves_, mapProbes_}, stack);
    if (!isVector_) {
        const float r = exprc::finiteOrZero(top[-1]);
        return {r, r, r};
    }
    return {exprc::finiteOrZero(top[-3]), exprc::finiteOrZero(top[-2]), exprc::finiteOrZero(top[-1])};
}

}  // namespace tressora
