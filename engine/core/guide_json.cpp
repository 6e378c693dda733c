// The guide hierarchy's JSON form ("guide data"): writing in parallel per guide, and
// reading with checks that name the dotted place of every fault.

#include <algorithm>
#include <cmath>
#include <set>

#include <nlohmann/json.hpp>

#include "core/document_version.h"
#include "core/errors.h"
#include "core/json_numbers.h"
#include "core/float_text.h"
#include "core/guide_hierarchy.h"
#include "core/parallel.h"

namespace tressora {
namespace {

using nlohmann::json;

json number(float f) { return shortestDouble(f); }

json floats(const std::vector<float>& values) {
    json out = json::array();
    for (float v : values) out.push_back(number(v));
    return out;
}

json triple(Vec3f v) { return json::array({number(v.x), number(v.y), number(v.z)}); }

json flat(const std::vector<Vec3f>& points) {
    json out = json::array();
    for (const Vec3f& p : points) {
        out.push_back(number(p.x));
        out.push_back(number(p.y));
        out.push_back(number(p.z));
    }
    return out;
}

std::string dump(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

std::string guideText(const Guide& g) {
    json o = json::object();
    o["id"] = g.id;
    o["group"] = g.group;
    o["root"] = json::array({g.root.face, number(g.root.u), number(g.root.v)});
    o["frameUp"] = triple(g.frameUp);
    json tube = {{"width", floats(g.width)}, {"aspect", floats(g.aspect)}, {"twist", floats(g.twist)}};
    if (!g.shape.empty()) tube["shape"] = g.shape;
    o["tube"] = std::move(tube);
    if (g.parent != 0) o["parent"] = g.parent;
    if (g.locked) o["locked"] = true;
    if (!g.attributes.empty()) {
        json a = json::object();
        for (const auto& [name, value] : g.attributes) a[name] = number(value);
        o["attributes"] = std::move(a);
    }
    if (!g.pointAttributes.empty()) {
        json a = json::object();
        for (const auto& [name, values] : g.pointAttributes) a[name] = floats(values);
        o["pointAttributes"] = std::move(a);
    }
    if (g.follows()) {
        // A following child is its offsets; its points are rebuilt when read.
        o["offsets"] = flat(g.offsets);
        return dump(o);
    }
    o["points"] = flat(g.points);
    if (!g.rootLocal.empty()) {
        o["rootLocal"] = flat(g.rootLocal);
        o["frameUpLocal"] = triple(g.frameUpLocal);
    }
    return dump(o);
}

}  // namespace

std::string GuideHierarchy::toJson() const {
    std::vector<std::string> texts(guides_.size());
    parallelRange(0, guides_.size(), 16, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) texts[i] = guideText(guides_[i]);
    });
    json groups = json::array();
    for (const GuideGroup& g : groups_) groups.push_back({{"id", g.id}, {"name", g.name}, {"parent", g.parent}});
    json shapes = json::array();
    for (const auto& entry : tubeShapes_) shapes.push_back(tubeShapeToJson(entry.second));

    std::size_t size = 96;
    for (const std::string& t : texts) size += t.size() + 1;
    std::string out;
    out.reserve(size);
    out += "{\"groups\":" + dump(groups) + ",\"guides\":[";
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i) out += ',';
        out += texts[i];
    }
    out += "],\"scalpTopology\":" + std::to_string(scalpTopology_) + ",\"tubeShapes\":" + dump(shapes) +
           ",\"version\":" + std::to_string(kVersion) + "}";
    return out;
}

/// Reads a guide data document into a hierarchy; every fault is a SchemaError
/// "invalid guide data: <where>: <what>".
class GuideJsonReader {
public:
    explicit GuideJsonReader(GuideHierarchy& h) : h_(h) {}

