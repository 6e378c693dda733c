#pragma once
// File access of the groom document: UTF-8 paths (wide paths where the system wants them),
// reading a whole file, and replacing a file only when its new text is whole.

#include <filesystem>
#include <string>
#include <string_view>

namespace tressora {

/// A path from UTF-8 text.
std::filesystem::path pathFromUtf8(std::string_view text);
/// The UTF-8 text of a path.
std::string utf8Text(const std::filesystem::path& path);

/// The whole content of a file; GroomFileError "cannot read '<path>'" when it cannot be read.
std::string readWholeFile(const std::string& path);

/// Writes `text` to "<path>.tmp" in the same folder, then renames it over `path` (on a failed
/// rename: removes the target and renames again). Failures are GroomFileError "cannot write
/// '<path>'" or "cannot replace '<path>': <system message>"; after a failure an existing
/// target is as it was (unless only the second rename failed) and no temporary file is left.
void writeFileWhole(const std::string& path, std::string_view text);

}  // namespace tressora
