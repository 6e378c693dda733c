#include "operators/color/hair_color.h"

#include <optional>

#include "core/parallel.h"
#include "expression/color.h"
#include "graph/operator_registry.h"
#include "maps/map_fields.h"
#include "operators/color/look_common.h"
#include "operators/color/pigment.h"
#include "operators/color/root_color_map.h"

namespace tressora {
namespace {

using namespace look;

// Salts of the per-strand draws: one per purpose, so the draws are independent.
enum Salt : std::uint64_t { kMelaninDraw = 1, kGreyDraw, kValueDraw, kHueDraw, kSaturationDraw, kSpecularDraw,
                            kRoughnessDraw, kTipDraw };

// A grey hair keeps this share of its pigment.
constexpr float kGreyPigment = 0.01f;
// Tips bleach toward a quarter of the pigment (melanin mode) or halfway to white (colour mode).
constexpr float kTipPigment = 0.25f;
constexpr float kTipWhite = 0.5f;
// Below this HSL saturation a colour counts as grey and keeps its hue and saturation.
constexpr float kNeutral = 1e-3f;

Ramp defaultTipProfile() { return Ramp{{{0.0, 0.0}, {0.5, 0.0}, {1.0, 1.0}}, false}; }

/// What one strand draws at random, blended with its clump's draws by clumpShare.
struct StrandDraws {
    float melaninOffset = 0, grey = 1, valueScale = 1, hueTurn = 0, saturationScale = 1;
    float specular = 0, roughness = 0, tipOffset = 0;
};

class HairColor final : public Operator {
public:
    HairColor() {
        applyRanges(paramValues, {{"melanin", 0.0, 1.0}, {"redness", 0.0, 1.0}, {"greys", 0.0, 1.0},
                                  {"melaninRandom", 0.0, 1.0}, {"valueRandom", 0.0, 1.0}, {"hueRandom", 0.0, 1.0},
                                  {"saturationRandom", 0.0, 1.0}, {"clumpShare", 0.0, 1.0},
                                  {"tipStrength", 0.0, 1.0}, {"tipOffsetRandom", 0.0, 1.0},
                                  {"specular", 0.0, 1.0}, {"specularRandom", 0.0, 1.0}, {"roughness", 0.0, 1.0},
                                  {"roughnessRandom", 0.0, 1.0}, {"tilt", -20.0, 20.0}});
    }

    std::string type() const override { return "HairColor"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }
    std::string role() const override { return "color"; }

