#include "core/number_text.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace tressora {
namespace {

// std::to_chars writes the shortest round-trip text but pads the exponent to two digits and
// gives it a '+' ("1e+05"). Drop both: "1e5", "1e-7". An exponent has two or three digits, so
// its 'e' sits four or five characters before the end.
char* trimExponent(char* begin, char* end) noexcept {
    char* e = nullptr;
    if (end - begin >= 5 && end[-4] == 'e') e = end - 4;
    else if (end - begin >= 6 && end[-5] == 'e') e = end - 5;
    if (!e) return end;
    char* digits = e + 1;
    char* to = digits;
    if (*digits == '+') {
        ++digits;
    } else if (*digits == '-') {
        ++digits;
        ++to;
    }
    while (digits + 1 < end && *digits == '0') ++digits;
    if (digits == to) return end;
    const std::size_t n = static_cast<std::size_t>(end - digits);
    std::memmove(to, digits, n);
    return to + n;
}

}  // namespace

char* writeFloat(char* out, float value) noexcept {
    if (!std::isfinite(value)) {
        *out = '0';
        return out + 1;
    }
    char* end = std::to_chars(out, out + kNumberTextMax, value).ptr;
    return trimExponent(out, end);
}

char* writeDouble(char* out, double value) noexcept {
    if (!std::isfinite(value)) {
        *out = '0';
        return out + 1;
    }
    char* end = std::to_chars(out, out + kNumberTextMax, value).ptr;
    return trimExponent(out, end);
}

char* writeInteger(char* out, std::int64_t value) noexcept {
    return std::to_chars(out, out + kNumberTextMax, value).ptr;
}

char* writeUnsigned(char* out, std::uint64_t value) noexcept {
    return std::to_chars(out, out + kNumberTextMax, value).ptr;
}

void appendFloat(std::string& out, float value) {
    char buffer[kNumberTextMax];
    out.append(buffer, writeFloat(buffer, value));
}

void appendDouble(std::string& out, double value) {
    char buffer[kNumberTextMax];
    out.append(buffer, writeDouble(buffer, value));
}

void appendInteger(std::string& out, std::int64_t value) {
    char buffer[kNumberTextMax];
    out.append(buffer, writeInteger(buffer, value));
}

void appendVec3(std::string& out, Vec3f value) {
    char buffer[3 * kNumberTextMax + 8];
    char* p = buffer;
    *p++ = '(';
    p = writeFloat(p, value.x);
    *p++ = ',';
    *p++ = ' ';
    p = writeFloat(p, value.y);
    *p++ = ',';
    *p++ = ' ';
    p = writeFloat(p, value.z);
    *p++ = ')';
    out.append(buffer, p);
}

void appendVec2(std::string& out, float u, float v) {
    char buffer[2 * kNumberTextMax + 8];
    char* p = buffer;
    *p++ = '(';
    p = writeFloat(p, u);
    *p++ = ',';
    *p++ = ' ';
    p = writeFloat(p, v);
    *p++ = ')';
    out.append(buffer, p);
}

std::string numberText(float value) {
    std::string text;
    appendFloat(text, value);
    return text;
}

std::string numberText(double value) {
    std::string text;
    appendDouble(text, value);
    return text;
}

}  // namespace tressora
