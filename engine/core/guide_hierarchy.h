#pragma once
// The artist's guide edit state: named groups of guides in a tree of groups, where a guide
// of a child group follows a parent guide of the parent group through stored offsets.
// It lives in the groom document and is written as JSON ("guide data"). Edits run on one
// thread at a time; each checks everything first and changes nothing when it fails
// (std::invalid_argument with the user's sentence).

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "core/guide.h"
#include "core/scalp_mesh.h"
#include "core/tube.h"
#include "core/tube_shape.h"

namespace tressora {

/// How generateChildren scatters children round each parent.
struct ChildOptions {
    int count = 4;            ///< children per parent
    float rootRadius = 0.5f;  ///< spread at the root, scene units
    float tipRadius = 0.5f;   ///< spread at the tip
    float twist = 0.0f;       ///< radians the spread turns along the whole guide
    float jitter = 0.0f;      ///< random extra offset at the tip
    std::uint64_t seed = 0;
    /// When set, each child is rooted where its first point lands on this scalp; otherwise
    /// it shares its parent's root.
    const ScalpMesh* scalp = nullptr;
};

class GuideHierarchy {
public:
    /// The version of the guide data this build writes and reads.
    static constexpr int kVersion = 1;
    /// Ids below this come from the counter or the caller; generated children's hashed ids
    /// lie above it (almost always) and never move the counter.
    static constexpr std::uint64_t kCounterIds = std::uint64_t{1} << 32;

    // ---- reading ----

    std::uint64_t scalpTopology() const { return scalpTopology_; }
    void setScalpTopology(std::uint64_t hash) { scalpTopology_ = hash; }
    const std::vector<GuideGroup>& groups() const { return groups_; }
    const std::vector<Guide>& guides() const { return guides_; }
    const TubeShapeLibrary& tubeShapes() const { return tubeShapes_; }
    const std::vector<std::string>& attributeNames() const { return attributeNames_; }

    const Guide* findGuide(std::uint64_t id) const;
    const GuideGroup* findGroup(std::uint32_t id) const;
    const GuideGroup* findGroup(std::string_view name) const;
    /// The id of the group of that name; throws "no such guide group".
    std::uint32_t groupId(std::string_view name) const;
    /// 0 for a root group, 1 for its child groups and so on.
    int depth(std::uint32_t group) const;
    /// The ids of a group's guides, in creation order.
    std::vector<std::uint64_t> guidesOf(std::uint32_t group) const;
    /// The id the next new guide will get: the first unused value of a free-running counter.
    std::uint64_t freshGuideId() const;

    // ---- groups ----

    /// A new group with the next id. Failures: "addGroup: unknown parent group";
    /// "addGroup: group '<name>' exists"; "a guide group needs a name".
    std::uint32_t addGroup(const std::string& name, std::uint32_t parent = 0);
    void setGroupColor(std::uint32_t group, Vec3f color);
    /// Renames a group. Failures: "no such guide group"; "a guide group needs a name";
    /// "a guide group named '<name>' exists".
    void renameGroup(std::string_view name, const std::string& newName);
    /// Removes a group with its child groups and all their guides ("no such guide group").
    void removeGroup(std::string_view name);
    /// Makes a child group a root group; its guides become primary and keep their points.
    void promoteGroup(std::uint32_t group);
    /// Makes a group a child of a sibling group: each guide follows the sibling's guide
    /// whose root is nearest.
    void demoteGroup(std::uint32_t group, std::uint32_t newParent);

    // ---- guides ----

    /// Adds a primary guide to a root group under `id`. The guide's group, parent, locked
    /// and offsets are set here.
    void addGuide(std::uint32_t group, std::uint64_t id, Guide guide);
    /// Adds a child following `parentId`, its offsets computed from `points` (resampled to
    /// the parent's point count); it takes the parent's tube and frameUp. Returns its id.
    std::uint64_t addChildGuide(std::uint32_t group, std::uint64_t parentId, std::vector<Vec3f> points,
                                const ScalpMesh* scalp = nullptr);
    /// Regenerates `options.count` children per parent (all guides of the parent group when
    /// `parents` is empty) into the child group `group`, made when missing; children that
    /// those parents had in that group are replaced. Returns the new ids in order.
    std::vector<std::uint64_t> generateChildren(std::uint32_t parentGroup, const std::string& group,
                                                std::span<const std::uint64_t> parents, const ChildOptions& options);
    /// Replaces a curve (a following child's offsets are recomputed from it), then re-derives
    /// the guides that follow it.
    void setPoints(std::uint64_t id, std::vector<Vec3f> points);
    /// Moves a child to another parent of the same parent group, keeping its curve.
    void reparent(std::uint64_t id, std::uint64_t newParent);
    /// Locks a child (it keeps its current points) or unlocks it (it follows again, offsets
    /// computed from its current points).
    void setLocked(std::uint64_t id, bool locked);
    /// Removes a guide and every guide that follows it.
    void removeGuide(std::uint64_t id);
    /// Sets a guide's tube: the profiles sampled from the record; "round" stores no shape.
    void setTube(std::uint64_t id, const Tube& tube);