    std::vector<ParamSpec> params() const override {
        ParamSpec dye = param("dye", Vec3f{1, 1, 1},
                              "A color dyeing the pigment (white: none): its absorption adds to the pigment's, as "
                              "aiStandardHair combines its melanin and base color (a Map's rgb output can drive it)",
                              "color");
        dye.colorField = true;
        ParamSpec color = param("color", Vec3f{0.8f, 0.8f, 0.8f},
                                "The hair's color, as it shows and renders (white hair: 1, 1, 1); a Map's rgb output "
                                "plugged in colors each strand by its root (times this color)",
                                "color");
        color.colorField = true;
        ParamSpec clumpChannel = param("clumpChannel", std::string("clumpId"),
                                       "The channel naming each strand's clump, for clumpShare: a Clump's "
                                       "clumpChannel (clumpId by default; with chained Clumps, the one whose clumps "
                                       "should share a color)");
        clumpChannel.channel = ChannelMode::Reads;
        clumpChannel.channelOptional = true;
        return {
            choiceParam("mode", "melanin", {"melanin", "color"},
                        "What colors the hair: melanin (natural hair: melanin and redness, and a dye) or color (the "
                        "color you pick, as it shows and renders); PxrHairColor's Physical and Artistic modes"),
            param("melanin", 0.35, "Pigment, 0 (white, blond) to 1 (black) (mappable)"),
            param("redness", 0.2, "Share of red pigment (pheomelanin), 0 (brown, black) to 1 (red) (mappable)"),
            dye,
            color,
            param("map", std::string(),
                  "A color read at each root (empty: none): a map painted in Groom Tools > Paint, by name, a color "
                  "set of that name on the scalp, or an image file at the scalp's UVs. Mode color: it is the color; "
                  "mode melanin: it dyes the pigment"),
            param("greys", 0.0, "Share of strands with almost no pigment: grey and white hairs (mappable)", "fraction"),
            param("melaninRandom", 0.1, "Each strand's melanin up to this much more or less, at random", "", 0.0, 0.5),
            param("valueRandom", 0.0, "Each strand's color up to this share lighter or darker, at random", "fraction"),
            param("hueRandom", 0.0, "Each strand's hue turned at random, up to half a turn either way at 1",
                  "fraction"),
            param("saturationRandom", 0.0,
                  "Each strand's saturation up to this share more or less, at random (grey and white stay neutral)",
                  "fraction"),
            param("clumpShare", 0.5,
                  "How much of the randomness the strands of one clump share: 0 each strand its own, 1 the whole "
                  "clump alike (needs a Clump before HairColor: its clumpChannel)",
                  "fraction"),
            clumpChannel,
            param("seed", std::int64_t{0}, "Random seed"),
            param("tipStrength", 0.0,
                  "How far toward tipColor the tips go, 0-1 (mappable, per point: a painted per-point layer or an "
                  "expression of t paints color along the strands)",
                  "fraction"),
            param("tipProfile", defaultTipProfile(),
                  "Where along the strand the tip color shows, root to tip, times tipStrength"),
            param("tipOffsetRandom", 0.0,
                  "Each strand's tip color starts up to this share of its length earlier or later, at random",
                  "fraction", 0.0, 0.5),
            param("specular", 0.3,
                  "Highlight strength, 0 none to 1 bright (mappable; 0.3 is aiStandardHair's full specular tint)"),
            param("specularRandom", 0.0, "Each strand's specular up to this share more or less, at random",
                  "fraction"),
            param("roughness", 0.5, "Highlight spread, 0 sharp to 1 broad (mappable)"),
            param("roughnessRandom", 0.0, "Each strand's roughness up to this share more or less, at random",
                  "fraction"),
            param("tilt", 3.0,
                  "Cuticle tilt, degrees: how far the highlight and its colored second highlight move apart along "
                  "the strand (real hair: 2-4)",
                  "angle", 0.0, 10.0),
        };
    }

    std::vector<ChannelInfo> channels() const override {
        std::vector<ChannelInfo> out;
        for (const char* name : {kColorR, kColorG, kColorB, kMelanin, kMelaninRedness, kSpecular, kRoughness, kTilt})
            out.push_back({name, ChannelMode::Writes, ""});
        const std::string clump = paramValues.getString("clumpChannel", "clumpId");
        if (!clump.empty()) out.push_back({clump, ChannelMode::Reads, "clumpChannel"});
        return out;
    }

    std::vector<std::string> sceneInputs() const override {
        if (paramValues.getString("map", "").empty()) return {};
        return {kScalpItem, kMapsItem};
    }

