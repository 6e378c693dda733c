#pragma once
// The read-only view of a strand set that the curve writers share: vertex counts, root UVs,
// a colour per strand, the channel names and the bounds, each derived once per frame.

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "core/instances.h"
#include "core/strand_set.h"
#include "core/vec.h"

namespace tressora {

/// What a view derives beyond the counts, UVs and names.
enum ExportViewFlag : unsigned {
    kExportBounds = 2,          ///< the bounds of all points, widened by half their widths
    kExportDisplayColours = 4,  ///< colours passed through the look's display mapping
};

/// The scalp's texture coordinates as a writer reads them: three per triangle, in triangle
/// order (empty: the scalp has no UV set).
struct ScalpUvs {
    std::span<const std::array<float, 2>> cornerUvs;
};

/// How strand colours come from look channels; both may be empty. `melanin` turns a melanin
/// amount and a redness into a linear RGB colour (with a white dye); `display` maps a render
/// colour to the colour shown in viewports.
struct ExportColouring {
    std::function<Vec3f(float melanin, float redness)> melanin;
    std::function<Vec3f(Vec3f colour)> display;
};

struct ExportView {
    std::vector<std::int32_t> vertexCounts;  ///< points per strand
    bool hasUvs = false;
    std::vector<MeshUv> rootUvs;             ///< one per strand when hasUvs
    bool hasColours = false;
    std::vector<Vec3f> colours;              ///< one per strand when hasColours
    std::vector<std::string> strandChannels; ///< in name order, without names that begin with "_"
    std::vector<std::string> pointChannels;  ///< in name order, without names that begin with "_"
    Vec3f boundsMin;                         ///< with kExportBounds; zeros for no points
    Vec3f boundsMax;
};

/// Builds the view of `strands`. `scalp` may be null (no UVs); a strand whose root triangle is
/// negative or past the scalp's triangles keeps the UV (0, 0). Colours come from the strand
/// channels "colorR", "colorG", "colorB" when all three hold one value per strand, else from
/// "melanin" (with "melaninRedness", default 0.2) when colouring.melanin is given. A
/// non-finite coordinate counts as 0, as the writers write it. Parallel over strands.
ExportView buildExportView(const StrandSet& strands, const ScalpUvs* scalp, unsigned flags,
                           const ExportColouring& colouring = {});

}  // namespace tressora
