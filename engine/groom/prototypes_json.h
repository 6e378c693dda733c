#pragma once
// The `prototypes` section of the groom file: instance meshes stored by name, kept as JSON
// and checked when read, turned into InstancePrototype records on request.

#include <memory>
#include <string_view>

#include <nlohmann/json.hpp>

#include "core/instances.h"
#include "groom/number_arrays.h"

namespace tressora {

struct InstancePrototype;

/// Checks the `prototypes` section: an object of instance meshes by name, each with
/// `points` and `triangles`, optional `normals` (one per point) and `uvs` (one per point).
/// GroomFileError "groom file: bad prototypes.triangles", "groom file: a prototype's
/// triangle names a point it does not have" and the float-array messages under
/// "prototypes.points", "prototypes.normals", "prototypes.uvs".
void checkPrototypes(const nlohmann::json& prototypes);

/// The stored prototype of that name in a checked `prototypes` section, or null.
std::shared_ptr<const InstancePrototype> storedPrototype(const nlohmann::json& prototypes, std::string_view name);

/// A lookup of the prototypes stored in a section (kept alive by the caller); empty when the
/// section is no object.
PrototypeLookup storedPrototypes(const nlohmann::json& prototypes);

/// The `prototypes` section's tree with its float arrays spliced.
nlohmann::ordered_json prototypesJson(const nlohmann::json& prototypes, ArraySplice& splice);

}  // namespace tressora