    std::uint64_t contextStamp(const NodeKeyLookup&, int, const EvalContext& context) const override {
        const std::string map = paramValues.getString("map", "");
        if (map.empty()) return 0;
        std::string path = map;
        if (const auto* fields = dynamic_cast<const MapFields*>(context.maps)) path = fields->resolvePath(map);
        return combine(combineText(0x4A1C, path), fileStamp(path));
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override;

private:
    Vec3f jitter(Vec3f c, const StrandDraws& d) const;
};

Vec3f HairColor::jitter(Vec3f c, const StrandDraws& d) const {
    if (d.hueTurn == 0.0f && d.saturationScale == 1.0f) return c;
    Vec3f hsl = exprlib::rgbToHsl(c);
    if (hsl.y < kNeutral) return c;
    hsl.x += d.hueTurn;
    hsl.y = clamp01(hsl.y * d.saturationScale);
    return exprlib::hslToRgb(hsl);
}

Value HairColor::evaluate(EvalContext& context, const std::vector<Value>& inputs) {
    const auto in = inputs.empty() ? nullptr : inputs[0].as<StrandSet>();
    if (!in) return inputs.empty() ? Value() : inputs[0];
    const ParamSet& p = paramValues;
    const std::string mode = p.getString("mode", "melanin");
    if (mode != "melanin" && mode != "color") {
        context.addNote("mode must be melanin or color");
        return inputs[0];
    }
    const bool melaninMode = mode == "melanin";

    std::optional<RootColorMap> map;
    if (const std::string name = p.getString("map", ""); !name.empty()) {
        map.emplace(name, context);
        if (!map->ok()) {
            context.addNote(map->problem());
            return inputs[0];
        }
    }

    float clumpShare = static_cast<float>(p.getFloat("clumpShare", 0.5));
    const StrandChannel* clumps = nullptr;
    if (clumpShare > 0.0f) {
        const std::string channel = p.getString("clumpChannel", "clumpId");
        clumps = in->strandChannel(channel);
        if (clumps && clumps->size() != in->strandCount()) clumps = nullptr;
        if (!clumps) {
            context.addNote("clumpShare: no " + channel +
                            " channel reaches HairColor (put it after a Clump), so each strand varies on its own");
            clumpShare = 0.0f;
        }
    }

    const StrandSet& s = *in;
    const MappedFloat melanin("melanin", p, context, s, 0.0, 1.0);
    const MappedFloat redness("redness", p, context, s, 0.0, 1.0);
    const MappedFloat greys("greys", p, context, s, 0.0, 1.0);
    const MappedFloat tipStrength("tipStrength", p, context, s, 0.0, 1.0);
    const MappedFloat specular("specular", p, context, s, 0.0, 1.0);
    const MappedFloat roughness("roughness", p, context, s, 0.0, 1.0);
    const float melaninRandom = static_cast<float>(p.getFloat("melaninRandom", 0.1));
    const float valueRandom = static_cast<float>(p.getFloat("valueRandom", 0));
    const float hueRandom = static_cast<float>(p.getFloat("hueRandom", 0));
    const float saturationRandom = static_cast<float>(p.getFloat("saturationRandom", 0));
    const float tipOffsetRandom = static_cast<float>(p.getFloat("tipOffsetRandom", 0));
    const float specularRandom = static_cast<float>(p.getFloat("specularRandom", 0));
    const float roughnessRandom = static_cast<float>(p.getFloat("roughnessRandom", 0));
    const float tilt = static_cast<float>(p.getFloat("tilt", 3));
    const std::int64_t seed = p.getInt("seed", 0);
    const Vec3f dye = p.getVec3("dye", {1, 1, 1});
    const Vec3f pickedColor = p.getVec3("color", {0.8f, 0.8f, 0.8f});
    const RampTable tipProfile(rampParam(p, "tipProfile", defaultTipProfile()));
    const bool tips = tipStrength.mapped() || tipStrength.constant() > 0.0f;
    const bool perPoint = tips || (melaninMode && (melanin.perPoint() || redness.perPoint()));

    // Every channel is added before any span is taken: adding a channel may move the others.
    auto out = std::make_shared<StrandSet>(s);
    addStrandColors(*out);
    out->addStrandChannel(kSpecular, 0.3f);
    out->addStrandChannel(kRoughness, 0.5f);
    out->addStrandChannel(kTilt, 3.0f);
    if (melaninMode) {
        out->addStrandChannel(kMelanin, 0.35f);
        out->addStrandChannel(kMelaninRedness, 0.2f);
    } else {
        out->removeStrandChannel(kMelanin);
        out->removeStrandChannel(kMelaninRedness);
    }
    ColorSpans pointColor;
    if (perPoint) pointColor = addPointColors(*out);
    else removePointColors(*out);
    const ColorSpans strandSpans = addStrandColors(*out);
    const std::span<float> specularSpan = out->mutableStrandChannel(kSpecular);
    const std::span<float> roughnessSpan = out->mutableStrandChannel(kRoughness);
    const std::span<float> tiltSpan = out->mutableStrandChannel(kTilt);
    std::span<float> melaninOut, rednessOut;
    if (melaninMode) {
        melaninOut = out->mutableStrandChannel(kMelanin);
        rednessOut = out->mutableStrandChannel(kMelaninRedness);
    }

    const std::span<const std::uint64_t> ids = s.ids();
    parallelRange(0, s.strandCount(), 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const std::uint64_t key = strandKey(ids[i], seed);
            const std::uint64_t clumpKey =
                clumps ? strandKey(floatBits(clumps->values()[i]), seed) : key;
            const auto signedShared = [&](std::uint64_t salt) {
                const float own = signedDraw(key, salt);
                return clumpShare > 0.0f ? own + (signedDraw(clumpKey, salt) - own) * clumpShare : own;
            };
            StrandDraws d;
            d.melaninOffset = signedShared(kMelaninDraw) * melaninRandom;
            const float greyDraw = unitDraw(key, kGreyDraw) +
                                   (unitDraw(clumpKey, kGreyDraw) - unitDraw(key, kGreyDraw)) * clumpShare;
            d.grey = greyDraw < greys.strand(s, i) ? kGreyPigment : 1.0f;
            d.valueScale = valueRandom > 0.0f ? std::max(0.0f, 1.0f + signedShared(kValueDraw) * valueRandom) : 1.0f;
            d.hueTurn = hueRandom > 0.0f ? 0.5f * signedShared(kHueDraw) * hueRandom : 0.0f;
            d.saturationScale = saturationRandom > 0.0f ? 1.0f + signedShared(kSaturationDraw) * saturationRandom : 1.0f;
            d.tipOffset = signedDraw(key, kTipDraw) * tipOffsetRandom;

            const Vec3f mapColor = map ? map->at(s, i) : Vec3f{1, 1, 1};
            const Vec3f dyeColor{dye.x * mapColor.x, dye.y * mapColor.y, dye.z * mapColor.z};
            const Vec3f picked{pickedColor.x * mapColor.x * d.valueScale, pickedColor.y * mapColor.y * d.valueScale,
                               pickedColor.z * mapColor.z * d.valueScale};
            // The colour and the bleached tip colour for a pigment amount.
            const auto colorsFor = [&](float pigment, float red, Vec3f& base, Vec3f& tip) {
                if (melaninMode) {
                    const float m = clamp01(pigment + d.melaninOffset) * d.grey;
                    base = jitter(melaninColor(m, red, dyeColor), d);
                    tip = jitter(melaninColor(m * kTipPigment, red, dyeColor), d);
                } else {
                    base = jitter(picked, d);
                    tip = mixColor(base, {1, 1, 1}, kTipWhite);
                }
            };

            const float rootPigment = melanin.strand(s, i), rootRed = redness.strand(s, i);
            Vec3f base, tip;
            colorsFor(rootPigment, rootRed, base, tip);
            strandSpans.set(i, base);
            if (melaninMode) {
                melaninOut[i] = clamp01(rootPigment + d.melaninOffset) * d.grey;
                rednessOut[i] = rootRed;
            }
            const float spec = specular.strand(s, i), rough = roughness.strand(s, i);
            specularSpan[i] = clamp01(spec * (1.0f + signedDraw(key, kSpecularDraw) * specularRandom));
            roughnessSpan[i] = clamp01(rough * (1.0f + signedDraw(key, kRoughnessDraw) * roughnessRandom));
            tiltSpan[i] = tilt;

            if (!perPoint) continue;
            const PointRange range = s.pointRange(i);
            for (std::size_t pt = range.begin; pt < range.end; ++pt) {
                const float t = pointParameter(s, i, pt);
                if (melaninMode && (melanin.perPoint() || redness.perPoint()))
                    colorsFor(melanin.point(s, i, pt, t), redness.point(s, i, pt, t), base, tip);
                const float w = tips ? tipStrength.point(s, i, pt, t) *
                                           clamp01(tipProfile(clamp01(t - d.tipOffset)))
                                     : 0.0f;
                pointColor.set(pt, mixColor(base, tip, w));
            }
        }
    });
    return Value(std::shared_ptr<const StrandSet>(std::move(out)));
}

}  // namespace

void registerHairColorOperator(OperatorRegistry& registry) {
    registry.add("HairColor",
                 typeInfo("color",
                              "The hair's look: pigment and dye, a map, greys, randomness, a tip color and the "
                              "highlight (specular, roughness, tilt).",
                              "melanin pigment dye shading specular roughness"),
                 [] { return std::make_unique<HairColor>(); });
}

}  // namespace tressora
