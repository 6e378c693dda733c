#pragma once
// The records of the guide hierarchy: a group of guides and one guide curve.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/vec.h"

namespace tressora {

/// A named group of guides. A root group (parent 0) holds primary guides; a child group's
/// guides follow guides of its parent group.
struct GuideGroup {
    std::uint32_t id = 0;  ///< never 0
    std::string name;
    std::uint32_t parent = 0;  ///< parent group id, 0 for a root group
    Vec3f color{0.25f, 0.85f, 0.55f};

    bool operator==(const GuideGroup&) const = default;
};

/// One guide curve with its attachment, tube and painted values.
struct Guide {
    std::uint64_t id = 0;      ///< never 0, unique in the hierarchy
    std::uint32_t group = 0;   ///< group id
    std::uint64_t parent = 0;  ///< parent guide id, 0 for a primary guide
    bool locked = false;       ///< a child that keeps points of its own instead of following
    StrandRoot root;           ///< scalp attachment (face -1 for none)
    std::vector<float> width;  ///< tube half-width along the guide; empty for no tube
    std::vector<float> aspect; ///< tube section height over width along the guide
    std::vector<float> twist;  ///< tube section turn (radians) along the guide
    std::string shape;         ///< tube shape name; empty for a round tube
    Vec3f frameUp;             ///< fixes the tube's section and the child frame at the root
    std::map<std::string, float> attributes;
    std::map<std::string, std::vector<float>> pointAttributes;
    std::vector<Vec3f> points;     ///< root first, world space, at least 2
    std::vector<Vec3f> rootLocal;  ///< the curve in the root's surface frame; empty if not computed
    Vec3f frameUpLocal;            ///< frameUp in that frame
    std::vector<Vec3f> offsets;    ///< a following child's offsets from its parent, parent frame

    /// True for a child that follows its parent through offsets.
    bool follows() const { return parent != 0 && !locked; }

    bool operator==(const Guide&) const = default;
};

}  // namespace tressora
