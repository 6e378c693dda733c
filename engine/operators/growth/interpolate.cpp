#include "operators/growth/interpolate.h"

#include <filesystem>
#include <mutex>
#include <optional>

#include "core/errors.h"
#include "core/guide_set.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"
#include "maps/map_fields.h"
#include "operators/growth/interpolate_bindings.h"
#include "operators/growth/interpolate_blend.h"
#include "operators/growth/interpolate_clearance.h"
#include "operators/growth/interpolate_layers.h"
#include "operators/growth/interpolate_regions.h"
#include "operators/growth/interpolate_tubes.h"

namespace tressora {
namespace {

const char* const kNoGuides = "no guides: place some with the guide tools; the strands keep their incoming shape";

ParamSpec param(const char* name, ParamValue value, const char* description) {
    ParamSpec spec;
    spec.name = name;
    spec.defaultValue = std::move(value);
    spec.description = description;
    spec.animatable = true;
    return spec;
}

ParamSpec slider(ParamSpec spec, double lo, double hi) {
    spec.softMin = lo;
    spec.softMax = hi;
    return spec;
}

ParamSpec shownWhen(ParamSpec spec, const char* other, std::vector<std::string> in) {
    spec.showWhen = ParamCondition{other, std::move(in)};
    return spec;
}

ParamSpec grouped(ParamSpec spec, const char* group, bool advanced = false) {
    spec.group = group;
    spec.advanced = advanced;
    return spec;
}

ParamSpec advanced(ParamSpec spec) {
    spec.advanced = true;
    return spec;
}

ParamSpec writesChannel(ParamSpec spec) {
    spec.channel = ChannelMode::Writes;
    return spec;
}

std::vector<ParamSpec> interpolateParams() {
    std::vector<std::string> twoOrMore;
    for (int n = 2; n <= 16; ++n) twoOrMore.push_back(std::to_string(n));
    ParamSpec limitDistance = grouped(
        slider(param("limitDistance", 0.0,
                     "How far guides reach: strands farther from every guide root keep their incoming shape (e.g. from "
                     "Flow); 0: every strand follows the guides (and falloff and influenceChannel do nothing)"),
               0, 10),
        "Limit");
    limitDistance.unit = "length";
    ParamSpec tubeBlend = shownWhen(
        grouped(param("tubeBlend", 0.25,
                      "With fillTubes: the tubes' soft edge, as a share of each tube's half-width at its root. Strands "
                      "rooted outside a tube but within this of its outline lean from the guides' blend toward riding "
                      "the tube, all the way at the outline and not at all at the edge, so no seam shows round a tube; "
                      "0: a hard edge"),
                "Tubes"),
        "fillTubes", {"true"});
    tubeBlend.unit = "fraction";
    ParamSpec take = advanced(param("take", std::string("shape"),
                                    "shape: the guides' shape and length; length: each strand keeps its own shape and "
                                    "takes the guides' length"));
    take.choices = {"shape", "length"};
    return {
        slider(param("neighbors", std::int64_t{3},
                     "How far each guide reaches: to its neighbors-th nearest guide (times reach). 1: every strand "
                     "takes its nearest guide alone, with hard edges"),
               1, 8),
        slider(param("reach", 1.5,
                     "Each guide's reach, as a multiple of the distance to its neighbors-th nearest guide; more blends "
                     "more guides into each strand"),
               1, 4),
        shownWhen(advanced(slider(param("power", 2.0,
                                        "Falloff power of the guide weights over distance (2 neighbors or more)"),
                                  0, 4)),
                  "neighbors", twoOrMore),
        advanced(param("smoothGuides", false,
                       "Follow each guide as the smooth curve the viewport draws through its points (a centripetal "
                       "Catmull-Rom spline), not straight lines between them, so a bend drawn with few points stays "
                       "round in the hair")),
        shownWhen(advanced(param("preserveLength", false,
                                 "Scale each blended strand to its guides' blended length (blending guides that point "
                                 "different ways would shorten it; take shape)")),
                  "take", {"shape"}),
        shownWhen(param("keepClearance", false,
                        "Keep strands out of the skin: where the skin under a strand bulges more than under its guides "
                        "(an ear, a cheek, the neck), the part that would sink in is lifted just onto the skin, its "
                        "length kept, and past the bulge the strand eases back to its groomed path, so hair drapes "
                        "over an ear instead of standing off it (take shape; needs the scalp input)"),
                  "take", {"shape"}),
        param("respectParts", false, "Never blend guides from the other side of a part"),
        param("followSurface", false,
              "Measure how far guides reach along the scalp (the scalp input), not in a straight line, so they do not "
              "reach across an ear, a fold or a thin shell (the same on a smooth scalp)"),
        limitDistance,
        grouped(param("falloff", Ramp{{{0.0, 1.0}, {1.0, 0.0}}, false},
                      "With limitDistance above 0: the guides' influence over it, at the guide to limitDistance away"),
                "Limit"),
        take,
        writesChannel(grouped(param("influenceChannel", std::string("guideInfluence"),
                                    "With limitDistance above 0: per-strand channel receiving the guides' influence, "
                                    "0-1 (empty: none)"),
                              "Limit", true)),
        grouped(param("regionMap", std::string(),
                      "Regions painted on the scalp in colors (empty: none): a strand blends only the guides rooted in "
                      "its own region, with a hard edge between regions, like a part. Each color guides are rooted on "
                      "is a region (soft paint between two joins the nearer); a strand in a color no guide is rooted "
                      "on blends the nearest guides of any region. A map painted in Groom Tools > Paint by name, a "
                      "color set of that name on the scalp, or an image file at the scalp's UVs"),
                "Regions"),
        writesChannel(grouped(param("regionChannel", std::string("region"),
                                    "With a regionMap: per-strand channel receiving each strand's region number (-1: "
                                    "none), which Clump, BlendNeighbors and Tangle keep within (empty: none)"),
                              "Regions", true)),
        shownWhen(grouped(param("fillTubes", false,
                                "Fill the guides' tubes (tube guides: a hierarchy's guides with their sections and "
                                "shape): a strand rooted inside a guide's tube takes its place in the tube's section "
                                "there and keeps it to the tip, so it stays inside the tube as it flattens, twists and "
                                "tapers, and is as long as the guide, instead of blending the nearest guides. Where "
                                "tubes overlap, the one it lies most centrally in; strands rooted in no tube blend as "
                                "ever. Writes tubeId, tubeU and tubeV, which Clump's followTubes clumps inside each tube "
                                "by (take shape)"),
                          "Tubes"),
                  "take", {"shape"}),
        tubeBlend,
    };
}

/// Writes the per-strand results the bindings hold: region numbers and tube coordinates.
void writeBindingChannels(const BindingTable& table, std::span<float> region, std::span<float> tubeId,
                          std::span<float> tubeU, std::span<float> tubeV) {
    parallelRange(0, table.chunks.size(), 16, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t c = lo; c < hi; ++c) {
            const BindingChunk& chunk = *table.chunks[c];
            for (std::size_t s = 0; s < chunk.count; ++s) {
                const std::size_t strand = chunk.first + s;
                if (!region.empty()) region[strand] = chunk.region.empty() ? -1.0f : static_cast<float>(chunk.region[s]);
                if (!tubeId.empty()) {
                    const TubeSpot spot = chunk.tube.empty() ? TubeSpot{} : chunk.tube[s];
                    tubeId[strand] = static_cast<float>(spot.guide);
                    tubeU[strand] = spot.guide >= 0 ? spot.u : 0.0f;
                    tubeV[strand] = spot.guide >= 0 ? spot.v : 0.0f;
                }
            }
        }
    });
}

