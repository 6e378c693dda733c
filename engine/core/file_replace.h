#pragma once
// Moving a finished file into place. Writers write to "<target>.tmp" and call this only when
// the file is whole, so a failed or interrupted write never leaves a broken target behind.

#include <string>

namespace tressora {

/// Renames `from` onto `to`, replacing `to`. When the rename fails (some systems refuse to
/// replace an existing file), removes `to` and renames again. Returns an empty string on
/// success, else the system's message for the failure; the caller words its own error.
/// A directory at `to` is never replaced: the answer is then the system's message for it.
std::string replaceFile(const std::string& from, const std::string& to);

/// Why a file could not be written at `target`, in the system's words, or an empty string when
/// nothing stands in the way yet: the target is a directory, its folder is missing, or the
/// folder cannot be written. Creates nothing, so a writer can check before long work begins.
std::string targetProblem(const std::string& target);

/// The system's message for the last failed call (errno), for "cannot write '<x>': <reason>".
std::string lastSystemError();

}  // namespace tressora
