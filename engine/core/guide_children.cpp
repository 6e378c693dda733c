// Child guide generation: children scattered round each parent, decided by the hash alone.

#include <cmath>
#include <set>
#include <stdexcept>

#include "core/guide_hierarchy.h"
#include "core/hash.h"
#include "core/tube_shape.h"

namespace tressora {
namespace {

[[noreturn]] void fail(const std::string& message) { throw std::invalid_argument(message); }

/// Whether a parent's tube calls for its own section instead of a disc: a shape, or a
/// section that is not round at the root.
bool sectionedTube(const Guide& parent) {
    return (!parent.shape.empty() && parent.shape != "round") || (!parent.aspect.empty() && parent.aspect.front() != 1.0f);
}

}  // namespace

std::vector<std::uint64_t> GuideHierarchy::generateChildren(std::uint32_t parentGroup, const std::string& group,
                                                            std::span<const std::uint64_t> parents,
                                                            const ChildOptions& options) {
    const GuideGroup* pg = findGroup(parentGroup);
    if (!pg) fail("generateChildren: unknown parent group");
    std::vector<std::uint64_t> order(parents.begin(), parents.end());
    if (order.empty()) order = guidesOf(parentGroup);
    for (std::uint64_t id : order) {
        const Guide* p = findGuide(id);
        if (!p || p->group != parentGroup)
            fail("generateChildren: guide " + std::to_string(id) + " is not in the parent group");
    }
    const GuideGroup* existing = findGroup(group);
    if (existing && existing->parent != parentGroup)
        fail("generateChildren: group '" + group + "' belongs to another parent group");
    const std::uint32_t target = existing ? existing->id : addGroup(group, parentGroup);

    // The listed parents' children in this group are replaced.
    const std::set<std::uint64_t> listed(order.begin(), order.end());
    std::vector<std::uint64_t> replaced;
    for (const Guide& g : guides_)
        if (g.group == target && listed.count(g.parent)) replaced.push_back(g.id);
    removeWithFollowers(std::move(replaced));

    std::vector<std::uint64_t> made;
    for (std::uint64_t parentId : order) {
        const Guide parent = *findGuide(parentId);
        const std::size_t n = parent.points.size();
        if (n < 2) continue;
        const bool sectioned = sectionedTube(parent);
        const std::vector<Point2> outline = sectioned ? tubeShapeOutline(parent.shape, tubeShapes_) : std::vector<Point2>{};
        const float rootAspect = parent.aspect.empty() ? 1.0f : parent.aspect.front();
        for (int i = 0; i < options.count; ++i) {
            const std::uint64_t s = combine(combine(hash64(parent.id), options.seed), static_cast<std::uint64_t>(i));
            std::uint64_t c = s;
            while (c == 0 || index_.count(c)) c = hash64(c);

            DrawStream draws(c);  // draw k is mix(hash64(c) + (k + 1) * golden)
            const float d1 = draws.nextUnit(), d2 = draws.nextUnit(), d3 = draws.nextUnit(), d4 = draws.nextUnit();
            const float r = std::sqrt(d1), a = d2 * 6.2831855f;
            float ux = r * std::sin(a), uy = r * std::cos(a);
            if (sectioned) {
                const Point2 q = sampleTubeSection(outline, rootAspect, combine(c, 0x7B5E));
                ux = q[0];
                uy = q[1];
            }
            const float rootX = options.rootRadius * ux, rootY = options.rootRadius * uy;
            const float tipX = options.tipRadius * ux + options.jitter * (2.0f * d3 - 1.0f);
            const float tipY = options.tipRadius * uy + options.jitter * (2.0f * d4 - 1.0f);

            Guide child;
            child.id = c;
            child.group = target;
            child.parent = parent.id;
            child.root = parent.root;
            child.width = parent.width;
            child.aspect = parent.aspect;
            child.twist = parent.twist;
            child.shape = parent.shape;
            child.frameUp = parent.frameUp;
            child.rootLocal = parent.rootLocal;
            child.frameUpLocal = parent.frameUpLocal;
            for (const auto& layer : parent.pointAttributes) child.pointAttributes[layer.first].assign(n, 0.0f);
            for (const std::string& name : attributeNames_) child.attributes[name] = 0.0f;
            child.offsets.resize(n);
            for (std::size_t k = 0; k < n; ++k) {
                const float f = static_cast<float>(k) / static_cast<float>(n - 1);
                const float x = (1.0f - f) * rootX + f * tipX, y = (1.0f - f) * rootY + f * tipY;
                const float turn = f * options.twist, cs = std::cos(turn), sn = std::sin(turn);
                child.offsets[k] = {x * cs - y * sn, x * sn + y * cs, 0.0f};
            }
            follow(child);
            if (options.scalp) {
                const SurfacePoint at = options.scalp->closestPoint(child.points.front());
                child.root = {at.face, at.b1, at.b2};
            }
            index_[c] = guides_.size();
            guides_.push_back(std::move(child));
            made.push_back(c);
        }
    }
    return made;
}

}  // namespace tressora
