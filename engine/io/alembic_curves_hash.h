#pragma once
// A content hash of curves read from an archive, for telling whether two exports hold the same
// strands. It folds, per sample, every array the reader hands back, by bits, so any change of
// geometry, ids, widths, uvs or attributes shows; the times are left out.

#include <cstdint>
#include <string>

#include "io/alembic_curves_reader.h"

namespace tressora {

/// The hash of one sample: hash64(strand count), then combined in this order: every strand id;
/// every strand's point range as (first point | end point << 32); the bits of every point's
/// x, y, z; the bits of every width; the bits of every root uv's u and v; then for every other
/// param, its name, its element count and the bits of each value (strings as text).
std::uint64_t curvesSampleHash(const ReadCurvesSample& sample);

/// The hash of all samples: hash64(sample count), then each sample's hash combined in order.
std::uint64_t curvesHash(const ReadCurves& curves);

/// 16 lower-case hexadecimal digits, zero padded.
std::string hashText(std::uint64_t hash);

}  // namespace tressora
