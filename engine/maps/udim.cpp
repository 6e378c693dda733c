#include "maps/udim.h"

#include <cmath>

#include "core/errors.h"

namespace tressora {
namespace {

constexpr std::string_view kMissingToken = "Texture: a UDIM pattern needs <UDIM>";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::string normalizeUdimTokens(std::string_view path) {
    std::string out;
    out.reserve(path.size());
    for (std::size_t i = 0; i < path.size();) {
        bool replaced = false;
        for (std::string_view alias : {std::string_view("<udim>"), std::string_view("%(UDIM)d")}) {
            if (path.substr(i, alias.size()) == alias) {
                out += kUdimToken;
                i += alias.size();
                replaced = true;
                break;
            }
        }
        if (!replaced) out += path[i++];
    }
    return out;
}

bool isUdimPattern(std::string_view path) { return path.find(kUdimToken) != std::string_view::npos; }

std::optional<int> udimTile(float u, float v) {
    if (!(u >= 0.0f && u < 10.0f && v >= 0.0f && v < 100.0f)) return std::nullopt;
    return kFirstUdim + static_cast<int>(std::floor(u)) + 10 * static_cast<int>(std::floor(v));
}

std::string udimTilePath(std::string_view pattern, int tile) {
    if (!isUdimPattern(pattern)) throw TextureError(std::string(kMissingToken));
    const std::string number = std::to_string(tile);
    std::string out;
    std::size_t from = 0;
    for (std::size_t at = pattern.find(kUdimToken); at != std::string_view::npos;
         at = pattern.find(kUdimToken, from)) {
        out += pattern.substr(from, at - from);
        out += number;
        from = at + kUdimToken.size();
    }
    out += pattern.substr(from);
    return out;
}

std::string udimPatternOf(std::string_view tilePath) {
    const std::size_t slash = tilePath.find_last_of("/\\");
    const std::size_t nameStart = slash == std::string_view::npos ? 0 : slash + 1;
    // Scan the file name from its end for a run of exactly four digits holding a tile number.
    std::size_t end = tilePath.size();
    while (end > nameStart) {
        if (!isDigit(tilePath[end - 1])) {
            --end;
            continue;
        }
        std::size_t begin = end;
        while (begin > nameStart && isDigit(tilePath[begin - 1])) --begin;
        if (end - begin == 4) {
            const int tile = std::stoi(std::string(tilePath.substr(begin, 4)));
            if (tile >= kFirstUdim && tile < kFirstUdim + kUdimCount) {
                std::string out(tilePath.substr(0, begin));
                out += kUdimToken;
                out += tilePath.substr(end);
                return out;
            }
        }
        end = begin;
    }
    throw TextureError(std::string(kMissingToken));
}

}  // namespace tressora
