// Writing a groom document: the tree is built in the file's key order with every long array
// standing as a marker, dumped once, and the ready-made array texts are spliced in.

#include <exception>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "core/parallel.h"
#include "groom/groom_file.h"
#include "groom/groom_files.h"
#include "groom/mesh_json.h"
#include "groom/prototypes_json.h"

namespace tressora {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

// Guides per formatting task.
constexpr std::size_t kGuideGrain = 16;

bool present(const json& value) { return !value.is_null() && !(value.is_structured() && value.empty()); }

ordered_json cacheJson(const CacheReference& ref) {
    ordered_json out = {{"file", ref.file}};
    if (!ref.object.empty()) out["object"] = ref.object;
    if (ref.stamp != 0.0) out["stamp"] = ref.stamp;
    return out;
}

std::string flatGuideText(const FlatGuide& g) {
    std::string text = "{\"id\":" + std::to_string(g.id) + ",\"root\":" + floatArrayText(std::span(&g.root, 1), "guides.root") +
                       ",\"points\":" + floatArrayText(g.points, "guides.points");
    if (g.frameUp) text += ",\"frameUp\":" + floatArrayText(std::span(&*g.frameUp, 1), "guides.frameUp");
    text += '}';
    return text;
}

// The flat guides as one array text, formatted in parallel; a refusal names the first
// guide's fault in guide order, whatever the threads did.
std::string flatGuidesText(const std::vector<FlatGuide>& guides) {
    std::vector<std::string> texts(guides.size());
    std::vector<std::exception_ptr> errors(guides.size());
    parallelRange(0, guides.size(), kGuideGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            try {
                texts[i] = flatGuideText(guides[i]);
            } catch (...) {
                errors[i] = std::current_exception();
            }
        }
    });
    for (const std::exception_ptr& e : errors)
        if (e) std::rethrow_exception(e);
    std::size_t size = 2;
    for (const std::string& t : texts) size += t.size() + 1;
    std::string out;
    out.reserve(size);
    out += '[';
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i) out += ',';
        out += texts[i];
    }
    out += ']';
    return out;
}

template <class Map, class Make>
ordered_json byName(const Map& entries, Make&& make) {
    ordered_json out = ordered_json::object();
    for (const auto& [name, entry] : entries) out[name] = make(name, entry);
    return out;
}

ordered_json groomTree(const GroomScene& s, ArraySplice& splice) {
    ordered_json doc = ordered_json::object();
    doc["format"] = kGroomFormat;
    doc["version"] = kGroomVersion;
    doc["framesPerSecond"] = s.framesPerSecond;
    doc["units"] = s.units;
    doc["upAxis"] = s.upAxis;
    if (!s.source.empty()) doc["source"] = s.source;
    if (present(s.graph)) doc["graph"] = s.graph;
    if (s.hierarchy) doc["hierarchy"] = splice.add(s.hierarchy->toJson());
    if (present(s.parts)) doc["parts"] = s.parts;
    if (present(s.correctives)) doc["correctives"] = s.correctives;
    if (present(s.flow)) doc["flow"] = s.flow;
    if (present(s.sculpts)) doc["sculpts"] = s.sculpts;
    if (present(s.controls)) doc["controls"] = s.controls;
    if (present(s.maps)) doc["maps"] = s.maps;
    if (s.scalp) doc["scalp"] = meshObjectJson(s.scalp, "scalp", splice);
    if (present(s.topology)) doc["topology"] = s.topology;
    const auto meshes = [&splice](const char* key) {
        return [&splice, key](const std::string& name, const MeshObject& object) {
            return meshObjectJson(object, std::string(key) + "." + name, splice);
        };
    };
    if (!s.scalps.empty()) doc["scalps"] = byName(s.scalps, meshes("scalps"));
    if (!s.guides.empty()) doc["guides"] = splice.add(flatGuidesText(s.guides));
    if (!s.scalpCache.empty()) doc["scalpCache"] = cacheJson(s.scalpCache);
    if (!s.guideCache.empty()) doc["guideCache"] = cacheJson(s.guideCache);
    if (!s.searchPaths.empty()) doc["searchPaths"] = s.searchPaths;
    if (s.followScalp) doc["followScalp"] = true;
    if (!s.scaleSource.empty()) doc["scaleSource"] = s.scaleSource;
    if (s.scaleReference) doc["scaleReference"] = *s.scaleReference;
    if (s.scaleTransformReference) doc["scaleTransformReference"] = *s.scaleTransformReference;
    if (present(s.cardBake)) doc["cardBake"] = s.cardBake;
    if (!s.simCaches.empty())
        doc["simCaches"] = byName(s.simCaches, [](const std::string&, const CacheReference& r) { return cacheJson(r); });
    if (present(s.prototypes)) doc["prototypes"] = prototypesJson(s.prototypes, splice);
    if (!s.colliders.empty()) doc["colliders"] = byName(s.colliders, meshes("colliders"));
    if (present(s.transferMarkers)) doc["transferMarkers"] = s.transferMarkers;
    if (present(s.referencePhotos)) doc["referencePhotos"] = s.referencePhotos;
    if (present(s.guideGroupColors)) doc["guideGroupColors"] = s.guideGroupColors;
    if (!s.hiddenGuideGroups.empty()) doc["hiddenGuideGroups"] = s.hiddenGuideGroups;
    return doc;
}

std::string dump(const ordered_json& doc) { return doc.dump(-1, ' ', false, ordered_json::error_handler_t::replace); }

}  // namespace

std::string groomText(const GroomScene& scene) {
    ArraySplice splice;
    const std::string dumped = dump(groomTree(scene, splice));
    std::string text;
    if (splice.splice(dumped, text)) return text;
    // Some string of the document reads like a marker: build the tree with real arrays.
    ArraySplice inlined(true);
    return dump(groomTree(scene, inlined));
}

void writeGroom(const std::string& path, const GroomScene& scene) { writeFileWhole(path, groomText(scene)); }

}  // namespace tressora
