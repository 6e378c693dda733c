#pragma once
// The mesh object of the groom file (the scalp, each named scalp, each collider): reading
// with checks that name the dotted path, and writing into a tree whose long arrays stand as
// splice markers.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "groom/groom_scene.h"
#include "groom/number_arrays.h"

namespace tressora {

/// Reads the mesh object at dotted `path` ("scalp", "scalps.head", "colliders.body").
/// `points` given by the caller replace the object's own (a topology whose points come from
/// a cache); otherwise `points` is required (the JSON library's "key 'points' not found").
/// Throws GroomFileError for a malformed object, with the float-array messages under
/// "<path>.points", "<path>.uvs", "<path>.restPoints", "<path>.colorSets.<name>".
MeshObject readMeshObject(const nlohmann::json& object, const std::string& path,
                          const std::vector<Vec3f>* points = nullptr);

/// The mesh object's tree in the file's key order: name, points, triangles, polygons,
/// subdivision, restPoints, uvs, colorSets. Arrays go through `splice`. Throws the
/// non-finite message under the dotted path.
nlohmann::ordered_json meshObjectJson(const MeshObject& object, const std::string& path, ArraySplice& splice);

}  // namespace tressora
