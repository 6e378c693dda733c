#include "operators/color/render_data.h"

#include "core/parallel.h"
#include "graph/operator_registry.h"
#include "operators/color/look_common.h"

namespace tressora {
namespace {

using namespace look;

Ramp flatProfile() { return Ramp{{{0.0, 1.0}, {1.0, 1.0}}, true}; }

class RenderData final : public Operator {
public:
    RenderData() { applyRanges(paramValues, {{"opacity", 0.0, 1.0}, {"opacityRandom", 0.0, 1.0}}); }

    std::string type() const override { return "RenderData"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }
    std::string role() const override { return "color"; }

    std::vector<ParamSpec> params() const override {
        return {
            param("opacity", 1.0, "How opaque each strand is, 0-1 (mappable), times opacityProfile", "fraction"),
            param("opacityProfile", flatProfile(), "Opacity along the strand, root to tip, times opacity"),
            param("opacityRandom", 0.0, "Each strand up to this share less opaque, at random", "fraction"),
            param("seed", std::int64_t{0}, "Random seed"),
        };
    }

    std::vector<ChannelInfo> channels() const override { return {{kOpacity, ChannelMode::Writes, ""}}; }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        const auto in = inputs.empty() ? nullptr : inputs[0].as<StrandSet>();
        if (!in) return inputs.empty() ? Value() : inputs[0];
        const StrandSet& s = *in;
        const MappedFloat opacity("opacity", paramValues, context, s, 0.0, 1.0);
        const RampTable profile(rampParam(paramValues, "opacityProfile", flatProfile()));
        const float random = static_cast<float>(paramValues.getFloat("opacityRandom", 0.0));
        const std::int64_t seed = paramValues.getInt("seed", 0);

        // Opacity per point; a strand channel of the same name would only stand in its way.
        auto out = std::make_shared<StrandSet>(s);
        out->removeStrandChannel(kOpacity);
        out->addPointChannel(kOpacity, 1.0f);
        const std::span<float> values = out->mutablePointChannel(kOpacity);
        const std::span<const std::uint64_t> ids = s.ids();
        parallelRange(0, s.strandCount(), 256, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                const float strandShare = 1.0f - unitDraw(strandKey(ids[i], seed), 1) * random;
                const PointRange range = s.pointRange(i);
                for (std::size_t pt = range.begin; pt < range.end; ++pt) {
                    const float t = pointParameter(s, i, pt);
                    const float along = profile(t);
                    values[pt] = clamp01(opacity.point(s, i, pt, t) * along * strandShare);
                }
            }
        });
        return Value(std::shared_ptr<const StrandSet>(std::move(out)));
    }
};

}  // namespace

void registerRenderDataOperator(OperatorRegistry& registry) {
    registry.add("RenderData",
                 typeInfo("color", "Render controls per strand for the shader: opacity along the strands.",
                              "opacity shader"),
                 [] { return std::make_unique<RenderData>(); });
}

}  // namespace tressora
