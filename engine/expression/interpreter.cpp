#include "expression/interpreter.h"

#include "expression/run_loop.h"

#include <algorithm>
#include <cmath>

#include "expression/functions.h"
#include "expression/noise.h"

namespace tressora {
namespace exprc {
namespace {

/// The batch form of run: the stack holds one column of kExpressionBatch floats per entry
/// and every instruction works through the points' lanes in turn, with the same per-value
/// operations as run. Returns the stack depth at the end. A full batch has its lane count
/// fixed at compile time, so that the lane loops become a few vector operations.
template <bool Full>
int runBatch(const Expression& expression, const ExpressionEnvironment& env, const ExpressionPoints& points,
             std::size_t first, std::size_t count, float (*column)[kExpressionBatch]) {
    const std::size_t n = Full ? kExpressionBatch : count;
    const ProgramTables tables{expression.curves(), expression.mapProbes()};
    int varying[kExpressionSlotCount];
    for (int& v : varying) v = -1;
    for (std::size_t j = 0; j < points.slots.size(); ++j) varying[points.slots[j]] = static_cast<int>(j);
    // Calls and channel reads see the environment of their own point.
    ExpressionEnvironment lane = env;
    const auto enter = [&](std::size_t l) {
        for (std::size_t j = 0; j < points.slots.size(); ++j) lane.slots[points.slots[j]] = points.values[j][first + l];
        if (points.points) lane.point = points.points[first + l];
    };
    float args[64];
    int d = 0;  // entries on the stack
    for (const ExpressionInstr& in : expression.program()) {
        switch (in.op) {
        case ExpressionOp::PushConst:
            for (std::size_t l = 0; l < n; ++l) column[d][l] = in.value;
            ++d;
            break;
        case ExpressionOp::PushVar: {
            const int j = varying[in.code];
            if (j < 0) {
                for (std::size_t l = 0; l < n; ++l) column[d][l] = env.slots[in.code];
            } else {
                const float* values = points.values[j] + first;
                for (std::size_t l = 0; l < n; ++l) column[d][l] = values[l];
            }
            ++d;
            break;
        }
        case ExpressionOp::PushChannel:
            for (std::size_t l = 0; l < n; ++l) {
                enter(l);
                column[d][l] = readChannel(lane, in.index);
            }
            ++d;
            break;
        case ExpressionOp::Negate:
            for (std::size_t l = 0; l < n; ++l) column[d - 1][l] = -column[d - 1][l];
            break;
        case ExpressionOp::Binary: {
            float* a = column[d - 2];
            const float* b = column[d - 1];
            switch (static_cast<BinaryCode>(in.code)) {
            case BinaryCode::Add: for (std::size_t l = 0; l < n; ++l) a[l] = a[l] + b[l]; break;
            case BinaryCode::Subtract: for (std::size_t l = 0; l < n; ++l) a[l] = a[l] - b[l]; break;
            case BinaryCode::Multiply: for (std::size_t l = 0; l < n; ++l) a[l] = a[l] * b[l]; break;
            default: for (std::size_t l = 0; l < n; ++l) a[l] = binaryInline(in.code, a[l], b[l]); break;
            }
            --d;
            break;
        }
        case ExpressionOp::Call: {
            const int base = d - in.count;
            if ((in.code == kFnNoise || in.code == kFnSnoise) && in.count == 3) {
                float noise[kExpressionBatch];
                exprlib::perlin3Points(column[base], column[base + 1], column[base + 2], n, exprlib::kSnoiseSeed,
                                       noise);
                const bool shifted = in.code == kFnNoise;  // noise is snoise * 0.5 + 0.5
                for (std::size_t l = 0; l < n; ++l)
                    column[base][l] = finiteOrZero(shifted ? noise[l] * 0.5f + 0.5f : noise[l]);
            } else {
                for (std::size_t l = 0; l < n; ++l) {
                    for (int k = 0; k < in.count; ++k) args[k] = column[base + k][l];
                    enter(l);
                    column[base][l] = finiteOrZero(callNumber(in, args, lane, tables));
                }
            }
            d = base + 1;
            break;
        }
        case ExpressionOp::Select:
            for (std::size_t l = 0; l < n; ++l)
                column[d - 3][l] = column[d - 3][l] != 0.0f ? column[d - 2][l] : column[d - 1][l];
            d -= 2;
            break;
        case ExpressionOp::NegateVector:
            for (int k = d - 3; k < d; ++k)
                for (std::size_t l = 0; l < n; ++l) column[k][l] = -column[k][l];
            break;
        case ExpressionOp::BinaryVector: {
            const bool rightVector = (in.count & 2) != 0, leftVector = (in.count & 1) != 0;
            const int right = d - (rightVector ? 3 : 1);
            const int left = right - (leftVector ? 3 : 1);
            // The result overwrites the operands, so it is made apart and copied in.
            float result[3][kExpressionBatch];
            for (int k = 0; k < 3; ++k) {
                const float* a = column[left + (leftVector ? k : 0)];
                const float* b = column[right + (rightVector ? k : 0)];
                float* r = result[k];
                switch (static_cast<BinaryCode>(in.code)) {
                case BinaryCode::Add: for (std::size_t l = 0; l < n; ++l) r[l] = a[l] + b[l]; break;
                case BinaryCode::Subtract: for (std::size_t l = 0; l < n; ++l) r[l] = a[l] - b[l]; break;
                case BinaryCode::Multiply: for (std::size_t l = 0; l < n; ++l) r[l] = a[l] * b[l]; break;
                default: for (std::size_t l = 0; l < n; ++l) r[l] = binaryInline(in.code, a[l], b[l]); break;
                }
            }
            for (int k = 0; k < 3; ++k)
                for (std::size_t l = 0; l < n; ++l) column[left + k][l] = result[k][l];
            d = left + 3;
            break;
        }
        case ExpressionOp::SelectVector: {
            // condition, then the then-vector, then the else-vector
            const int base = d - 7;
            for (std::size_t l = 0; l < n; ++l) {
                const int from = column[base][l] != 0.0f ? base + 1 : base + 4;
                for (int k = 0; k < 3; ++k) column[base + k][l] = column[from + k][l];
            }
            d = base + 3;
            break;
        }
        case ExpressionOp::CallVector: {
            const int base = d - in.count;
            for (std::size_t l = 0; l < n; ++l) {
                for (int k = 0; k < in.count; ++k) args[k] = column[base + k][l];
                enter(l);
                float result[3];
                callVector(in, args, lane, tables, result);
                for (int k = 0; k < 3; ++k) column[base + k][l] = finiteOrZero(result[k]);
            }
            d = base + 3;
            break;
        }
        case ExpressionOp::Component:
            for (std::size_t l = 0; l < n; ++l) column[d - 3][l] = column[d - 3 + in.code][l];
            d -= 2;
            break;
        case ExpressionOp::Splat:
            for (std::size_t l = 0; l < n; ++l) column[d][l] = column[d + 1][l] = column[d - 1][l];
            d += 2;
            break;
        default:  // script instructions never occur in an expression
            break;
        }
    }
    return d;
}

}  // namespace

float binaryOp(std::uint8_t code, float a, float b) { return binaryInline(code, a, b); }

float* execute(const ExpressionInstr* begin, const ExpressionInstr* end, const ExpressionEnvironment& env,
               const ProgramTables& tables, float* stack) {
    PlainMachine plain;
    return run(begin, end, env, tables, stack, plain);
}

}  // namespace exprc

float Expression::evaluate(const ExpressionEnvironment& env) const {
    float stack[kExpressionStackSize + 1];
    exprc::PlainMachine plain;
    const float* top = exprc::run(program_.data(), program_.data() + program_.size(), env,
                                  {curves_, mapProbes_}, stack, plain);
    const float r = isVector_ ? top[-3] : top[-1];
    return std::isfinite(r) ? r : 0.0f;
}

Vec3f Expression::evaluateVector(const ExpressionEnvironment& env) const {
    float stack[kExpressionStackSize + 1];
    exprc::PlainMachine plain;
    const float* top = exprc::run(program_.data(), program_.data() + program_.size(), env,
                                  {curves_, mapProbes_}, stack, plain);
    if (!isVector_) {
        const float r = exprc::finiteOrZero(top[-1]);
        return {r, r, r};
    }
    return {exprc::finiteOrZero(top[-3]), exprc::finiteOrZero(top[-2]), exprc::finiteOrZero(top[-1])};
}

void evaluateBatch(const Expression& expression, const ExpressionEnvironment& env, const ExpressionPoints& points,
                   float* out) {
    float column[kExpressionStackSize + 1][kExpressionBatch];
    for (std::size_t first = 0; first < points.count; first += kExpressionBatch) {
        const std::size_t n = std::min(kExpressionBatch, points.count - first);
        const int depth = n == kExpressionBatch ? exprc::runBatch<true>(expression, env, points, first, n, column)
                                                : exprc::runBatch<false>(expression, env, points, first, n, column);
        const int result = expression.isVector() ? depth - 3 : depth - 1;
        for (std::size_t l = 0; l < n; ++l) {
            const float r = result >= 0 ? column[result][l] : 0.0f;
            out[first + l] = std::isfinite(r) ? r : 0.0f;
        }
    }
}

}  // namespace tressora
