#include "operators/look/noise.h"

#include <atomic>
#include <climits>
#include <map>
#include <vector>

#include "core/guide_set.h"
#include "core/parallel.h"
#include "graph/operator_registry.h"
#include "operators/color/look_common.h"
#include "operators/look/noise_displacement.h"

namespace tressora {
namespace {

using namespace look;

constexpr std::uint64_t kFractionDraw = 0x7F;

Ramp defaultProfile() { return Ramp{{{0.0, 0.0}, {0.25, 1.0}, {1.0, 1.0}}, false}; }

/// Guides as strands (ids, roots, points), so that one loop displaces both.
StrandSet strandsOf(const GuideSet& guides) {
    StrandSet s;
    s.reserve(guides.guideCount(), guides.pointCount());
    for (std::size_t i = 0; i < guides.guideCount(); ++i) s.addStrand(guides.ids()[i], guides.roots()[i], guides.guidePoints(i));
    return s;
}

/// The guides again, each with the displaced points of its strand.
GuideSet guidesWith(const GuideSet& guides, const StrandSet& moved) {
    GuideSet out;
    out.setColor(guides.color());
    for (std::size_t i = 0; i < guides.guideCount(); ++i) {
        std::map<std::string, float> attributes;
        for (const auto& [name, values] : guides.attributes()) attributes[name] = values[i];
        const auto [first, last] = guides.pointRange(i);
        std::map<std::string, std::vector<float>> layers;
        for (const auto& [name, values] : guides.pointAttributes())
            layers[name].assign(values.begin() + static_cast<std::ptrdiff_t>(first),
                                values.begin() + static_cast<std::ptrdiff_t>(last));
        out.addGuide(guides.ids()[i], guides.roots()[i], moved.strandPoints(i), guides.tube(i), attributes, layers);
    }
    return out;
}

class Noise final : public Operator {
public:
    Noise() { applyRanges(paramValues, {{"octaves", 1.0, 8.0}}); }

    std::string type() const override { return "Noise"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Curves}}; }
    Port output() const override { return {"out", PortType::Curves, false, ValueKind::Any}; }
    std::string role() const override { return "look"; }

