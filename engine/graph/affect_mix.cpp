#include "graph/affect_mix.h"

#include "core/parallel.h"

namespace tressora {

bool isIdChannel(std::string_view name) {
    return name == "id" || (name.size() > 2 && name.substr(name.size() - 2) == "Id");
}

std::shared_ptr<const StrandSet> mixByAffect(const StrandSet& input, const StrandSet& result,
                                             const FieldValue& affect) {
    auto mixed = std::make_shared<StrandSet>(result);
    affect.strandIndexed(result);
    const std::size_t strands = result.strandCount();
    std::vector<float> weights(result.pointCount());
    std::vector<float> strandWeights(strands);
    parallelRange(0, strands, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t s = lo; s < hi; ++s) {
            strandWeights[s] = affect.strandValue(result, s);
            const PointRange r = result.pointRange(s);
            for (std::size_t p = r.begin; p < r.end; ++p) weights[p] = affect.pointValue(result, s, p);
        }
    });

    const auto blend = [](float from, float to, float w) { return from + (to - from) * w; };
    const auto blendArray = [&](std::span<const float> from, std::span<float> to, const std::vector<float>& w,
                                bool switches) {
        parallelRange(0, to.size(), 4096, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i)
                to[i] = switches ? (w[i] >= 0.5f ? to[i] : from[i]) : blend(from[i], to[i], w[i]);
        });
    };

    {
        std::span<Vec3f> points = mixed->mutablePoints();
        std::span<const Vec3f> from = input.points();
        parallelRange(0, points.size(), 4096, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                const float w = weights[i];
                points[i] = from[i] + (points[i] - from[i]) * w;
            }
        });
    }
    blendArray(input.widths(), mixed->mutableWidths(), weights, false);
    for (const auto& [name, channel] : result.pointChannels()) {
        if (const StrandChannel* before = input.pointChannel(name))
            blendArray(before->values(), mixed->mutablePointChannel(name), weights, isIdChannel(name));
    }
    for (const auto& [name, channel] : result.strandChannels()) {
        if (const StrandChannel* before = input.strandChannel(name))
            blendArray(before->values(), mixed->mutableStrandChannel(name), strandWeights, isIdChannel(name));
    }
    return mixed;
}

}  // namespace tressora
