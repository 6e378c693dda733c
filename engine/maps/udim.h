#pragma once
// UDIM tile sets: file patterns with a tile token, tile numbers from UVs, and tile paths.
// A tile covers one unit square of UV space: tile 1001 is u and v in [0, 1), 1002 the next
// square along u, 1011 the square above 1001. Ten tiles make a row.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tressora {

/// The token that stands for the tile number in a pattern.
inline constexpr std::string_view kUdimToken = "<UDIM>";
/// The first and last tile numbers a tile set can hold (u in [0, 10), v in [0, 100)).
inline constexpr int kFirstUdim = 1001;
inline constexpr int kUdimCount = 1000;

/// The path with "<udim>" and "%(UDIM)d" rewritten to "<UDIM>", so one spelling remains.
std::string normalizeUdimTokens(std::string_view path);

/// Whether the path (after normalizeUdimTokens) names a tile set rather than one file.
bool isUdimPattern(std::string_view path);

/// The tile of a UV: 1001 + floor(u) + 10 * floor(v), or nothing when u is outside [0, 10),
/// v outside [0, 100) or either is not a number. A u of exactly 1 lies in the next tile.
std::optional<int> udimTile(float u, float v);

/// The file of one tile: the pattern with each "<UDIM>" replaced by the number. Throws
/// TextureError "Texture: a UDIM pattern needs <UDIM>" when the pattern has no token.
std::string udimTilePath(std::string_view pattern, int tile);

/// The pattern of a tile's file: "head.1002.png" gives "head.<UDIM>.png". The tile number is
/// the last run of exactly four digits from 1001 to 2000 in the file name (not its folder).
/// Throws TextureError "Texture: a UDIM pattern needs <UDIM>" when the name holds none.
std::string udimPatternOf(std::string_view tilePath);

}  // namespace tressora
