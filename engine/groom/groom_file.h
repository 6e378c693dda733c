#pragma once
// The .groom file: one UTF-8 JSON document read into a GroomScene and written back with the
// same keys, in a fixed order, with long float lists in their shortest exact form.

#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "groom/groom_scene.h"

namespace tressora {

/// The magic of the `format` key.
inline constexpr const char* kGroomFormat = "tressora.groom";
/// The groom file version this build reads and writes.
inline constexpr int kGroomVersion = 1;

/// Reads a groom file (a UTF-8 path). Failures: GroomFileError "cannot read '<path>'",
/// "not a Tressora groom file" and the content messages; SchemaError for the version check
/// ("groom file ...") and for text that is no JSON; the JSON library's own errors for a
/// missing required key or a value of the wrong type. Nothing of a failed read survives.
GroomScene readGroom(const std::string& path);

/// Reads a groom document from its text (as readGroom, without the file).
GroomScene groomFromText(std::string_view text);

/// Reads a parsed groom document: `format`, then `version`, then the keys in file order.
GroomScene groomFromJson(nlohmann::json document);

/// The file text of a scene: compact JSON, keys in the file's order, empty keys left out
/// (except format, version, framesPerSecond, units, upAxis). Throws GroomFileError
/// "groom file: '<path>' holds a non-finite value at index <i>" for a NaN or infinity in a
/// float list. Long lists are formatted in parallel; the text never depends on threads.
std::string groomText(const GroomScene& scene);

/// Writes the scene's text to "<path>.tmp" and renames it over `path`. A refused scene
/// writes nothing; failures are GroomFileError "cannot write '<path>'" and "cannot replace
/// '<path>': <system message>".
void writeGroom(const std::string& path, const GroomScene& scene);

}  // namespace tressora
