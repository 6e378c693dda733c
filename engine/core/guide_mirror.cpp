// Mirroring guides across a plane, and moving guides to another scalp.

#include <algorithm>
#include <set>
#include <stdexcept>

#include "core/guide_frame.h"
#include "core/guide_hierarchy.h"

namespace tressora {
namespace {

[[noreturn]] void fail(const std::string& message) { throw std::invalid_argument(message); }

Vec3f reflect(Vec3f p, int axis, float offset) {
    p[axis] = 2.0f * offset - p[axis];
    return p;
}

Vec3f reflectDirection(Vec3f d, int axis) {
    d[axis] = -d[axis];
    return d;
}

StrandRoot rootOn(const ScalpMesh& scalp, Vec3f p) {
    const SurfacePoint at = scalp.closestPoint(p);
    return {at.face, at.b1, at.b2};
}

}  // namespace

void GuideHierarchy::mirrorAll(std::map<std::uint64_t, std::uint64_t>& ids, int axis, float offset,
                               bool keepPositive, const ScalpMesh* scalp) {
    if (axis < 0 || axis > 2) fail("mirrorAll: axis must be 0, 1 or 2");
    std::vector<std::uint32_t> roots;
    for (const GuideGroup& g : groups_)
        if (g.parent == 0) roots.push_back(g.id);
    mirrorGroups(roots, axis, offset, keepPositive, ids, scalp);
}

void GuideHierarchy::mirrorGroup(std::uint32_t group, int axis, float offset, bool keepPositive,
                                 std::map<std::uint64_t, std::uint64_t>& ids, const ScalpMesh* scalp) {
    const GuideGroup* g = findGroup(group);
    if (!g) fail("mirrorGroup: unknown group");
    if (g->parent != 0) fail("mirrorGroup: mirror root groups (then regenerate children)");
    if (axis < 0 || axis > 2) fail("mirrorGroup: axis must be 0, 1 or 2");
    mirrorGroups({group}, axis, offset, keepPositive, ids, scalp);
}

void GuideHierarchy::mirrorGroups(const std::vector<std::uint32_t>& groups, int axis, float offset,
                                  bool keepPositive, std::map<std::uint64_t, std::uint64_t>& ids,
                                  const ScalpMesh* scalp) {
    // The side of a guide is the side of its root; the sign factor picks the kept side.
    const float sign = keepPositive ? 1.0f : -1.0f;
    const std::set<std::uint32_t> chosen(groups.begin(), groups.end());
    std::vector<std::uint64_t> dropped;
    std::vector<Guide> copies;
    for (const Guide& g : guides_) {
        if (!chosen.count(g.group)) continue;
        const float side = sign * (g.points.front()[axis] - offset);
        if (side < 0.0f) {
            dropped.push_back(g.id);
            continue;
        }
        if (!(side > 0.0f)) continue;  // on the plane: its own mirror image
        Guide copy = g;
        for (Vec3f& p : copy.points) p = reflect(p, axis, offset);
        copy.frameUp = reflectDirection(g.frameUp, axis);
        // A reflection turns sections the other way round.
        for (float& t : copy.twist) t = -t;
        copy.rootLocal.clear();
        copy.frameUpLocal = {};
        copy.root = StrandRoot{};
        if (scalp) {
            copy.root = rootOn(*scalp, copy.points.front());
            if (copy.root.face >= 0) {
                const Frame f = rootFrame(*scalp, copy.root);
                for (Vec3f p : copy.points) copy.rootLocal.push_back(f.toLocal(p));
                copy.frameUpLocal = f.toLocalDirection(copy.frameUp);
            }
        }
        copies.push_back(std::move(copy));
    }
    removeWithFollowers(std::move(dropped));
    for (Guide& copy : copies) {
        const std::uint64_t old = copy.id;
        copy.id = takeGuideId();
        ids[old] = copy.id;
        index_[copy.id] = guides_.size();
        guides_.push_back(std::move(copy));
    }
}

void GuideHierarchy::computeRootLocal(const ScalpMesh& scalp) {
    for (Guide& g : guides_) {
        if (g.follows() || g.root.face < 0 || static_cast<std::size_t>(g.root.face) >= scalp.triangleCount()) continue;
        const Frame f = rootFrame(scalp, g.root);
        g.rootLocal.resize(g.points.size());
        for (std::size_t k = 0; k < g.points.size(); ++k) g.rootLocal[k] = f.toLocal(g.points[k]);
        g.frameUpLocal = f.toLocalDirection(g.frameUp);
    }
}

void GuideHierarchy::transfer(const ScalpMesh& newScalp) {
    if (newScalp.triangleCount() == 0) fail("transfer: the new scalp has no faces");
    // Guides with points of their own first, shallowest groups first; followers after, so
    // that each one's parent is already in place.
    std::vector<std::size_t> order(guides_.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return depth(guides_[a].group) < depth(guides_[b].group);
    });
    for (std::size_t i : order) {
        Guide& g = guides_[i];
        if (g.follows()) {
            follow(g);
            g.root = rootOn(newScalp, g.points.front());
            continue;
        }
        const StrandRoot root = rootOn(newScalp, g.points.front());
        const Frame f = rootFrame(newScalp, root);
        if (!g.rootLocal.empty() && g.rootLocal.size() == g.points.size()) {
            for (std::size_t k = 0; k < g.points.size(); ++k) g.points[k] = f.toWorld(g.rootLocal[k]);
            g.frameUp = f.toWorldDirection(g.frameUpLocal);
        } else {
            const Vec3f move = f.origin - g.points.front();
            for (Vec3f& p : g.points) p += move;
        }
        g.root = root;
    }
    scalpTopology_ = newScalp.topologyHash();
}

}  // namespace tressora
