#pragma once
// Floats in text formats: the shortest decimal that reads back as the same float.

#include <string>

namespace tressora {

/// The shortest decimal text that reads back as exactly f ("0.1", "-0.0", "1e-07"); "nan",
/// "inf" and "-inf" for the values that have no decimal form.
std::string floatText(float f);

/// The double nearest to f's shortest decimal text, for JSON writers that print doubles in
/// their own shortest form: 0.1f becomes 0.1 rather than 0.10000000149011612. Reading the
/// written number back as a float gives f again. Non-finite values pass through unchanged.
double shortestDouble(float f);

}  // namespace tressora
