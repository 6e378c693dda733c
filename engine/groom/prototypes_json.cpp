#include "groom/prototypes_json.h"

#include <cmath>
#include <limits>
#include <string>

#include "core/errors.h"
#include "core/json_numbers.h"
#include "core/instances.h"

namespace tressora {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

[[noreturn]] void fail(const std::string& text) { throw GroomFileError("groom file: " + text); }

}  // namespace

void checkPrototypes(const json& prototypes) {
    if (!prototypes.is_object()) fail("'prototypes' must map names to instance meshes");
    for (const auto& [name, entry] : prototypes.items()) {
        if (!entry.is_object()) fail("'prototypes." + name + "' must be an instance mesh");
        const std::vector<Vec3f> points = readPoints(entry.at("points"), "prototypes.points");
        readUnsignedTriangles(entry.at("triangles"), "prototypes", std::numeric_limits<std::size_t>::max());
        if (const auto it = entry.find("normals"); it != entry.end()) {
            if (readPoints(*it, "prototypes.normals").size() != points.size())
                fail("'prototypes.normals' must hold one normal per point");
        }
        if (const auto it = entry.find("uvs"); it != entry.end()) readPairs(*it, "prototypes.uvs");
        checkStoredPrototype(*storedPrototype(prototypes, name));
    }
}

PrototypeLookup storedPrototypes(const json& prototypes) {
    if (!prototypes.is_object()) return {};
    return [&prototypes](std::string_view name) { return storedPrototype(prototypes, name); };
}

std::shared_ptr<const InstancePrototype> storedPrototype(const json& prototypes, std::string_view name) {
    if (!prototypes.is_object()) return nullptr;
    const auto it = prototypes.find(std::string(name));
    if (it == prototypes.end() || !it->is_object()) return nullptr;
    auto prototype = std::make_shared<InstancePrototype>();
    prototype->points = readPoints(it->at("points"), "prototypes.points");
    prototype->triangles = readUnsignedTriangles(it->at("triangles"), "prototypes", std::numeric_limits<std::size_t>::max());
    if (const auto uvs = it->find("uvs"); uvs != it->end())
        for (const auto& uv : readPairs(*uvs, "prototypes.uvs")) prototype->uvs.push_back({uv[0], uv[1]});
    if (const auto length = it->find("plateLength"); length != it->end())
        if (const std::optional<float> f = finiteFloat(*length)) prototype->plateLength = *f;
    if (const auto height = it->find("plateHeight"); height != it->end())
        if (const std::optional<float> f = finiteFloat(*height)) prototype->plateHeight = *f;
    return prototype;
}

ordered_json prototypesJson(const json& prototypes, ArraySplice& splice) {
    ordered_json out = ordered_json::object();
    for (const auto& [name, entry] : prototypes.items()) {
        ordered_json mesh = ordered_json::object();
        for (const auto& [key, value] : entry.items()) {
            if (key == "points" || key == "normals" || key == "uvs") {
                const std::size_t tuple = key == "uvs" ? 2 : 3;
                if (!value.is_array() || value.size() % tuple != 0)
                    fail("'prototypes." + key + "' must be an array of " + std::to_string(tuple) + "-tuples");
                std::vector<float> floats(value.size());
                for (std::size_t i = 0; i < value.size(); ++i) {
                    if (!value[i].is_number()) fail("'prototypes." + key + "' must hold numbers");
                    const double d = value[i].get<double>();
                    floats[i] = std::fabs(d) <= std::numeric_limits<float>::max() ? static_cast<float>(d)
                                                                                 : std::numeric_limits<float>::quiet_NaN();
                }
                mesh[key] = splice.add(floatArrayText(floats, "prototypes." + key));
            } else {
                mesh[key] = value;
            }
        }
        out[name] = std::move(mesh);
    }
    return out;
}

}  // namespace tressora
