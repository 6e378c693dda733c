#include "expression/math_functions.h"

#include <algorithm>
#include <cmath>

namespace tressora::exprlib {

std::int64_t wholeNumber(float x) {
    if (std::isnan(x)) return 0;
    const float c = std::clamp(x, -1e9f, 1e9f);
    return static_cast<std::int64_t>(c);
}

float logGuarded(float x) {
    if (!(x > 0.0f)) return 0.0f;
    return static_cast<float>(std::log(static_cast<double>(x)));
}

float log10Guarded(float x) { return x > 0.0f ? std::log10(x) : 0.0f; }

float sign(float x) { return x > 0.0f ? 1.0f : (x < 0.0f ? -1.0f : 0.0f); }

float modFloor(float a, float b) {
    if (b == 0.0f) return 0.0f;
    return a - b * std::floor(a / b);
}

float fmodGuarded(float a, float b) { return b == 0.0f ? 0.0f : std::fmod(a, b); }

float clampRange(float x, float lo, float hi) {
    const float low = std::min(lo, hi);
    const float high = std::max(lo, hi);
    return x < low ? low : (x > high ? high : x);
}

float linearstep(float x, float a, float b) {
    if (a == b) return x < a ? 0.0f : 1.0f;
    const float t = (x - a) / (b - a);
    return t <= 0.0f ? 0.0f : (t >= 1.0f ? 1.0f : t);
}

float smoothstep(float x, float a, float b) {
    const float t = linearstep(x, a, b);
    return t * t * (3.0f - 2.0f * t);
}

float gaussstep(float x, float a, float b) {
    if (a == b) return x < a ? 0.0f : 1.0f;
    float s;
    if (a < b) {
        if (x <= a) return 0.0f;
        if (x >= b) return 1.0f;
        s = 1.0f - (x - a) / (b - a);
    } else {
        if (x <= b) return 1.0f;
        if (x > a) return 0.0f;
        s = (x - b) / (a - b);
    }
    return std::pow(2.0f, -8.0f * s * s);
}

float fit(float x, float a1, float b1, float a2, float b2) {
    if (b1 == a1) return a2;
    return a2 + (x - a1) * (b2 - a2) / (b1 - a1);
}

float rise(float t, float interp) {
    t = std::isnan(t) ? 0.0f : std::clamp(t, 0.0f, 1.0f);
    switch (std::clamp<std::int64_t>(wholeNumber(interp), 0, 2)) {
    case 0: return t;
    case 1: return t * t * (3.0f - 2.0f * t);
    default: return gaussstep(t, 0.0f, 1.0f);
    }
}

float remap(float x, float source, float range, float falloff, float interp) {
    const float d = std::fabs(x - source) - std::max(range, 0.0f);
    if (d <= 0.0f) return 1.0f;
    if (!(falloff > 0.0f)) return 0.0f;
    return 1.0f - rise(d / falloff, interp);
}

float compress(float x, float lo, float hi) { return lo + x * (hi - lo); }

float expand(float x, float lo, float hi) { return hi == lo ? 0.0f : (x - lo) / (hi - lo); }

float gamma(float x, float g) {
    if (!(x > 0.0f) || !(g > 0.0f)) return 0.0f;
    return std::pow(x, 1.0f / g);
}

float bias(float x, float b) {
    if (!(x > 0.0f) || !(b > 0.0f)) return 0.0f;
    if (x >= 1.0f) return 1.0f;
    return std::pow(b, std::log(x) / std::log(0.5f));
}

float gain(float x, float g) {
    const float h = 1.0f - g;
    if (x < 0.5f) return bias(h, 2.0f * x) * 0.5f;
    return 1.0f - bias(h, 2.0f - 2.0f * x) * 0.5f;
}

float contrast(float x, float c) {
    if (x < 0.5f) return 0.5f - bias(c, 1.0f - 2.0f * x) * 0.5f;
    return 0.5f + bias(c, 2.0f * x - 1.0f) * 0.5f;
}

float catmullRom(float p0, float p1, float p2, float p3, float u) {
    const float u2 = u * u;
    const float u3 = u2 * u;
    return (2.0f * p1 + (-p0 + p2) * u + (2.0f * p0 - 5.0f * p1 + 4.0f * p2 - p3) * u2 +
            (-p0 + 3.0f * p1 - 3.0f * p2 + p3) * u3) *
           0.5f;
}

float spline(float t, const float* y, int n) {
    if (n < 4) return n > 0 ? y[0] : 0.0f;
    if (std::isnan(t) || t <= 0.0f) return y[1];
    if (t >= 1.0f) return y[n - 2];
    const int segments = n - 3;
    const float s = t * static_cast<float>(segments);
    const int seg = std::min(static_cast<int>(s), segments - 1);
    const float u = s - static_cast<float>(seg);
    return catmullRom(y[seg], y[seg + 1], y[seg + 2], y[seg + 3], u);
}

}  // namespace tressora::exprlib
