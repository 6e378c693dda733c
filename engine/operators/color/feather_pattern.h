#pragma once
// The patterns FeatherColor lays over a feather in its own flat space: u along the shaft
// (0 root, 1 tip), v out from the shaft (in shares of the feather's length), and t along
// each barb (0 at the shaft, 1 at its tip). Immutable once set up; any thread.

#include <memory>
#include <string_view>

#include "core/vec.h"
#include "maps/texture.h"

namespace tressora::look {

enum class FeatherPatternKind { None, Texture, Bars, Chevrons, Spots, Fringe, Eye };

/// The kind named by a `pattern` text; false for any other text.
bool parseFeatherPattern(std::string_view text, FeatherPatternKind& kind);

/// One barb point in the feather's flat space; side -1 left, +1 right, 0 around.
struct FeatherPoint {
    float u = 0, v = 0, t = 0, side = 0;
};

/// One feather's random variation of the pattern.
struct FeatherJitter {
    float shift = 0;   ///< along the feather, in periods (eye: in its sizes)
    float scale = 1;   ///< size factor
    float angle = 0;   ///< degrees added to the pattern's angle
};

struct FeatherPattern {
    FeatherPatternKind kind = FeatherPatternKind::Bars;
    float count = 6, width = 0.4f, angle = 0, sharpness = 0.7f, offset = 0.7f;
    bool hollow = false;  ///< cover rises from a shape's centre to its edge
    std::shared_ptr<const Texture> left, right;  ///< texture: the feather's (or left vane's) image, the right's

    /// How far the point lies in the pattern, 0 to 1. A texture also sets `color` to its
    /// colour there; the other kinds leave it.
    float cover(const FeatherPoint& point, const FeatherJitter& jitter, Vec3f& color) const;
};

}  // namespace tressora::look
