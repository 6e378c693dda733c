#pragma once
// Colour functions of the expression library. Colours are linear RGB triples; hue is
// 0 to 1 around the wheel, saturation and lightness as in the HSL model.

#include "core/vec.h"

namespace tressora::exprlib {

Vec3f rgbToHsl(Vec3f rgb);
/// The hue is wrapped into 0..1 first.
Vec3f hslToRgb(Vec3f hsl);
/// The colour with its HSL saturation scaled by amount (kept within 0..1).
Vec3f saturate(Vec3f c, float amount);
/// Hue shifted by hueDegrees, saturation scaled by s (kept within 0..1), the result scaled
/// by the intensity factor i, mixed with c by mask (clamped to 0..1).
Vec3f hsi(Vec3f c, float hueDegrees, float s, float i, float mask);
/// hsi whose mask weighs most at its ends: the weight rises from 0 at a mask of 0.5 to 1
/// at 0 and 1, over `falloff` of that half range, shaped by interp (0 linear, 1 smooth,
/// 2 bell-shaped); a falloff not above 0 is a step.
Vec3f midhsi(Vec3f c, float hueDegrees, float s, float i, float mask, float falloff,
             float interp);

}  // namespace tressora::exprlib
