#pragma once
// Numbers read from JSON documents as the program stores them. A JSON number may be too big
// for a float (1e39), or be a fraction where a whole number belongs; converting such values
// blindly gives infinities or undefined results, so readers take them through these checks.

#include <cstdint>
#include <optional>

#include <nlohmann/json_fwd.hpp>

namespace tressora {

/// The value as a finite float, or nothing for anything else: not a number, or beyond the
/// float range (numbers up to the rounding boundary of the largest float still read as it).
std::optional<float> finiteFloat(const nlohmann::json& value);

/// The value as a whole number from 0 up, or nothing: not an integer (fractions included),
/// or negative.
std::optional<std::uint64_t> wholeNumber(const nlohmann::json& value);

}  // namespace tressora
