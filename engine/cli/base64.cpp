#include "cli/base64.h"

namespace tressora::cli {

std::string base64(std::span<const std::uint8_t> bytes) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    // Three bytes make four characters; the last one or two bytes are padded with '='.
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t v = (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
        out += kAlphabet[v >> 18];
        out += kAlphabet[(v >> 12) & 63];
        out += kAlphabet[(v >> 6) & 63];
        out += kAlphabet[v & 63];
    }
    if (const std::size_t rest = bytes.size() - i; rest > 0) {
        const std::uint32_t v = (std::uint32_t{bytes[i]} << 16) | (rest == 2 ? std::uint32_t{bytes[i + 1]} << 8 : 0u);
        out += kAlphabet[v >> 18];
        out += kAlphabet[(v >> 12) & 63];
        out += rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

}  // namespace tressora::cli
