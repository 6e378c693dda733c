// Guides: the groom's guide hierarchy narrowed to a level or to named groups, as the flat
// GuideSet that guide ports carry. Its stamp of the hierarchy covers only the guides it
// reads, so editing another group leaves its result cached.

#include <algorithm>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "core/guide_hierarchy.h"
#include "core/guide_set.h"
#include "core/hash.h"
#include "graph/operator_registry.h"
#include "operators/growth/node_support.h"
#include "operators/growth/source_nodes.h"

namespace tressora {

namespace {

// Names separated by blanks or commas.
std::vector<std::string> splitNames(const std::string& text) {
    std::vector<std::string> names;
    std::string current;
    for (const char c : text) {
        if (c == ' ' || c == ',' || c == '\t' || c == '\n' || c == '\r') {
            if (!current.empty()) names.push_back(std::move(current));
            current.clear();
        } else {
            current += c;
        }
    }
    if (!current.empty()) names.push_back(std::move(current));
    return names;
}

// The groups a Guides node reads, and the names of `group` that no group bears.
struct Selection {
    std::vector<std::uint32_t> groups;
    std::vector<std::string> unknown;
};

struct Request {
    std::int64_t level = -1;
    std::string group;
    std::string exclude;
};

// Throws GraphError for a name in `exclude` that no group bears.
Selection select(const GuideHierarchy& hierarchy, const Request& request) {
    std::set<std::uint32_t> excluded;
    for (const std::string& name : splitNames(request.exclude)) {
        const GuideGroup* group = hierarchy.findGroup(name);
        if (!group) throw GraphError("Guides: no guide group named '" + name + "' to exclude");
        excluded.insert(group->id);
    }
    // A group is left out with its child groups: walk each group's parents.
    const auto isExcluded = [&](std::uint32_t id) {
        for (const GuideGroup* g = hierarchy.findGroup(id); g; g = g->parent ? hierarchy.findGroup(g->parent) : nullptr)
            if (excluded.count(g->id)) return true;
        return false;
    };
    Selection selection;
    const std::vector<std::string> names = splitNames(request.group);
    if (names.empty()) {
        int level = static_cast<int>(request.level);
        if (level < 0) {
            level = 0;
            for (const GuideGroup& g : hierarchy.groups()) level = std::max(level, hierarchy.depth(g.id));
        }
        for (const GuideGroup& g : hierarchy.groups())
            if (hierarchy.depth(g.id) == level && !isExcluded(g.id)) selection.groups.push_back(g.id);
        return selection;
    }
    for (const std::string& name : names) {
        const GuideGroup* group = hierarchy.findGroup(name);
        if (!group) {
            selection.unknown.push_back(name);
            continue;
        }
        if (!isExcluded(group->id) && std::ranges::find(selection.groups, group->id) == selection.groups.end())
            selection.groups.push_back(group->id);
    }
    return selection;
}

GuideSet narrowed(const GuideHierarchy& hierarchy, const Selection& selection) {
    // fromHierarchy reads an empty list as "every group": nothing chosen is an empty set.
    if (selection.groups.empty()) return GuideSet{};
    return GuideSet::fromHierarchy(hierarchy, selection.groups);
}

class GuidesOperator final : public Operator {
public:
    std::string type() const override { return "Guides"; }
    std::string role() const override { return "source"; }
    std::vector<Port> inputs() const override { return {}; }
    Port output() const override { return {"out", PortType::Guides}; }

    std::vector<ParamSpec> params() const override {
        return {
            ParamRow("input", std::string("guides"), "Name of the external flat guide input").animatable().advanced(),
            ParamRow("hierarchy", std::string("hierarchy"), "Name of the external guide hierarchy input")
                .animatable()
                .advanced(),
            ParamRow("level", std::int64_t{-1}, "Hierarchy level to use (-1: deepest), without groups")
                .slider(-1, 5)
                .shownWhen("group", {""}),
            ParamRow("group", std::string(),
                     "Hierarchy groups to use instead of a level, space or comma separated, with their guides "
                     "together (empty: use level)")
                .animatable(),
            ParamRow("exclude", std::string(),
                     "Groups left out, with their child groups (space or comma separated), e.g. braid paths that are "
                     "not hair")
                .animatable(),
        };
    }

