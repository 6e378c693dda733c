// libFuzzer target: the strands reader behind `abc-info` and `hash` (curves of every object,
// both layouts, merged per sample, then hashed) and the mesh reader behind scalp caches. Any
// bytes either read or are refused with AlembicError. Crashes and sanitizer reports are bugs.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/errors.h"
#include "io/alembic_curves_hash.h"
#include "io/alembic_curves_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tressora;
    const auto* first = reinterpret_cast<const std::byte*>(data);
    try {
        const abc::ArchiveReader archive("fuzz.abc", std::vector<std::byte>(first, first + size));
        try {
            curvesHash(readAlembicCurves(archive));
        } catch (const AlembicError&) {
        }
        readAlembicMesh(archive);
    } catch (const AlembicError&) {
    }
    return 0;
}
