#include "operators/color/feather_color.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

#include "core/errors.h"
#include "core/parallel.h"
#include "graph/operator_registry.h"
#include "maps/map_fields.h"
#include "maps/texture_cache.h"
#include "operators/color/feather_pattern.h"
#include "operators/color/look_common.h"
#include "operators/color/pigment.h"
#include "operators/color/root_color_map.h"

namespace tressora {
namespace {

using namespace look;

// Down barbs go toward their colour lightened this far to white.
constexpr float kDownWhite = 0.5f;

/// One strand channel of Propagate's output, or null when missing or of another size.
const float* strandValues(const StrandSet& s, const char* name) {
    const StrandChannel* channel = s.strandChannel(name);
    return channel && channel->size() == s.strandCount() ? channel->values().data() : nullptr;
}

class FeatherColor final : public Operator {
public:
    FeatherColor() {
        applyRanges(paramValues, {{"strength", 0.0, 1.0}, {"melanin", 0.0, 1.0}, {"redness", 0.0, 1.0},
                                  {"count", 0.01, std::nullopt}, {"sharpness", 0.0, 1.0},
                                  {"offsetRandom", 0.0, std::nullopt}, {"scaleRandom", 0.0, 0.95},
                                  {"downStrength", 0.0, 1.0}, {"iridescence", 0.0, 1.0}});
    }

    std::string type() const override { return "FeatherColor"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }
    std::string role() const override { return "color"; }

    std::vector<ParamSpec> params() const override {
        return {
            param("pattern", std::string("bars"),
                  "A pattern on the feathers in their own flat space: a painted image of the feather, bars, "
                  "chevrons, spots, an edge fringe or an eye spot, in the pattern color (none: only the down color "
                  "and iridescence)"),
            param("strength", 1.0, "How strongly the pattern shows, 0-1", "fraction"),
            param("melanin", 0.0, "The pattern's pigment, 0 (white) to 1 (black)"),
            param("redness", 0.0, "The pattern's redness"),
            param("dye", Vec3f{1, 1, 1}, "Dye over the pattern's pigment, linear RGB", "color"),
            choiceParam("vanes", "both", {"both", "left", "right"},
                        "Which vanes the pattern covers (left and right seen from the vane's top, the tip up)"),
            param("count", 6.0, "Bars, chevrons, rows of spots per feather length", "", 1.0, 20.0),
            param("width", 0.4,
                  "Bars, chevrons, spots: the share of each period the shape takes; eye: its diameter (a share of "
                  "the feather's length); fringe: the share of each barb from its tip",
                  "fraction", 0.0, 1.0),
            param("angle", 0.0, "Degrees: bars' tilt from straight across; chevrons' arms (try 30); an eye's tilt",
                  "angle", -90.0, 90.0),
            param("sharpness", 0.7, "Edges, 0 soft to 1 hard"),
            param("offset", 0.7, "Along the feather, 0 root .. 1 tip: shifts bars and spots; the eye spot's center",
                  "fraction", 0.0, 1.0),
            param("profile", false, "Across each shape, its center (0) to its edge (1): rings for an eye spot, a hollow bar"),
            param("texture", std::string(),
                  "With pattern texture: an image of the feather laid flat, the shaft up the middle, the left vane "
                  "on the left, the root at the bottom; its alpha says where it covers"),
            param("textureRight", std::string(),
                  "Optional: the right vane's own image (texture is then the left vane's), the shaft along the left "
                  "edge"),
            param("offsetRandom", 0.2, "Random shift of each feather's pattern, as a share of its spacing (eye: its size)",
                  "", 0.0, 1.0),
            param("scaleRandom", 0.1, "Random size of each feather's pattern, +/- this share", "fraction"),
            param("angleRandom", 3.0, "Random turn of each feather's pattern, +/- degrees", "angle", 0.0, 45.0),
            param("downStrength", 0.0, "How far the down zone's barbs go to downColor, 0-1", "fraction"),
            param("iridescence", 0.0,
                  "Structural color, 0 none to 1 full (mappable, per point): an angle-dependent sheen the hair "
                  "shading mixes in (the iridescence channel)",
                  "fraction"),
            param("iridescenceColor", Vec3f{0, 0, 0},
                  "The structural color seen face-on (along the strand's normal: a feather's vane), linear RGB",
                  "color"),
            param("iridescenceShift", 0.3, "How far its hue turns from face-on to edge-on, in turns (+/-)", "turns",
                  -1.0, 1.0),
            choiceParam("iridescenceOn", "all", {"all", "leftVane", "rightVane", "pattern", "notPattern"},
                        "Where the iridescence shows: everywhere, on one vane of a feather, or where the pattern is "
                        "(or is not)"),
            param("seed", std::int64_t{0}, "Random seed"),
        };
    }

