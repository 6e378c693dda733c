#include "core/float_text.h"

#include <charconv>
#include <cmath>

namespace tressora {

std::string floatText(float f) {
    if (std::isnan(f)) return "nan";
    if (std::isinf(f)) return f > 0 ? "inf" : "-inf";
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), f);
    std::string text(buffer, result.ptr);
    if (text == "-0") return "-0.0";
    return text;
}

double shortestDouble(float f) {
    if (!std::isfinite(f)) return f;
    char buffer[32];
    const auto written = std::to_chars(buffer, buffer + sizeof(buffer), f);
    double d = 0.0;
    std::from_chars(buffer, written.ptr, d);
    return std::signbit(f) && d == 0.0 ? -0.0 : d;
}

}  // namespace tressora