    void read(const json& doc, std::string* report) {
        checkDocumentVersion(doc, "guide data", GuideHierarchy::kVersion);
        if (const auto it = doc.find("scalpTopology"); it != doc.end()) {
            if (!it->is_number_unsigned() && !(it->is_number_integer() && it->get<std::int64_t>() >= 0))
                fail("scalpTopology", "a whole number, 0 or more");
            h_.scalpTopology_ = it->get<std::uint64_t>();
        }
        readShapes(member(doc, "tubeShapes"));
        readGroups(member(doc, "groups"));
        readGuides(member(doc, "guides"));
        h_.reindex();
        checkLinks();
        deriveFollowers();
        std::uint64_t highest = 0;
        for (const Guide& g : h_.guides_)
            if (g.id < GuideHierarchy::kCounterIds) highest = std::max(highest, g.id);
        h_.nextGuideId_ = highest + 1;
        if (report) *report = unknownShapeReport();
    }

private:
    [[noreturn]] static void fail(const std::string& where, const std::string& what) {
        throw SchemaError("invalid guide data: " + where + ": " + what);
    }

    static const json* member(const json& object, const char* key) {
        const auto it = object.find(key);
        return it == object.end() ? nullptr : &*it;
    }

    static float readFloat(const json& v, const std::string& where) {
        const std::optional<float> f = finiteFloat(v);
        if (!f) fail(where, "a number");
        return *f;
    }

    static std::vector<float> readFloats(const json& v, const std::string& where) {
        if (!v.is_array()) fail(where, "a list of numbers");
        std::vector<float> out;
        out.reserve(v.size());
        for (std::size_t i = 0; i < v.size(); ++i) out.push_back(readFloat(v[i], where + "[" + std::to_string(i) + "]"));
        return out;
    }

    static std::vector<Vec3f> readPoints(const json& v, const std::string& where) {
        const std::vector<float> f = readFloats(v, where);
        if (f.size() % 3 != 0) fail(where, "x, y, z for each point (" + std::to_string(f.size()) + " numbers)");
        std::vector<Vec3f> out(f.size() / 3);
        for (std::size_t i = 0; i < out.size(); ++i) out[i] = {f[i * 3], f[i * 3 + 1], f[i * 3 + 2]};
        return out;
    }

    static Vec3f readTriple(const json& v, const std::string& where) {
        const std::vector<float> f = readFloats(v, where);
        if (f.size() != 3) fail(where, "[x, y, z]");
        return {f[0], f[1], f[2]};
    }

    static std::uint64_t readId(const json& v, const std::string& where) {
        if (!v.is_number_unsigned() || v.get<std::uint64_t>() == 0) fail(where, "a whole number above 0");
        return v.get<std::uint64_t>();
    }

    void readShapes(const json* shapes) {
        if (!shapes) return;
        if (!shapes->is_array()) fail("tubeShapes", "a list of tube shapes");
        for (std::size_t i = 0; i < shapes->size(); ++i) {
            const std::string where = "tubeShapes[" + std::to_string(i) + "]";
            CustomTubeShape shape;
            try {
                shape = tubeShapeFromJson((*shapes)[i]);
            } catch (const std::invalid_argument& e) {
                fail(where, e.what());
            }
            if (h_.tubeShapes_.count(shape.name)) fail(where, "a tube shape named '" + shape.name + "' already exists");
            h_.tubeShapes_[shape.name] = std::move(shape);
        }
    }

