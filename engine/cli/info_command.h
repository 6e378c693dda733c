#pragma once
// The `info` command: what a groom file holds, read without evaluating anything.

#include <iosfwd>

#include "groom/groom_scene.h"

namespace tressora::cli {

/// Prints the report of a scene: source, fps, units, scalp, hierarchy, flat guides, follow
/// scalp, graph, caches and card bake, one line each where the scene has them.
void writeGroomInfo(const GroomScene& scene, std::ostream& out);

/// Reads the file with readGroom and prints its report on `out`; returns 0. A failure to
/// read propagates (the driver prints it after "error: " and exits with 1).
int infoCommand(const char* file, const char* object, std::ostream& out, std::ostream& err);

}  // namespace tressora::cli
