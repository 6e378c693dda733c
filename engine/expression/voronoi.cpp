#include "expression/voronoi.h"

#include <algorithm>
#include <cmath>

#include "core/hash.h"
#include "expression/math_functions.h"

namespace tressora::exprlib {
namespace {

int voronoiType(float type) {
    return static_cast<int>(std::clamp<std::int64_t>(wholeNumber(type), 1, 5));
}

float typedValue(const VoronoiHit& hit, int type) {
    switch (type) {
    case 1: return unitFromBits(hit.cellHash);
    case 2: return hit.f1;
    case 3: return hit.f2;
    case 4: return hit.f2 - hit.f1;
    default: return 1.0f - smoothstep(hit.f2 - hit.f1, 0.0f, kVoronoiEdgeWidth);
    }
}

}  // namespace

VoronoiHit voronoiSearch(const float* point, const VoronoiSettings& s) {
    float p[3] = {point[0], point[1], point[2]};
    if (s.fbmScale != 0.0f) {
        float d[3];
        fractal3(point, kVnoiseSeed, 3, s.fbm, false, d);
        for (int k = 0; k < 3; ++k) p[k] += s.fbmScale * d[k];
    }
    const float jitter = std::isnan(s.jitter) ? 0.0f : std::clamp(s.jitter, 0.0f, 1.0f);
    // Work relative to the cell that holds p, so distances stay small and exact.
    float base[3], f[3];
    std::int64_t cell[3];
    for (int k = 0; k < 3; ++k) {
        const float x = std::isfinite(p[k]) ? p[k] : 0.0f;
        base[k] = std::floor(x);
        f[k] = x - base[k];
        cell[k] = latticeFloor(base[k]);
    }
    VoronoiHit hit;
    float best1 = INFINITY, best2 = INFINITY;
    float nearestRel[3] = {0, 0, 0};
    for (int dz = -1; dz <= 1; ++dz) {
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                const std::uint64_t h =
                    hashLattice(cell[0] + dx, cell[1] + dy, cell[2] + dz, kCellSeed);
                float r[3];
                // Feature offsets come from hashes of their own, apart from the cell's colour.
                for (int k = 0; k < 3; ++k) r[k] = unitFromBits(combine(h, 3u + k));
                const float rel[3] = {float(dx) + 0.5f + (r[0] - 0.5f) * 2.0f * jitter,
                                      float(dy) + 0.5f + (r[1] - 0.5f) * 2.0f * jitter,
                                      float(dz) + 0.5f + (r[2] - 0.5f) * 2.0f * jitter};
                const float ex = rel[0] - f[0], ey = rel[1] - f[1], ez = rel[2] - f[2];
                const float d2 = ex * ex + ey * ey + ez * ez;
                if (d2 < best1) {
                    best2 = best1;
                    best1 = d2;
                    hit.cellHash = h;
                    std::copy(rel, rel + 3, nearestRel);
                } else if (d2 < best2) {
                    best2 = d2;
                }
            }
        }
    }
    hit.f1 = std::sqrt(best1);
    hit.f2 = std::sqrt(best2);
    for (int k = 0; k < 3; ++k) hit.nearest[k] = base[k] + nearestRel[k];
    return hit;
}

float voronoi(const float* p, float type, const VoronoiSettings& s) {
    return typedValue(voronoiSearch(p, s), voronoiType(type));
}

void cvoronoi(const float* p, float type, const VoronoiSettings& s, float* out) {
    const VoronoiHit hit = voronoiSearch(p, s);
    const int t = voronoiType(type);
    latticeUnits(hit.cellHash, out);
    if (t == 1) return;
    const float scale = typedValue(hit, t);
    for (int k = 0; k < 3; ++k) out[k] *= scale;
}

void pvoronoi(const float* p, const VoronoiSettings& s, float* out) {
    const VoronoiHit hit = voronoiSearch(p, s);
    std::copy(hit.nearest, hit.nearest + 3, out);
}

}  // namespace tressora::exprlib
