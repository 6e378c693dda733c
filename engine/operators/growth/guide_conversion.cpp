// ToStrands and ToGuides: guides become strands to render or merge, and strands become
// guides for the nodes that follow guides.

#include "operators/growth/guide_conversion.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "core/hash.h"
#include "core/parallel.h"
#include "graph/operator_registry.h"
#include "operators/growth/node_support.h"
#include "operators/growth/resample.h"

namespace tressora {

std::shared_ptr<StrandSet> strandsFromGuides(const GuideSet& guides, float width, bool channels) {
    auto set = std::make_shared<StrandSet>();
    const std::size_t count = guides.guideCount();
    set->resizeStrands(count);
    set->resizePoints(guides.pointCount());
    std::ranges::copy(guides.ids(), set->mutableIds().begin());
    std::ranges::copy(guides.roots(), set->mutableRoots().begin());
    std::ranges::copy(guides.offsets(), set->mutableOffsets().begin());
    std::ranges::copy(guides.points(), set->mutablePoints().begin());
    std::ranges::fill(set->mutableWidths(), width);
    if (channels) {
        for (const auto& [name, values] : guides.attributes()) std::ranges::copy(values, set->addStrandChannel(name).begin());
        for (const auto& [name, values] : guides.pointAttributes())
            std::ranges::copy(values, set->addPointChannel(name).begin());
    }
    return set;
}

std::shared_ptr<GuideSet> guidesWithStrandPoints(const GuideSet& guides, const StrandSet& strands) {
    if (strands.strandCount() != guides.guideCount())
        throw GraphError("guides: " + std::to_string(strands.strandCount()) + " curves came back for " +
                         std::to_string(guides.guideCount()) + " guides");
    auto out = std::make_shared<GuideSet>();
    out->setColor(guides.color());
    for (std::size_t i = 0; i < guides.guideCount(); ++i) {
        std::map<std::string, float> attributes;
        for (const auto& [name, values] : guides.attributes()) attributes[name] = values[i];
        std::map<std::string, std::vector<float>> layers;
        const PointRange r = strands.pointRange(i);
        for (const auto& [name, values] : guides.pointAttributes()) {
            const StrandChannel* channel = strands.pointChannel(name);
            if (!channel) continue;
            const auto v = channel->values().subspan(r.begin, r.size());
            layers[name].assign(v.begin(), v.end());
        }
        out->addGuide(guides.ids()[i], guides.roots()[i], strands.strandPoints(i), guides.tube(i), attributes, layers);
    }
    return out;
}

namespace {

class ToStrandsOperator final : public Operator {
public:
    ToStrandsOperator() {
        paramValues.setLimits("segments", {0.0, 256.0});
        paramValues.setLimits("width", {0.0, std::nullopt});
    }
    std::string type() const override { return "ToStrands"; }
    std::string role() const override { return "grow"; }
    std::vector<Port> inputs() const override { return {{"guides", PortType::Guides}}; }

    std::vector<ParamSpec> params() const override {
        return {
            ParamRow("segments", std::int64_t{0}, "Segments per strand (0: each guide's own points)").slider(0, 32),
            ParamRow("width", 0.005, "Strand width until a Width node sets it").unit("width").slider(0, 0.02).animatable(),
            ParamRow("channels", false, "Carry the guides' painted maps over as strand channels").animatable(),
        };
    }

    bool passesChannels(int index) const override { return index == 0 && paramValues.getBool("channels", false); }

    Value evaluate(EvalContext&, const std::vector<Value>& inputs) override {
        const auto guides = requireInput(inputs, 0, "ToStrands", "guides").as<GuideSet>();
        if (!guides) throw GraphError("ToStrands: guides input not connected");
        const float width = static_cast<float>(paramValues.getFloat("width", 0.005));
        const std::int64_t segments = paramValues.getInt("segments", 8);
        auto strands = strandsFromGuides(*guides, width, paramValues.getBool("channels", false));
        if (segments <= 0) return Value(std::move(strands));
        std::vector<std::uint32_t> counts(strands->strandCount());
        for (std::size_t i = 0; i < counts.size(); ++i) {
            const std::size_t own = strands->pointRange(i).size();
            counts[i] = own < 2 ? static_cast<std::uint32_t>(own) : static_cast<std::uint32_t>(segments + 1);
        }
        return Value(resampleStrands(*strands, counts, false));
    }
};

class ToGuidesOperator final : public Operator {
public:
    ToGuidesOperator() { paramValues.setLimits("fraction", {0.0, 1.0}); }
    std::string type() const override { return "ToGuides"; }
    std::string role() const override { return "grow"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }
    Port output() const override { return {"guides", PortType::Guides}; }

