#pragma once
// The names an expression may read besides its locals and the caller's variables:
// the environment slots, the vector names over three slots, their aliases, and names
// from XGen expressions that have no equivalent here and get a message of their own.

#include <cstdint>
#include <optional>
#include <string_view>

namespace tressora::exprc {

/// The slot of a number variable (u, v, x, ..., prefz), if name is one.
std::optional<std::uint8_t> slotOfName(std::string_view name);
/// The first of the three slots of a vector name (P, N, Pref, tip, pointP), if name is one.
std::optional<std::uint8_t> vectorSlotOfName(std::string_view name);
/// What an alias stands for (cLength is length, Pg is P, F is frame, ...), or empty.
std::string_view aliasTarget(std::string_view name);
/// The message for an XGen name with no equivalent (dPdu, Cs, ...), or empty.
std::string_view xgenNameMessage(std::string_view name);

/// The constant that "pi" reads.
inline constexpr float kPi = 3.1415927f;

}  // namespace tressora::exprc
