#include "io/alembic_curves_hash.h"

#include <cstdio>
#include <cstring>

#include "core/hash.h"

namespace tressora {
namespace {

/// Folds the stored bits of each numeric value: one combine per value, of its own width.
std::uint64_t combineValues(std::uint64_t h, const abc::GeomParamSample& param) {
    const std::size_t size = abc::podSize(param.type.pod);
    if (size == 0) {
        for (const std::string& text : param.strings) h = combineText(h, text);
        return h;
    }
    for (std::size_t offset = 0; offset + size <= param.values.size(); offset += size) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, param.values.data() + offset, size);
        h = combine(h, bits);
    }
    return h;
}

}  // namespace

std::uint64_t curvesSampleHash(const ReadCurvesSample& sample) {
    const StrandSet& s = sample.strands;
    std::uint64_t h = hash64(s.strandCount());
    for (std::uint64_t id : s.ids()) h = combine(h, id);
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const PointRange r = s.pointRange(i);
        h = combine(h, (r.begin & 0xffffffffull) | (std::uint64_t{r.end} << 32));
    }
    for (const Vec3f& p : s.points()) {
        h = combine(h, floatBits(p.x));
        h = combine(h, floatBits(p.y));
        h = combine(h, floatBits(p.z));
    }
    for (float w : s.widths()) h = combine(h, floatBits(w));
    for (const MeshUv& uv : sample.rootUvs) {
        h = combine(h, floatBits(uv.u));
        h = combine(h, floatBits(uv.v));
    }
    for (const abc::GeomParamSample& param : sample.params) {
        h = combineText(h, param.name);
        h = combine(h, param.count);
        h = combineValues(h, param);
    }
    return h;
}

std::uint64_t curvesHash(const ReadCurves& curves) {
    std::uint64_t h = hash64(curves.samples.size());
    for (const ReadCurvesSample& sample : curves.samples) h = combine(h, curvesSampleHash(sample));
    return h;
}

std::string hashText(std::uint64_t hash) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

}  // namespace tressora
