#include "operators/color/bands.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "core/parallel.h"
#include "graph/operator_registry.h"
#include "operators/color/look_common.h"
#include "operators/color/pigment.h"

namespace tressora {
namespace {

using namespace look;

// Salts: the melanin offset uses HairColor's salt, so one seed gives the same offsets.
enum Salt : std::uint64_t { kMelaninDraw = 1, kRednessDraw = 9, kShiftDraw, kStretchDraw, kGuardDraw };

constexpr Vec3f kPlainGrey{0.8f, 0.8f, 0.8f};

Ramp defaultProfile() { return Ramp{{{0.0, 0.0}, {0.55, 0.0}, {0.7, 1.0}, {0.85, 0.0}, {1.0, 0.0}}, false}; }

/// Which strands are guard hairs: a `share` of them, at random by id or the longest.
std::vector<char> guardHairs(const StrandSet& s, float share, bool longest, std::int64_t seed) {
    const std::size_t n = s.strandCount();
    std::vector<char> guard(n, 0);
    if (!longest) {
        for (std::size_t i = 0; i < n; ++i) guard[i] = unitDraw(strandKey(s.ids()[i], seed), kGuardDraw) < share;
        return guard;
    }
    std::vector<float> lengths(n, 0.0f);
    parallelRange(0, n, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const std::span<const Vec3f> pts = s.strandPoints(i);
            for (std::size_t k = 1; k < pts.size(); ++k) lengths[i] += length(pts[k] - pts[k - 1]);
        }
    });
    std::vector<std::size_t> order(n);
    std::iota(order.begin(), order.end(), std::size_t{0});
    // Longest first; equal lengths by id, so the choice never depends on the strands' order.
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return lengths[a] != lengths[b] ? lengths[a] > lengths[b] : s.ids()[a] < s.ids()[b];
    });
    const auto count = static_cast<std::size_t>(std::lround(static_cast<double>(share) * static_cast<double>(n)));
    for (std::size_t k = 0; k < count && k < n; ++k) guard[order[k]] = 1;
    return guard;
}

class Bands final : public Operator {
public:
    Bands() {
        applyRanges(paramValues, {{"strength", 0.0, 1.0}, {"melanin", 0.0, 1.0}, {"redness", 0.0, 1.0},
                                  {"count", 1.0, 1000.0}, {"guards", 0.0, 1.0}, {"offsetRandom", 0.0, 1.0},
                                  {"widthRandom", 0.0, 0.9}});
    }

    std::string type() const override { return "Bands"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }
    std::string role() const override { return "color"; }

    std::vector<ParamSpec> params() const override {
        return {
            param("strength", 1.0, "How strongly the bands show, 0 (none) to 1 (mappable, per point)", "fraction"),
            param("melanin", 0.08, "The bands' pigment, 0 (pale) to 1 (black)"),
            param("redness", 0.6, "The bands' redness, 0 (brown) to 1 (red): agouti's band is a pale yellow-red"),
            param("dye", Vec3f{1, 1, 1}, "Dye over the bands' pigment, linear RGB (white: none)", "color"),
            param("profile", defaultProfile(),
                  "Where the band color is along one period of the pattern, root to tip: 0 the hair's own, 1 the "
                  "band's"),
            param("count", std::int64_t{1}, "How many times the profile repeats root to tip (ticked fur: several)", "",
                  1.0, 10.0),
            param("guards", 1.0,
                  "Share of the strands that are guard hairs, which take the bands and keep the tip color (1: all); "
                  "the rest are undercoat in the plain color",
                  "fraction"),
            choiceParam("guardsBy", "random", {"random", "longest"},
                        "Which strands are the guard hairs: at random, or the longest"),
            param("randomness", 0.1, "Random offset of each strand's band pigment (melanin and redness), +/-", "", 0.0,
                  0.5),
            param("offsetRandom", 0.15,
                  "Random shift of each strand's bands along it, as a share of a period, so bands do not line up "
                  "across the coat",
                  "fraction"),
            param("widthRandom", 0.1, "Random stretch of each strand's bands, +/- this share", "fraction"),
            param("seed", std::int64_t{0}, "Random seed (HairColor's, for the same pigment offsets)"),
        };
    }

