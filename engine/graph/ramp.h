#pragma once
// Evaluating a Ramp: the curve through its keys at a position.

#include "graph/param_value.h"

namespace tressora {

/// The ramp's value at x. Outside the keys the end values hold; no keys give 0. A linear
/// ramp joins keys by straight lines; a smooth one by a monotone cubic through them, which
/// never overshoots between two keys.
double evaluateRamp(const Ramp& ramp, double x);

}  // namespace tressora
