#pragma once
// Small guide hierarchies for tests.

#include <vector>

#include "core/guide_hierarchy.h"

namespace tressora::testing {

/// A straight guide of `n` points rising from `root` along +y, one unit per segment.
inline Guide straightGuide(Vec3f root, int n = 5) {
    Guide g;
    for (int k = 0; k < n; ++k) g.points.push_back(root + Vec3f{0, static_cast<float>(k), 0});
    g.frameUp = {0, 0, 1};
    return g;
}

/// A root group "main" holding `count` straight guides (ids 1, 2, ...) along x at -2, -1, ...
inline GuideHierarchy rowOfGuides(int count, std::uint32_t* group = nullptr) {
    GuideHierarchy h;
    const std::uint32_t g = h.addGroup("main");
    for (int i = 0; i < count; ++i)
        h.addGuide(g, static_cast<std::uint64_t>(i + 1), straightGuide({static_cast<float>(i) - 2.0f, 0, 0}));
    if (group) *group = g;
    return h;
}

}  // namespace tressora::testing