    std::vector<std::string> sceneInputs() const override { return {hierarchyName(), flatName()}; }

    std::uint64_t sceneInputStamp(const std::string& name, const SceneItem& item) const override {
        const auto hierarchy = item.value.as<GuideHierarchy>();
        if (name != hierarchyName() || !hierarchy) return item.stamp;
        const Request request = currentRequest();
        std::lock_guard<std::mutex> lock(mutex_);
        if (stampCache_.hierarchy == hierarchy.get() && stampCache_.itemStamp == item.stamp &&
            stampCache_.level == request.level && stampCache_.group == request.group &&
            stampCache_.exclude == request.exclude)
            return stampCache_.stamp;
        std::uint64_t stamp = item.stamp;
        try {
            const Selection selection = select(*hierarchy, request);
            stamp = combine(hash64(0x6A1D), narrowed(*hierarchy, selection).fingerprint());
            for (const std::uint32_t g : selection.groups) {
                const Vec3f c = hierarchy->findGroup(g)->color;
                stamp = combine(combine(combine(combine(stamp, g), floatBits(c.x)), floatBits(c.y)), floatBits(c.z));
            }
            for (const std::string& unknown : selection.unknown) stamp = combineText(stamp, unknown);
        } catch (const GraphError&) {
            // The evaluation reports the bad name; the key just follows the whole hierarchy.
        }
        stampCache_ = {hierarchy.get(), item.stamp, request.level, request.group, request.exclude, stamp};
        return stamp;
    }

    Value evaluate(EvalContext& context, const std::vector<Value>&) override {
        const Request request = currentRequest();
        if (const SceneItem* item = context.sceneItem(hierarchyName())) {
            if (const auto hierarchy = item->value.as<GuideHierarchy>()) {
                const Selection selection = select(*hierarchy, request);
                for (const std::string& unknown : selection.unknown)
                    context.addNote("no guide group named '" + unknown + "'");
                return Value(std::make_shared<const GuideSet>(narrowed(*hierarchy, selection)));
            }
        }
        // Without a hierarchy there are no groups: a group asked for, or left out, is unknown.
        for (const std::string& name : splitNames(request.exclude))
            throw GraphError("Guides: no guide group named '" + name + "' to exclude");
        const std::vector<std::string> names = splitNames(request.group);
        for (const std::string& name : names) context.addNote("no guide group named '" + name + "'");
        if (names.empty())
            if (const SceneItem* item = context.sceneItem(flatName()); item && item->value.holds<GuideSet>())
                return item->value;
        return Value(std::make_shared<const GuideSet>());
    }

private:
    std::string hierarchyName() const { return paramValues.getString("hierarchy", "hierarchy"); }
    std::string flatName() const { return paramValues.getString("input", "guides"); }
    Request currentRequest() const {
        return {paramValues.getInt("level", -1), paramValues.getString("group", ""),
                paramValues.getString("exclude", "")};
    }

    // The last narrowed stamp, so keying the node again costs nothing.
    struct StampCache {
        const GuideHierarchy* hierarchy = nullptr;
        std::uint64_t itemStamp = 0;
        std::int64_t level = 0;
        std::string group, exclude;
        std::uint64_t stamp = 0;
    };
    mutable std::mutex mutex_;
    mutable StampCache stampCache_;
};

}  // namespace

void registerGuidesOperator(OperatorRegistry& registry) {
    registry.add("Guides",
                 typeInfo("source", "The groom's guides, by group: what Interpolate, Clump and friends follow.",
                              "guide curves groups"),
                 [] { return std::make_unique<GuidesOperator>(); });
}

}  // namespace tressora