    std::vector<ChannelInfo> channels() const override {
        return {{kColorR, ChannelMode::Writes, ""}, {kColorG, ChannelMode::Writes, ""}, {kColorB, ChannelMode::Writes, ""}};
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        const auto in = inputs.empty() ? nullptr : inputs[0].as<StrandSet>();
        if (!in) return inputs.empty() ? Value() : inputs[0];
        const ParamSet& p = paramValues;
        const std::string guardsBy = p.getString("guardsBy", "random");
        if (guardsBy != "random" && guardsBy != "longest") {
            context.addNote("guardsBy must be random or longest");
            return inputs[0];
        }
        const StrandSet& s = *in;
        const ColorReader before(s, kPlainGrey);
        if (!before.any()) context.addNote("no hair color reaches Bands (put it after HairColor), so the bands lie over grey");

        const MappedFloat strength("strength", p, context, s, 0.0, 1.0);
        const float melanin = static_cast<float>(p.getFloat("melanin", 0.08));
        const float redness = static_cast<float>(p.getFloat("redness", 0.6));
        const Vec3f dye = p.getVec3("dye", {1, 1, 1});
        const RampTable profile(rampParam(p, "profile", defaultProfile()));
        const float count = static_cast<float>(p.getInt("count", 1));
        const float randomness = static_cast<float>(p.getFloat("randomness", 0.1));
        const float offsetRandom = static_cast<float>(p.getFloat("offsetRandom", 0.15));
        const float widthRandom = static_cast<float>(p.getFloat("widthRandom", 0.1));
        const std::int64_t seed = p.getInt("seed", 0);
        const std::vector<char> guard = guardHairs(s, static_cast<float>(p.getFloat("guards", 1.0)),
                                                   guardsBy == "longest", seed);

        auto out = std::make_shared<StrandSet>(s);
        addStrandColors(*out, kPlainGrey);
        const ColorSpans colors = addPointColors(*out);
        const std::span<const std::uint64_t> ids = s.ids();
        parallelRange(0, s.strandCount(), 256, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                const PointRange range = s.pointRange(i);
                if (!guard[i]) {  // undercoat: the plain colour, no tips, no bands
                    const Vec3f plain = before.strand(i);
                    for (std::size_t pt = range.begin; pt < range.end; ++pt) colors.set(pt, plain);
                    continue;
                }
                const std::uint64_t key = strandKey(ids[i], seed);
                const Vec3f band = melaninColor(melanin + signedDraw(key, kMelaninDraw) * randomness,
                                                redness + signedDraw(key, kRednessDraw) * randomness, dye);
                const float shift = signedDraw(key, kShiftDraw) * offsetRandom;
                const float stretch = 1.0f + signedDraw(key, kStretchDraw) * widthRandom;
                for (std::size_t pt = range.begin; pt < range.end; ++pt) {
                    const float t = pointParameter(s, i, pt);
                    const float x = t * count / stretch + shift;
                    const float phase = x - std::floor(x);
                    const float w = strength.point(s, i, pt, t) *
                                    clamp01(profile(phase));
                    colors.set(pt, mixColor(before.point(i, pt), band, w));
                }
            }
        });
        return Value(std::shared_ptr<const StrandSet>(std::move(out)));
    }
};

}  // namespace

void registerBandsOperator(OperatorRegistry& registry) {
    registry.add("Bands",
                 typeInfo("color",
                              "Bands of another pigment along each hair, on the guard hairs: agouti, ticked, shaded "
                              "fur. After HairColor.",
                              "agouti ticked stripes"),
                 [] { return std::make_unique<Bands>(); });
}

}  // namespace tressora
