#include "operators/growth/scatter_roots.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "core/guide_frame.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "core/tube.h"

namespace tressora {

namespace {

constexpr std::size_t kGrain = 256;
constexpr std::uint64_t kDensitySalt = 0xD3A5;
/// The most candidates one triangle may get, whatever its area and the density.
constexpr double kMaxPerTriangle = 5e7;

/// Squared distance from p to the segment ab, in 2D.
float segmentDistanceSquared(Point2 p, Point2 a, Point2 b) {
    const float dx = b[0] - a[0], dy = b[1] - a[1];
    const float len2 = dx * dx + dy * dy;
    float t = len2 > 0.0f ? ((p[0] - a[0]) * dx + (p[1] - a[1]) * dy) / len2 : 0.0f;
    t = std::clamp(t, 0.0f, 1.0f);
    const float ex = a[0] + dx * t - p[0], ey = a[1] + dy * t - p[1];
    return ex * ex + ey * ey;
}

/// Keeps the entries whose flag is set, order kept.
template <class T>
void keepFlagged(std::vector<T>& values, const std::vector<std::uint8_t>& keep) {
    std::size_t out = 0;
    for (std::size_t i = 0; i < values.size(); ++i)
        if (keep[i]) values[out++] = values[i];
    values.resize(out);
}

}  // namespace

// ---- GuideFilter ----------------------------------------------------------------------------

GuideFilter::GuideFilter(const GuideSet& guides, float radius, float margin, const TubeShapeLibrary& library) {
    radiusSquared_ = radius * radius;
    margin = std::max(margin, 0.0f);
    std::uint64_t stamp = combine(hash64(0x6E1DE), floatBits(radius));
    std::vector<Vec3f> discs;
    std::vector<Vec3f> origins;
    for (std::size_t g = 0; g < guides.guideCount(); ++g) {
        const std::span<const Vec3f> points = guides.guidePoints(g);
        if (points.empty()) continue;
        const GuideTube& tube = guides.tube(g);
        const float width = tubeValueAt(tube.width, 0.0f);
        if (tube.shape.empty() || points.size() < 2 || !(width > 0.0f)) {
            discs.push_back(points[0]);
            stamp = combine(combine(combine(stamp, floatBits(points[0].x)), floatBits(points[0].y)),
                            floatBits(points[0].z));
            continue;
        }
        const Frame frame = carriedFrames(points.first(2), tube.frameUp).front();
        const float aspect = tube.aspect.empty() ? 1.0f : tubeValueAt(tube.aspect, 0.0f);
        const float twist = tubeValueAt(tube.twist, 0.0f);
        Footprint footprint{points[0], frame.side, frame.up, {}, margin * width, 0.0f};
        for (const Point2& p : tubeShapeOutline(tube.shape, library, 32)) {
            const Point2 s = sectionPoint(p, width, aspect, twist);
            footprint.outline.push_back(s);
            footprint.reach = std::max(footprint.reach, std::hypot(s[0], s[1]));
            stamp = combine(combine(stamp, floatBits(s[0])), floatBits(s[1]));
        }
        footprint.reach += footprint.margin;
        for (const Vec3f v : {footprint.origin, footprint.side, footprint.up})
            stamp = combine(combine(combine(stamp, floatBits(v.x)), floatBits(v.y)), floatBits(v.z));
        stamp = combine(stamp, floatBits(footprint.margin));
        footprintReach_ = std::max(footprintReach_, footprint.reach);
        origins.push_back(footprint.origin);
        footprints_.push_back(std::move(footprint));
    }
    discs_ = PointIndex(discs);
    footprintOrigins_ = PointIndex(origins);
    stamp_ = combine(stamp, discs.size() * 31 + footprints_.size());
}

bool GuideFilter::onFootprint(const Footprint& footprint, Vec3f position) const {
    const Vec3f d = position - footprint.origin;
    if (lengthSquared(d) > footprint.reach * footprint.reach) return false;
    const Point2 q{dot(d, footprint.side), dot(d, footprint.up)};
    if (insideOutline(footprint.outline, q)) return true;
    if (footprint.margin <= 0.0f) return false;
    const std::vector<Point2>& o = footprint.outline;
    const float m2 = footprint.margin * footprint.margin;
    for (std::size_t i = 0; i < o.size(); ++i)
        if (segmentDistanceSquared(q, o[i], o[(i + 1) % o.size()]) <= m2) return true;
    return false;
}

bool GuideFilter::contains(Vec3f position) const {
    if (!discs_.empty()) {
        float d2 = 0.0f;
        if (discs_.nearest(position, d2) != PointIndex::npos && d2 <= radiusSquared_) return true;
    }
    if (footprints_.empty()) return false;
    thread_local std::vector<std::pair<std::uint32_t, float>> near;
    near.clear();
    footprintOrigins_.within(position, footprintReach_, near);
    for (const auto& [index, d2] : near)
        if (onFootprint(footprints_[index], position)) return true;
    return false;
}

// ---- Density and spots ------------------------------------------------------------------------

std::vector<float> densityAtRoots(const FieldValue& field, const ScalpMesh& scalp,
                                  const std::vector<std::uint64_t>& ids, const std::vector<StrandRoot>& roots) {
    // A map reads a strand's root (and, for a few sources, its first point): one point per root.
    const std::size_t n = ids.size();
    StrandSet probe;
    probe.resizeStrands(n);
    probe.resizePoints(n);
    {
        const std::span<std::uint64_t> outIds = probe.mutableIds();
        const std::span<StrandRoot> outRoots = probe.mutableRoots();
        const std::span<std::uint64_t> offsets = probe.mutableOffsets();
        const std::span<Vec3f> points = probe.mutablePoints();
        parallelRange(0, n, kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                outIds[i] = ids[i];
                outRoots[i] = roots[i];
                offsets[i + 1] = i + 1;
                points[i] = scalp.positionAt(roots[i].face, roots[i].u, roots[i].v);
            }
        });
    }
    field.strandIndexed(probe);
    std::vector<float> values(n);
    parallelRange(0, n, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) values[i] = field.strandValue(probe, i);
    });
    return values;
}