    void readGroups(const json* groups) {
        if (!groups) return;
        if (!groups->is_array()) fail("groups", "a list of groups");
        std::uint32_t highest = 0;
        for (std::size_t i = 0; i < groups->size(); ++i) {
            const std::string where = "groups[" + std::to_string(i) + "]";
            const json& g = (*groups)[i];
            if (!g.is_object()) fail(where, "an object with id, name and parent");
            GuideGroup group;
            const json* id = member(g, "id");
            if (!id || !id->is_number_unsigned() || id->get<std::uint64_t>() == 0 ||
                id->get<std::uint64_t>() > 0xFFFFFFFFull)
                fail(where + ".id", "a whole number above 0");
            group.id = id->get<std::uint32_t>();
            const json* name = member(g, "name");
            if (!name || !name->is_string() || name->get<std::string>().empty()) fail(where + ".name", "a group name");
            group.name = name->get<std::string>();
            if (const json* parent = member(g, "parent")) {
                if (!parent->is_number_unsigned() || parent->get<std::uint64_t>() > 0xFFFFFFFFull)
                    fail(where + ".parent", "a group id, or 0 for a root group");
                group.parent = parent->get<std::uint32_t>();
            }
            if (h_.findGroup(group.id)) fail(where + ".id", "group " + std::to_string(group.id) + " comes twice");
            if (h_.findGroup(group.name)) fail(where + ".name", "a guide group named '" + group.name + "' exists");
            highest = std::max(highest, group.id);
            h_.groups_.push_back(group);
        }
        for (std::size_t i = 0; i < h_.groups_.size(); ++i) {
            const GuideGroup& g = h_.groups_[i];
            if (g.parent != 0 && !h_.findGroup(g.parent))
                fail("groups[" + std::to_string(i) + "].parent", "no group " + std::to_string(g.parent));
            if (h_.depth(g.id) >= static_cast<int>(h_.groups_.size()))
                fail("groups[" + std::to_string(i) + "].parent", "the groups' parents go round in a circle");
        }
        h_.nextGroupId_ = highest + 1;
    }

    void readGuides(const json* guides) {
        if (!guides) return;
        if (!guides->is_array()) fail("guides", "a list of guides");
        std::set<std::uint64_t> seen;
        for (std::size_t i = 0; i < guides->size(); ++i) {
            const std::string where = "guides[" + std::to_string(i) + "]";
            const json& o = (*guides)[i];
            if (!o.is_object()) fail(where, "a guide object");
            Guide g;
            const json* id = member(o, "id");
            if (!id) fail(where + ".id", "missing");
            g.id = readId(*id, where + ".id");
            if (!seen.insert(g.id).second) fail(where + ".id", "guide " + std::to_string(g.id) + " comes twice");
            const json* group = member(o, "group");
            if (!group || !group->is_number_unsigned() || !h_.findGroup(group->get<std::uint32_t>()))
                fail(where + ".group", "the id of one of the groups");
            g.group = group->get<std::uint32_t>();

            const json* root = member(o, "root");
            if (!root || !root->is_array() || root->size() != 3 || !(*root)[0].is_number_integer())
                fail(where + ".root", "[face, b1, b2]");
            const std::int64_t face = (*root)[0].get<std::int64_t>();
            if (face < -1 || face > 0x7FFFFFFF) fail(where + ".root", "a face index, or -1 for none");
            g.root = {static_cast<std::int32_t>(face), readFloat((*root)[1], where + ".root[1]"),
                      readFloat((*root)[2], where + ".root[2]")};
            if (const json* up = member(o, "frameUp")) g.frameUp = readTriple(*up, where + ".frameUp");
            if (const json* tube = member(o, "tube")) readTube(*tube, g, where + ".tube");

            if (const json* parent = member(o, "parent")) {
                if (!parent->is_number_unsigned()) fail(where + ".parent", "a guide id");
                g.parent = parent->get<std::uint64_t>();
            }
            if (const json* locked = member(o, "locked")) {
                if (!locked->is_boolean()) fail(where + ".locked", "true or false");
                g.locked = locked->get<bool>();
            }
            if (const json* attributes = member(o, "attributes")) {
                if (!attributes->is_object()) fail(where + ".attributes", "an object of numbers");
                for (const auto& [name, value] : attributes->items())
                    g.attributes[name] = readFloat(value, where + ".attributes." + name);
            }
            if (const json* layers = member(o, "pointAttributes")) {
                if (!layers->is_object()) fail(where + ".pointAttributes", "an object of number lists");
                for (const auto& [name, value] : layers->items())
                    g.pointAttributes[name] = readFloats(value, where + ".pointAttributes." + name);
            }
            if (g.follows()) {
                const json* offsets = member(o, "offsets");
                if (!offsets) fail(where, "a following child guide needs its offsets");
                g.offsets = readPoints(*offsets, where + ".offsets");
                if (g.offsets.size() < 2) fail(where + ".offsets", "at least 2 points");
            } else {
                const json* points = member(o, "points");
                if (!points) fail(where, "a guide needs its points");
                g.points = readPoints(*points, where + ".points");
                if (g.points.size() < 2) fail(where + ".points", "at least 2 points");
                if (const json* local = member(o, "rootLocal")) g.rootLocal = readPoints(*local, where + ".rootLocal");
                if (const json* up = member(o, "frameUpLocal")) g.frameUpLocal = readTriple(*up, where + ".frameUpLocal");
            }
            h_.noteAttributes(g);
            h_.guides_.push_back(std::move(g));
        }
    }

