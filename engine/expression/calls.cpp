// Compiling function calls: argument counts and kinds from the function table,
// defaults for missing arguments, the rules of rand, noise, the curve family and map.

#include <cmath>

#include "expression/parser.h"

namespace tressora::exprc {
namespace {

std::string argumentCount(const ExpressionFunction& row, const std::string& name, std::size_t got) {
    const std::string n = std::to_string(got);
    if (row.minArgs == row.maxArgs) {
        return name + " takes " + std::to_string(row.minArgs) + " argument(s), got " + n;
    }
    return name + " takes " + std::to_string(row.minArgs) + " to " + std::to_string(row.maxArgs) +
           " argument(s), got " + n;
}

/// A constant whole number in [lo, hi], or -1.
int constantWhole(const Code& c, int lo, int hi) {
    if (c.vector || !c.isConstant()) return -1;
    const float v = c.constant();
    if (!(v >= static_cast<float>(lo) && v <= static_cast<float>(hi)) || v != std::floor(v)) return -1;
    return static_cast<int>(v);
}

}  // namespace

void Parser::checkCount(const NameToken& token, const ExpressionFunction& row, std::size_t count) {
    if (count < static_cast<std::size_t>(row.minArgs) || count > static_cast<std::size_t>(row.maxArgs)) {
        fail(token.offset, argumentCount(row, token.name, count));
    }
}

Code Parser::call(const NameToken& token, Argument* piped) {
    if (script_) {
        if (std::optional<Code> code = script_->call(*this, token, piped ? &piped->code : nullptr)) return std::move(*code);
    }
    const ExpressionFunction* row = findExpressionFunction(token.name);
    if (!row) fail(token.offset, "unknown function '" + token.name + "'");
    scan_.take("(");
    if (row->group == FunctionGroup::Map) return mapCall(token, *row, piped != nullptr);

    std::vector<Argument> args;
    if (piped) args.push_back(std::move(*piped));
    if (!scan_.lookingAt(")")) {
        do {
            const std::size_t at = scan_.here();
            args.push_back({nested(), at});
        } while (scan_.take(","));
    }
    if (!scan_.take(")")) fail(scan_.here(), "expected ')' after the arguments of " + token.name);

    if (row->group == FunctionGroup::Curve) return curveCall(token, *row, args);
    if (row->code == kFnNoise) return noiseCall(token, args);

    const ExpressionFunction* chosen = row;
    if (row->code == kFnRand) {
        checkCount(token, *row, args.size());
        if (args.size() >= 2) chosen = &expressionFunction(kFnRandRange);
    } else if (row->code == kFnWchoose && args.size() <= static_cast<std::size_t>(row->maxArgs) &&
               (args.size() < 3 || args.size() % 2 == 0)) {
        fail(token.offset, "wchoose takes (t, value, weight, value, weight, ...)");
    } else {
        checkCount(token, *row, args.size());
    }

    switch (row->group) {
    case FunctionGroup::Number:
        for (std::size_t i = 0; i < args.size(); ++i) {
            if (args[i].code.vector) {
                fail(args[i].offset, "argument " + std::to_string(i + 1) + " of " + token.name +
                                         " is a number, not a vector");
            }
        }
        break;
    case FunctionGroup::NumberRule:
        for (const Argument& a : args) {
            if (a.code.vector) fail(a.offset, token.name + "'s arguments are numbers");
        }
        break;
    default:
        for (std::size_t i = 0; i < args.size(); ++i) {
            Argument& a = args[i];
            switch (row->signature[i]) {
            case 'p':
                if (!a.code.vector) a.code = splat(std::move(a.code));
                break;
            case 'v':
                if (!a.code.vector) {
                    fail(a.offset, "argument " + std::to_string(i + 1) + " of " + token.name +
                                       " is a vector, not a number (write [x, y, z])");
                }
                break;
            default:
                if (a.code.vector) fail(a.offset, token.name + " takes too many vectors");
                break;
            }
        }
        break;
    }
    for (std::size_t i = args.size(); i < static_cast<std::size_t>(row->maxArgs); ++i) {
        const std::size_t k = i - static_cast<std::size_t>(row->minArgs);
        if (k >= static_cast<std::size_t>(row->defaultCount)) break;
        args.push_back({numberConstant(row->defaults[k]), scan_.here()});
    }
    return emitCall(*chosen, args, chosen->code);
}

Code Parser::emitCall(const ExpressionFunction& row, std::vector<Argument>& args, std::uint8_t code) {
    Code r;
    bool constant = true;
    std::size_t floats = 0;
    for (const Argument& a : args) {
        constant = constant && a.code.isConstant();
        floats += a.code.vector ? 3 : 1;
        append(r, a.code);
    }
    r.vector = row.resultWidth == 3;
    r.ops.push_back(instruction(r.vector ? ExpressionOp::CallVector : ExpressionOp::Call, code,
                                static_cast<std::uint16_t>(floats)));
    if (constant) return fold(r);
    return r;
}

Code Parser::noiseCall(const NameToken& token, std::vector<Argument>& args) {
    const auto message = "noise takes a point, noise(p), or 2 to 4 numbers, noise(x, y, z, w)";
    if (args.empty() || args.size() > 4) fail(token.offset, message);
    if (args.size() == 1) {
        if (!args[0].code.vector) args[0].code = splat(std::move(args[0].code));
        return emitCall(expressionFunction(kFnNoise), args, kFnNoise);
    }
    for (const Argument& a : args) {
        if (a.code.vector) fail(a.offset, message);
    }
    const std::uint8_t code = args.size() == 4 ? kFnNoise4 : kFnNoiseXyz;
    return emitCall(expressionFunction(code), args, code);
}

Code Parser::curveCall(const NameToken& token, const ExpressionFunction& row, std::vector<Argument>& args) {
    checkCount(token, row, args.size());
    const std::string& name = token.name;
    const bool color = row.code == kFnCcurve;
    const std::size_t keyArgs = args.size() - 1;
    int keyWidth = 3;
    std::uint8_t code = row.code;
    if (row.code == kFnLinearcurve) {
        keyWidth = 2;
        if (keyArgs % 2 != 0) {
            fail(token.offset, name + " takes (t, position, value, position, value, ...): keys of two");
        }
    } else if (keyArgs % 3 != 0) {
        if (row.code == kFnCurve && keyArgs % 2 == 0) {
            keyWidth = 2;
            code = kFnCurvePairs;
        } else {
            fail(token.offset, name +
                                   " takes (t, position, value, interpolation, ...) as SeExpr: keys of three, the "
                                   "interpolation 0 (none), 1 (linear), 2 (smooth), 3 (spline) or 4 (monotone spline)");
        }
    }
    if (args[0].code.vector) fail(args[0].offset, name + "'s first argument (where on the curve) is a number");
    const std::string keysMessage = name +
                                    "'s keys are numbers (or the node's own variables), fixed when the expression "
                                    "compiles" +
                                    (color ? " (a value may be a color)" : "");
    std::vector<CurveKey> keys;
    for (std::size_t i = 1; i + static_cast<std::size_t>(keyWidth) - 1 < args.size(); i += keyWidth) {
        const Argument& position = args[i];
        const Argument& value = args[i + 1];
        if (position.code.vector || !position.code.isConstant()) fail(position.offset, keysMessage);
        if (!value.code.isConstant() || (value.code.vector && !color)) fail(value.offset, keysMessage);
        CurveKey key;
        key.position = position.code.constant();
        for (int c = 0; c < 3; ++c) key.value[c] = value.code.constant(value.code.vector ? c : 0);
        if (keyWidth == 3) {
            const Argument& interp = args[i + 2];
            if (interp.code.vector || !interp.code.isConstant()) fail(interp.offset, keysMessage);
            const int mode = constantWhole(interp.code, 0, 4);
            if (mode < 0) {
                fail(interp.offset, name + "'s interpolations are 0 (none), 1 (linear), 2 (smooth), 3 (spline) or "
                                           "4 (monotone spline)");
            }
            key.interp = static_cast<CurveInterp>(mode);
        }
        keys.push_back(key);
    }
    if (parts_.curves.size() > 0xFFFF) fail(token.offset, "too many curves");
    const auto index = static_cast<std::uint32_t>(parts_.curves.size());
    parts_.curves.emplace_back(std::move(keys), color ? 3 : 1);
    Code r = std::move(args[0].code);
    const bool constant = r.isConstant();
    r.vector = color;
    r.ops.push_back(instruction(color ? ExpressionOp::CallVector : ExpressionOp::Call, code, 1, index));
    if (!constant) return r;
    Code folded = fold(r);
    parts_.curves.pop_back();  // a curve read at a constant place is its value there
    return folded;
}

Code Parser::mapCall(const NameToken& token, const ExpressionFunction& row, bool piped) {
    const std::string& name = token.name;
    if (piped) fail(token.offset, name + " takes a map's name in quotes; -> can't give it one");
    if (!scan_.lookingAtQuote()) fail(scan_.here(), name + " takes a map's name in quotes, " + name + "(\"name\")");
    const std::string mapName = scan_.readQuoted();
    int channel = 4;
    if (scan_.take(",")) {
        const std::size_t at = scan_.here();
        if (row.code == kFnCmap) fail(at, name + " takes the map's name alone (it gives r, g, b)");
        if (scan_.lookingAtQuote()) {
            const std::string text = scan_.readQuoted();
            constexpr const char* kChannels[] = {"r", "g", "b", "a", "luminance"};
            channel = -1;
            for (int c = 0; c < 5; ++c) {
                if (text == kChannels[c]) channel = c;
            }
            if (channel < 0) fail(at, "a map's channel is \"r\", \"g\", \"b\", \"a\" or \"luminance\"");
        } else {
            channel = constantWhole(nested(), 0, 4);
            if (channel < 0) fail(at, "a map's channel is 0 (r), 1 (g), 2 (b), 3 (a) or 4 (luminance)");
        }
    }
    if (!scan_.take(")")) fail(scan_.here(), "expected ')' after the arguments of " + name);

    std::vector<std::string>& names = parts_.mapNames;
    std::uint32_t map = 0;
    while (map < names.size() && names[map] != mapName) ++map;
    if (map == names.size()) names.push_back(mapName);
    Code r;
    if (row.code == kFnCmap) {
        r.vector = true;
        r.ops.push_back(instruction(ExpressionOp::CallVector, kFnCmap, 0, map));
        return r;
    }
    const MapProbe probe{map, static_cast<std::uint8_t>(channel)};
    std::vector<MapProbe>& probes = parts_.mapProbes;
    std::uint32_t index = 0;
    while (index < probes.size() && !(probes[index] == probe)) ++index;
    if (index == probes.size()) probes.push_back(probe);
    r.ops.push_back(instruction(ExpressionOp::Call, kFnMap, 0, index));
    return r;
}

}  // namespace tressora::exprc
