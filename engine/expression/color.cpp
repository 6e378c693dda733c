#include "expression/color.h"

#include <algorithm>
#include <cmath>

#include "expression/math_functions.h"

namespace tressora::exprlib {
namespace {

float clamp01(float x) { return std::isnan(x) ? 0.0f : std::clamp(x, 0.0f, 1.0f); }

float hueChannel(float p, float q, float t) {
    t -= std::floor(t);
    if (t < 1.0f / 6.0f) return p + (q - p) * 6.0f * t;
    if (t < 0.5f) return q;
    if (t < 2.0f / 3.0f) return p + (q - p) * (2.0f / 3.0f - t) * 6.0f;
    return p;
}

}  // namespace

Vec3f rgbToHsl(Vec3f c) {
    const float hi = std::max({c.x, c.y, c.z});
    const float lo = std::min({c.x, c.y, c.z});
    const float l = (hi + lo) * 0.5f;
    const float d = hi - lo;
    if (!(d > 0.0f)) return {0.0f, 0.0f, l};
    const float denominator = l > 0.5f ? 2.0f - hi - lo : hi + lo;
    const float s = denominator > 0.0f ? d / denominator : 0.0f;
    float h;
    if (hi == c.x) {
        h = (c.y - c.z) / d + (c.y < c.z ? 6.0f : 0.0f);
    } else if (hi == c.y) {
        h = (c.z - c.x) / d + 2.0f;
    } else {
        h = (c.x - c.y) / d + 4.0f;
    }
    return {h / 6.0f, s, l};
}

Vec3f hslToRgb(Vec3f hsl) {
    const float h = hsl.x - std::floor(hsl.x);
    const float s = hsl.y, l = hsl.z;
    if (s == 0.0f) return {l, l, l};
    const float q = l < 0.5f ? l * (1.0f + s) : l + s - l * s;
    const float p = 2.0f * l - q;
    return {hueChannel(p, q, h + 1.0f / 3.0f), hueChannel(p, q, h), hueChannel(p, q, h - 1.0f / 3.0f)};
}

Vec3f saturate(Vec3f c, float amount) {
    Vec3f hsl = rgbToHsl(c);
    hsl.y = clamp01(hsl.y * amount);
    return hslToRgb(hsl);
}

Vec3f hsi(Vec3f c, float hueDegrees, float s, float i, float mask) {
    Vec3f hsl = rgbToHsl(c);
    hsl.x += hueDegrees / 360.0f;
    hsl.y = clamp01(hsl.y * s);
    const Vec3f changed = hslToRgb(hsl) * i;
    return c + (changed - c) * clamp01(mask);
}

Vec3f midhsi(Vec3f c, float hueDegrees, float s, float i, float mask, float falloff,
             float interp) {
    const float fromMiddle = std::fabs(2.0f * clamp01(mask) - 1.0f);
    const float weight =
        falloff > 0.0f ? rise(fromMiddle / falloff, interp) : (fromMiddle > 0.0f ? 1.0f : 0.0f);
    return hsi(c, hueDegrees, s, i, weight);
}

}  // namespace tressora::exprlib
