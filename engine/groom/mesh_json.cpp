#include "groom/mesh_json.h"

#include <limits>

#include "core/errors.h"

namespace tressora {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

[[noreturn]] void fail(const std::string& text) { throw GroomFileError("groom file: " + text); }

std::string countText(std::size_t n) { return std::to_string(n); }

// The ScalpMesh polygon table (triangles per authored face) from the kept `polygons`
// object: its `triangleCounts`, or else a fan of count - 2 triangles per face of `counts`.
std::vector<std::int32_t> polygonTriangles(const json& polygons, const std::string& path) {
    std::vector<std::int32_t> out;
    const auto take = [&](const json& list, std::int64_t minus) {
        if (!list.is_array()) fail("'" + path + "' must list whole numbers");
        for (const json& e : list) {
            if (!e.is_number_integer() || e.get<std::int64_t>() - minus < 0 ||
                e.get<std::int64_t>() > std::numeric_limits<std::int32_t>::max())
                fail("'" + path + "' must list whole numbers (a face has at least three corners)");
            out.push_back(static_cast<std::int32_t>(e.get<std::int64_t>() - minus));
        }
    };
    if (const auto it = polygons.find("triangleCounts"); it != polygons.end()) take(*it, 0);
    else if (const auto counts = polygons.find("counts"); counts != polygons.end()) take(*counts, 2);
    return out;
}

}  // namespace

MeshObject readMeshObject(const json& object, const std::string& path, const std::vector<Vec3f>* points) {
    if (!object.is_object()) fail("'" + path + "' must be a mesh object");
    std::vector<Vec3f> pts = points ? *points : readPoints(object.at("points"), path + ".points");
    std::vector<ScalpMesh::Triangle> triangles;
    if (const auto it = object.find("triangles"); it != object.end())
        triangles = readTriangles(*it, path, pts.size());
    const std::size_t pointCount = pts.size(), corners = triangles.size() * 3;
    auto mesh = std::make_shared<ScalpMesh>(std::move(pts), std::move(triangles));

    if (const auto it = object.find("name"); it != object.end()) {
        if (!it->is_string()) fail("'" + path + ".name' must be text");
        mesh->setName(it->get<std::string>());
    }
    if (const auto it = object.find("restPoints"); it != object.end()) {
        std::vector<Vec3f> rest = readPoints(*it, path + ".restPoints");
        if (rest.size() != pointCount)
            fail("'" + path + ".restPoints' must hold one point per point of the mesh (" + countText(pointCount) +
                 "), not " + countText(rest.size()));
        mesh->setRestPoints(std::move(rest));
    }
    if (const auto it = object.find("uvs"); it != object.end()) {
        std::vector<ScalpMesh::Uv> uvs = readPairs(*it, path + ".uvs");
        if (!uvs.empty() && uvs.size() != corners)
            fail("'" + path + ".uvs' must hold one UV per triangle corner (" + countText(corners) + "), not " +
                 countText(uvs.size()));
        mesh->setUvs(std::move(uvs));
    }
    if (const auto it = object.find("colorSets"); it != object.end()) {
        if (!it->is_object()) fail("'" + path + ".colorSets' must map names to colors");
        for (const auto& [name, colors] : it->items()) {
            const std::string where = path + ".colorSets." + name;
            std::vector<ScalpMesh::Color> values = readQuads(colors, where);
            if (values.size() != corners)
                fail("'" + where + "' must hold one color per triangle corner (" + countText(corners) + "), not " +
                     countText(values.size()));
            mesh->setColorSet(name, std::move(values));
        }
    }

    MeshObject result;
    if (const auto it = object.find("polygons"); it != object.end() && !it->is_null()) {
        if (!it->is_object()) fail("'" + path + ".polygons' must be an object");
        std::vector<std::int32_t> counts = polygonTriangles(*it, path + ".polygons");
        std::int64_t sum = 0;
        for (std::int32_t c : counts) sum += c;
        if (!counts.empty() && sum != static_cast<std::int64_t>(mesh->triangleCount()))
            fail("'" + path + ".polygons' triangulates into " + std::to_string(sum) + " triangles, but the mesh has " +
                 countText(mesh->triangleCount()));
        mesh->setPolygons(std::move(counts));
        result.polygons = *it;
    }
    if (const auto it = object.find("subdivision"); it != object.end() && !it->is_null()) {
        if (!it->is_object()) fail("'" + path + ".subdivision' must be an object");
        result.subdivision = *it;
    }
    result.mesh = std::move(mesh);
    return result;
}

ordered_json meshObjectJson(const MeshObject& object, const std::string& path, ArraySplice& splice) {
    const ScalpMesh& mesh = *object.mesh;
    ordered_json out = ordered_json::object();
    if (!mesh.name().empty()) out["name"] = mesh.name();
    out["points"] = splice.add(floatArrayText(mesh.points(), path + ".points"));
    if (mesh.triangleCount() != 0) out["triangles"] = splice.add(indexArrayText(mesh.triangles()));
    if (!object.polygons.is_null()) {
        out["polygons"] = object.polygons;
    } else if (!mesh.polygons().empty()) {
        out["polygons"] = {{"triangleCounts", std::vector<std::int32_t>(mesh.polygons().begin(), mesh.polygons().end())}};
    }
    if (!object.subdivision.is_null()) out["subdivision"] = object.subdivision;
    if (mesh.hasRest()) out["restPoints"] = splice.add(floatArrayText(mesh.restPoints(), path + ".restPoints"));
    if (mesh.hasUvs()) out["uvs"] = splice.add(floatArrayText(mesh.uvs(), path + ".uvs"));
    const std::vector<std::string> sets = mesh.colorSetNames();
    if (!sets.empty()) {
        ordered_json colors = ordered_json::object();
        for (const std::string& name : sets)
            colors[name] = splice.add(floatArrayText(*mesh.colorSet(name), path + ".colorSets." + name));
        out["colorSets"] = std::move(colors);
    }
    return out;
}

}  // namespace tressora
