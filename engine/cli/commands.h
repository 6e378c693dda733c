#pragma once
// The commands the driver dispatches to. A command that is not part of this build has a null
// handler, and the driver treats its name as an unknown command.

#include <iosfwd>

namespace tressora::cli {

/// A command given the file (and, for abc-info and hash, the object; may be null).
using FileCommand = int (*)(const char* file, const char* object, std::ostream& out, std::ostream& err);
/// A command given the whole command line.
using ArgvCommand = int (*)(int argc, char** argv, std::ostream& out, std::ostream& err);

struct CommandTable {
    FileCommand info = nullptr;
    FileCommand abcInfo = nullptr;
    FileCommand hash = nullptr;
    ArgvCommand mcp = nullptr;
    ArgvCommand eval = nullptr;
    ArgvCommand bakeScales = nullptr;
};

/// The commands of this build.
const CommandTable& builtinCommands();

}  // namespace tressora::cli
