#pragma once
// Numbers from the command line, by the standard library's conversions, with the runtime's
// messages worded the same on every platform: "invalid stod argument" (std::invalid_argument:
// a bad command line) and "stod argument out of range" (std::out_of_range: exit 1), and the
// same for stof and stoi.

#include <string>

namespace tressora::cli {

double argumentDouble(const std::string& text);
float argumentFloat(const std::string& text);
/// The whole text must be the number ("12x" is invalid).
int argumentInt(const std::string& text);

}  // namespace tressora::cli