bool passesDensity(std::uint64_t id, float density, double densityMax) {
    return static_cast<double>(density) / densityMax > unitFromBits(combine(id, kDensitySalt));
}

StrandRoot randomSpot(std::uint64_t id, std::int32_t face) {
    DrawStream stream(id);
    const float u = stream.nextUnit();
    const float v = stream.nextUnit();
    const float r = std::sqrt(u);
    return {face, (1.0f - v) * r, v * r};
}

// ---- Candidates ---------------------------------------------------------------------------------

void makeCandidates(const ScalpMesh& shape, double densityMax, std::int64_t seed, float generate, RootTable& table) {
    const std::uint64_t s = hash64(static_cast<std::uint64_t>(seed));
    const std::span<const float> areas = shape.triangleAreas();
    const std::size_t triangles = areas.size();
    // Triangles go in fixed blocks so that the concatenation is the same for any scheduling.
    constexpr std::size_t kBlock = 256;
    const std::size_t blocks = (triangles + kBlock - 1) / kBlock;
    std::vector<std::vector<std::uint64_t>> blockIds(blocks);
    std::vector<std::vector<std::int32_t>> blockFaces(blocks);
    parallelRange(0, blocks, 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t b = lo; b < hi; ++b) {
            std::vector<std::uint64_t>& ids = blockIds[b];
            std::vector<std::int32_t>& faces = blockFaces[b];
            const std::size_t end = std::min(triangles, (b + 1) * kBlock);
            for (std::size_t t = b * kBlock; t < end; ++t) {
                const std::uint64_t f = combine(s, t);
                const double expected = static_cast<double>(areas[t]) * densityMax;
                if (!(expected > 0.0)) continue;
                const double whole = std::floor(std::min(expected, kMaxPerTriangle));
                const std::uint64_t count =
                    static_cast<std::uint64_t>(whole) + (expected - whole > unit(f) ? 1u : 0u);
                for (std::uint64_t j = 0; j < count; ++j) {
                    const std::uint64_t id = combine(f, j);
                    if (generate < 1.0f && !(generate > unit(id))) continue;
                    ids.push_back(id);
                    faces.push_back(static_cast<std::int32_t>(t));
                }
            }
        }
    });
    std::vector<std::size_t> start(blocks + 1, 0);
    for (std::size_t b = 0; b < blocks; ++b) start[b + 1] = start[b] + blockIds[b].size();
    table.ids.resize(start[blocks]);
    table.roots.resize(start[blocks]);
    parallelRange(0, blocks, 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t b = lo; b < hi; ++b) {
            for (std::size_t k = 0; k < blockIds[b].size(); ++k) {
                const std::uint64_t id = blockIds[b][k];
                table.ids[start[b] + k] = id;
                table.roots[start[b] + k] = randomSpot(id, blockFaces[b][k]);
            }
            std::vector<std::uint64_t>().swap(blockIds[b]);
            std::vector<std::int32_t>().swap(blockFaces[b]);
        }
    });
}

