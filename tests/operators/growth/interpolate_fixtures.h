#pragma once
// Guides, strands and an Interpolate node for the Interpolate tests.

#include <cmath>
#include <memory>
#include <vector>

#include "core/guide_set.h"
#include "core/hash.h"
#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "graph/eval_context.h"
#include "graph/operator_registry.h"
#include "operators/growth/interpolate.h"

namespace tressora::interp {

inline std::unique_ptr<Operator> makeNode() { return OperatorRegistry::instance().create("Interpolate"); }

/// A guide rooted at `root` growing up (+z) in `n` evenly spaced points, bent sideways by
/// `bend` (x offset growing with the square of the height) and `length` long before bending.
inline std::vector<Vec3f> bentCurve(Vec3f root, float length, float bend, int n = 5) {
    std::vector<Vec3f> pts;
    for (int i = 0; i < n; ++i) {
        const float t = static_cast<float>(i) / static_cast<float>(n - 1);
        pts.push_back(root + Vec3f{bend * t * t, 0.0f, length * t});
    }
    return pts;
}

/// Guides on a square grid of `side` by `side` in the z = 0 plane, spacing 1, each bent by
/// an amount of its own.
inline std::shared_ptr<GuideSet> gridGuides(int side, float lengthScale = 1.0f) {
    auto guides = std::make_shared<GuideSet>();
    for (int j = 0; j < side; ++j)
        for (int i = 0; i < side; ++i) {
            const auto id = static_cast<std::uint64_t>(j * side + i + 1);
            const float bend = 0.2f + 0.3f * static_cast<float>((i + 2 * j) % 4);
            guides->addGuide(id, {}, bentCurve({float(i), float(j), 0}, 2.0f * lengthScale, bend), {});
        }
    return guides;
}

/// Straight strands of `points` points growing up from roots drawn over [lo, hi)^2 in z = 0.
inline std::shared_ptr<StrandSet> strandsOver(std::size_t count, float lo, float hi, int points = 9) {
    auto set = std::make_shared<StrandSet>();
    for (std::size_t s = 0; s < count; ++s) {
        const std::uint64_t id = 1000 + s;
        const Vec3f root{lo + (hi - lo) * unit(combine(id, 1)), lo + (hi - lo) * unit(combine(id, 2)), 0.0f};
        std::vector<Vec3f> pts;
        for (int p = 0; p < points; ++p) pts.push_back(root + Vec3f{0, 0, 0.1f * float(p)});
        set->addStrand(id, {}, pts);
    }
    return set;
}

/// One straight strand at `root`.
inline std::shared_ptr<StrandSet> strandAt(Vec3f root, int points = 5, std::uint64_t id = 7) {
    auto set = std::make_shared<StrandSet>();
    std::vector<Vec3f> pts;
    for (int p = 0; p < points; ++p) pts.push_back(root + Vec3f{0, 0, 0.25f * float(p)});
    set->addStrand(id, {}, pts);
    return set;
}

inline std::shared_ptr<const StrandSet> run(Operator& node, const std::shared_ptr<const StrandSet>& strands,
                                            const std::shared_ptr<const GuideSet>& guides, EvalContext* context = nullptr,
                                            std::shared_ptr<const ScalpMesh> scalp = nullptr) {
    EvalContext local;
    EvalContext& c = context ? *context : local;
    return node.evaluate(c, {Value(strands), Value(guides), Value(scalp)}).as<StrandSet>();
}

}  // namespace tressora::interp
