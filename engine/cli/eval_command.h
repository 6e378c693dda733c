#pragma once
// The `eval` command: a groom file evaluated over a frame range into an Alembic, USD text or
// V-Ray scene file, with a line per frame and a final report.

#include <iosfwd>

namespace tressora::cli {

/// Parses the command line (std::invalid_argument for a bad one: the driver exits with 2),
/// reads the groom and its caches, evaluates and writes the frames, and prints "wrote <frames>
/// frame(s), <average> strands per frame on average, to <path> in <ms> ms". Other failures
/// propagate (exit 1). Returns 0.
int evalCommand(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace tressora::cli
