#pragma once
// What an open archive holds, shared by its object and property readers. Internal to the reader.

#include <cstdint>
#include <memory>
#include <vector>

#include "io/alembic/abc_reader.h"
#include "io/alembic/ogawa_reader.h"

namespace tressora::abc {

struct ArchiveData {
    std::shared_ptr<const OgawaFile> file;
    std::int32_t libraryVersion = 0;
    MetaData metadata;
    std::vector<TimeSamplingRecord> samplings;
    std::vector<MetaData> metadataTable;  ///< entry 0 is the empty metadata
    ObjectReader top;
};

}  // namespace tressora::abc
