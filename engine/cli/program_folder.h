#pragma once
// Where the running program is, and the folders it ships beside it (nodes, presets, meshes,
// docs): first beside the program's folder, then in it, then in the source tree it was built
// from, so that a build run in place finds them too.

#include <string>

namespace tressora::cli {

/// The folder of the running program, or empty when the system does not tell.
std::string programFolder();

/// The first of <exe>/../<name>, <exe>/<name> and <source tree>/<name> that is a folder,
/// canonical and in UTF-8; empty when none is.
std::string resourceFolder(const std::string& exeFolder, const std::string& name);

}  // namespace tressora::cli
