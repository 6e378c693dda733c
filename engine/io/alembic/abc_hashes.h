#pragma once
// The two 128-bit hashes an Alembic archive stores. Sample keys are MurmurHash3 (x64, 128-bit,
// seed 0) of the sample's payload; property, compound and object hashes are Bob Jenkins'
// SpookyHash V2 (seeds 0, 0). Both are public-domain algorithms; their outputs are part of the
// file format, so they must never change.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "io/alembic/abc_types.h"

namespace tressora::abc {

/// MurmurHash3_x64_128 of `bytes` with seed 0. Zero bytes hash to all zeros.
Digest murmur3(std::span<const std::byte> bytes);

/// SpookyHash V2 128-bit of `bytes` with seeds (0, 0); the same as hashing the pieces of
/// any split of `bytes` one after another.
Digest spooky(std::span<const std::byte> bytes);

/// SpookyHash's four-word final mix, which the format uses to fold one digest into another:
/// returns the first two words of ShortEnd(acc0, acc1, next0, next1).
Digest spookyFold(const Digest& acc, const Digest& next);

/// The bytes a property's hash starts with: its name and serialized metadata, then, for
/// scalars and arrays, its type code, extent, one 0 byte for scalars, and its time sampling
/// (time per cycle, number of stored times, the times). `sampling` is unused for compounds.
std::vector<std::byte> propertyHashPrefix(const std::string& name, const std::string& metadata, PropertyKind kind,
                                          DataType type, const TimeSampling& sampling);

}  // namespace tressora::abc
