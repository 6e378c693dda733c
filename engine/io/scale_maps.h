#pragma once
// Scale maps for game engines: the scales baked into a height, a normal and a colour map over
// the skin's UV chart, one image of each per UDIM tile the scales cover. Each scale point is
// found on the skin (its UV and its height above the skin), each scale triangle is drawn into
// its tile keeping the highest surface, and the maps are padded so mipmaps do not bleed.

#include <cstdint>
#include <string>
#include <vector>

#include "core/instances.h"
#include "core/scalp_mesh.h"
#include "core/vec.h"
#include "io/png_writer.h"

namespace tressora {

struct ScaleMapOptions {
    int resolution = 1024;         ///< pixels a side of each tile, 16 to 8192
    float maxHeight = 0.0f;        ///< the height stored as white; 0 or less: from the scales
    int padding = 4;               ///< pixels around covered ones filled with the nearest
    Vec3f background{0.5f, 0.5f, 0.5f};  ///< the colour map's linear colour where nothing lies
};

/// The maps of one UDIM tile: "ScaleHeight" (16-bit grey, 0 the skin, 65535 the greatest
/// height), "ScaleNormal" (8-bit RGB tangent-space normals from the heights) and "ScaleColor"
/// (8-bit sRGB).
struct ScaleTileMaps {
    int udim = 1001;
    PngImage height, normal, colour;
};

struct ScaleMaps {
    std::vector<ScaleTileMaps> tiles;  ///< in rising UDIM order
    std::size_t scales = 0;            ///< the scale records baked
    float maxHeight = 0.0f;            ///< the height stored as white
    double covered = 0.0;              ///< share of the skin's texels a scale covers, 0 to 1
};

/// Bakes the scale mesh over the skin. std::invalid_argument "the scale maps' resolution must
/// be 16 to 8192"; std::runtime_error "the skin has no uvs to bake the scales onto". Parallel
/// over the scale points and the tiles' rows; the result does not depend on the thread count.
ScaleMaps bakeScaleMaps(const ScaleMesh& scales, const ScalpMesh& skin, const ScaleMapOptions& options);

/// The file name of a map of a tile: prefix + map name ("ScaleHeight", "ScaleNormal",
/// "ScaleColor") + "." + UDIM + ".png".
std::string scaleMapPath(const std::string& prefix, const std::string& map, int udim);

}  // namespace tressora