void makeGridCandidates(const ScalpMesh& shape, int rows, int columns, float jitter, std::int64_t seed,
                        float generate, RootTable& table) {
    const std::span<const ScalpMesh::Uv> uvs = shape.uvs();
    const std::span<const ScalpMesh::Triangle> triangles = shape.triangles();
    table.ids.clear();
    table.roots.clear();
    if (uvs.empty() || rows <= 0 || columns <= 0) return;
    // The grid spans the bounds of the UVs, so a layout in any UDIM tile gets its cells.
    float lo[2] = {uvs[0][0], uvs[0][1]}, hi[2] = {uvs[0][0], uvs[0][1]};
    for (const ScalpMesh::Uv& uv : uvs)
        for (int c = 0; c < 2; ++c) lo[c] = std::min(lo[c], uv[c]), hi[c] = std::max(hi[c], uv[c]);
    const double cellU = std::max(1e-30, static_cast<double>(hi[0] - lo[0]) / columns);
    const double cellV = std::max(1e-30, static_cast<double>(hi[1] - lo[1]) / rows);
    const std::uint64_t s = hash64(static_cast<std::uint64_t>(seed));
    const std::size_t cells = static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns);

    // The sample of a cell: its centre, moved by up to `jitter` of the cell.
    const auto sampleOf = [&](std::size_t cell, double& u, double& v) {
        const std::size_t row = cell / static_cast<std::size_t>(columns);
        const std::size_t column = cell % static_cast<std::size_t>(columns);
        u = lo[0] + (static_cast<double>(column) + 0.5) * cellU;
        v = lo[1] + (static_cast<double>(row) + 0.5) * cellV;
        if (jitter > 0.0f) {
            DrawStream stream(combine(s, cell));
            u += (stream.nextUnit() - 0.5) * jitter * cellU;
            v += (stream.nextUnit() - 0.5) * jitter * cellV;
        }
    };
    // The UV barycentrics of (u, v) in triangle t; false when outside.
    const auto locate = [&](std::size_t t, double u, double v, double& b1, double& b2) {
        const ScalpMesh::Uv& a = uvs[3 * t];
        const ScalpMesh::Uv& b = uvs[3 * t + 1];
        const ScalpMesh::Uv& c = uvs[3 * t + 2];
        const double e1u = b[0] - a[0], e1v = b[1] - a[1], e2u = c[0] - a[0], e2v = c[1] - a[1];
        const double det = e1u * e2v - e2u * e1v;
        if (det == 0.0) return false;
        const double pu = u - a[0], pv = v - a[1];
        b1 = (pu * e2v - e2u * pv) / det;
        b2 = (e1u * pv - pu * e1v) / det;
        return b1 >= 0.0 && b2 >= 0.0 && b1 + b2 <= 1.0;
    };

    // Each cell belongs to the lowest triangle that holds its sample: a minimum, whatever order
    // the triangles are tried in.
    std::vector<std::atomic<std::int32_t>> owner(cells);
    parallelRange(0, cells, 1 << 16, [&](std::size_t a, std::size_t b) {
        for (std::size_t i = a; i < b; ++i) owner[i].store(-1, std::memory_order_relaxed);
    });
    parallelRange(0, triangles.size(), kGrain, [&](std::size_t a, std::size_t b) {
        for (std::size_t t = a; t < b; ++t) {
            float tlo[2] = {uvs[3 * t][0], uvs[3 * t][1]}, thi[2] = {tlo[0], tlo[1]};
            for (int k = 1; k < 3; ++k)
                for (int c = 0; c < 2; ++c)
                    tlo[c] = std::min(tlo[c], uvs[3 * t + k][c]), thi[c] = std::max(thi[c], uvs[3 * t + k][c]);
            const auto range = [](float from, float to, float origin, double cell, int count, int& first, int& last) {
                first = std::clamp(static_cast<int>(std::floor((from - origin) / cell)) - 1, 0, count - 1);
                last = std::clamp(static_cast<int>(std::floor((to - origin) / cell)) + 1, 0, count - 1);
            };
            int c0, c1, r0, r1;
            range(tlo[0], thi[0], lo[0], cellU, columns, c0, c1);
            range(tlo[1], thi[1], lo[1], cellV, rows, r0, r1);
            for (int r = r0; r <= r1; ++r)
                for (int c = c0; c <= c1; ++c) {
                    const std::size_t cell = static_cast<std::size_t>(r) * columns + static_cast<std::size_t>(c);
                    double u, v, b1, b2;
                    sampleOf(cell, u, v);
                    if (!locate(t, u, v, b1, b2)) continue;
                    std::int32_t seen = owner[cell].load(std::memory_order_relaxed);
                    const auto face = static_cast<std::int32_t>(t);
                    while ((seen < 0 || face < seen) &&
                           !owner[cell].compare_exchange_weak(seen, face, std::memory_order_relaxed)) {
                    }
                }
        }
    });
    for (std::size_t cell = 0; cell < cells; ++cell) {
        const std::int32_t face = owner[cell].load(std::memory_order_relaxed);
        if (face < 0) continue;
        const std::uint64_t id = combine(s, cell);
        if (generate < 1.0f && !(generate > unit(id))) continue;
        double u = 0.0, v = 0.0, b1 = 0.0, b2 = 0.0;
        sampleOf(cell, u, v);
        locate(static_cast<std::size_t>(face), u, v, b1, b2);
        table.ids.push_back(id);
        table.roots.push_back({face, static_cast<float>(b1), static_cast<float>(b2)});
    }
}

// ---- Thinning -------------------------------------------------------------------------------------

std::vector<std::uint8_t> rootsPass(const RootFilter& filter, const std::vector<std::uint64_t>& ids,
                                    const std::vector<StrandRoot>& roots) {
    const std::size_t n = ids.size();
    std::vector<std::uint8_t> keep(n, 1);
    if (!filter.active() || n == 0) return keep;
    const bool mapped = filter.density && filter.densityMax > 0.0;
    const std::vector<float> values = mapped ? densityAtRoots(*filter.density, *filter.scalp, ids, roots)
                                             : std::vector<float>();
    parallelRange(0, n, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            if (mapped && !passesDensity(ids[i], values[i], filter.densityMax)) {
                keep[i] = 0;
                continue;
            }
            if (filter.guides &&
                !filter.guides->contains(filter.scalp->positionAt(roots[i].face, roots[i].u, roots[i].v)))
                keep[i] = 0;
        }
    });
    return keep;
}

void thinRoots(const RootFilter& filter, RootTable& table) {
    if (!filter.active()) return;
    const std::vector<std::uint8_t> keep = rootsPass(filter, table.ids, table.roots);
    keepFlagged(table.ids, keep);
    keepFlagged(table.roots, keep);
}

}  // namespace tressora