    void readTube(const json& tube, Guide& g, const std::string& where) {
        if (!tube.is_object()) fail(where, "an object with width, aspect and twist");
        if (const json* v = member(tube, "width")) g.width = readFloats(*v, where + ".width");
        if (const json* v = member(tube, "aspect")) g.aspect = readFloats(*v, where + ".aspect");
        if (const json* v = member(tube, "twist")) g.twist = readFloats(*v, where + ".twist");
        if (const json* v = member(tube, "shape")) {
            if (!v->is_string()) fail(where + ".shape", "a shape name");
            const std::string shape = v->get<std::string>();
            if (shape.empty() || isKnownTubeShape(shape, h_.tubeShapes_))
                g.shape = shape;
            else
                ++unknownShapes_[shape];  // the guide keeps its place and is loaded round
        }
    }

    void checkLinks() {
        for (std::size_t i = 0; i < h_.guides_.size(); ++i) {
            const Guide& g = h_.guides_[i];
            const std::string where = "guides[" + std::to_string(i) + "]";
            const GuideGroup* group = h_.findGroup(g.group);
            if (g.parent == 0) {
                if (group->parent != 0) fail(where, "a primary guide (no parent) belongs in a root group");
                continue;
            }
            const Guide* parent = h_.findGuide(g.parent);
            if (!parent) fail(where + ".parent", "no guide " + std::to_string(g.parent));
            if (group->parent == 0 || parent->group != group->parent)
                fail(where + ".parent", "guide " + std::to_string(g.parent) + " is not in the parent group of the guide's group");
        }
    }

    /// Rebuilds every following child's points, parents before children.
    void deriveFollowers() {
        std::vector<std::size_t> order(h_.guides_.size());
        for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::vector<int> depth(h_.guides_.size());
        for (std::size_t i = 0; i < order.size(); ++i) depth[i] = h_.depth(h_.guides_[i].group);
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return depth[a] < depth[b]; });
        for (std::size_t i : order)
            if (h_.guides_[i].follows()) h_.follow(h_.guides_[i]);
    }

    std::string unknownShapeReport() const {
        std::string line;
        for (const auto& [shape, count] : unknownShapes_) {
            if (!line.empty()) line += "; ";
            line += "tube shape '" + shape + "' is not in the groom's shape library: " + std::to_string(count) +
                    (count == 1 ? " guide" : " guides") + " taking it loaded round";
        }
        return line;
    }

    GuideHierarchy& h_;
    std::map<std::string, int> unknownShapes_;
};

GuideHierarchy GuideHierarchy::fromJson(std::string_view text, std::string* report) {
    return fromJson(parseDocument(text, "guide data"), report);
}

GuideHierarchy GuideHierarchy::fromJson(const nlohmann::json& document, std::string* report) {
    GuideHierarchy h;
    try {
        GuideJsonReader(h).read(document, report);
    } catch (const json::exception& e) {
        throw SchemaError(std::string("invalid guide data: ") + e.what());
    }
    return h;
}

}  // namespace tressora
