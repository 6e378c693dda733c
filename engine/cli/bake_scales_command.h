#pragma once
// The `bake-scales` command: the scales of a groom at one frame baked into height, normal
// and colour maps over the skin's UV chart, one set per UDIM tile.

#include <iosfwd>

namespace tressora::cli {

/// Parses the command line (std::invalid_argument for a bad one: the driver exits with 2),
/// evaluates the groom at the frame, bakes its scale mesh and writes the maps as
/// "<prefix>ScaleHeight.<udim>.png", "<prefix>ScaleNormal.<udim>.png" and
/// "<prefix>ScaleColor.<udim>.png". Prints "wrote <files> for <n> scales, max height <h>,
/// <c>% of the skin covered, in <ms> ms". "the groom has no scales at frame <f>" and other
/// failures propagate (exit 1). Returns 0.
int bakeScalesCommand(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace tressora::cli
