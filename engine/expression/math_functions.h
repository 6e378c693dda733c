#pragma once
// The number functions of the expression library whose rules go beyond one call of
// <cmath>: guarded domains, steps, remapping and shaping curves. All are pure and
// may be called from any thread.

#include <cstdint>

namespace tressora::exprlib {

inline constexpr float kDegreesToRadians = 0.017453292f;
inline constexpr float kRadiansToDegrees = 57.295776f;

/// A whole-number argument: NaN is 0, values are clamped to -1e9..1e9 and truncated.
std::int64_t wholeNumber(float x);

float logGuarded(float x);    ///< natural log through double; 0 for x not above 0
float log10Guarded(float x);  ///< 0 for x not above 0
float sign(float x);          ///< -1, 0 or 1 (NaN gives 0)
float modFloor(float a, float b);   ///< a - b floor(a / b); 0 for b = 0
float fmodGuarded(float a, float b);///< the remainder with a's sign; 0 for b = 0
/// x between min(lo, hi) and max(lo, hi).
float clampRange(float x, float lo, float hi);

/// 0 at a, 1 at b, a straight line between, clamped; a > b flips the direction;
/// a = b is a step at a.
float linearstep(float x, float a, float b);
/// linearstep shaped by t t (3 - 2 t).
float smoothstep(float x, float a, float b);
/// A bell-shaped rise pow(2, -8 s s) from a to b (see the doc line of gaussstep).
float gaussstep(float x, float a, float b);
/// x from a1..b1 onto a2..b2, not clamped; a zero span gives a2.
float fit(float x, float a1, float b1, float a2, float b2);
/// A rise from 0 at t = 0 to 1 at t = 1, t clamped: interp 0 linear, 1 smooth,
/// 2 bell-shaped (as gaussstep); other whole numbers clamp into that range.
float rise(float t, float interp);
/// 1 within `range` of `source`, falling to 0 over `falloff`, shaped by `interp`.
float remap(float x, float source, float range, float falloff, float interp);
float compress(float x, float lo, float hi);  ///< lo + x (hi - lo)
float expand(float x, float lo, float hi);    ///< (x - lo) / (hi - lo), 0 for lo = hi
float gamma(float x, float g);                ///< x ^ (1 / g), 0 for x or g not above 0
/// pow(b, log(x) / log(0.5)) for x, b above 0 and x below 1; 1 for x at or above 1;
/// 0 for x or b at or below 0.
float bias(float x, float b);
/// Perlin's gain: values pushed toward the ends (g > 0.5) or the middle.
float gain(float x, float g);
/// The gain scheme measured from the middle: c > 0.5 steepens the curve at 0.5, c < 0.5
/// flattens it, c = 0.5 is the identity.
float contrast(float x, float c);
/// Catmull-Rom through y[1]..y[n-2] with y[0] and y[n-1] as end controls; t clamped to
/// 0..1. Needs n >= 4 values.
float spline(float t, const float* y, int n);
/// One Catmull-Rom segment between p1 (u = 0) and p2 (u = 1).
float catmullRom(float p0, float p1, float p2, float p3, float u);

}  // namespace tressora::exprlib
