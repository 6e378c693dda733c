#pragma once
// A text listing of everything an archive holds: tables, objects, metadata, property headers,
// and every sample's key and values. Two archives with equal listings hold the same content in
// the same layout, whatever their byte offsets; tests and inspection tools compare them.

#include <cstddef>
#include <string>

#include "io/alembic/abc_reader.h"

namespace tressora::abc {

struct DumpOptions {
    bool values = true;                    ///< list every value of every sample
    std::size_t maxValuesPerSample = 0;    ///< 0: all; else list at most this many values per sample
};

/// The listing of `archive`, one line per table entry, object, property and sample.
std::string dumpArchive(const ArchiveReader& archive, const DumpOptions& options = {});

/// A value as the listing writes it: the shortest text that reads back to the same number.
std::string formatNumber(double value);
std::string formatNumber(float value);

}  // namespace tressora::abc
