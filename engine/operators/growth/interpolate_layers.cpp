#include "operators/growth/interpolate_layers.h"

#include <algorithm>

#include "core/parallel.h"

namespace tressora {
namespace {

/// A layer's value on guide g at share t of its points, linear between points.
float layerAt(const GuideSet& guides, const std::vector<float>& layer, std::size_t g, float t) {
    const auto [first, last] = guides.pointRange(g);
    if (last <= first) return 0.0f;
    const std::size_t count = last - first;
    if (count == 1) return layer[first];
    const float x = std::clamp(t, 0.0f, 1.0f) * static_cast<float>(count - 1);
    const std::size_t i = std::min(static_cast<std::size_t>(x), count - 2);
    const float f = x - static_cast<float>(i);
    return layer[first + i] + (layer[first + i + 1] - layer[first + i]) * f;
}

}  // namespace

void carryGuideLayers(const GuideSet& guides, const BindingTable& bindings, StrandSet& out) {
    if (guides.attributes().empty() && guides.pointAttributes().empty()) return;
    // Channels are made first: adding one changes the set's structure.
    for (const auto& [name, values] : guides.attributes()) out.addStrandChannel(name);
    for (const auto& [name, values] : guides.pointAttributes()) out.addPointChannel(name);
    std::vector<std::pair<const std::vector<float>*, std::span<float>>> perStrand, perPoint;
    for (const auto& [name, values] : guides.attributes()) perStrand.emplace_back(&values, out.mutableStrandChannel(name));
    for (const auto& [name, values] : guides.pointAttributes())
        perPoint.emplace_back(&values, out.mutablePointChannel(name));

    parallelRange(0, out.strandCount(), 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t s = lo; s < hi; ++s) {
            const BindingChunk& chunk = *bindings.chunks[s / BindingChunk::kStrands];
            const std::size_t c = s - chunk.first;
            const std::size_t begin = chunk.start[c], end = chunk.start[c + 1];
            for (auto& [values, channel] : perStrand) {
                float v = 0.0f;
                for (std::size_t k = begin; k < end; ++k) v += chunk.weight[k] * (*values)[chunk.guide[k]];
                channel[s] = v;
            }
            const PointRange range = out.pointRange(s);
            const std::size_t n = range.size();
            for (auto& [values, channel] : perPoint) {
                for (std::size_t j = 0; j < n; ++j) {
                    const float t = n > 1 ? static_cast<float>(j) / static_cast<float>(n - 1) : 0.0f;
                    float v = 0.0f;
                    for (std::size_t k = begin; k < end; ++k)
                        v += chunk.weight[k] * layerAt(guides, *values, chunk.guide[k], t);
                    channel[range.begin + j] = v;
                }
            }
        }
    });
}

}  // namespace tressora
