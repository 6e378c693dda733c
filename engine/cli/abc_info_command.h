#pragma once
// The `abc-info` command: the frames of an archive's curves, with counts and bounds.

#include <iosfwd>

namespace tressora::cli {

/// Reads the curves of `object` (null or empty: every curves object) and prints "<n> frame(s)",
/// then per sample "  t=<time>s strands=<s> points=<p>" and, when it has points,
/// " bbox=(<x>,<y>,<z>)-(<x>,<y>,<z>)". Returns 0; a reader failure propagates as AlembicError.
int abcInfoCommand(const char* file, const char* object, std::ostream& out, std::ostream& err);

}  // namespace tressora::cli
