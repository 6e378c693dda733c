// Reading a groom document: the format and version checks first, then every key of the file
// by name, each with a sentence that names the key when its value will not do.

#include <nlohmann/json.hpp>

#include "core/document_version.h"
#include "core/errors.h"
#include "core/json_depth.h"
#include "core/json_numbers.h"
#include "groom/groom_file.h"
#include "groom/groom_files.h"
#include "groom/mesh_json.h"
#include "groom/prototypes_json.h"

namespace tressora {

namespace {

using nlohmann::json;

[[noreturn]] void fail(const std::string& text) { throw GroomFileError("groom file: " + text); }

// The parser's sentence without the library's "[json.exception.parse_error.101] " tag.
std::string parserText(const std::exception& e) {
    std::string text = e.what();
    if (const auto close = text.find("] "); text.rfind("[json.exception.", 0) == 0 && close != std::string::npos)
        text = text.substr(close + 2);
    return text;
}

const json* member(const json& doc, const char* key) {
    const auto it = doc.find(key);
    return it == doc.end() || it->is_null() ? nullptr : &*it;
}

std::string text(const json& value, const std::string& key) {
    if (!value.is_string()) fail("'" + key + "' must be text");
    return value.get<std::string>();
}

std::vector<std::string> texts(const json& value, const std::string& key) {
    bool good = value.is_array();
    std::vector<std::string> out;
    for (std::size_t i = 0; good && i < value.size(); ++i) {
        good = value[i].is_string();
        if (good) out.push_back(value[i].get<std::string>());
    }
    if (!good) fail("'" + key + "' must be an array of strings");
    return out;
}

// Sub-documents the scene keeps whole are moved out of the parsed file, never copied: a copy
// of a JSON value is recursive.
json keptObject(json& value, const std::string& key) {
    if (!value.is_object()) fail("'" + key + "' must be an object");
    return std::move(value);
}

json keptArray(json& value, const std::string& key) {
    if (!value.is_array()) fail("'" + key + "' must be an array");
    return std::move(value);
}

// JSON held as the text of a string value: refused when it nests too deep for the program,
// else parsed with `allowExceptions` deciding between a thrown parse_error and a discarded value.
json innerDocument(const json& value, const std::string& key, bool allowExceptions) {
    const std::string& text = value.get_ref<const std::string&>();
    if (!jsonDepthWithin(text)) fail(jsonTooDeepText(key));
    return json::parse(text, nullptr, allowExceptions, false);
}

// A document held as an object or as the text of one.
json documentValue(json& value, const std::string& key, bool& parsed) {
    parsed = true;
    if (!value.is_string()) return std::move(value);
    json doc = innerDocument(value, key, false);
    parsed = !doc.is_discarded();
    return doc;
}

CacheReference cacheReference(const json& value, const std::string& key) {
    CacheReference ref;
    if (value.is_string()) {
        ref.file = value.get<std::string>();
    } else if (value.is_object()) {
        ref.file = value.at("file").get<std::string>();
        if (const auto it = value.find("object"); it != value.end() && !it->is_null()) ref.object = it->get<std::string>();
        if (const auto it = value.find("stamp"); it != value.end() && !it->is_null()) ref.stamp = it->get<double>();
    } else {
        throw GroomFileError("groom file: '" + key +
                             "' must be a cache reference (a file name, or an object with file, object and stamp)");
    }
    return ref;
}

// A name of `scalps`: what a Scalp node's input can name, so not empty, not the main
// scalp's word, and free of control characters and blanks at either end.
bool goodScalpName(const std::string& name) {
    if (name.empty() || name == "scalp" || name.front() == ' ' || name.back() == ' ') return false;
    for (unsigned char c : name)
        if (c < 0x20 || c == 0x7f) return false;
    return true;
}

std::map<std::string, MeshObject> meshObjects(const json& value, const std::string& key, bool checkNames) {
    if (!value.is_object()) fail("'" + key + "' must map names to mesh objects");
    std::map<std::string, MeshObject> out;
    for (const auto& [name, object] : value.items()) {
        if (checkNames && !goodScalpName(name)) fail("bad scalps name '" + name + "'");
        out[name] = readMeshObject(object, key + "." + name);
    }
    return out;
}

std::vector<FlatGuide> flatGuides(const json& value) {
    if (!value.is_array()) fail("'guides' must be an array of guide objects");
    std::vector<FlatGuide> out;
    out.reserve(value.size());
    for (const json& g : value) {
        if (!g.is_object()) fail("'guides' must be an array of guide objects");
        FlatGuide guide;
        const std::optional<std::uint64_t> id = wholeNumber(g.at("id"));
        if (!id) fail("'guides.id' must be a whole number");
        guide.id = *id;
        const std::vector<Vec3f> root = readPoints(g.at("root"), "guides.root");
        if (root.size() != 1) fail("'guides.root' must be one 3-tuple");
        guide.root = root[0];
        guide.points = readPoints(g.at("points"), "guides.points");
        if (const auto it = g.find("frameUp"); it != g.end() && !it->is_null()) {
            const std::vector<Vec3f> up = readPoints(*it, "guides.frameUp");
            if (up.size() != 1) fail("'guides.frameUp' must be one 3-tuple");
            guide.frameUp = up[0];
        }
        out.push_back(std::move(guide));
    }
    return out;
}

std::shared_ptr<const GuideHierarchy> hierarchy(const json& value) {
    json parsed;
    if (value.is_string()) {
        try {
            parsed = innerDocument(value, "hierarchy", true);
        } catch (const json::parse_error& e) {
            fail("invalid hierarchy JSON: " + parserText(e));
        }
    }
    try {
        return std::make_shared<const GuideHierarchy>(GuideHierarchy::fromJson(value.is_string() ? parsed : value));
    } catch (const SchemaError& e) {
        fail(std::string("invalid hierarchy JSON: ") + e.what());
    }
}

std::map<std::string, CacheReference> simCaches(const json& value) {
    json parsed;
    if (value.is_string()) {
        if (!jsonDepthWithin(value.get_ref<const std::string&>())) throw GroomFileError(jsonTooDeepText("simCaches"));
        try {
            parsed = json::parse(value.get_ref<const std::string&>(), nullptr, true, false);
        } catch (const json::parse_error& e) {
            throw GroomFileError("simCaches: " + parserText(e));
        }
    }
    const json& doc = value.is_string() ? parsed : value;
    if (!doc.is_object()) throw GroomFileError("simCaches: not an object of Simulate nodes' bakes");
    std::map<std::string, CacheReference> out;
    for (const auto& [node, bake] : doc.items()) {
        if (!bake.is_string() && !bake.is_object())
            throw GroomFileError("simCaches: the bake of '" + node +
                                 "' must be a file name or an object with file, object and stamp");
        out[node] = cacheReference(bake, "simCaches." + node);
    }
    return out;
}

void checkMaps(const json& maps) {
    for (const auto& [name, entry] : maps.items())
        if (!entry.is_object() || !entry.contains("kind") || !entry["kind"].is_string())
            fail("'maps." + name + "' must be an object with a kind (texture or vertices)");
}

double number(const json& value, const std::string& key) {
    if (!value.is_number()) fail("'" + key + "' must be a number");
    return value.get<double>();
}

}  // namespace

GroomScene groomFromJson(json doc) {
    const json* format = doc.is_object() ? member(doc, "format") : nullptr;
    // Members that the scene keeps as JSON are moved out of `doc`.
    const auto take = [&doc](const char* key) { return const_cast<json*>(member(doc, key)); };
    if (!format || !format->is_string() || format->get_ref<const std::string&>() != kGroomFormat)
        throw GroomFileError("not a Tressora groom file");
    checkDocumentVersion(doc, "groom file", kGroomVersion);

    GroomScene s;
    if (const json* v = member(doc, "framesPerSecond")) {
        s.framesPerSecond = number(*v, "framesPerSecond");
        if (!(s.framesPerSecond > 0.0)) fail("'framesPerSecond' must be a positive number");
    }
    if (const json* v = member(doc, "units")) s.units = text(*v, "units");
    if (const json* v = member(doc, "upAxis")) {
        const std::string axis = v->is_string() ? v->get<std::string>() : v->dump();
        if (axis != "Y" && axis != "Z") fail("upAxis is \"Y\" or \"Z\", not \"" + axis + "\"");
        s.upAxis = axis;
    }
    if (const json* v = member(doc, "source")) s.source = text(*v, "source");
    if (json* v = take("graph")) {
        bool parsed = false;
        s.graph = documentValue(*v, "graph", parsed);
        if (!parsed || !s.graph.is_object()) fail("invalid graph JSON");
    }
    if (const json* v = member(doc, "hierarchy")) s.hierarchy = hierarchy(*v);
    if (json* v = take("parts")) s.parts = keptObject(*v, "parts");
    if (json* v = take("correctives")) s.correctives = keptObject(*v, "correctives");
    if (json* v = take("flow")) s.flow = keptObject(*v, "flow");
    if (json* v = take("sculpts")) s.sculpts = keptObject(*v, "sculpts");
    if (json* v = take("controls")) s.controls = keptArray(*v, "controls");
    if (json* v = take("maps")) {
        s.maps = keptObject(*v, "maps");
        checkMaps(s.maps);
    }
    if (const json* v = member(doc, "scalp")) s.scalp = readMeshObject(*v, "scalp");
    if (json* v = take("topology")) s.topology = keptObject(*v, "topology");
    if (const json* v = member(doc, "scalps")) s.scalps = meshObjects(*v, "scalps", true);
    if (const json* v = member(doc, "guides")) s.guides = flatGuides(*v);
    if (const json* v = member(doc, "scalpCache")) s.scalpCache = cacheReference(*v, "scalpCache");
    if (const json* v = member(doc, "guideCache")) s.guideCache = cacheReference(*v, "guideCache");
    if (const json* v = member(doc, "searchPaths")) s.searchPaths = texts(*v, "searchPaths");
    if (const json* v = member(doc, "followScalp")) {
        if (!v->is_boolean()) fail("'followScalp' must be true or false");
        s.followScalp = v->get<bool>();
    }
    if (const json* v = member(doc, "scaleSource")) s.scaleSource = text(*v, "scaleSource");
    if (const json* v = member(doc, "scaleReference")) s.scaleReference = number(*v, "scaleReference");
    if (const json* v = member(doc, "scaleTransformReference"))
        s.scaleTransformReference = number(*v, "scaleTransformReference");
    if (json* v = take("cardBake")) s.cardBake = keptObject(*v, "cardBake");
    if (const json* v = member(doc, "simCaches")) s.simCaches = simCaches(*v);
    if (json* v = take("prototypes")) {
        checkPrototypes(*v);
        s.prototypes = std::move(*v);
    }
    if (const json* v = member(doc, "colliders")) s.colliders = meshObjects(*v, "colliders", false);
    if (json* v = take("transferMarkers")) s.transferMarkers = keptArray(*v, "transferMarkers");
    if (json* v = take("referencePhotos")) s.referencePhotos = keptArray(*v, "referencePhotos");
    if (json* v = take("guideGroupColors")) s.guideGroupColors = keptObject(*v, "guideGroupColors");
    if (const json* v = member(doc, "hiddenGuideGroups")) s.hiddenGuideGroups = texts(*v, "hiddenGuideGroups");
    return s;
}

GroomScene groomFromText(std::string_view text) { return groomFromJson(parseDocument(text, "groom file")); }

GroomScene readGroom(const std::string& path) {
    GroomScene scene = groomFromText(readWholeFile(path));
    scene.filePath = path;
    return scene;
}

}  // namespace tressora
