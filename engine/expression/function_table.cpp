// The rows of the function library: names, argument rules, defaults and doc lines.

#include <initializer_list>

#include "expression/functions.h"

namespace tressora {
namespace {

using G = FunctionGroup;

constexpr ExpressionFunction fn(std::uint8_t code, std::string_view name, std::string_view args,
                                std::string_view doc, int minArgs, int maxArgs,
                                G group = G::Number, std::string_view signature = {},
                                int width = 1, std::initializer_list<float> defaults = {}) {
    ExpressionFunction f;
    f.code = code;
    f.name = name;
    f.args = args;
    f.doc = doc;
    f.minArgs = minArgs;
    f.maxArgs = maxArgs;
    f.group = group;
    // The number functions of the first releases kept their codes as list positions.
    f.legacyIndex = code < kFnDot ? code : -1;
    f.signature = signature;
    f.resultWidth = width;
    for (float d : defaults) f.defaults[static_cast<std::size_t>(f.defaultCount++)] = d;
    return f;
}

constexpr ExpressionFunction kRows[] = {
    fn(kFnSin, "sin", "x", "Sine of x (radians)", 1, 1),
    fn(kFnCos, "cos", "x", "Cosine of x (radians)", 1, 1),
    fn(kFnTan, "tan", "x", "Tangent of x (radians)", 1, 1),
    fn(kFnAsin, "asin", "x", "Arc sine in radians (x clamped to -1..1)", 1, 1),
    fn(kFnAcos, "acos", "x", "Arc cosine in radians (x clamped to -1..1)", 1, 1),
    fn(kFnAtan, "atan", "x", "Arc tangent in radians", 1, 1),
    fn(kFnAtan2, "atan2", "y, x", "The angle of the point (x, y) in radians", 2, 2),
    fn(kFnSind, "sind", "x", "Sine of x degrees", 1, 1),
    fn(kFnCosd, "cosd", "x", "Cosine of x degrees", 1, 1),
    fn(kFnTand, "tand", "x", "Tangent of x degrees", 1, 1),
    fn(kFnAsind, "asind", "x", "Arc sine in degrees (x clamped to -1..1)", 1, 1),
    fn(kFnAcosd, "acosd", "x", "Arc cosine in degrees (x clamped to -1..1)", 1, 1),
    fn(kFnAtand, "atand", "x", "Arc tangent in degrees", 1, 1),
    fn(kFnAtan2d, "atan2d", "y, x", "The angle of the point (x, y) in degrees", 2, 2),
    fn(kFnSinh, "sinh", "x", "Hyperbolic sine", 1, 1),
    fn(kFnCosh, "cosh", "x", "Hyperbolic cosine", 1, 1),
    fn(kFnTanh, "tanh", "x", "Hyperbolic tangent", 1, 1),
    fn(kFnAsinh, "asinh", "x", "Inverse hyperbolic sine", 1, 1),
    fn(kFnAcosh, "acosh", "x", "Inverse hyperbolic cosine (0 below 1)", 1, 1),
    fn(kFnAtanh, "atanh", "x", "Inverse hyperbolic tangent (0 outside -1..1)", 1, 1),
    fn(kFnAbs, "abs", "x", "The value without its sign", 1, 1),
    fn(kFnSqrt, "sqrt", "x", "Square root (0 for negative x)", 1, 1),
    fn(kFnCbrt, "cbrt", "x", "Cube root, keeping the sign", 1, 1),
    fn(kFnPow, "pow", "a, b", "a to the power b", 2, 2),
    fn(kFnExp, "exp", "x", "e to the power x", 1, 1),
    fn(kFnLog, "log", "x", "Natural logarithm (0 for x not above 0)", 1, 1),
    fn(kFnLog10, "log10", "x", "Base-10 logarithm (0 for x not above 0)", 1, 1),
    fn(kFnHypot, "hypot", "x, y", "The length of (x, y)", 2, 2),
    fn(kFnFloor, "floor", "x", "The whole number at or below x", 1, 1),
    fn(kFnCeil, "ceil", "x", "The whole number at or above x", 1, 1),
    fn(kFnRound, "round", "x", "The nearest whole number (halves away from 0)", 1, 1),
    fn(kFnTrunc, "trunc", "x", "x without its fraction", 1, 1),
    fn(kFnFract, "fract", "x", "x minus floor(x): 0 up to 1", 1, 1),
    fn(kFnSign, "sign", "x", "-1, 0 or 1 by the sign of x", 1, 1),
    fn(kFnMin, "min", "a, b", "The smaller of a and b", 2, 2),
    fn(kFnMax, "max", "a, b", "The larger of a and b", 2, 2),
    fn(kFnMod, "mod", "a, b", "a - b floor(a / b): the sign of b (0 for b = 0)", 2, 2),
    fn(kFnFmod, "fmod", "a, b", "The remainder of a / b with a's sign (0 for b = 0)", 2, 2),
    fn(kFnRadians, "radians", "deg", "Degrees to radians (also rad)", 1, 1),
    fn(kFnDegrees, "degrees", "rad", "Radians to degrees (also deg)", 1, 1),
    fn(kFnInvert, "invert", "x", "1 - x", 1, 1),
    fn(kFnClamp, "clamp", "x, lo, hi", "x kept between lo and hi", 3, 3),
    fn(kFnMix, "mix", "a, b, t", "a + (b - a) t, t not clamped", 3, 3),
    fn(kFnLerp, "lerp", "a, b, t", "a + (b - a) t, t not clamped", 3, 3),
    fn(kFnStep, "step", "edge, x", "0 below edge, 1 from it on", 2, 2),
    fn(kFnBoxstep, "boxstep", "x, a", "0 below a, 1 from it on", 2, 2),
    fn(kFnLinearstep, "linearstep", "x, a, b", "0 below a, 1 above b, a straight line in between", 3, 3),
    fn(kFnSmoothstep, "smoothstep", "x, a, b", "0 below a, 1 above b, smooth in between", 3, 3),
    fn(kFnGaussstep, "gaussstep", "x, a, b", "0 below a, 1 above b, a bell-shaped rise in between", 3, 3),
    fn(kFnFit, "fit", "x, a1, b1, a2, b2", "x from a1..b1 onto a2..b2 (not clamped)", 5, 5),
    fn(kFnRemap, "remap", "x, source, range, falloff, interp",
       "1 within range of source, falling to 0 over the falloff", 4, 5, G::Number, {}, 1, {0}),
    fn(kFnCompress, "compress", "x, lo, hi", "0-1 onto lo..hi", 3, 3),
    fn(kFnExpand, "expand", "x, lo, hi", "lo..hi onto 0-1", 3, 3),
    fn(kFnGamma, "gamma", "x, g", "x to the power 1/g", 2, 2),
    fn(kFnBias, "bias", "x, b", "Pushes 0-1 values up (b > 0.5) or down", 2, 2),
    fn(kFnGain, "gain", "x, g", "Pushes 0-1 values toward the ends (g > 0.5) or the middle", 2, 2),
    fn(kFnContrast, "contrast", "x, c", "More contrast around 0.5 (c > 0.5) or less", 2, 2),
    fn(kFnRand, "rand", "[min, max[, seed]]",
       "A stable random number per strand: 0-1, or min to max (rand(seed): 0-1 per seed)", 0, 3,
       G::NumberRule),
    fn(kFnHash, "hash", "a, b, ...", "A random 0-1 value from the numbers alone", 1, 64, G::NumberRule),
    fn(kFnNoise, "noise", "p",
       "Smooth noise, 0 to 1 (also noise(x, y), noise(x, y, z), noise(x, y, z, w))", 1, 4,
       G::Signature, "p"),
    fn(kFnSnoise, "snoise", "p", "Smooth noise, -1 to 1", 1, 1, G::Signature, "p"),
    fn(kFnVnoise, "vnoise", "p", "Vector noise, each -1 to 1", 1, 1, G::Signature, "p", 3),
    fn(kFnCnoise, "cnoise", "p", "Vector noise, each 0 to 1", 1, 1, G::Signature, "p", 3),
    fn(kFnSnoise4, "snoise4", "p, t", "4D noise, -1 to 1", 2, 2, G::Signature, "ps"),
    fn(kFnVnoise4, "vnoise4", "p, t", "4D vector noise, -1 to 1", 2, 2, G::Signature, "ps", 3),
    fn(kFnCnoise4, "cnoise4", "p, t", "4D vector noise, 0 to 1", 2, 2, G::Signature, "ps", 3),
    fn(kFnPnoise, "pnoise", "p, period", "Noise repeating every period cells, -1 to 1", 2, 2,
       G::Signature, "pp"),
    fn(kFnFbm, "fbm", "p, octaves, lacunarity, gain", "Fractal noise around 0.5 (6, 2, 0.5 when left out)",
       1, 4, G::Signature, "psss", 1, {6, 2, 0.5f}),
    fn(kFnVfbm, "vfbm", "p, octaves, lacunarity, gain", "Fractal vector noise around 0", 1, 4,
       G::Signature, "psss", 3, {6, 2, 0.5f}),
    fn(kFnCfbm, "cfbm", "p, octaves, lacunarity, gain", "Fractal vector noise around 0.5", 1, 4,
       G::Signature, "psss", 3, {6, 2, 0.5f}),
    fn(kFnTurbulence, "turbulence", "p, octaves, lacunarity, gain", "Fractal |noise|, 0.5 and up: creased",
       1, 4, G::Signature, "psss", 1, {6, 2, 0.5f}),
    fn(kFnVturbulence, "vturbulence", "p, octaves, lacunarity, gain", "Fractal |vector noise|", 1, 4,
       G::Signature, "psss", 3, {6, 2, 0.5f}),
    fn(kFnCturbulence, "cturbulence", "p, octaves, lacunarity, gain",
       "Fractal |vector noise|, 0.5 and up", 1, 4, G::Signature, "psss", 3, {6, 2, 0.5f}),
    fn(kFnFbm4, "fbm4", "p, t, octaves, lacunarity, gain", "4D fractal noise around 0.5", 2, 5,
       G::Signature, "pssss", 1, {6, 2, 0.5f}),
    fn(kFnVfbm4, "vfbm4", "p, t, octaves, lacunarity, gain", "4D fractal vector noise around 0", 2, 5,
       G::Signature, "pssss", 3, {6, 2, 0.5f}),
    fn(kFnCfbm4, "cfbm4", "p, t, octaves, lacunarity, gain", "4D fractal vector noise around 0.5", 2, 5,
       G::Signature, "pssss", 3, {6, 2, 0.5f}),
    fn(kFnCellnoise, "cellnoise", "p", "One random 0-1 value per unit cell", 1, 1, G::Signature, "p"),
    fn(kFnCcellnoise, "ccellnoise", "p", "One random 0-1 vector per unit cell", 1, 1, G::Signature,
       "p", 3),
    fn(kFnVoronoi, "voronoi", "p, type, jitter, fbmScale, fbmOctaves, fbmLacunarity, fbmGain",
       "Cells: type 1 a value per cell, 2 nearest distance, 3 second nearest, 4 their gap, 5 edges", 1,
       7, G::Signature, "pssssss", 1, {1, 0.5f, 0, 4, 2, 0.5f}),
    fn(kFnCvoronoi, "cvoronoi", "p, type, jitter, fbmScale, fbmOctaves, fbmLacunarity, fbmGain",
       "voronoi with a random color per cell", 1, 7, G::Signature, "pssssss", 3,
       {1, 0.5f, 0, 4, 2, 0.5f}),
    fn(kFnPvoronoi, "pvoronoi", "p, jitter, fbmScale, fbmOctaves, fbmLacunarity, fbmGain",
       "The nearest cell point", 1, 6, G::Signature, "psssss", 3, {0.5f, 0, 4, 2, 0.5f}),
    fn(kFnDot, "dot", "a, b", "Dot product of two vectors", 2, 2, G::Signature, "vv"),
    fn(kFnCross, "cross", "a, b", "Cross product: a vector", 2, 2, G::Signature, "vv", 3),
    fn(kFnLength, "length", "v", "A vector's length", 1, 1, G::Signature, "v"),
    fn(kFnNormalize, "normalize", "v", "The vector at length 1 (also norm)", 1, 1, G::Signature, "v", 3),
    fn(kFnDistance, "distance", "a, b", "Distance between two points (also dist)", 2, 2, G::Signature, "pp"),
    fn(kFnAngle, "angle", "a, b", "The angle between two vectors (radians)", 2, 2, G::Signature, "vv"),
    fn(kFnOrtho, "ortho", "a, b", "The unit vector at right angles to both", 2, 2, G::Signature, "vv", 3),
    fn(kFnRotate, "rotate", "v, axis, angle", "v turned around an axis (radians)", 3, 3, G::Signature,
       "vvs", 3),
    fn(kFnUp, "up", "v, upvec", "v turned so that +Y points along upvec", 2, 2, G::Signature, "vv", 3),
    fn(kFnRgbToHsl, "rgbtohsl", "c", "RGB to hue (0-1), saturation, lightness", 1, 1, G::Signature, "v", 3),
    fn(kFnHslToRgb, "hsltorgb", "c", "Hue, saturation, lightness to RGB", 1, 1, G::Signature, "v", 3),
    fn(kFnHsi, "hsi", "c, h, s, i, mask", "Hue shift (degrees), saturation and intensity scale", 4, 5,
       G::Signature, "vssss", 3, {1}),
    fn(kFnMidHsi, "midhsi", "c, h, s, i, mask, falloff, interp", "hsi weighted toward the mask's ends", 5,
       7, G::Signature, "vssssss", 3, {1, 0}),
    fn(kFnSaturate, "saturate", "c, amount", "Saturation scale", 2, 2, G::Signature, "vs", 3),
    fn(kFnCurve, "curve", "t, p0, v0, i0, p1, v1, i1, ...",
       "A curve through keys (position, value, interpolation 0 none, 1 linear, 2 smooth, 3 spline, 4 monotone)",
       4, 64, G::Curve),
    fn(kFnCcurve, "ccurve", "t, p0, c0, i0, ...", "curve with colors", 4, 64, G::Curve, {}, 3),
    fn(kFnLinearcurve, "linearcurve", "t, p0, v0, p1, v1, ...",
       "Straight segments through keys (position, value)", 3, 64, G::Curve),
    fn(kFnSpline, "spline", "t, y1, y2, y3, y4, ...",
       "A smooth curve through y2..y(n-1), y1 and yn its end controls", 5, 64, G::NumberRule),
    fn(kFnPick, "pick", "index, lo, hi, weights...", "A whole number lo to hi from a hash of index", 3, 64,
       G::NumberRule),
    fn(kFnChoose, "choose", "t, a, b, ...", "The argument t (0 to 1) falls on", 2, 64, G::NumberRule),
    fn(kFnWchoose, "wchoose", "t, a, wa, b, wb, ...", "choose, by weights", 3, 64, G::NumberRule),
    fn(kFnCycle, "cycle", "index, lo, hi", "lo + index, wrapped into lo to hi", 3, 3),
    fn(kFnMap, "map", "\"name\", \"channel\"",
       "The groom's map of that name at the root (luminance, or r g b a)", 1, 2, G::Map),
    fn(kFnCmap, "cmap", "\"name\"", "The map's color as a vector (also vmap)", 1, 1, G::Map, {}, 3),
    // Internal variants the compiler picks by the arguments given.
    fn(kFnRandRange, "rand range", "min, max[, seed]", "rand onto min..max", 2, 3, G::NumberRule),
    fn(kFnNoise4, "noise 4", "x, y, z, w", "noise of a 4D point, 0 to 1", 4, 4),
    fn(kFnIndexOf, "index of", "v, i", "Component i of v, i a whole number 0 to 2", 2, 2, G::Signature, "vs"),
    fn(kFnNoiseXyz, "noise xyz", "x, y[, z]", "noise of (x, y, z), z 0 when left out", 2, 3),
    fn(kFnCurvePairs, "curve pairs", "t, p0, v0, p1, v1, ...", "curve with keys of two, straight between",
       3, 64, G::Curve),
};
static_assert(std::size(kRows) == kFunctionCount, "one row per function code");

struct CodeIndex {
    std::uint8_t row[kFunctionCount] = {};
    constexpr CodeIndex() {
        for (std::size_t i = 0; i < kFunctionCount; ++i) row[kRows[i].code] = static_cast<std::uint8_t>(i);
    }
};
constexpr CodeIndex kCodeIndex;

constexpr bool everyCodeOnce() {
    bool seen[kFunctionCount] = {};
    for (const ExpressionFunction& f : kRows) {
        if (f.code >= kFunctionCount || seen[f.code]) return false;
        seen[f.code] = true;
    }
    return true;
}
static_assert(everyCodeOnce(), "function codes are 0 to 109, each once");

}  // namespace

std::span<const ExpressionFunction> expressionFunctions() { return kRows; }

const ExpressionFunction& expressionFunction(std::uint8_t code) { return kRows[kCodeIndex.row[code]]; }

const ExpressionFunction* findExpressionFunction(std::string_view name) {
    if (name == "rad") name = "radians";
    else if (name == "deg") name = "degrees";
    else if (name == "norm") name = "normalize";
    else if (name == "dist") name = "distance";
    else if (name == "vmap") name = "cmap";
    if (name.find(' ') != std::string_view::npos) return nullptr;
    for (const ExpressionFunction& f : kRows) {
        if (f.name == name) return &f;
    }
    return nullptr;
}

}  // namespace tressora
