#pragma once
// The `hash` command: a content hash per sample of an archive's curves, and one of them all,
// so that two exports can be compared by their printed lines.

#include <iosfwd>

namespace tressora::cli {

/// Reads the curves of `object` (null or empty: every curves object) and prints per sample
/// "t=<time>s strands=<s> points=<p> uvs=<u> hash=<h>", then "all=<h>" (the scheme is in
/// io/alembic_curves_hash.h). Returns 0; a reader failure propagates as AlembicError.
int hashCommand(const char* file, const char* object, std::ostream& out, std::ostream& err);

}  // namespace tressora::cli
