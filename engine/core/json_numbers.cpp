#include "core/json_numbers.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <nlohmann/json.hpp>

namespace tressora {

std::optional<float> finiteFloat(const nlohmann::json& value) {
    if (!value.is_number()) return std::nullopt;
    const double d = value.get<double>();
    constexpr double kLargest = std::numeric_limits<float>::max();
    constexpr double kBoundary = 0x1.ffffffp127;
    if (!(std::fabs(d) < kBoundary)) return std::nullopt;
    return static_cast<float>(std::clamp(d, -kLargest, kLargest));
}

std::optional<std::uint64_t> wholeNumber(const nlohmann::json& value) {
    if (value.is_number_unsigned()) return value.get<std::uint64_t>();
    if (value.is_number_integer() && value.get<std::int64_t>() >= 0) return static_cast<std::uint64_t>(value.get<std::int64_t>());
    return std::nullopt;
}

}  // namespace tressora
