#include "operators/color/pigment.h"

#include <algorithm>
#include <cmath>

namespace tressora {
namespace {

// Absorption spectra per unit concentration (red, green, blue).
constexpr Vec3f kEumelanin{0.419f, 0.697f, 1.37f};
constexpr Vec3f kPheomelanin{0.187f, 0.4f, 1.05f};
// Concentration at melanin 1 (jet black hair); the amount rises with the square of the
// slider so that the blond-to-brown range gets most of its travel.
constexpr float kMaxConcentration = 8.0f;
// Chiang's colour fit at azimuthal roughness 0.3:
// 5.969 - 0.215b + 2.532b^2 - 10.73b^3 + 5.574b^4 + 0.245b^5.
constexpr float kRoughnessTerm = 5.8881f;

float clampUnit(float v) { return std::isfinite(v) ? std::clamp(v, 0.0f, 1.0f) : 0.0f; }

}  // namespace

Vec3f pigmentAbsorption(float melanin, float redness) {
    const float m = clampUnit(melanin), r = clampUnit(redness);
    const float concentration = kMaxConcentration * m * m;
    return kEumelanin * (concentration * (1.0f - r)) + kPheomelanin * (concentration * r);
}

Vec3f colorFromAbsorption(Vec3f absorption) {
    Vec3f c;
    for (int i = 0; i < 3; ++i) c[i] = std::exp(-std::sqrt(std::max(0.0f, absorption[i])) * kRoughnessTerm);
    return c;
}

Vec3f absorptionFromColor(Vec3f color) {
    Vec3f a;
    for (int i = 0; i < 3; ++i) {
        const float c = std::isfinite(color[i]) ? std::clamp(color[i], 1e-4f, 1.0f) : 1.0f;
        const float root = std::log(c) / kRoughnessTerm;
        a[i] = root * root;
    }
    return a;
}

Vec3f melaninColor(float melanin, float redness, Vec3f dye) {
    return colorFromAbsorption(pigmentAbsorption(melanin, redness) + absorptionFromColor(dye));
}

Vec3f displayColor(Vec3f color) {
    Vec3f c;
    for (int i = 0; i < 3; ++i) c[i] = std::sqrt(clampUnit(color[i]));
    return c;
}

}  // namespace tressora
