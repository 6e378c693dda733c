#include "cli/hash_command.h"

#include <ostream>

#include "core/hash.h"
#include "io/alembic/abc_dump.h"
#include "io/alembic_curves_hash.h"
#include "io/alembic_curves_reader.h"

namespace tressora::cli {

int hashCommand(const char* file, const char* object, std::ostream& out, std::ostream&) {
    const ReadCurves curves = readAlembicCurves(file, object ? object : "");
    std::uint64_t all = hash64(curves.samples.size());
    for (const ReadCurvesSample& sample : curves.samples) {
        const std::uint64_t h = curvesSampleHash(sample);
        out << "t=" << abc::formatNumber(sample.time) << "s strands=" << sample.strands.strandCount()
            << " points=" << sample.strands.pointCount() << " uvs=" << sample.rootUvs.size()
            << " hash=" << hashText(h) << '\n';
        all = combine(all, h);
    }
    out << "all=" << hashText(all) << '\n';
    return 0;
}

}  // namespace tressora::cli
