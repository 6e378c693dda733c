#pragma once
// The colour model of hair pigment. A fibre's colour follows from how much light its
// pigment absorbs: eumelanin (brown-black) and pheomelanin (red-yellow) each absorb with a
// fixed spectrum, a dye adds its own absorption, and the colour a fibre shows is the
// attenuation through it. The absorption spectra are the measured ones of d'Eon et al.
// (2011); colour and absorption convert with the fit of Chiang et al. (2016) at a medium
// azimuthal roughness, so a colour picked in colour mode and a pigment land on the same
// scale. Pure functions, any thread.

#include "core/vec.h"

namespace tressora {

/// Absorption per unit of fibre for a melanin amount (0 white to 1 black) and the red share
/// of it (0 eumelanin only, 1 pheomelanin only). Inputs are clamped to 0..1.
Vec3f pigmentAbsorption(float melanin, float redness);
/// The colour a fibre of this absorption shows, linear RGB in 0..1.
Vec3f colorFromAbsorption(Vec3f absorption);
/// The absorption that shows as `color` (components clamped to 1e-4..1; white absorbs nothing).
Vec3f absorptionFromColor(Vec3f color);
/// The colour of a pigment dyed by `dye` (white: no dye): the dye's absorption adds to the
/// pigment's.
Vec3f melaninColor(float melanin, float redness, Vec3f dye);
/// The colour a viewport shows for a render colour: the fibre colour lifted (square root) to
/// stand for the light a mass of hair scatters, which flat-drawn curves do not; non-finite
/// components become 0 and the result lies in 0..1.
Vec3f displayColor(Vec3f color);

}  // namespace tressora
