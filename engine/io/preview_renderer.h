#pragma once
// A groom drawn on the processor into a PNG an agent can look at: the scalp as a flat-shaded
// mesh and the strands as one-pixel lines in their colours, lit by one light, from one or
// several fixed views laid out in a grid. No production renderer: it shows shape, length,
// direction and colour.

#include <cstdint>
#include <string>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/strand_set.h"

namespace tressora {

struct PreviewRequest {
    int size = 512;                             ///< the image's width before the grid is fitted, 64 to 1024
    std::vector<std::string> views{"front"};    ///< 1 to 6 of front, back, side, top, three_quarter
    std::uint64_t maxStrands = 0;               ///< about this many strands at most; 0: all
    bool zUp = false;                           ///< the groom's up axis is Z
};

struct PreviewImage {
    int width = 0, height = 0;
    std::vector<std::uint8_t> png;
    std::uint64_t strands = 0;       ///< strands in the groom
    std::uint64_t strandsDrawn = 0;
    std::uint64_t stride = 1;        ///< every stride-th strand is drawn
    int columns = 1;
};

/// Draws the strands (null: none) over the scalp (null: none). std::invalid_argument "size must
/// be between 64 and 1024 pixels", "no views", "at most 6 views in one image", "unknown view
/// '<name>' (front, side, back, three_quarter, top)". Views are drawn side by side on the
/// worker threads; the image does not depend on the thread count.
PreviewImage renderPreview(const StrandSet* strands, const ScalpMesh* scalp, const PreviewRequest& request);

}  // namespace tressora