    std::vector<ParamSpec> params() const override {
        return {
            ParamRow("fraction", 1.0,
                     "Fraction of the strands that become guides, chosen by ID (stable), of those every preview "
                     "holds (all of a small or unthinned set)")
                .unit("fraction"),
            ParamRow("seed", std::int64_t{0}, "Random seed for the choice").advanced(),
            ParamRow("channels", false,
                     "Carry strand channels over as guide attributes (point channels as per-point layers)")
                .animatable(),
            ParamRow("color", Vec3f{0.25f, 0.85f, 0.55f},
                     "The color these guides draw in when they are shown as guides (a Sculpt node after this one), "
                     "linear RGB")
                .unit("color")
                .animatable(),
        };
    }

    Value evaluate(EvalContext&, const std::vector<Value>& inputs) override {
        const auto strands = requireInput(inputs, 0, "ToGuides", "strands").as<StrandSet>();
        if (!strands) throw GraphError("ToGuides: strands input not connected");
        const std::vector<std::size_t> chosen = choose(*strands);
        const bool channels = paramValues.getBool("channels", false);
        auto guides = std::make_shared<GuideSet>();
        guides->setColor(paramValues.getVec3("color", Vec3f{0.25f, 0.85f, 0.55f}));
        std::map<std::string, float> attributes;
        std::map<std::string, std::vector<float>> layers;
        for (const std::size_t i : chosen) {
            const PointRange r = strands->pointRange(i);
            if (channels) {
                for (const auto& [name, channel] : strands->strandChannels()) attributes[name] = channel.values()[i];
                for (const auto& [name, channel] : strands->pointChannels()) {
                    const auto v = channel.values().subspan(r.begin, r.size());
                    layers[name].assign(v.begin(), v.end());
                }
            }
            guides->addGuide(strands->ids()[i], strands->roots()[i], strands->strandPoints(i), GuideTube{}, attributes,
                             layers);
        }
        return Value(std::move(guides));
    }

private:
    // The strands that become guides, in order: those every preview holds, and of them the
    // share `fraction` chosen by id, so a strand's choice never depends on the others.
    std::vector<std::size_t> choose(const StrandSet& strands) const {
        const StrandChannel* preview = strands.strandChannel("_preview");
        const double fraction = paramValues.getFloat("fraction", 1.0);
        const std::uint64_t salt = static_cast<std::uint64_t>(paramValues.getInt("seed", 0)) ^ 0x70C0u;
        std::vector<unsigned char> keep(strands.strandCount(), 0);
        parallelRange(0, keep.size(), 256, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                if (preview && preview->values()[i] < 0.5f) continue;
                if (fraction < 1.0 && !(unit(combine(strands.ids()[i], salt)) < fraction)) continue;
                keep[i] = 1;
            }
        });
        std::vector<std::size_t> chosen;
        for (std::size_t i = 0; i < keep.size(); ++i)
            if (keep[i]) chosen.push_back(i);
        return chosen;
    }
};

}  // namespace

void registerToStrandsOperator(OperatorRegistry& registry) {
    registry.add("ToStrands",
                 typeInfo("convert", "Guides become strands: render them, or merge them in.", "guides to strands"),
                 [] { return std::make_unique<ToStrandsOperator>(); });
}

void registerToGuidesOperator(OperatorRegistry& registry) {
    registry.add("ToGuides",
                 typeInfo("convert", "Strands become guides, for nodes that follow guides.", "strands to guides"),
                 [] { return std::make_unique<ToGuidesOperator>(); });
}

}  // namespace tressora
