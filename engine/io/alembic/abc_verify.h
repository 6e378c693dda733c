#pragma once
// Checks the hashes an archive's writer stored against its content: every object's 32-byte
// record (a hash of its properties, then of its children) is recomputed from the property
// headers and every sample's key. Tools use the records to find identical objects, so a file
// whose records disagree with its content misleads them.

#include <string>
#include <vector>

#include "io/alembic/abc_reader.h"

namespace tressora::abc {

/// One line per object whose stored record differs from the recomputed one (empty when all
/// agree). Reads every sample's key; throws AlembicError for a damaged file.
std::vector<std::string> verifyObjectHashes(const ArchiveReader& archive);

/// One line per sample whose stored key is not the MurmurHash3 of its payload.
std::vector<std::string> verifySampleKeys(const ArchiveReader& archive);

}  // namespace tressora::abc
