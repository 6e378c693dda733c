#include "io/export_view.h"

#include <algorithm>
#include <cmath>

#include "core/parallel.h"

namespace tressora {
namespace {

constexpr std::size_t kGrain = 2048;

float finiteOrZero(float v) { return std::isfinite(v) ? v : 0.0f; }

/// The channel when it holds one value per strand, else null.
const StrandChannel* perStrand(const StrandSet& strands, std::string_view name) {
    const StrandChannel* channel = strands.strandChannel(name);
    return channel && channel->size() == strands.strandCount() ? channel : nullptr;
}

void rootUvs(const StrandSet& strands, const ScalpUvs& scalp, ExportView& view) {
    const std::size_t triangles = scalp.cornerUvs.size() / 3;
    const std::span<const StrandRoot> roots = strands.roots();
    view.rootUvs.assign(strands.strandCount(), MeshUv{});
    parallelRange(0, roots.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const StrandRoot& root = roots[i];
            if (root.face < 0 || static_cast<std::size_t>(root.face) >= triangles) continue;
            const auto* corner = &scalp.cornerUvs[static_cast<std::size_t>(root.face) * 3];
            const float b0 = 1.0f - root.u - root.v;
            view.rootUvs[i] = {corner[0][0] * b0 + corner[1][0] * root.u + corner[2][0] * root.v,
                               corner[0][1] * b0 + corner[1][1] * root.u + corner[2][1] * root.v};
        }
    });
}

void colours(const StrandSet& strands, unsigned flags, const ExportColouring& colouring, ExportView& view) {
    const std::size_t count = strands.strandCount();
    const StrandChannel* r = perStrand(strands, "colorR");
    const StrandChannel* g = perStrand(strands, "colorG");
    const StrandChannel* b = perStrand(strands, "colorB");
    const StrandChannel* melanin = perStrand(strands, "melanin");
    const StrandChannel* redness = perStrand(strands, "melaninRedness");
    const bool fromRgb = r && g && b;
    if (!fromRgb && !(melanin && colouring.melanin)) return;
    view.hasColours = true;
    view.colours.resize(count);
    const bool display = (flags & kExportDisplayColours) != 0 && colouring.display;
    // The colouring functions are the caller's: call them from this thread only.
    for (std::size_t i = 0; i < count; ++i) {
        const Vec3f c = fromRgb ? Vec3f{r->values()[i], g->values()[i], b->values()[i]}
                                : colouring.melanin(melanin->values()[i], redness ? redness->values()[i] : 0.2f);
        view.colours[i] = display ? colouring.display(c) : c;
    }
}

void bounds(const StrandSet& strands, ExportView& view) {
    const std::span<const Vec3f> points = strands.points();
    const std::span<const float> widths = strands.widths();
    const std::size_t chunks = (points.size() + kGrain * 16 - 1) / (kGrain * 16);
    struct Box { Vec3f min, max; };
    std::vector<Box> boxes(chunks);
    parallelRange(0, chunks, 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t c = lo; c < hi; ++c) {
            const std::size_t begin = c * kGrain * 16, end = std::min(points.size(), begin + kGrain * 16);
            Box box{{INFINITY, INFINITY, INFINITY}, {-INFINITY, -INFINITY, -INFINITY}};
            for (std::size_t i = begin; i < end; ++i) {
                const float half = 0.5f * (i < widths.size() ? finiteOrZero(widths[i]) : 1.0f);
                for (int a = 0; a < 3; ++a) {
                    const float v = finiteOrZero(points[i][a]);
                    box.min[a] = std::min(box.min[a], v - half);
                    box.max[a] = std::max(box.max[a], v + half);
                }
            }
            boxes[c] = box;
        }
    });
    if (boxes.empty()) return;
    view.boundsMin = boxes[0].min;
    view.boundsMax = boxes[0].max;
    for (const Box& box : boxes) {
        for (int a = 0; a < 3; ++a) {
            view.boundsMin[a] = std::min(view.boundsMin[a], box.min[a]);
            view.boundsMax[a] = std::max(view.boundsMax[a], box.max[a]);
        }
    }
}

}  // namespace

ExportView buildExportView(const StrandSet& strands, const ScalpUvs* scalp, unsigned flags,
                           const ExportColouring& colouring) {
    ExportView view;
    const std::size_t count = strands.strandCount();
    const std::span<const std::uint64_t> offsets = strands.offsets();
    view.vertexCounts.resize(count);
    parallelRange(0, count, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            view.vertexCounts[i] = static_cast<std::int32_t>(offsets[i + 1] - offsets[i]);
        }
    });
    if (scalp && !scalp->cornerUvs.empty()) {
        view.hasUvs = true;
        rootUvs(strands, *scalp, view);
    }
    colours(strands, flags, colouring, view);
    // Names that begin with "_" are the engine's own marks (a preview's "_preview"), not channels.
    for (const auto& entry : strands.strandChannels())
        if (!entry.first.starts_with('_')) view.strandChannels.push_back(entry.first);
    for (const auto& entry : strands.pointChannels())
        if (!entry.first.starts_with('_')) view.pointChannels.push_back(entry.first);
    if (flags & kExportBounds) bounds(strands, view);
    return view;
}

}  // namespace tressora
