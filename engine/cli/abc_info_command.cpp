#include "cli/abc_info_command.h"

#include <algorithm>
#include <limits>
#include <ostream>

#include "io/alembic/abc_dump.h"
#include "io/alembic_curves_reader.h"

namespace tressora::cli {
namespace {

void writePoint(std::ostream& out, const Vec3f& p) {
    out << '(' << abc::formatNumber(p.x) << ',' << abc::formatNumber(p.y) << ',' << abc::formatNumber(p.z) << ')';
}

}  // namespace

int abcInfoCommand(const char* file, const char* object, std::ostream& out, std::ostream&) {
    const ReadCurves curves = readAlembicCurves(file, object ? object : "");
    out << curves.samples.size() << " frame(s)\n";
    for (const ReadCurvesSample& sample : curves.samples) {
        const StrandSet& s = sample.strands;
        out << "  t=" << abc::formatNumber(sample.time) << "s strands=" << s.strandCount()
            << " points=" << s.pointCount();
        if (s.pointCount() > 0) {
            constexpr float big = std::numeric_limits<float>::max();
            Vec3f lo{big, big, big}, hi{-big, -big, -big};
            for (const Vec3f& p : s.points())
                for (int a = 0; a < 3; ++a) {
                    lo[a] = std::min(lo[a], p[a]);
                    hi[a] = std::max(hi[a], p[a]);
                }
            out << " bbox=";
            writePoint(out, lo);
            out << '-';
            writePoint(out, hi);
        }
        out << '\n';
    }
    return 0;
}

}  // namespace tressora::cli
