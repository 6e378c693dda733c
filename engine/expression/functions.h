#pragma once
// The function library's table: one row per function callable from expressions and
// scripts. The compiler takes argument counts, kinds, defaults and result type from it,
// the documentation its argument text and doc line.

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "expression/environment.h"

namespace tressora {

/// The `code` of a Call or CallVector instruction: a row of the table.
enum FunctionCode : std::uint8_t {
    kFnSin = 0, kFnCos = 1, kFnTan = 2, kFnAsin = 3, kFnAcos = 4, kFnAtan = 5, kFnAbs = 6,
    kFnSqrt = 7, kFnFloor = 8, kFnCeil = 9, kFnFract = 10, kFnExp = 11, kFnLog = 12,
    kFnSign = 13, kFnPow = 14, kFnAtan2 = 15, kFnMin = 16, kFnMax = 17, kFnMod = 18,
    kFnStep = 19, kFnRand = 20, kFnClamp = 21, kFnMix = 22, kFnSmoothstep = 23, kFnNoise = 24,
    kFnRound = 25, kFnTrunc = 26, kFnRadians = 27, kFnDegrees = 28, kFnGamma = 29, kFnBias = 30,
    kFnGain = 31, kFnLerp = 32, kFnLinearstep = 33, kFnFit = 34, kFnRemap = 35, kFnSinh = 36,
    kFnCosh = 37, kFnTanh = 38, kFnAsinh = 39, kFnAcosh = 40, kFnAtanh = 41, kFnCbrt = 42,
    kFnLog10 = 43, kFnFmod = 44, kFnHypot = 45, kFnInvert = 46, kFnCosd = 47, kFnSind = 48,
    kFnTand = 49, kFnAcosd = 50, kFnAsind = 51, kFnAtand = 52, kFnAtan2d = 53, kFnCompress = 54,
    kFnExpand = 55, kFnContrast = 56, kFnBoxstep = 57, kFnGaussstep = 58, kFnChoose = 59,
    kFnWchoose = 60, kFnSpline = 61, kFnHash = 62, kFnPick = 63, kFnCycle = 64,
    kFnRandRange = 65, kFnNoise4 = 66, kFnDot = 67, kFnCross = 68, kFnLength = 69,
    kFnNormalize = 70, kFnDistance = 71, kFnRotate = 72, kFnAngle = 73, kFnOrtho = 74,
    kFnUp = 75, kFnIndexOf = 76, kFnRgbToHsl = 77, kFnHslToRgb = 78, kFnSaturate = 79,
    kFnHsi = 80, kFnMidHsi = 81, kFnNoiseXyz = 82, kFnSnoise = 83, kFnVnoise = 84,
    kFnCnoise = 85, kFnSnoise4 = 86, kFnVnoise4 = 87, kFnCnoise4 = 88, kFnFbm = 89,
    kFnVfbm = 90, kFnCfbm = 91, kFnTurbulence = 92, kFnVturbulence = 93, kFnCturbulence = 94,
    kFnFbm4 = 95, kFnVfbm4 = 96, kFnCfbm4 = 97, kFnCellnoise = 98, kFnCcellnoise = 99,
    kFnPnoise = 100, kFnVoronoi = 101, kFnCvoronoi = 102, kFnPvoronoi = 103, kFnCurve = 104,
    kFnCcurve = 105, kFnCurvePairs = 106, kFnLinearcurve = 107, kFnMap = 108, kFnCmap = 109,
    kFunctionCount = 110
};

/// How the compiler checks a function's arguments.
enum class FunctionGroup : std::uint8_t {
    Number = 0,        ///< numbers only, a fixed range of counts
    NumberRule = 1,    ///< numbers, with a rule of its own (rand, hash, choose, ...)
    Signature = 2,     ///< arguments by `signature`: p point, s number, v vector
    Curve = 3,         ///< t, then keys fixed at compile time
    Map = 4,           ///< a map's name in quotes
};

/// One row of the table.
struct ExpressionFunction {
    std::uint8_t code = 0;
    std::string_view name;       ///< as written in source; internal variants hold a blank
    std::string_view args;       ///< argument text for the documentation
    std::string_view doc;        ///< one-line doc
    int minArgs = 0;
    int maxArgs = 0;             ///< 64 at most
    FunctionGroup group = FunctionGroup::Number;
    int legacyIndex = -1;        ///< position in the number-function list of old files, -1 none
    std::string_view signature;  ///< one letter per argument; empty: all numbers
    int resultWidth = 1;         ///< 1 number, 3 vector
    std::array<float, 6> defaults{};  ///< defaults[k] fills a missing argument minArgs + k
    int defaultCount = 0;
};

/// The table, 110 rows, in documentation order.
std::span<const ExpressionFunction> expressionFunctions();

/// The row of `name` (after the aliases rad, deg, norm, dist, vmap), or null.
const ExpressionFunction* findExpressionFunction(std::string_view name);

/// The row of a code. Precondition: code < kFunctionCount.
const ExpressionFunction& expressionFunction(std::uint8_t code);

/// Runs number function `code` on `count` floats (vector arguments take three each).
/// May return a non-finite value; the Call instruction replaces it by 0. The curve and
/// map families need the expression's tables and are run by the interpreter (0 here).
/// Pure apart from reading env; safe on any number of threads.
float evalNumberFunction(std::uint8_t code, const float* args, int count,
                         const ExpressionEnvironment& env);

/// Runs vector function `code` on `count` floats and writes three floats to out.
/// Components may be non-finite; CallVector replaces each by 0. Same rules as above.
void evalVectorFunction(std::uint8_t code, const float* args, int count,
                        const ExpressionEnvironment& env, float* out);

}  // namespace tressora