    std::vector<ChannelInfo> channels() const override {
        std::vector<ChannelInfo> out;
        for (const char* name : {"featherId", "isShaft", "side", "vaneU", "vaneTipU", "vaneTipV", "isDown"})
            out.push_back({name, ChannelMode::Reads, ""});
        for (const char* name : {kColorR, kColorG, kColorB, kIridescence}) out.push_back({name, ChannelMode::Writes, ""});
        return out;
    }

    std::uint64_t externalStamp() const override {
        const std::string left = paramValues.getString("texture", ""), right = paramValues.getString("textureRight", "");
        if (left.empty() && right.empty()) return 0;
        return combine(combine(combineText(0xFE, left + '\n' + right), fileStamp(left)), fileStamp(right));
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override;
};

/// The problem with a text param's value, or nothing.
std::optional<std::string> checkChoices(const ParamSet& p, FeatherPatternKind& kind) {
    const std::string pattern = p.getString("pattern", "bars");
    if (!parseFeatherPattern(pattern, kind)) return "pattern must be one of none, texture, bars, chevrons, spots, fringe, eye";
    const std::string vanes = p.getString("vanes", "both");
    if (vanes != "both" && vanes != "left" && vanes != "right") return "vanes must be both, left or right";
    const std::string on = p.getString("iridescenceOn", "all");
    if (on != "all" && on != "leftVane" && on != "rightVane" && on != "pattern" && on != "notPattern")
        return "iridescenceOn must be all, leftVane, rightVane, pattern or notPattern";
    if (kind == FeatherPatternKind::Texture && p.getString("texture", "").empty())
        return "pattern texture needs a texture image";
    return std::nullopt;
}

std::shared_ptr<const Texture> openTexture(const std::string& path, const EvalContext& context) {
    if (path.empty()) return nullptr;
    const auto* fields = dynamic_cast<const MapFields*>(context.maps);
    return acquireTexture(fields ? fields->resolvePath(path) : path);
}

Value FeatherColor::evaluate(EvalContext& context, const std::vector<Value>& inputs) {
    const auto in = inputs.empty() ? nullptr : inputs[0].as<StrandSet>();
    if (!in) return inputs.empty() ? Value() : inputs[0];
    const ParamSet& p = paramValues;
    FeatherPatternKind kind = FeatherPatternKind::None;
    if (const auto problem = checkChoices(p, kind)) {
        context.addNote(*problem);
        return inputs[0];
    }
    const StrandSet& s = *in;
    const float* featherId = strandValues(s, "featherId");
    const float* vaneU = strandValues(s, "vaneU");
    const float* tipU = strandValues(s, "vaneTipU");
    const float* tipV = strandValues(s, "vaneTipV");
    if (!featherId || !vaneU || !tipU || !tipV) {
        context.addNote("no feathers reach FeatherColor (put it after Propagate, whose featherId, vaneU, vaneTipU and "
                        "vaneTipV channels it reads)");
        return inputs[0];
    }
    const float* isShaft = strandValues(s, "isShaft");
    const float* side = strandValues(s, "side");
    const float* isDown = strandValues(s, "isDown");

    FeatherPattern pattern;
    pattern.kind = kind;
    pattern.count = static_cast<float>(p.getFloat("count", 6));
    pattern.width = static_cast<float>(p.getFloat("width", 0.4));
    pattern.angle = static_cast<float>(p.getFloat("angle", 0));
    pattern.sharpness = static_cast<float>(p.getFloat("sharpness", 0.7));
    pattern.offset = static_cast<float>(p.getFloat("offset", 0.7));
    pattern.hollow = p.getBool("profile", false);
    try {
        if (kind == FeatherPatternKind::Texture) {
            pattern.left = openTexture(p.getString("texture", ""), context);
            pattern.right = openTexture(p.getString("textureRight", ""), context);
        }
    } catch (const TextureError& e) {
        context.addNote(e.what());
        return inputs[0];
    }
    const float offsetRandom = static_cast<float>(p.getFloat("offsetRandom", 0.2));
    const float scaleRandom = static_cast<float>(p.getFloat("scaleRandom", 0.1));
    const float angleRandom = static_cast<float>(p.getFloat("angleRandom", 3));
    const float strength = static_cast<float>(p.getFloat("strength", 1));
    const float downStrength = static_cast<float>(p.getFloat("downStrength", 0));
    const Vec3f patternColor = melaninColor(static_cast<float>(p.getFloat("melanin", 0)),
                                            static_cast<float>(p.getFloat("redness", 0)), p.getVec3("dye", {1, 1, 1}));
    const std::string vanes = p.getString("vanes", "both");
    const std::string on = p.getString("iridescenceOn", "all");
    const std::int64_t seed = p.getInt("seed", 0);
    const MappedFloat iridescence("iridescence", p, context, s, 0.0, 1.0);
    const bool writesIridescence = iridescence.mapped() || iridescence.constant() > 0.0f;

    const ColorReader before(s, {0.8f, 0.8f, 0.8f});
    auto out = std::make_shared<StrandSet>(s);
    addStrandColors(*out, {0.8f, 0.8f, 0.8f});
    if (writesIridescence) out->addPointChannel(kIridescence, 0.0f);
    const ColorSpans colors = addPointColors(*out);
    const std::span<float> sheen = writesIridescence ? out->mutablePointChannel(kIridescence) : std::span<float>();

    parallelRange(0, s.strandCount(), 256, [&](std::size_t i0, std::size_t i1) {
        for (std::size_t i = i0; i < i1; ++i) {
            const bool shaft = isShaft && isShaft[i] > 0.5f;
            const float sideOf = side ? side[i] : 0.0f;
            const bool onVane = vanes == "both" || (vanes == "left" ? sideOf < 0.0f : sideOf > 0.0f);
            const std::uint64_t key = strandKey(floatBits(featherId[i]), seed);
            FeatherJitter jitter;
            jitter.shift = signedDraw(key, 1) * offsetRandom;
            jitter.scale = 1.0f + signedDraw(key, 2) * scaleRandom;
            jitter.angle = signedDraw(key, 3) * angleRandom;
            const bool down = isDown && isDown[i] > 0.5f;
            const PointRange range = s.pointRange(i);
            for (std::size_t pt = range.begin; pt < range.end; ++pt) {
                const float t = pointParameter(s, i, pt);
                Vec3f c = before.point(i, pt);
                float cover = 0.0f;
                if (!shaft && pattern.kind != FeatherPatternKind::None) {
                    const FeatherPoint fp{vaneU[i] + (tipU[i] - vaneU[i]) * t, std::fabs(tipV[i]) * t, t, sideOf};
                    Vec3f shapeColor = patternColor;
                    cover = pattern.cover(fp, jitter, shapeColor);
                    if (onVane) c = mixColor(c, shapeColor, strength * cover);
                    else cover = 0.0f;
                }
                if (down && !shaft) c = mixColor(c, mixColor(c, {1, 1, 1}, kDownWhite), downStrength);
                colors.set(pt, c);
                if (!writesIridescence) continue;
                float where = 1.0f;
                if (on == "leftVane") where = !shaft && sideOf < 0.0f ? 1.0f : 0.0f;
                else if (on == "rightVane") where = !shaft && sideOf > 0.0f ? 1.0f : 0.0f;
                else if (on == "pattern") where = cover;
                else if (on == "notPattern") where = 1.0f - cover;
                sheen[pt] = iridescence.point(s, i, pt, t) * where;
            }
        }
    });
    return Value(std::shared_ptr<const StrandSet>(std::move(out)));
}

}  // namespace

void registerFeatherColorOperator(OperatorRegistry& registry) {
    registry.add("FeatherColor",
                 typeInfo("color",
                              "Patterns on feathers (bars, spots, an eye, a painted image), a down color and "
                              "iridescence. After HairColor.",
                              "pattern bars spots iridescence"),
                 [] { return std::make_unique<FeatherColor>(); });
}

}  // namespace tressora