    std::vector<ParamSpec> params() const override {
        ParamSpec amplitude = param("amplitude", 0.2, "Displacement size, scene units (mappable, per point)", "length",
                                    0.0, 1.0);
        ParamSpec frequency = param("frequency", 3.0, "Features per scene unit (world) or per strand length (strand)",
                                    "perLength", 0.0, 20.0);
        frequency.unitWhen = ParamCondition{"space", {"world"}};
        ParamSpec octaves = param("octaves", std::int64_t{2}, "Fractal octaves");
        octaves.advanced = true;
        ParamSpec profile = param("profile", defaultProfile(), "Amplitude along the length, root to tip");
        ParamSpec space = choiceParam("space", "strand", {"strand", "world"},
                                      "strand: independent per strand; world: coherent across strands");
        ParamSpec fraction = param("fraction", 1.0,
                                   "Share of the strands that get it, 0-1 (mappable): a few, at a high frequency, "
                                   "for frizz",
                                   "fraction", 0.0, 1.0);
        ParamSpec seed = param("seed", std::int64_t{0}, "Random seed");
        seed.advanced = true;
        ParamSpec mode = choiceParam("mode", "smooth", {"smooth", "kinky"},
                                     "smooth: waves; kinky: sharp kinks, straight between random offsets frequency "
                                     "apart (scraggle, frizz)");
        std::vector<ParamSpec> all{amplitude, frequency, octaves, profile, space, fraction, seed, mode};
        for (ParamSpec& spec : all) spec.animatable = spec.name != "seed";
        return all;
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        if (inputs.empty()) return {};
        // Choices were checked when the params were set.
        NoiseSettings settings;
        settings.world = paramValues.getString("space", "strand") == "world";
        settings.kinky = paramValues.getString("mode", "smooth") == "kinky";
        settings.frequency = static_cast<float>(paramValues.getFloat("frequency", 3.0));
        settings.octaves = static_cast<int>(paramValues.getInt("octaves", 2));
        settings.seed = paramValues.getInt("seed", 0);

        if (const auto strands = inputs[0].as<StrandSet>()) {
            auto out = std::make_shared<StrandSet>(*strands);
            displace(context, settings, *strands, *out);
            return Value(std::shared_ptr<const StrandSet>(std::move(out)));
        }
        if (const auto guides = inputs[0].as<GuideSet>()) {
            const StrandSet before = strandsOf(*guides);
            StrandSet after = before;
            displace(context, settings, before, after);
            return Value(std::make_shared<const GuideSet>(guidesWith(*guides, after)));
        }
        return inputs[0];
    }

private:
    /// Writes the displaced points of `in` into `out` (a copy of it); one loop of grain 256.
    void displace(EvalContext& context, const NoiseSettings& settings, const StrandSet& in, StrandSet& out) const {
        const NoiseDisplacement noise(settings);
        const MappedFloat amplitude("amplitude", paramValues, context, in);
        const MappedFloat fraction("fraction", paramValues, context, in, 0.0, 1.0);
        const RampTable profile(rampParam(paramValues, "profile", defaultProfile()));
        const std::int64_t seed = settings.seed;
        const std::span<const std::uint64_t> ids = in.ids();
        const std::span<const Vec3f> rest = in.points();
        const std::span<Vec3f> points = out.mutablePoints();
        std::atomic<int> finestSegments{INT_MAX};

        const bool lines = noise.readsLines();
        parallelRange(0, in.strandCount(), 256, [&](std::size_t lo, std::size_t hi) {
            std::vector<float> shares;
            NoiseDisplacement::Lines strandLines;
            for (std::size_t i = lo; i < hi; ++i) {
                const std::uint64_t key = strandKey(ids[i], seed);
                if (unitDraw(key, kFractionDraw) >= fraction.strand(in, i)) continue;
                const PointRange range = in.pointRange(i);
                const std::size_t count = range.size();
                if (count < 2) continue;
                // Length shares along the strand (by index when it has no length).
                shares.assign(count, 0.0f);
                for (std::size_t k = 1; k < count; ++k)
                    shares[k] = shares[k - 1] + length(rest[range.begin + k] - rest[range.begin + k - 1]);
                const float total = shares[count - 1];
                const int segments = static_cast<int>(count - 1);
                for (std::size_t k = 0; k < count; ++k)
                    shares[k] = total > 0.0f ? shares[k] / total : static_cast<float>(k) / static_cast<float>(segments);
                const float spacing = (settings.world ? total : 1.0f) / static_cast<float>(segments);
                if (noise.finerThan(spacing)) {
                    int seen = finestSegments.load(std::memory_order_relaxed);
                    while (segments < seen && !finestSegments.compare_exchange_weak(seen, segments)) {}
                }
                const NoiseDisplacement::Strand sample = noise.strand(key, spacing);
                if (sample.weights[0] <= 0.0f) continue;  // faded out entirely
                if (lines) noise.prepare(sample, strandLines);
                for (std::size_t k = 0; k < count; ++k) {
                    const std::size_t pt = range.begin + k;
                    const float along = profile(shares[k]);
                    const float size = amplitude.point(in, i, pt, pointParameter(in, i, pt)) * along;
                    if (size == 0.0f) continue;
                    const Vec3f value = lines ? noise.at(sample, strandLines, shares[k]) : noise.at(sample, shares[k], rest[pt]);
                    points[pt] = rest[pt] + value * size;
                }
            }
        });
        if (const int segments = finestSegments.load(); segments != INT_MAX)
            context.addNote((context.nodeName.empty() ? std::string("Noise") : context.nodeName) +
                            " is finer than the strands' " + std::to_string(segments) +
                            " segments draw: the noise fades out; raise Resample's segments or lower the frequency");
    }
};

}  // namespace

void registerNoiseOperator(OperatorRegistry& registry) {
    registry.add("Noise",
                 typeInfo("look", "Random displacement; on a fraction of the strands at a high frequency, frizz.",
                              "frizz random jitter"),
                 [] { return std::make_unique<Noise>(); });
}

}  // namespace tressora