    // ---- mirroring and re-rooting ----

    /// Mirrors every root group across the plane `axis` = offset: guides on the kept side
    /// (positive when keepPositive) stay and get a mirrored copy with a fresh id; guides on
    /// the other side are removed with their followers. `ids` receives old id -> copy id.
    /// With a scalp the copies are rooted on it, otherwise they have no root.
    void mirrorAll(std::map<std::uint64_t, std::uint64_t>& ids, int axis, float offset, bool keepPositive,
                   const ScalpMesh* scalp = nullptr);
    /// The same for one root group.
    void mirrorGroup(std::uint32_t group, int axis, float offset, bool keepPositive,
                     std::map<std::uint64_t, std::uint64_t>& ids, const ScalpMesh* scalp = nullptr);
    /// Re-roots every guide on another scalp and rebuilds its curve there (through rootLocal
    /// when present, else by moving the curve with its root), then records the scalp's
    /// topology hash. "transfer: the new scalp has no faces".
    void transfer(const ScalpMesh& newScalp);
    /// Stores each rooted guide's curve and frameUp in its root's surface frame.
    void computeRootLocal(const ScalpMesh& scalp);

    // ---- library and attributes ----

    /// Adds a custom tube shape after checking it; "a tube shape named '<name>' already exists".
    void addTubeShape(CustomTubeShape shape);
    /// Replaces the outline of an existing shape; "no tube shape named '<name>'".
    void replaceTubeShape(CustomTubeShape shape);
    /// Renames a shape and the guides that use it.
    void renameTubeShape(const std::string& name, const std::string& newName);
    /// Removes a shape; the guides that used it become round.
    void removeTubeShape(const std::string& name);
    /// Adds a per-guide attribute with this value on every guide;
    /// "a guide attribute named '<name>' already exists".
    void addAttribute(const std::string& name, float value = 0.0f);
    /// Sets one guide's attribute value, adding the attribute (0 elsewhere) when new.
    void setAttribute(std::uint64_t id, const std::string& name, float value);

    // ---- JSON ----

    /// The compact JSON document: groups, guides, scalpTopology, tubeShapes, version. Guides
    /// are formatted in parallel and joined in order, so the text never depends on threads.
    std::string toJson() const;
    /// Reads a document. Failures are SchemaError: the version check of "guide data",
    /// "guide data: invalid JSON: <parser's text>" and "invalid guide data: <detail>".
    /// Guides naming a shape missing from the file's library load round; `report` then
    /// receives one line saying so (empty otherwise).
    static GuideHierarchy fromJson(std::string_view text, std::string* report = nullptr);
    static GuideHierarchy fromJson(const nlohmann::json& document, std::string* report = nullptr);
    /// Text in a string or a literal is read as text: without these, where the JSON type is
    /// complete the call could as well make a JSON string value of it.
    static GuideHierarchy fromJson(const std::string& text, std::string* report = nullptr) {
        return fromJson(std::string_view(text), report);
    }
    static GuideHierarchy fromJson(const char* text, std::string* report = nullptr) {
        return fromJson(std::string_view(text), report);
    }

private:
    friend class GuideJsonReader;

    Guide& guideRef(std::uint64_t id);
    /// freshGuideId(), and the counter moves past it.
    std::uint64_t takeGuideId();
    void reindex();
    std::vector<Vec3f> offsetsFrom(const Guide& parent, std::span<const Vec3f> points) const;
    /// A following child's points from its parent and offsets.
    void follow(Guide& child) const;
    /// Re-derives, depth first, every guide that follows `id`.
    void rederiveFollowers(std::uint64_t id);
    /// Removes the guides with these ids and all their followers.
    void removeWithFollowers(std::vector<std::uint64_t> ids);
    void mirrorGroups(const std::vector<std::uint32_t>& groups, int axis, float offset, bool keepPositive,
                      std::map<std::uint64_t, std::uint64_t>& ids, const ScalpMesh* scalp);
    void noteAttributes(const Guide& guide);

    std::uint64_t scalpTopology_ = 0;
    std::vector<GuideGroup> groups_;
    std::vector<Guide> guides_;
    std::unordered_map<std::uint64_t, std::size_t> index_;
    TubeShapeLibrary tubeShapes_;
    std::uint32_t nextGroupId_ = 1;
    std::uint64_t nextGuideId_ = 1;
    std::vector<std::string> attributeNames_;
};

}  // namespace tressora
