// libFuzzer target: any bytes given to the Alembic reader either read or are refused with
// AlembicError; every other exception, crash or sanitizer report is a bug.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "core/errors.h"
#include "io/alembic/abc_dump.h"
#include "io/alembic/abc_verify.h"
#include "io/alembic/geom_reader.h"

namespace {

using namespace tressora::abc;

// Properties may claim billions of repeated samples; read a few from each end.
constexpr std::uint32_t kSamplesRead = 8;

std::vector<std::uint32_t> someSamples(std::uint32_t count) {
    std::vector<std::uint32_t> out;
    for (std::uint32_t i = 0; i < count && i < kSamplesRead; ++i) out.push_back(i);
    if (count > kSamplesRead) out.push_back(count - 1);
    return out;
}

std::uint64_t readProperties(const PropertyReader& p) {
    if (p.isCompound()) {
        std::uint64_t total = 0;
        for (const PropertyReader& child : p.children()) total += readProperties(child);
        return total;
    }
    for (std::uint32_t i : someSamples(p.numSamples())) {
        if (isStringPod(p.type().pod))
            p.strings(i);
        else
            p.numbers(i);
    }
    return p.numSamples();
}

void readSchema(const ObjectReader& object) {
    if (isXform(object)) {
        const XformReader reader(object);
        for (std::uint32_t i : someSamples(reader.numSamples())) reader.read(i);
    } else if (isCurves(object)) {
        const CurvesReader reader(object);
        for (std::uint32_t i : someSamples(reader.numSamples())) {
            const CurvesData d = reader.read(i);
            if (d.uvs) d.uvs->expanded();
            for (const GeomParamReader& param : reader.arbGeomParams()) param.read(i).expanded();
        }
    } else if (isPolyMesh(object)) {
        const PolyMeshReader reader(object);
        for (std::uint32_t i : someSamples(reader.numSamples())) {
            const PolyMeshData d = reader.read(i);
            if (d.uvs) d.uvs->expanded();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto* first = reinterpret_cast<const std::byte*>(data);
    try {
        const ArchiveReader archive("fuzz.abc", std::vector<std::byte>(first, first + size));
        std::uint64_t samples = readProperties(archive.top().properties());
        archive.forEachObject([&](const ObjectReader& object) {
            samples += readProperties(object.properties());
            readSchema(object);
        });
        // Whole-archive walks read every sample; only for archives of a sane size.
        if (samples < 4096) {
            dumpArchive(archive);
            verifyObjectHashes(archive);
            verifySampleKeys(archive);
        }
    } catch (const tressora::AlembicError&) {
    }
    return 0;
}
