#include "core/json_depth.h"

namespace tressora {

bool jsonDepthWithin(std::string_view text, int limit) {
    int depth = 0;
    const char* p = text.data();
    const char* const end = p + text.size();
    while (p < end) {
        const char c = *p++;
        if (c == '[' || c == '{') {
            if (++depth > limit) return false;
        } else if (c == ']' || c == '}') {
            --depth;
        } else if (c == '"') {
            // Skip the string: a backslash escapes the character after it.
            while (p < end && *p != '"') p += *p == '\\' ? 2 : 1;
            ++p;
        }
    }
    return true;
}

std::string jsonTooDeepText(std::string_view word) {
    return std::string(word) + ": JSON nested deeper than " + std::to_string(kMaxJsonDepth) + " levels";
}

}  // namespace tressora
