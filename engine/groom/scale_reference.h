#pragma once
// The scale reference: how much a groom scales when its scalp is bigger or smaller than the
// one it was made on, and the sentence that tells the user about it.

#include <string>

namespace tressora {

/// The scale source that scales by the scalp's area against `scaleReference`.
inline constexpr const char* kScaleByArea = "scaleReference";
/// The scale source that scales by the transform's scale against `scaleTransformReference`.
inline constexpr const char* kScaleByTransform = "transformScale";

/// The groom's scale factor: by area, the square root of current over reference area; by
/// transform, current over reference scale; 1 for any other source or a reference that is
/// not above 0. A factor within 0.0001 of 1 is 1.
double scaleFactor(const std::string& source, double currentArea, double referenceArea, double transformScale,
                   double transformReference);

/// "Tressora: the scalp's area changed <p>%: the groom scaled x<f>. Set Scale Reference to keep
/// its sizes.", the change in percent with no decimals, the factor with two.
std::string scaleMessage(double currentArea, double referenceArea, double factor);

}  // namespace tressora
