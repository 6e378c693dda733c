#pragma once
// The program's entry: prepares the node-type registry, dispatches on the first argument,
// and owns the exit codes and the way failures reach the user.

#include <iosfwd>

#include "cli/commands.h"

namespace tressora::cli {

/// The version shared by --version and the mcp server's banner.
inline constexpr const char* kVersion = "0.28.0";

/// Runs one command line against a command table. Reports go to out, failures to err.
/// Returns the exit code: 0 success, 1 the work failed or the command was not understood,
/// 2 a bad command line (eval, bake-scales).
int runDriver(int argc, char** argv, std::ostream& out, std::ostream& err, const CommandTable& commands);

/// runDriver with this build's commands.
int runDriver(int argc, char** argv, std::ostream& out, std::ostream& err);

/// The process entry: runDriver on standard output and error, inside a task arena that
/// obeys TRESSORA_THREADS.
int runDriver(int argc, char** argv);

}  // namespace tressora::cli
