#include "core/guide_hierarchy.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>

#include "core/guide_frame.h"
#include "core/point_index.h"

namespace tressora {
namespace {

[[noreturn]] void fail(const std::string& message) { throw std::invalid_argument(message); }

/// Refuses curves of fewer than 2 points or with a coordinate that is not a finite number.
void checkCurve(const char* operation, std::span<const Vec3f> points) {
    if (points.size() < 2) fail(std::string(operation) + ": a guide needs at least 2 points");
    for (const Vec3f& p : points)
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
            fail(std::string(operation) + ": a guide's points must be finite numbers");
}

}  // namespace

// ---------------------------------------------------------------- reading

const Guide* GuideHierarchy::findGuide(std::uint64_t id) const {
    const auto it = index_.find(id);
    return it == index_.end() ? nullptr : &guides_[it->second];
}

Guide& GuideHierarchy::guideRef(std::uint64_t id) { return guides_[index_.at(id)]; }

const GuideGroup* GuideHierarchy::findGroup(std::uint32_t id) const {
    for (const GuideGroup& g : groups_)
        if (g.id == id) return &g;
    return nullptr;
}

const GuideGroup* GuideHierarchy::findGroup(std::string_view name) const {
    for (const GuideGroup& g : groups_)
        if (g.name == name) return &g;
    return nullptr;
}

std::uint32_t GuideHierarchy::groupId(std::string_view name) const {
    const GuideGroup* g = findGroup(name);
    if (!g) fail("no such guide group");
    return g->id;
}

int GuideHierarchy::depth(std::uint32_t group) const {
    int d = 0;
    for (const GuideGroup* g = findGroup(group); g && g->parent != 0 && d <= static_cast<int>(groups_.size());
         g = findGroup(g->parent))
        ++d;
    return d;
}

std::vector<std::uint64_t> GuideHierarchy::guidesOf(std::uint32_t group) const {
    std::vector<std::uint64_t> ids;
    for (const Guide& g : guides_)
        if (g.group == group) ids.push_back(g.id);
    return ids;
}

std::uint64_t GuideHierarchy::freshGuideId() const {
    std::uint64_t id = nextGuideId_;
    while (id == 0 || index_.count(id)) ++id;
    return id;
}

std::uint64_t GuideHierarchy::takeGuideId() {
    const std::uint64_t id = freshGuideId();
    nextGuideId_ = id + 1;
    return id;
}

void GuideHierarchy::reindex() {
    index_.clear();
    for (std::size_t i = 0; i < guides_.size(); ++i) index_[guides_[i].id] = i;
}

void GuideHierarchy::noteAttributes(const Guide& guide) {
    for (const auto& entry : guide.attributes)
        if (std::find(attributeNames_.begin(), attributeNames_.end(), entry.first) == attributeNames_.end())
            attributeNames_.push_back(entry.first);
}

// ---------------------------------------------------------------- following

std::vector<Vec3f> GuideHierarchy::offsetsFrom(const Guide& parent, std::span<const Vec3f> points) const {
    const std::vector<Vec3f> curve = points.size() == parent.points.size()
                                         ? std::vector<Vec3f>(points.begin(), points.end())
                                         : resampleCurve(points, parent.points.size());
    const std::vector<Frame> frames = carriedFrames(parent.points, parent.frameUp);
    std::vector<Vec3f> offsets(curve.size());
    for (std::size_t k = 0; k < curve.size(); ++k) offsets[k] = frames[k].toLocal(curve[k]);
    return offsets;
}

void GuideHierarchy::follow(Guide& child) const {
    const Guide* parent = findGuide(child.parent);
    if (!parent) return;
    if (child.offsets.size() != parent->points.size())
        child.offsets = resampleByIndex(child.offsets, parent->points.size());
    const std::vector<Frame> frames = carriedFrames(parent->points, parent->frameUp);
    child.points.resize(frames.size());
    for (std::size_t k = 0; k < frames.size(); ++k) child.points[k] = frames[k].toWorld(child.offsets[k]);
}

void GuideHierarchy::rederiveFollowers(std::uint64_t id) {
    std::vector<std::uint64_t> followers;
    for (const Guide& g : guides_)
        if (g.parent == id && g.follows()) followers.push_back(g.id);
    for (std::uint64_t f : followers) {
        follow(guideRef(f));
        rederiveFollowers(f);
    }
}

void GuideHierarchy::removeWithFollowers(std::vector<std::uint64_t> ids) {
    std::set<std::uint64_t> gone(ids.begin(), ids.end());
    for (bool grew = true; grew;) {
        grew = false;
        for (const Guide& g : guides_)
            if (g.parent != 0 && gone.count(g.parent) && gone.insert(g.id).second) grew = true;
    }
    std::erase_if(guides_, [&](const Guide& g) { return gone.count(g.id) != 0; });
    reindex();
}

// ---------------------------------------------------------------- groups

std::uint32_t GuideHierarchy::addGroup(const std::string& name, std::uint32_t parent) {
    if (name.empty()) fail("a guide group needs a name");
    if (parent != 0 && !findGroup(parent)) fail("addGroup: unknown parent group");
    if (findGroup(name)) fail("addGroup: group '" + name + "' exists");
    while (findGroup(nextGroupId_) || nextGroupId_ == 0) ++nextGroupId_;
    GuideGroup g;
    g.id = nextGroupId_++;
    g.name = name;
    g.parent = parent;
    groups_.push_back(g);
    return g.id;
}

void GuideHierarchy::setGroupColor(std::uint32_t group, Vec3f color) {
    for (GuideGroup& g : groups_)
        if (g.id == group) {
            g.color = color;
            return;
        }
    fail("setGroupColor: unknown group");
}

void GuideHierarchy::renameGroup(std::string_view name, const std::string& newName) {
    const std::uint32_t id = groupId(name);
    if (newName.empty()) fail("a guide group needs a name");
    if (const GuideGroup* other = findGroup(newName); other && other->id != id)
        fail("a guide group named '" + newName + "' exists");
    for (GuideGroup& g : groups_)
        if (g.id == id) g.name = newName;
}

void GuideHierarchy::removeGroup(std::string_view name) {
    std::set<std::uint32_t> gone{groupId(name)};
    for (bool grew = true; grew;) {
        grew = false;
        for (const GuideGroup& g : groups_)
            if (g.parent != 0 && gone.count(g.parent) && gone.insert(g.id).second) grew = true;
    }
    std::vector<std::uint64_t> ids;
    for (const Guide& g : guides_)
        if (gone.count(g.group)) ids.push_back(g.id);
    removeWithFollowers(std::move(ids));
    std::erase_if(groups_, [&](const GuideGroup& g) { return gone.count(g.id) != 0; });
}

void GuideHierarchy::promoteGroup(std::uint32_t group) {
    const GuideGroup* g = findGroup(group);
    if (!g) fail("promoteGroup: unknown group");
    if (g->parent == 0) fail("promoteGroup: '" + g->name + "' is already a root group");
    for (GuideGroup& each : groups_)
        if (each.id == group) each.parent = 0;
    for (Guide& guide : guides_)
        if (guide.group == group) {
            guide.parent = 0;
            guide.locked = false;
            guide.offsets.clear();
        }
}

void GuideHierarchy::demoteGroup(std::uint32_t group, std::uint32_t newParent) {
    const GuideGroup* g = findGroup(group);
    if (!g) fail("demoteGroup: unknown group");
    const GuideGroup* p = findGroup(newParent);
    if (!p || p->id == g->id || p->parent != g->parent)
        fail("demoteGroup: the new parent group must be a sibling of '" + g->name + "'");
    const std::vector<std::uint64_t> parents = guidesOf(newParent);
    if (parents.empty()) fail("demoteGroup: '" + p->name + "' has no guides to follow");

    std::vector<Vec3f> roots;
    for (std::uint64_t id : parents) roots.push_back(findGuide(id)->points.front());
    const PointIndex nearest(roots);
    for (GuideGroup& each : groups_)
        if (each.id == group) each.parent = newParent;
    for (Guide& guide : guides_) {
        if (guide.group != group) continue;
        float d2 = 0.0f;
        const std::uint32_t k = nearest.nearest(guide.points.front(), d2);
        const Guide& parent = *findGuide(parents[k == PointIndex::npos ? 0 : k]);
        guide.parent = parent.id;
        guide.locked = false;
        guide.offsets = offsetsFrom(parent, guide.points);
        follow(guide);
        rederiveFollowers(guide.id);
    }
}

// ---------------------------------------------------------------- guides

void GuideHierarchy::addGuide(std::uint32_t group, std::uint64_t id, Guide guide) {
    const GuideGroup* g = findGroup(group);
    if (!g) fail("addGuide: unknown group");
    if (g->parent != 0) fail("addGuide: primary guides belong in root groups");
    if (id == 0 || index_.count(id)) fail("addGuide: duplicate guide id");
    checkCurve("addGuide", guide.points);
    guide.id = id;
    guide.group = group;
    guide.parent = 0;
    guide.locked = false;
    guide.offsets.clear();
    noteAttributes(guide);
    // Small ids given by the caller move the counter past them, as a reader of the saved
    // hierarchy would; hashed ids (children) live far above the counter's range.
    if (id < kCounterIds) nextGuideId_ = std::max(nextGuideId_, id + 1);
    index_[id] = guides_.size();
    guides_.push_back(std::move(guide));
}

std::uint64_t GuideHierarchy::addChildGuide(std::uint32_t group, std::uint64_t parentId, std::vector<Vec3f> points,
                                            const ScalpMesh* scalp) {
    const GuideGroup* g = findGroup(group);
    if (!g || g->parent == 0) fail("addChildGuide: not a child group");
    const Guide* parent = findGuide(parentId);
    if (!parent || parent->group != g->parent) fail("addChildGuide: the parent must be in the group's parent group");
    checkCurve("addChildGuide", points);
    Guide child;
    child.id = takeGuideId();
    child.group = group;
    child.parent = parentId;
    child.width = parent->width;
    child.aspect = parent->aspect;
    child.twist = parent->twist;
    child.shape = parent->shape;
    child.frameUp = parent->frameUp;
    child.offsets = offsetsFrom(*parent, points);
    child.root = scalp ? StrandRoot{} : parent->root;
    follow(child);
    if (scalp) {
        const SurfacePoint at = scalp->closestPoint(child.points.front());
        child.root = {at.face, at.b1, at.b2};
    }
    index_[child.id] = guides_.size();
    guides_.push_back(std::move(child));
    return guides_.back().id;
}

void GuideHierarchy::setPoints(std::uint64_t id, std::vector<Vec3f> points) {
    if (!index_.count(id)) fail("setPoints: unknown guide");
    checkCurve("setPoints", points);
    Guide& guide = guideRef(id);
    if (guide.follows()) {
        if (const Guide* parent = findGuide(guide.parent)) {
            guide.offsets = offsetsFrom(*parent, points);
            follow(guide);
        }
    } else {
        guide.points = std::move(points);
    }
    rederiveFollowers(id);
}

void GuideHierarchy::reparent(std::uint64_t id, std::uint64_t newParent) {
    if (!index_.count(id)) fail("reparent: unknown guide");
    const Guide* parent = findGuide(newParent);
    if (!parent) fail("reparent: unknown parent guide");
    const GuideGroup* group = findGroup(findGuide(id)->group);
    if (!group || group->parent == 0 || parent->group != group->parent)
        fail("reparent: the new parent must be in the guide's parent group");
    Guide& guide = guideRef(id);
    guide.parent = newParent;
    if (!guide.locked) {
        guide.offsets = offsetsFrom(*parent, guide.points);
        follow(guide);
        rederiveFollowers(id);
    }
}

void GuideHierarchy::setLocked(std::uint64_t id, bool locked) {
    if (!index_.count(id)) fail("setLocked: unknown guide");
    Guide& guide = guideRef(id);
    if (guide.parent == 0) fail("setLocked: only child guides follow or lock");
    if (guide.locked == locked) return;
    guide.locked = locked;
    if (locked) {
        guide.offsets.clear();
    } else if (const Guide* parent = findGuide(guide.parent)) {
        guide.offsets = offsetsFrom(*parent, guide.points);
        follow(guide);
        rederiveFollowers(id);
    }
}

void GuideHierarchy::removeGuide(std::uint64_t id) {
    if (!index_.count(id)) fail("removeGuide: unknown guide");
    removeWithFollowers({id});
}

void GuideHierarchy::setTube(std::uint64_t id, const Tube& tube) {
    if (!index_.count(id)) fail("setTube: unknown guide");
    if (!isKnownTubeShape(tube.shape, tubeShapes_)) fail("no tube shape named '" + tube.shape + "'");
    const TubeProfiles p = sampleTube(tube);
    Guide& guide = guideRef(id);
    guide.width = p.width;
    guide.aspect = p.aspect;
    guide.twist = p.twist;
    guide.shape = tube.shape == "round" ? "" : tube.shape;
}

// ---------------------------------------------------------------- library and attributes

void GuideHierarchy::addTubeShape(CustomTubeShape shape) {
    checkTubeShapeName(shape.name);
    if (tubeShapes_.count(shape.name)) fail("a tube shape named '" + shape.name + "' already exists");
    checkTubeShapeOutline(shape);
    tubeShapes_[shape.name] = std::move(shape);
}

void GuideHierarchy::replaceTubeShape(CustomTubeShape shape) {
    if (!tubeShapes_.count(shape.name)) fail("no tube shape named '" + shape.name + "'");
    checkTubeShapeOutline(shape);
    tubeShapes_[shape.name] = std::move(shape);
}

void GuideHierarchy::renameTubeShape(const std::string& name, const std::string& newName) {
    const auto it = tubeShapes_.find(name);
    if (it == tubeShapes_.end()) fail("no tube shape named '" + name + "'");
    if (newName == name) return;
    checkTubeShapeName(newName);
    if (tubeShapes_.count(newName)) fail("a tube shape named '" + newName + "' already exists");
    CustomTubeShape shape = it->second;
    shape.name = newName;
    tubeShapes_.erase(it);
    tubeShapes_[newName] = std::move(shape);
    for (Guide& g : guides_)
        if (g.shape == name) g.shape = newName;
}

void GuideHierarchy::removeTubeShape(const std::string& name) {
    if (!tubeShapes_.erase(name)) fail("no tube shape named '" + name + "'");
    for (Guide& g : guides_)
        if (g.shape == name) g.shape.clear();
}

void GuideHierarchy::addAttribute(const std::string& name, float value) {
    if (name.empty()) fail("a guide attribute needs a name");
    if (std::find(attributeNames_.begin(), attributeNames_.end(), name) != attributeNames_.end())
        fail("a guide attribute named '" + name + "' already exists");
    attributeNames_.push_back(name);
    for (Guide& g : guides_) g.attributes[name] = value;
}

void GuideHierarchy::setAttribute(std::uint64_t id, const std::string& name, float value) {
    if (!index_.count(id)) fail("setAttribute: unknown guide");
    if (std::find(attributeNames_.begin(), attributeNames_.end(), name) == attributeNames_.end())
        addAttribute(name, 0.0f);
    guideRef(id).attributes[name] = value;
}

}  // namespace tressora