class InterpolateOperator final : public Operator {
public:
    InterpolateOperator() {
        paramValues.setLimits("neighbors", {1.0, 16.0});
        paramValues.setLimits("reach", {1.0, std::nullopt});
        paramValues.setLimits("power", {0.0, std::nullopt});
        paramValues.setLimits("limitDistance", {0.0, std::nullopt});
        paramValues.setLimits("tubeBlend", {0.0, 1.0});
    }

    std::string type() const override { return "Interpolate"; }
    std::vector<Port> inputs() const override {
        return {Port{"strands", PortType::Strands, false, ValueKind::Any},
                Port{"guides", PortType::Guides, true, ValueKind::Any},
                Port{"scalp", PortType::Mesh, true, ValueKind::Any}};
    }
    std::string role() const override { return "grow"; }
    std::vector<ParamSpec> params() const override { return interpolateParams(); }

    std::vector<std::string> sceneInputs() const override {
        std::vector<std::string> names;
        if (paramValues.getBool("respectParts", false)) names.push_back("parts");
        if (!paramValues.getString("regionMap", "").empty()) names.push_back("maps");
        return names;
    }

    std::uint64_t contextStamp(const NodeKeyLookup&, int, const EvalContext& context) const override {
        const std::string regionMap = paramValues.getString("regionMap", "");
        if (regionMap.empty()) return 0;
        // Painted maps come in through the scene's "maps" and colour sets with the scalp input;
        // an image file named directly is known by its time and size.
        const MapFields* fields = dynamic_cast<const MapFields*>(context.maps);
        const std::string path = fields ? fields->resolvePath(regionMap) : regionMap;
        std::uint64_t h = combineText(hash64(0x2e610ull), regionMap);
        std::error_code error;
        if (std::filesystem::is_regular_file(path, error)) {
            const auto size = std::filesystem::file_size(path, error);
            const auto time = std::filesystem::last_write_time(path, error).time_since_epoch().count();
            h = combine(combine(h, static_cast<std::uint64_t>(size)), static_cast<std::uint64_t>(time));
        }
        return h;
    }

