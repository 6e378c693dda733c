#pragma once
// Base64 (the standard alphabet, with padding), for images that travel inside JSON messages.

#include <cstdint>
#include <span>
#include <string>

namespace tressora::cli {

std::string base64(std::span<const std::uint8_t> bytes);

}  // namespace tressora::cli
