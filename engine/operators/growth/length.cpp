// Length: each strand keeps a share of its length from the root, some of them trimmed
// further at random. A trimmed strand keeps its number of points, laid out evenly along
// the part it keeps, so widths, point channels and the layout stay as they were.

#include "operators/growth/length.h"

#include <algorithm>
#include <optional>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"
#include "maps/map_fields.h"
#include "operators/growth/guide_conversion.h"
#include "operators/growth/node_support.h"

namespace tressora {

namespace {

constexpr std::size_t kGrain = 256;

// Lays n points evenly along the first `keep` of the polyline `from`.
void layAlong(std::span<const Vec3f> from, float keep, std::span<Vec3f> to) {
    const std::size_t n = from.size();
    const float spacing = polylineLength(from) * keep / float(n - 1);
    std::size_t segment = 0;
    float segmentStart = 0.0f;  // arc length where `segment` begins
    for (std::size_t j = 0; j < n; ++j) {
        const float at = spacing * float(j);
        float segmentLength = length(from[segment + 1] - from[segment]);
        while (segment + 2 < n && at > segmentStart + segmentLength) {
            segmentStart += segmentLength;
            ++segment;
            segmentLength = length(from[segment + 1] - from[segment]);
        }
        const float alpha = segmentLength > 0.0f ? std::clamp((at - segmentStart) / segmentLength, 0.0f, 1.0f) : 0.0f;
        to[j] = from[segment] + (from[segment + 1] - from[segment]) * alpha;
    }
}

// The params of one evaluation, read once.
struct Trim {
    std::shared_ptr<const ScalarField> keepField, fractionField;
    float keep = 1.0f, fraction = 1.0f, trimMin = 0.0f, trimMax = 0.0f;
    std::uint64_t seed = 0;

    // The share of strand i's length that it keeps, 0 to 1.
    float share(const StrandSet& set, std::size_t i) const {
        float s = keepField ? keepField->strandValue(set, i) : keep;
        if (trimMax > 0.0f) {
            const std::uint64_t id = set.ids()[i];
            const float f = fractionField ? fractionField->strandValue(set, i) : fraction;
            if (f >= 1.0f || f > unit(combine(id, seed ^ 0x1E46u))) {
                const float u = unit(combine(id, seed ^ 0x7A11u));
                s *= 1.0f - (trimMin + u * (trimMax - trimMin));
            }
        }
        return std::clamp(s, 0.0f, 1.0f);
    }

    // Rewrites the points of strand i of `in` into `points` (the output's array). A strand
    // that keeps its whole length keeps its points: they are copied over when `restore` is
    // set (the array holds another evaluation's points), else left as they are.
    void apply(const StrandSet& in, std::size_t i, std::span<Vec3f> points, bool restore) const {
        const PointRange r = in.pointRange(i);
        const float s = r.size() < 2 ? 1.0f : share(in, i);
        if (!(s < 1.0f)) {
            if (!restore) return;
            std::copy(in.points().begin() + std::ptrdiff_t(r.begin), in.points().begin() + std::ptrdiff_t(r.end),
                      points.begin() + std::ptrdiff_t(r.begin));
            return;
        }
        layAlong(in.strandPoints(i), s, points.subspan(r.begin, r.size()));
    }
};

class LengthOperator final : public Operator {
public:
    LengthOperator() {
        paramValues.setLimits("keep", {0.0, 1.0});
        paramValues.setLimits("trimMin", {0.0, 1.0});
        paramValues.setLimits("trimMax", {0.0, 1.0});
    }
    std::string type() const override { return "Length"; }
    std::string role() const override { return "shape"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Curves}}; }
    Port output() const override { return {"out", PortType::Curves}; }

    std::vector<ParamSpec> params() const override {
        return {
            ParamRow("keep", 1.0,
                     "Share of each strand's length kept from the root, 0-1 (mappable; to lengthen, Transform's "
                     "scale)")
                .unit("fraction")
                .animatable(),
            ParamRow("fraction", 1.0, "Share of the strands trimmed at random, 0-1 (mappable)")
                .unit("fraction")
                .slider(0, 1)
                .animatable(),
            ParamRow("trimMin", 0.0, "The least share of its kept length a strand trimmed at random loses, 0-1")
                .unit("fraction")
                .animatable(),
            ParamRow("trimMax", 0.0,
                     "The most share of its kept length a strand trimmed at random loses, 0-1 (0: no random trim)")
                .unit("fraction")
                .animatable(),
            ParamRow("seed", std::int64_t{0}, "Random seed").advanced(),
        };
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        const Value& input = requireInput(inputs, 0, "Length", "strands");
        if (const auto guides = input.as<GuideSet>()) {
            const auto strands = strandsFromGuides(*guides, 1.0f, true);
            return Value(guidesWithStrandPoints(*guides, *trimmed(context, *strands)));
        }
        const auto strands = input.as<StrandSet>();
        return strands ? Value(trimmed(context, *strands)) : input;
    }

    bool evaluateIncremental(EvalContext& context, const std::vector<Value>& inputs, const InputChanges& changes,
                             const Value& previous, Value& result, StrandChanges& resultChanges) override {
        return patchChangedStrands(
            inputs, changes, previous, result, resultChanges, [](const StrandSet& s) { return s.points(); },
            [](StrandSet& s) { return s.mutablePoints(); },
            [&](const StrandSet& in) {
                return [&in, trim = read(context, in)](std::size_t i, std::span<Vec3f> points) {
                    trim.apply(in, i, points, true);
                };
            });
    }

private:
    Trim read(const EvalContext& context, const StrandSet& in) const {
        const MapBinding binding = strandBinding(in);
        Trim t;
        t.keepField = fieldFromParam("keep", paramValues.get("keep"), context, binding);
        t.fractionField = fieldFromParam("fraction", paramValues.get("fraction"), context, binding);
        for (const auto& field : {t.keepField, t.fractionField})
            if (field) field->strandIndexed(in);
        t.keep = static_cast<float>(paramValues.getFloat("keep", 1.0));
        t.fraction = static_cast<float>(paramValues.getFloat("fraction", 1.0));
        t.trimMin = static_cast<float>(paramValues.getFloat("trimMin", 0.0));
        t.trimMax = static_cast<float>(paramValues.getFloat("trimMax", 0.0));
        t.seed = static_cast<std::uint64_t>(paramValues.getInt("seed", 0));
        return t;
    }

    std::shared_ptr<StrandSet> trimmed(const EvalContext& context, const StrandSet& in) const {
        const Trim trim = read(context, in);
        auto out = std::make_shared<StrandSet>(in);
        const std::span<Vec3f> points = out->mutablePoints();
        parallelRange(0, in.strandCount(), kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) trim.apply(in, i, points, false);
        });
        return out;
    }
};

}  // namespace

void registerLengthOperator(OperatorRegistry& registry) {
    registry.add("Length", typeInfo("shape", "Trims strands to a share of their length.", "trim cut shorten haircut"),
                 [] { return std::make_unique<LengthOperator>(); });
}

}  // namespace tressora