    std::vector<ChannelInfo> channels() const override {
        std::vector<ChannelInfo> out = Operator::channels();
        for (const char* name : {"tubeId", "tubeU", "tubeV"}) out.push_back({name, ChannelMode::Writes, ""});
        return out;
    }

    bool passesChannels(int index) const override { return index == 0 || index == 1; }

    void adoptState(Operator& previous) override {
        auto* other = dynamic_cast<InterpolateOperator*>(&previous);
        if (!other || other == this) return;
        std::shared_ptr<const BindingTable> table;
        {
            std::lock_guard lock(other->mutex_);
            table = other->table_;
        }
        std::lock_guard lock(mutex_);
        table_ = std::move(table);
    }

    void rebindState(const StrandSet* computedFor, const std::shared_ptr<const StrandSet>& replacement) override {
        std::lock_guard lock(mutex_);
        if (computedFor && computedFor == output_) output_ = replacement.get();
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        const auto strands = inputs.empty() ? nullptr : inputs[0].as<StrandSet>();
        if (!strands) throw GraphError("Interpolate: strands input not connected");
        const std::string takeText = paramValues.getString("take", "shape");
        if (takeText != "shape" && takeText != "length") throw GraphError("Interpolate: take must be shape or length");
        const auto guides = inputs.size() > 1 ? inputs[1].as<GuideSet>() : nullptr;
        const auto scalp = inputs.size() > 2 ? inputs[2].as<ScalpMesh>() : nullptr;
        if (!guides || guides->guideCount() == 0) {
            context.addNote(kNoGuides);
            return inputs[0];
        }
        if (strands->empty()) return inputs[0];

        const Take take = takeText == "shape" ? Take::Shape : Take::Length;
        BindingSettings choose;
        choose.neighbors = static_cast<int>(paramValues.getInt("neighbors", 3));
        choose.reach = static_cast<float>(paramValues.getFloat("reach", 1.5));
        choose.power = static_cast<float>(paramValues.getFloat("power", 2.0));
        BlendSettings blend;
        blend.take = take;
        blend.preserveLength = paramValues.getBool("preserveLength", false);
        blend.limitDistance = static_cast<float>(paramValues.getFloat("limitDistance", 0.0));
        blend.falloff = paramValues.getRamp("falloff", Ramp{{{0.0, 1.0}, {1.0, 0.0}}, false});

        const GuideCurves curves = prepareGuideCurves(*guides, scalp.get(), paramValues.getBool("smoothGuides", false));
        BindingInputs bind;
        bind.guideRoots = curves.roots;
        bind.key = bindingKey(guides->ids(), guides->roots(), curves.roots, choose);

        // Regions: a map that can't be read leaves a note and the strands blend across regions.
        std::optional<RegionMap> regions;
        std::vector<std::int32_t> guideRegions;
        const std::string regionMapName = paramValues.getString("regionMap", "");
        if (!regionMapName.empty()) {
            std::string problem;
            regions = RegionMap::resolve(regionMapName, context, scalp, &problem);
            if (!regions) context.addNote(problem);
        }
        if (regions) {
            guideRegions = regions->bindGuides(*guides);
            bind.guideRegions = guideRegions;
            bind.strandRegion = [&](std::size_t s) { return regions->strandRegion(*strands, s); };
            bind.key = combineText(combine(bind.key, regions->stamp()), regionMapName);
        }

        if (paramValues.getBool("followSurface", false)) {
            if (!scalp) {
                context.addNote("followSurface needs the scalp input: guides reach in straight lines");
            } else {
                // Fronts are made only when some strand is searched; the distances they give
                // stand with the bindings while the scalp's topology does.
                bind.makeFronts = [&](std::span<const float> limits) {
                    return std::make_shared<const SurfaceFronts>(sharedSurfaceGraph(scalp), guides->roots(), limits);
                };
                bind.key = combine(combine(bind.key, 0x5f5u), scalp->topologyHash());
            }
        }

        std::optional<TubeRider> tubes;
        if (take == Take::Shape && paramValues.getBool("fillTubes", false)) {
            tubes.emplace(*guides, curves, static_cast<float>(paramValues.getFloat("tubeBlend", 0.25)));
            bind.strandTube = [&](std::size_t s) {
                const auto pts = strands->strandPoints(s);
                return tubes->place(pts.empty() ? Vec3f{} : pts[0]);
            };
            bind.key = combine(bind.key, tubes->key());
        }

        std::shared_ptr<const Clearance> clearance;
        if (take == Take::Shape && paramValues.getBool("keepClearance", false)) {
            if (!scalp) {
                context.addNote("keepClearance needs the scalp input: it does not keep clearance");
            } else {
                float meanLength = 0.0f;
                for (float l : curves.lengths) meanLength += l / static_cast<float>(curves.size());
                std::string problem;
                clearance = Clearance::make(scalp, meanLength, &problem);
                if (!clearance) context.addNote(problem);
            }
        }
        blend.clearance = clearance.get();

        std::shared_ptr<const BindingTable> previous;
        {
            std::lock_guard lock(mutex_);
            previous = table_;
        }
        const std::shared_ptr<const BindingTable> table = bindStrands(*strands, bind, choose, previous.get());

        auto out = std::make_shared<StrandSet>(*strands);
        // Channels first: adding one changes the set's structure, which ends earlier spans.
        const std::string influenceName = paramValues.getString("influenceChannel", "guideInfluence");
        const bool writeInfluence = blend.limitDistance > 0.0f && !influenceName.empty();
        const std::string regionName = paramValues.getString("regionChannel", "region");
        const bool writeRegion = regions && !regionName.empty();
        if (writeInfluence) out->addStrandChannel(influenceName, 1.0f);
        if (writeRegion) out->addStrandChannel(regionName, -1.0f);
        if (tubes) {
            out->addStrandChannel("tubeId", -1.0f);
            out->addStrandChannel("tubeU", 0.0f);
            out->addStrandChannel("tubeV", 0.0f);
        }
        carryGuideLayers(*guides, *table, *out);
        const std::span<float> influence = writeInfluence ? out->mutableStrandChannel(influenceName) : std::span<float>{};
        writeBindingChannels(*table, writeRegion ? out->mutableStrandChannel(regionName) : std::span<float>{},
                             tubes ? out->mutableStrandChannel("tubeId") : std::span<float>{},
                             tubes ? out->mutableStrandChannel("tubeU") : std::span<float>{},
                             tubes ? out->mutableStrandChannel("tubeV") : std::span<float>{});
        blendStrands(*strands, curves, *table, blend, scalp.get(), tubes ? &*tubes : nullptr, out->mutablePoints(),
                     influence);

        std::lock_guard lock(mutex_);
        table_ = table;
        output_ = out.get();
        return Value(std::shared_ptr<const StrandSet>(std::move(out)));
    }

private:
    std::mutex mutex_;
    std::shared_ptr<const BindingTable> table_;  ///< the bindings of the last evaluation
    const StrandSet* output_ = nullptr;          ///< the set they were made for
};

}  // namespace

void registerInterpolateOperator(OperatorRegistry& registry) {
    registry.add("Interpolate",
                 OperatorInfo{"grow", "Grows each root into a strand shaped like the guides around it.",
                              "children guides blend strands", "", false},
                 [] { return std::make_unique<InterpolateOperator>(); });
}

}  // namespace tressora
