// Dispatch of Call and CallVector codes to the library's functions.

#include "expression/functions.h"

#include <algorithm>
#include <cmath>

#include "expression/color.h"
#include "expression/math_functions.h"
#include "expression/noise.h"
#include "expression/random_functions.h"
#include "expression/vector_functions.h"
#include "expression/voronoi.h"

namespace tressora {
namespace {

using namespace exprlib;

inline double d(float x) { return static_cast<double>(x); }
inline float f(double x) { return static_cast<float>(x); }
inline Vec3f vec(const float* a) { return {a[0], a[1], a[2]}; }
inline void store(Vec3f v, float* out) {
    out[0] = v.x;
    out[1] = v.y;
    out[2] = v.z;
}
inline float clampUnit(float x) { return std::clamp(x, -1.0f, 1.0f); }

VoronoiSettings voronoiSettings(const float* a) {
    VoronoiSettings s;
    s.jitter = a[0];
    s.fbmScale = a[1];
    s.fbm = fractalSettings(a[2], a[3], a[4]);
    return s;
}

float noiseNumber(const float* p) {
    float v;
    perlin3(p, kSnoiseSeed, 1, &v);
    return v;
}

}  // namespace

float evalNumberFunction(std::uint8_t code, const float* a, int count, const ExpressionEnvironment& env) {
    switch (code) {
    case kFnSin: return f(std::sin(d(a[0])));
    case kFnCos: return f(std::cos(d(a[0])));
    case kFnTan: return f(std::tan(d(a[0])));
    case kFnAsin: return std::asin(clampUnit(a[0]));
    case kFnAcos: return std::acos(clampUnit(a[0]));
    case kFnAtan: return std::atan(a[0]);
    case kFnAtan2: return std::atan2(a[0], a[1]);
    case kFnSind: return f(std::sin(d(a[0] * kDegreesToRadians)));
    case kFnCosd: return f(std::cos(d(a[0] * kDegreesToRadians)));
    case kFnTand: return f(std::tan(d(a[0] * kDegreesToRadians)));
    case kFnAsind: return std::asin(clampUnit(a[0])) * kRadiansToDegrees;
    case kFnAcosd: return std::acos(clampUnit(a[0])) * kRadiansToDegrees;
    case kFnAtand: return std::atan(a[0]) * kRadiansToDegrees;
    case kFnAtan2d: return std::atan2(a[0], a[1]) * kRadiansToDegrees;
    case kFnSinh: return std::sinh(a[0]);
    case kFnCosh: return std::cosh(a[0]);
    case kFnTanh: return std::tanh(a[0]);
    case kFnAsinh: return std::asinh(a[0]);
    case kFnAcosh: return std::acosh(std::max(a[0], 1.0f));
    case kFnAtanh: return std::fabs(a[0]) < 1.0f ? std::atanh(a[0]) : 0.0f;
    case kFnAbs: return std::fabs(a[0]);
    case kFnSqrt: return std::sqrt(std::max(a[0], 0.0f));
    case kFnCbrt: return std::cbrt(a[0]);
    case kFnPow: return f(std::pow(d(a[0]), d(a[1])));
    case kFnExp: return f(std::exp(d(a[0])));
    case kFnLog: return logGuarded(a[0]);
    case kFnLog10: return log10Guarded(a[0]);
    case kFnHypot: return std::hypot(a[0], a[1]);
    case kFnFloor: return std::floor(a[0]);
    case kFnCeil: return std::ceil(a[0]);
    case kFnRound: return std::round(a[0]);
    case kFnTrunc: return std::trunc(a[0]);
    case kFnFract: return a[0] - std::floor(a[0]);
    case kFnSign: return sign(a[0]);
    case kFnMin: return std::min(a[0], a[1]);
    case kFnMax: return std::max(a[0], a[1]);
    case kFnMod: return modFloor(a[0], a[1]);
    case kFnFmod: return fmodGuarded(a[0], a[1]);
    case kFnRadians: return a[0] * kDegreesToRadians;
    case kFnDegrees: return a[0] * kRadiansToDegrees;
    case kFnInvert: return 1.0f - a[0];
    case kFnClamp: return clampRange(a[0], a[1], a[2]);
    case kFnMix:
    case kFnLerp: return a[0] + (a[1] - a[0]) * a[2];
    case kFnStep: return a[1] < a[0] ? 0.0f : 1.0f;
    case kFnBoxstep: return a[0] < a[1] ? 0.0f : 1.0f;
    case kFnLinearstep: return linearstep(a[0], a[1], a[2]);
    case kFnSmoothstep: return smoothstep(a[0], a[1], a[2]);
    case kFnGaussstep: return gaussstep(a[0], a[1], a[2]);
    case kFnFit: return fit(a[0], a[1], a[2], a[3], a[4]);
    case kFnRemap: return remap(a[0], a[1], a[2], a[3], count > 4 ? a[4] : 0.0f);
    case kFnCompress: return compress(a[0], a[1], a[2]);
    case kFnExpand: return expand(a[0], a[1], a[2]);
    case kFnGamma: return gamma(a[0], a[1]);
    case kFnBias: return bias(a[0], a[1]);
    case kFnGain: return gain(a[0], a[1]);
    case kFnContrast: return contrast(a[0], a[1]);
    case kFnRand:
        return count == 0 ? env.slots[kSlotRand] : randSeeded(env.slots[kSlotRand], a[0]);
    case kFnRandRange: {
        const float u = count >= 3 ? randSeeded(env.slots[kSlotRand], a[2]) : env.slots[kSlotRand];
        return a[0] + (a[1] - a[0]) * u;
    }
    case kFnHash: return hashNumbers(a, count);
    case kFnSpline: return spline(a[0], a + 1, count - 1);
    case kFnPick: return pick(a[0], a[1], a[2], a + 3, count - 3);
    case kFnChoose: return choose(a[0], a + 1, count - 1);
    case kFnWchoose: return wchoose(a[0], a + 1, (count - 1) / 2);
    case kFnCycle: return cycle(a[0], a[1], a[2]);
    case kFnNoise: return noiseNumber(a) * 0.5f + 0.5f;
    case kFnNoiseXyz: {
        const float p[3] = {a[0], a[1], count > 2 ? a[2] : 0.0f};
        return noiseNumber(p) * 0.5f + 0.5f;
    }
    case kFnNoise4: {
        float v;
        perlin4(a, a[3], kSnoiseSeed, 1, &v);
        return v * 0.5f + 0.5f;
    }
    case kFnSnoise: return noiseNumber(a);
    case kFnSnoise4: {
        float v;
        perlin4(a, a[3], kSnoiseSeed, 1, &v);
        return v;
    }
    case kFnPnoise: {
        float v;
        periodicPerlin3(a, a + 3, kSnoiseSeed, 1, &v);
        return v;
    }
    case kFnFbm:
    case kFnTurbulence: {
        float v;
        const bool turbulence = code == kFnTurbulence;
        fractal3(a, kSnoiseSeed, 1, fractalSettings(a[3], a[4], a[5]), turbulence, &v);
        return turbulence ? v + 0.5f : v * 0.5f + 0.5f;
    }
    case kFnFbm4: {
        float v;
        fractal4(a, a[3], kSnoiseSeed, 1, fractalSettings(a[4], a[5], a[6]), false, &v);
        return v * 0.5f + 0.5f;
    }
    case kFnCellnoise: return cellnoise(a);
    case kFnVoronoi: return voronoi(a, a[3], voronoiSettings(a + 4));
    case kFnDot: return dot(vec(a), vec(a + 3));
    case kFnLength: return length(vec(a));
    case kFnDistance: return length(vec(a) - vec(a + 3));
    case kFnAngle: return angleBetween(vec(a), vec(a + 3));
    case kFnIndexOf: return a[std::clamp<std::int64_t>(wholeNumber(a[3]), 0, 2)];
    default: return 0.0f;
    }
}

// Every vector function has a fixed layout of arguments and reads nothing of the environment.
void evalVectorFunction(std::uint8_t code, const float* a, int /*count*/, const ExpressionEnvironment& /*env*/,
                        float* out) {
    switch (code) {
    case kFnVnoise: perlin3(a, kVnoiseSeed, 3, out); return;
    case kFnCnoise:
        perlin3(a, kVnoiseSeed, 3, out);
        break;
    case kFnVnoise4: perlin4(a, a[3], kVnoiseSeed, 3, out); return;
    case kFnCnoise4:
        perlin4(a, a[3], kVnoiseSeed, 3, out);
        break;
    case kFnVfbm: fractal3(a, kVnoiseSeed, 3, fractalSettings(a[3], a[4], a[5]), false, out); return;
    case kFnCfbm:
        fractal3(a, kVnoiseSeed, 3, fractalSettings(a[3], a[4], a[5]), false, out);
        break;
    case kFnVturbulence:
        fractal3(a, kVnoiseSeed, 3, fractalSettings(a[3], a[4], a[5]), true, out);
        return;
    case kFnCturbulence:
        fractal3(a, kVnoiseSeed, 3, fractalSettings(a[3], a[4], a[5]), true, out);
        for (int k = 0; k < 3; ++k) out[k] += 0.5f;
        return;
    case kFnVfbm4: fractal4(a, a[3], kVnoiseSeed, 3, fractalSettings(a[4], a[5], a[6]), false, out); return;
    case kFnCfbm4:
        fractal4(a, a[3], kVnoiseSeed, 3, fractalSettings(a[4], a[5], a[6]), false, out);
        break;
    case kFnCcellnoise: ccellnoise(a, out); return;
    case kFnCvoronoi: cvoronoi(a, a[3], voronoiSettings(a + 4), out); return;
    case kFnPvoronoi: pvoronoi(a, voronoiSettings(a + 3), out); return;
    case kFnCross: store(cross(vec(a), vec(a + 3)), out); return;
    case kFnNormalize: store(normalized(vec(a)), out); return;
    case kFnOrtho: store(normalized(cross(vec(a), vec(a + 3))), out); return;
    case kFnRotate: store(rotate(vec(a), vec(a + 3), a[6]), out); return;
    case kFnUp: store(turnUp(vec(a), vec(a + 3)), out); return;
    case kFnRgbToHsl: store(rgbToHsl(vec(a)), out); return;
    case kFnHslToRgb: store(hslToRgb(vec(a)), out); return;
    case kFnSaturate: store(saturate(vec(a), a[3]), out); return;
    case kFnHsi: store(hsi(vec(a), a[3], a[4], a[5], a[6]), out); return;
    case kFnMidHsi: store(midhsi(vec(a), a[3], a[4], a[5], a[6], a[7], a[8]), out); return;
    default: out[0] = out[1] = out[2] = 0.0f; return;
    }
    // The colour forms: a -1..1 noise moved to 0..1.
    for (int k = 0; k < 3; ++k) out[k] = out[k] * 0.5f + 0.5f;
}

}  // namespace tressora
