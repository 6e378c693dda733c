#include "maps/painted_map.h"

#include "core/errors.h"
#include "core/json_numbers.h"
#include "core/float_text.h"
#include "core/hash.h"
#include "core/scalp_mesh.h"

namespace tressora {
namespace {

using json = nlohmann::json;

constexpr std::string_view kKindNames[] = {"guides", "texture", "vertices"};

[[noreturn]] void fail(const std::string& text) { throw GroomFileError("groom file: " + text); }

/// The keys each kind reads; everything else is kept as extra.
bool isOwnKey(PaintedMapKind kind, const std::string& key) {
    if (key == "kind") return true;
    switch (kind) {
        case PaintedMapKind::Guides: return key == "layer";
        case PaintedMapKind::Texture: return key == "file" || key == "channels";
        case PaintedMapKind::Vertices: return key == "channels" || key == "vertexCount" || key == "values";
    }
    return false;
}

int readChannels(const json& value, const std::string& where) {
    const auto it = value.find("channels");
    if (it == value.end()) return 1;
    if (!it->is_number_integer() || it->get<std::int64_t>() < 1 || it->get<std::int64_t>() > 4)
        fail(where + ".channels must be a whole number from 1 to 4");
    return static_cast<int>(it->get<std::int64_t>());
}

std::string readText(const json& value, const char* key, const std::string& where) {
    const auto it = value.find(key);
    if (it == value.end()) return {};
    if (!it->is_string()) fail(where + "." + key + " must be text");
    return it->get<std::string>();
}

void readVertexValues(const json& value, const std::string& where, PaintedMap& map) {
    const std::string path = where + ".values";
    const auto it = value.find("values");
    const std::size_t k = static_cast<std::size_t>(map.channels);
    if (it == value.end() || !it->is_array() || it->size() % k != 0)
        fail("'" + path + "' must be an array of " + std::to_string(k) + "-tuples");
    map.values.reserve(it->size());
    for (const json& number : *it) {
        const std::optional<float> f = finiteFloat(number);
        if (!f) fail("'" + path + "' must hold numbers");
        map.values.push_back(*f);
    }
    const std::uint64_t points = map.values.size() / k;
    if (const auto count = value.find("vertexCount"); count != value.end()) {
        if (!count->is_number_integer() || count->get<std::int64_t>() < 0)
            fail(where + ".vertexCount must be a whole number");
        map.vertexCount = count->get<std::uint64_t>();
        if (map.vertexCount != points)
            fail("'" + path + "' holds " + std::to_string(points) + " points for a vertexCount of " +
                 std::to_string(map.vertexCount));
    } else {
        map.vertexCount = points;
    }
}

}  // namespace

std::string_view paintedMapKindName(PaintedMapKind kind) { return kKindNames[static_cast<int>(kind)]; }

MapCatalogValue::MapCatalogValue(std::map<std::string, PaintedMap> maps) : maps_(std::move(maps)) {
    std::uint64_t h = combine(0x3A95, maps_.size());
    for (const auto& [name, map] : maps_) h = combine(combineText(h, name), paintedMapStamp(map));
    stamp_ = h;
}

const PaintedMap* MapCatalogValue::find(const std::string& name) const {
    const auto it = maps_.find(name);
    return it == maps_.end() ? nullptr : &it->second;
}

std::uint64_t paintedMapStamp(const PaintedMap& map) {
    std::uint64_t h = combine(0x9A17, static_cast<std::uint64_t>(map.kind));
    h = combineText(combineText(h, map.file), map.layer);
    h = combine(combine(h, static_cast<std::uint64_t>(map.channels)), map.vertexCount);
    h = combine(h, map.values.size());
    for (float v : map.values) h = combine(h, floatBits(v));
    return combineText(h, map.extra.dump());
}

PaintedMap paintedMapFromJson(const std::string& name, const json& value) {
    const std::string where = "maps." + name;
    if (!value.is_object()) fail(where + " must be an object");
    const std::string kindText = readText(value, "kind", where);
    PaintedMap map;
    bool known = false;
    for (int k = 0; k < 3; ++k) {
        if (kindText == kKindNames[k]) {
            map.kind = static_cast<PaintedMapKind>(k);
            known = true;
        }
    }
    if (!known)
        fail(where + ".kind is \"guides\", \"texture\" or \"vertices\", not \"" + kindText + "\"");
    switch (map.kind) {
        case PaintedMapKind::Guides: map.layer = readText(value, "layer", where); break;
        case PaintedMapKind::Texture:
            map.file = readText(value, "file", where);
            map.channels = readChannels(value, where);
            break;
        case PaintedMapKind::Vertices:
            map.channels = readChannels(value, where);
            readVertexValues(value, where, map);
            break;
    }
    for (const auto& [key, item] : value.items())
        if (!isOwnKey(map.kind, key)) map.extra[key] = item;
    return map;
}

json paintedMapToJson(const PaintedMap& map) {
    json out = map.extra.is_object() ? map.extra : json::object();
    out["kind"] = paintedMapKindName(map.kind);
    switch (map.kind) {
        case PaintedMapKind::Guides:
            if (!map.layer.empty()) out["layer"] = map.layer;
            break;
        case PaintedMapKind::Texture:
            if (!map.file.empty()) out["file"] = map.file;
            out["channels"] = map.channels;
            break;
        case PaintedMapKind::Vertices: {
            out["channels"] = map.channels;
            out["vertexCount"] = map.vertexCount;
            json values = json::array();
            for (float v : map.values) values.push_back(shortestDouble(v));
            out["values"] = std::move(values);
            break;
        }
    }
    return out;
}

std::shared_ptr<const MapCatalogValue> mapCatalogFromJson(const json& maps) {
    if (maps.is_null()) return std::make_shared<const MapCatalogValue>();
    if (!maps.is_object()) fail("maps must be an object of painted maps by name");
    std::map<std::string, PaintedMap> read;
    for (const auto& [name, value] : maps.items()) read.emplace(name, paintedMapFromJson(name, value));
    return std::make_shared<const MapCatalogValue>(std::move(read));
}

json mapCatalogToJson(const MapCatalogValue& catalog) {
    json out = json::object();
    for (const auto& [name, map] : catalog.maps()) out[name] = paintedMapToJson(map);
    return out;
}

std::vector<std::string> paintedMapMismatches(const MapCatalogValue& catalog, const ScalpMesh& scalp) {
    std::vector<std::string> messages;
    for (const auto& [name, map] : catalog.maps()) {
        if (map.kind != PaintedMapKind::Vertices || map.vertexCount == scalp.pointCount()) continue;
        messages.push_back("map '" + name + "' was painted on a scalp with " + std::to_string(map.vertexCount) +
                           " vertices; this one has " + std::to_string(scalp.pointCount()) +
                           " (convert it to a texture or guide layer on the old scalp, or fill it anew)");
    }
    return messages;
}

}  // namespace tressora
