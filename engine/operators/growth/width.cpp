// Width: each point's width is the mapped width there, times the profile at the point's
// share of the strand's length, times a per-strand random factor.

#include "operators/growth/width.h"

#include <algorithm>
#include <array>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"
#include "graph/ramp.h"
#include "maps/map_fields.h"
#include "operators/growth/node_support.h"

namespace tressora {

namespace {

constexpr std::size_t kGrain = 256;
constexpr std::size_t kProfileSamples = 1024;

// Full at the root, easing off to a fine tip.
Ramp defaultProfile() { return Ramp{{{0.0, 1.0}, {0.6, 0.85}, {1.0, 0.2}}, false}; }

// The params of one evaluation, read once. The profile is tabulated so the per-point cost
// does not depend on how many keys the ramp has.
struct WidthPlan {
    std::shared_ptr<const ScalarField> field;
    float width = 0.007f;
    float randomness = 0.0f;
    std::uint64_t seed = 0;
    std::array<float, kProfileSamples + 1> profile{};

    float profileAt(float share) const {
        const float x = std::clamp(share, 0.0f, 1.0f) * float(kProfileSamples);
        const std::size_t i = std::min(static_cast<std::size_t>(x), kProfileSamples - 1);
        const float f = x - float(i);
        return profile[i] + (profile[i + 1] - profile[i]) * f;
    }

    // Writes the widths of strand i of `in` into `widths` (the output's array).
    void apply(const StrandSet& in, std::size_t i, std::span<float> widths) const {
        const PointRange r = in.pointRange(i);
        const std::size_t n = r.size();
        if (n == 0) return;
        float scale = 1.0f;
        if (randomness > 0.0f) scale += randomness * (2.0f * unit(combine(in.ids()[i], seed ^ 0x3D1Fu)) - 1.0f);
        const bool perPoint = field && field->perPoint();
        const float strandWidth = field && !perPoint ? field->strandValue(in, i) : width;
        const std::span<const Vec3f> p = in.strandPoints(i);
        const float total = polylineLength(p);
        float along = 0.0f;
        for (std::size_t j = 0; j < n; ++j) {
            if (j > 0) along += length(p[j] - p[j - 1]);
            const float share = total > 0.0f ? along / total : (n > 1 ? float(j) / float(n - 1) : 0.0f);
            const float t = n > 1 ? float(j) / float(n - 1) : 0.0f;
            const float w = perPoint ? field->pointValueAt(in, i, r.begin + j, t) : strandWidth;
            widths[r.begin + j] = std::max(0.0f, w * profileAt(share) * scale);
        }
    }
};

class WidthOperator final : public Operator {
public:
    WidthOperator() { paramValues.setLimits("randomness", {0.0, 1.0}); }
    std::string type() const override { return "Width"; }
    std::string role() const override { return "shape"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }

    std::vector<ParamSpec> params() const override {
        return {
            ParamRow("width", 0.007,
                     "Width, scene units (mappable, per point: e.g. an expression of t or a point channel)")
                .unit("width")
                .slider(0, 0.05)
                .animatable(),
            ParamRow("profile", defaultProfile(), "Width along the length, root to tip, times width").animatable(),
            ParamRow("randomness", 0.0,
                     "Per-strand variation of the width, 0-1: up to that share thinner or thicker")
                .unit("fraction")
                .animatable(),
            ParamRow("seed", std::int64_t{0}, "Random seed").advanced(),
        };
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        const Value& input = requireInput(inputs, 0, "Width", "strands");
        const auto in = input.as<StrandSet>();
        if (!in) return input;
        const auto plan = read(context, *in);
        auto out = std::make_shared<StrandSet>(*in);
        const std::span<float> widths = out->mutableWidths();
        parallelRange(0, in->strandCount(), kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) plan->apply(*in, i, widths);
        });
        return Value(std::shared_ptr<const StrandSet>(std::move(out)));
    }

    bool evaluateIncremental(EvalContext& context, const std::vector<Value>& inputs, const InputChanges& changes,
                             const Value& previous, Value& result, StrandChanges& resultChanges) override {
        return patchChangedStrands(
            inputs, changes, previous, result, resultChanges, [](const StrandSet& s) { return s.widths(); },
            [](StrandSet& s) { return s.mutableWidths(); },
            [&](const StrandSet& in) {
                return [&in, plan = std::shared_ptr<const WidthPlan>(read(context, in))](std::size_t i,
                                                                                         std::span<float> widths) {
                    plan->apply(in, i, widths);
                };
            });
    }

private:
    std::unique_ptr<WidthPlan> read(const EvalContext& context, const StrandSet& in) const {
        auto plan = std::make_unique<WidthPlan>();
        const MapBinding binding = strandBinding(in);
        plan->field = fieldFromParam("width", paramValues.get("width"), context, binding);
        if (plan->field) plan->field->strandIndexed(in);
        plan->width = static_cast<float>(paramValues.getFloat("width", 0.007));
        plan->randomness = static_cast<float>(paramValues.getFloat("randomness", 0.0));
        plan->seed = static_cast<std::uint64_t>(paramValues.getInt("seed", 0));
        const Ramp profile = paramValues.getRamp("profile", defaultProfile());
        for (std::size_t k = 0; k <= kProfileSamples; ++k)
            plan->profile[k] = static_cast<float>(evaluateRamp(profile, double(k) / double(kProfileSamples)));
        return plan;
    }
};

}  // namespace

void registerWidthOperator(OperatorRegistry& registry) {
    registry.add("Width", typeInfo("shape", "Strand thickness, root to tip.", "thickness radius taper"),
                 [] { return std::make_unique<WidthOperator>(); });
}

}  // namespace tressora
