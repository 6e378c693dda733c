#pragma once
// Moving a finished file into place. Writers write to "<target>.tmp" and call this only when
// the file is whole, so a failed or interrupted write never leaves a broken target behind.

#include <string>

namespace tressora {

/// Renames `from` onto `to`, replacing `to`. When the rename fails (some systems refuse to
/// replace an existing file), removes `to` and renames again. Returns an empty string on
/// success, else the system's message for the failure; the caller words its own error.
std::string replaceFile(const std::string& from, const std::string& to);

}  // namespace tressora
