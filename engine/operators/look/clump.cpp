// Clump: strands gather toward their clump's axis, the curve of its center strand (or a
// center curve). Which strand joins which clump is the plan (clump_plan), made once per set
// of strands and kept; every frame only the pull runs: each point moves toward the axis at
// the same length from the root, onto a ring of lockRadius around it for round locks,
// squashed into a ribbon by flatness, pushed out by volumize, or, with a negative strength,
// pushed away to repelRadius. The clump's number goes into clumpChannel, from its center's id.

#include "operators/look/clump.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numbers>

#include "core/guide_set.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "graph/operator_registry.h"
#include "operators/color/look_common.h"
#include "operators/growth/node_support.h"
#include "operators/look/clump_plan.h"

namespace tressora {
namespace {

using look::MappedFloat;
using look::RampTable;
using look::rampParam;

constexpr std::size_t kGrain = 256;
constexpr std::uint64_t kStrengthDraw = 0x51, kLockDraw = 0x52, kRibbonDraw = 0x53, kSideDraw = 0x54;

Ramp defaultProfile() { return Ramp{{{0.0, 0.0}, {0.2, 0.6}, {1.0, 1.0}}, false}; }
Ramp defaultVolumizeProfile() { return Ramp{{{0.0, 1.0}, {1.0, 0.0}}, false}; }

CenterSource sourceOf(const std::string& text) {
    if (text == "pick") return CenterSource::Pick;
    if (text == "inputPoints") return CenterSource::InputPoints;
    if (text == "inputCurves") return CenterSource::InputCurves;
    throw GraphError("Clump: unknown centersFrom '" + text + "' (pick, inputPoints or inputCurves)");
}

/// Curves of the centers input, guides or strands: ids, points and their ranges.
struct CenterCurves {
    std::vector<std::uint64_t> ids;
    std::vector<std::vector<Vec3f>> points;
};

CenterCurves centerCurves(const Value& value) {
    CenterCurves out;
    if (const auto guides = value.as<GuideSet>()) {
        for (std::size_t g = 0; g < guides->guideCount(); ++g) {
            const auto points = guides->guidePoints(g);
            if (points.empty()) continue;
            out.ids.push_back(guides->ids()[g]);
            out.points.emplace_back(points.begin(), points.end());
        }
    } else if (const auto strands = value.as<StrandSet>()) {
        for (std::size_t s = 0; s < strands->strandCount(); ++s) {
            const auto points = strands->strandPoints(s);
            if (points.empty()) continue;
            out.ids.push_back(strands->ids()[s]);
            out.points.emplace_back(points.begin(), points.end());
        }
    }
    return out;
}

/// One clump's axis for this frame: its points and the arc length at each.
struct Axis {
    std::vector<Vec3f> points;
    std::vector<float> at;
    Vec3f thin;          ///< the direction a flat clump is thin in (unit), at its root
    float strength = 1;  ///< the clump's share of the strength
    float lock = 1;      ///< the clump's share of the lock radius

    void measure() {
        at.assign(points.size(), 0.0f);
        for (std::size_t k = 1; k < points.size(); ++k) at[k] = at[k - 1] + length(points[k] - points[k - 1]);
    }
    float total() const { return at.empty() ? 0.0f : at.back(); }
};

/// Walks an axis by rising arc length: the point at length s and the direction there.
class AxisCursor {
public:
    AxisCursor(const Axis& axis, bool extend) : axis_(axis), extend_(extend) {}
    void at(float s, Vec3f& point, Vec3f& tangent) {
        const std::vector<Vec3f>& p = axis_.points;
        if (p.size() < 2) {
            point = p.empty() ? Vec3f{} : p[0];
            tangent = {0, 1, 0};
            return;
        }
        while (segment_ + 2 < p.size() && s > axis_.at[segment_ + 1]) ++segment_;
        const Vec3f a = p[segment_], b = p[segment_ + 1];
        const float length = axis_.at[segment_ + 1] - axis_.at[segment_];
        tangent = length > 0.0f ? (b - a) / length : Vec3f{0, 1, 0};
        const float into = s - axis_.at[segment_];
        // Past the tip: gather at it, or go on along the last direction.
        if (into > length && !extend_) {
            point = b;
            return;
        }
        point = a + tangent * (length > 0.0f || extend_ ? std::max(into, 0.0f) : 0.0f);
    }

private:
    const Axis& axis_;
    bool extend_;
    std::size_t segment_ = 0;
};

enum class Flatten { Surface, Random, Direction };

/// The params of the pull, read once per evaluation.
struct PullSettings {
    float strengthRandom = 0, lockRadius = 0, lockRadiusRandom = 0, repelRadius = 0.5f, flatness = 0, copyAmount = 0;
    int copyNeighbors = 1;
    bool extend = false;
    Flatten flatten = Flatten::Surface;
    Vec3f flattenDirection{1, 0, 0};
    std::int64_t seed = 0;
};

class ClumpOperator final : public Operator {
public:
    ClumpOperator() {
        paramValues.setLimits("count", {0.0, std::nullopt});
        paramValues.setLimits("size", {0.0, std::nullopt});
        paramValues.setLimits("randomness", {0.0, 2.0});
        paramValues.setLimits("lockRadius", {0.0, std::nullopt});
        paramValues.setLimits("repelRadius", {0.0, std::nullopt});
        for (const char* name : {"flatness", "strengthRandom", "lockRadiusRandom", "copyAmount"})
            paramValues.setLimits(name, {0.0, 1.0});
        paramValues.setLimits("copyNeighbors", {1.0, 8.0});
    }
    std::string type() const override { return "Clump"; }
    std::string role() const override { return "look"; }
    std::vector<Port> inputs() const override {
        return {{"strands", PortType::Strands}, {"centers", PortType::Curves, true}};
    }
    std::vector<std::string> sceneInputs() const override { return {"scalp"}; }
    std::uint64_t sceneInputStamp(const std::string&, const SceneItem& item) const override {
        // The plan reads the scalp's area (in steps of 1%) and the pull its normals; the
        // strands moving with it change the key anyway.
        const auto scalp = item.value.as<ScalpMesh>();
        return scalp ? combine(scalp->topologyHash(), scalp->contentHash()) : 0;
    }

    std::vector<ParamSpec> params() const override {
        const std::vector<std::string> pick{"pick"};
        return {
            ParamRow("strength", 0.7,
                     "Overall pull toward the clump center, -1 to 1 (mappable, per point). Negative pushes strands away "
                     "from the centers (part fur around whiskers, horns, eyes): those within repelRadius, out toward it")
                .slider(-1, 1)
                .animatable(),
            ParamRow("profile", defaultProfile(), "Pull along the length, root to tip").animatable(),
            ParamRow("centersFrom", std::string("pick"),
                     "Where the clumps' centers come from: pick: it picks them among the strands (clumpBy), each axis "
                     "the picked strand, and a centers input is ignored; inputPoints: the centers input (guides or "
                     "strands: a Scatter, guides, single points) only says where the clumps are (their roots), each "
                     "axis the strand it gathers nearest its center's root (the hair as grown there); inputCurves: each "
                     "axis is the center curve itself (groomed clump curves, a Noise on the centers waving each clump as "
                     "one). Connecting centers in the Graph Editor sets inputPoints")
                .choices({"pick", "inputPoints", "inputCurves"})
                .animatable(),
            ParamRow("clumpBy", std::string("count"),
                     "The clumps it picks among the strands: count: about `count` of them, whatever the scalp's size "
                     "(re-fitted to the scalp's area: an edit that changes it by more than 1% moves every clump); size: "
                     "clumps about `size` apart, as many as the scalp holds (a whole body gets more than a head, of the "
                     "same size; an edit of the scalp changes the clumps only near it)")
                .choices({"count", "size"})
                .animatable()
                .shownWhen("centersFrom", pick),
            ParamRow("count", std::int64_t{300}, "About how many clumps (clumpBy count); 0: none (the strands as they came)")
                .slider(0, 1000)
                .shownWhen("clumpBy", {"count"}),
            ParamRow("size", 1.0,
                     "Clump size (clumpBy size): about how far apart the centers are, so the count follows the scalp's "
                     "area; 0: none")
                .unit("length")
                .slider(0, 5)
                .shownWhen("clumpBy", {"size"}),
            ParamRow("randomness", 0.3,
                     "How random the centers it picks are: 0 evenly spread (blue noise, every one about the average "
                     "spacing from its neighbors), 1 at random (some side by side); in between each center moves "
                     "smoothly from its even spot toward its random one (the same clumps, their borders shifting), past "
                     "1 on beyond it, up to 2. As Scatter's")
                .unit("fraction")
                .slider(0, 1)
                .shownWhen("centersFrom", pick),
            ParamRow("centerWeight", 1.0,
                     "Chance each strand can be a center it picks, 0-1 (mappable: e.g. an Expression favoring long "
                     "strands, or guideInfluence)")
                .unit("fraction")
                .slider(0, 1)
                .animatable()
                .shownWhen("centersFrom", pick),
            ParamRow("pastTip", std::string("gather"),
                     "A strand longer than its clump's axis: gather: its points past the axis's tip gather at the tip; "
                     "extend: they go on past it, along the axis's last direction, so long hair keeps its length")
                .choices({"gather", "extend"})
                .animatable(),
            ParamRow("clumpChannel", std::string("clumpId"),
                     "Per-strand channel receiving the clump's number, from its center's ID (the same while that center "
                     "is; empty: none). Chained Clumps each want their own (lockId, then clumpId), for a Twist, Cards or "
                     "HairColor's clumpShare to follow the one it names")
                .animatable()
                .writesChannel(),
            ParamRow("seed", std::int64_t{0}, "Random seed for the centers it picks and the per-clump variation").advanced(),
            ParamRow("respectParts", false, "Never clump toward a center on the other side of a part").animatable(),
            ParamRow("regionChannel", std::string("region"),
                     "Channel numbering each strand's region (an Interpolate's regionMap writes region): strands clump "
                     "only toward centers of their own region (a center's region is its strand's, its own value of the "
                     "channel, or else the nearest strand's), and a region without a center stays unclumped; empty, or "
                     "a channel the strands lack: across regions")
                .animatable()
                .advanced()
                .readsChannel(),
            ParamRow("followTubes", false,
                     "Strands filling tube guides (an Interpolate's fillTubes: tubeId, tubeU and tubeV) clump inside "
                     "their own tube: each tube's centers are picked among its strands (as far apart as clumpBy says "
                     "for the whole scalp) and a strand gathers toward its tube's nearest, so the clumps flatten, twist "
                     "and taper with the tube; strands in no tube clump as ever. Off: by root across tubes. Strands "
                     "without those channels clump as ever either way")
                .animatable()
                .shownWhen("centersFrom", pick),
            ParamRow("lockRadius", 0.0,
                     "Lock radius: strands gather into a round lock this thick around the center (dreads, wet strings; "
                     "a Twist node after it turns them into ropes); 0: onto the center")
                .unit("length")
                .slider(0, 1)
                .animatable(),
            ParamRow("repelRadius", 0.5,
                     "With a negative strength: how far from its center a strand is pushed out to (the part's half "
                     "width; strands farther away stay as they are)")
                .unit("length")
                .slider(0, 2)
                .animatable(),
            ParamRow("flatness", 0.0, "Squashes each clump across into a ribbon, 0-1, as much as it clumps there (wet hair)")
                .unit("fraction")
                .animatable(),
            ParamRow("flatten", std::string("surface"),
                     "Which way a flat clump lies: surface: flat along the scalp; random: turned at random per clump; "
                     "direction: its width along flattenDirection")
                .choices({"surface", "random", "direction"})
                .animatable(),
            ParamRow("flattenDirection", Vec3f{1, 0, 0}, "Flatten direction: the way a ribbon's width runs (world space)")
                .animatable()
                .shownWhen("flatten", {"direction"})
                .worldDirection(),
            ParamRow("volumize", 0.0,
                     "Pushes each clump's strands out from its axis by this share of how far they are from it, most "
                     "near the root, filling the clump's volume (mappable)")
                .slider(0, 1)
                .animatable()
                .group("Shape"),
            ParamRow("volumizeProfile", defaultVolumizeProfile(), "Volumize along the length, root to tip")
                .animatable()
                .group("Shape"),
            ParamRow("strengthRandom", 0.0, "Each clump's strength scaled down by up to this share, at random per clump")
                .unit("fraction")
                .animatable()
                .group("Random"),
            ParamRow("lockRadiusRandom", 0.0, "Each clump's lock radius up to this share bigger or smaller, at random per clump")
                .unit("fraction")
                .animatable()
                .group("Random"),
            ParamRow("copyAmount", 0.0,
                     "Each clump takes on this share of its neighbouring clumps' shape (their center curves, from their "
                     "roots), so clumps share one flow")
                .unit("fraction")
                .animatable()
                .group("Shape"),
            ParamRow("copyNeighbors", std::int64_t{1}, "How many of the nearest clumps a clump copies (their mean)")
                .group("Shape")
                .advanced(),
        };
    }

    void adoptState(Operator& previous) override {
        if (auto* other = dynamic_cast<ClumpOperator*>(&previous)) {
            const std::lock_guard<std::mutex> lock(other->mutex_);
            plans_ = other->plans_;
        }
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        const Value& input = requireInput(inputs, 0, "Clump", "strands");
        const auto strands = input.as<StrandSet>();
        if (!strands) return input;
        const bool centersConnected = inputs.size() > 1 && !inputs[1].empty();
        const CenterSource source = sourceOf(paramValues.getString("centersFrom", "pick"));
        const std::string channel = paramValues.getString("clumpChannel", "clumpId");
        if (!channel.empty() && strands->strandChannel(channel))
            context.addNote("the strands already carry '" + channel +
                            "' from a Clump before this one: give each Clump its own clumpChannel (lockId, then "
                            "clumpId), or this one's numbers replace the first's");

        if (source != CenterSource::Pick && !centersConnected) {
            context.addNote("no clumps: connect centers (guides or strands) or set centersFrom to pick; the strands "
                            "pass through");
            return input;
        }
        if (source == CenterSource::Pick && centersConnected)
            context.addNote("centers are connected but centersFrom is pick (it picks its own): set centersFrom to "
                            "inputPoints or inputCurves to clump by them");
        const CenterCurves curves = source == CenterSource::Pick ? CenterCurves{} : centerCurves(inputs[1]);
        const CenterChoice choice = readChoice(context, *strands, source, curves);
        if (source == CenterSource::Pick && plannedClumpCount(choice, choice.scalp ? choice.scalp->area() : 0.0) == 0) {
            context.addNote("no clumps: set a count or size above 0 (or centersFrom inputPoints with centers connected); "
                            "the strands pass through");
            return input;
        }
        if (paramValues.getFloat("strength", 0.7) < 0.0)
            context.addNote("a negative strength parts the strands around the strands nearest its centers (centersFrom "
                            "inputPoints); inputCurves parts them around the center curves themselves, and pick around "
                            "the strands it picks: strands within repelRadius move out to it, the others stay");

        const std::shared_ptr<const CenterPlan> plan = planFor(*strands, choice);
        auto out = std::make_shared<StrandSet>(*strands);
        if (!channel.empty()) writeNumbers(*plan, *strands, out->addStrandChannel(channel));
        pull(context, *strands, *plan, curves, choice.scalp.get(), *out);
        return Value(std::shared_ptr<const StrandSet>(std::move(out)));
    }

private:
    CenterChoice readChoice(const EvalContext& context, const StrandSet& strands, CenterSource source,
                            const CenterCurves& curves) const {
        CenterChoice c;
        c.source = source;
        c.bySize = paramValues.getString("clumpBy", "count") == "size";
        c.count = paramValues.getInt("count", 300);
        c.size = paramValues.getFloat("size", 1.0) * context.scale;
        c.randomness = static_cast<float>(paramValues.getFloat("randomness", 0.3));
        c.seed = paramValues.getInt("seed", 0);
        c.followTubes = paramValues.getBool("followTubes", false);
        c.regionChannel = paramValues.getString("regionChannel", "region");
        if (const SceneItem* item = context.sceneItem("scalp")) c.scalp = item->value.as<ScalpMesh>();
        if (source == CenterSource::Pick) {
            const MappedFloat weight("centerWeight", paramValues, context, strands, 0.0, 1.0);
            if (weight.mapped() || weight.constant() < 1.0f) {
                c.centerWeight.resize(strands.strandCount());
                parallelRange(0, strands.strandCount(), kGrain, [&](std::size_t lo, std::size_t hi) {
                    for (std::size_t i = lo; i < hi; ++i) c.centerWeight[i] = weight.strand(strands, i);
                });
            }
        }
        c.inputIds = curves.ids;
        for (const auto& points : curves.points) c.inputRoots.push_back(points.front());
        return c;
    }

    std::shared_ptr<const CenterPlan> planFor(const StrandSet& strands, const CenterChoice& choice) {
        const std::uint64_t key = centerPlanKey(strands, choice);
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            for (const auto& [known, plan] : plans_)
                if (known == key) return plan;
        }
        std::shared_ptr<const CenterPlan> plan = buildCenterPlan(strands, choice);
        const std::lock_guard<std::mutex> lock(mutex_);
        // A preview and a final evaluation alternate: keep a few plans.
        plans_.insert(plans_.begin(), {key, plan});
        if (plans_.size() > 4) plans_.pop_back();
        return plan;
    }

    static void writeNumbers(const CenterPlan& plan, const StrandSet& strands, std::span<float> numbers) {
        const std::span<const std::uint64_t> ids = strands.ids();
        parallelRange(0, strands.strandCount(), kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                const std::uint32_t c = plan.clumpOf[i];
                // A strand in no clump is a clump of its own.
                numbers[i] = clumpNumber(c == CenterPlan::kNone ? ids[i] : plan.centerIds[c]);
            }
        });
    }

    PullSettings readPull(const EvalContext& context) const {
        PullSettings p;
        p.strengthRandom = static_cast<float>(paramValues.getFloat("strengthRandom", 0.0));
        p.lockRadius = static_cast<float>(paramValues.getFloat("lockRadius", 0.0) * context.scale);
        p.lockRadiusRandom = static_cast<float>(paramValues.getFloat("lockRadiusRandom", 0.0));
        p.repelRadius = static_cast<float>(paramValues.getFloat("repelRadius", 0.5) * context.scale);
        p.flatness = static_cast<float>(paramValues.getFloat("flatness", 0.0));
        p.copyAmount = static_cast<float>(paramValues.getFloat("copyAmount", 0.0));
        p.copyNeighbors = static_cast<int>(paramValues.getInt("copyNeighbors", 1));
        p.extend = paramValues.getString("pastTip", "gather") == "extend";
        const std::string flatten = paramValues.getString("flatten", "surface");
        p.flatten = flatten == "random" ? Flatten::Random : flatten == "direction" ? Flatten::Direction : Flatten::Surface;
        p.flattenDirection = paramValues.getVec3("flattenDirection", Vec3f{1, 0, 0});
        p.seed = paramValues.getInt("seed", 0);
        return p;
    }

    /// This frame's axes, with copyAmount's share of their neighbours' shapes, each clump's
    /// random shares and the way it lies flat.
    static std::vector<Axis> axesOf(const StrandSet& strands, const CenterPlan& plan, const CenterCurves& curves,
                                    const ScalpMesh* scalp, const PullSettings& p) {
        const std::size_t clumps = plan.axis.size();
        std::vector<Axis> own(clumps);
        for (std::size_t c = 0; c < clumps; ++c) {
            if (!curves.points.empty()) {
                own[c].points = curves.points[plan.axis[c]];
            } else {
                const auto points = strands.strandPoints(plan.axis[c]);
                own[c].points.assign(points.begin(), points.end());
            }
        }
        std::vector<Axis> axes = own;
        parallelRange(0, clumps, 16, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t c = lo; c < hi; ++c) {
                Axis& axis = axes[c];
                if (p.copyAmount > 0.0f && !axis.points.empty()) mixNeighbours(own, plan, c, p, axis);
                axis.measure();
                const std::uint64_t key = combine(hash64(plan.centerIds[c]), static_cast<std::uint64_t>(p.seed));
                axis.strength = 1.0f - p.strengthRandom * look::unitDraw(key, kStrengthDraw);
                axis.lock = 1.0f + p.lockRadiusRandom * look::signedDraw(key, kLockDraw);
                const Vec3f root = axis.points.empty() ? plan.roots[c] : axis.points.front();
                const Vec3f tangent = axis.points.size() > 1 ? normalized(axis.points[1] - axis.points[0]) : Vec3f{0, 1, 0};
                Vec3f thin;
                if (p.flatten == Flatten::Direction) {
                    thin = cross(tangent, p.flattenDirection);
                } else if (p.flatten == Flatten::Surface && scalp && scalp->triangleCount() > 0) {
                    const SurfacePoint on = scalp->closestPoint(root);
                    thin = scalp->normalAt(on.face, on.b1, on.b2);
                } else {
                    // Turned at random about the axis.
                    const Vec3f side = anyPerpendicular(tangent), up = cross(tangent, side);
                    const float angle = 2.0f * std::numbers::pi_v<float> * look::unitDraw(key, kRibbonDraw);
                    thin = side * std::cos(angle) + up * std::sin(angle);
                }
                axis.thin = lengthSquared(thin) > 1e-12f ? normalized(thin) : anyPerpendicular(tangent);
            }
        });
        return axes;
    }

    /// Blends an axis with the mean of its nearest clumps' axes, each moved to its root.
    static void mixNeighbours(const std::vector<Axis>& own, const CenterPlan& plan, std::size_t c,
                              const PullSettings& p, Axis& axis) {
        std::vector<Axis> measured;
        for (int k = 0; k < p.copyNeighbors; ++k) {
            const std::uint32_t n = plan.neighbours[c][static_cast<std::size_t>(k)];
            if (n == CenterPlan::kNone || own[n].points.empty()) continue;
            measured.push_back(own[n]);
            measured.back().measure();
        }
        if (measured.empty()) return;
        Axis self = own[c];
        self.measure();
        const Vec3f root = self.points.front();
        for (std::size_t k = 0; k < self.points.size(); ++k) {
            Vec3f mean{};
            for (const Axis& other : measured) {
                AxisCursor cursor(other, true);
                Vec3f point, tangent;
                cursor.at(self.at[k], point, tangent);
                mean = mean + (point - other.points.front() + root);
            }
            mean = mean / static_cast<float>(measured.size());
            axis.points[k] = self.points[k] + (mean - self.points[k]) * p.copyAmount;
        }
    }

    void pull(const EvalContext& context, const StrandSet& in, const CenterPlan& plan, const CenterCurves& curves,
              const ScalpMesh* scalp, StrandSet& out) const {
        const PullSettings p = readPull(context);
        const std::vector<Axis> axes = axesOf(in, plan, curves, scalp, p);
        const MappedFloat strength("strength", paramValues, context, in);
        const MappedFloat volumize("volumize", paramValues, context, in);
        const RampTable profile(rampParam(paramValues, "profile", defaultProfile()));
        const RampTable volumizeProfile(rampParam(paramValues, "volumizeProfile", defaultVolumizeProfile()));
        const bool volume = volumize.mapped() || volumize.constant() != 0.0f;
        const std::span<const Vec3f> source = in.points();
        const std::span<const std::uint64_t> ids = in.ids();
        // Every point is written below, so the input's points are not copied first.
        const std::span<Vec3f> points = out.overwrittenPoints();

        parallelRange(0, in.strandCount(), kGrain, [&](std::size_t lo, std::size_t hi) {
            std::vector<float> along;
            for (std::size_t i = lo; i < hi; ++i) {
                const std::uint32_t c = plan.clumpOf[i];
                const PointRange r = in.pointRange(i);
                // A center strand is its clump's axis and stays as it is.
                if (c == CenterPlan::kNone || (curves.points.empty() && plan.axis[c] == i) || r.size() == 0) {
                    std::copy(source.begin() + std::ptrdiff_t(r.begin), source.begin() + std::ptrdiff_t(r.end),
                              points.begin() + std::ptrdiff_t(r.begin));
                    continue;
                }
                const Axis& axis = axes[c];
                along.assign(r.size(), 0.0f);
                for (std::size_t k = 1; k < r.size(); ++k)
                    along[k] = along[k - 1] + length(source[r.begin + k] - source[r.begin + k - 1]);
                const float total = along.back();
                const float lock = p.lockRadius * axis.lock;
                AxisCursor cursor(axis, p.extend);
                for (std::size_t k = 0; k < r.size(); ++k) {
                    const std::size_t pt = r.begin + k;
                    const float t = total > 0.0f ? along[k] / total : 0.0f;
                    float amount = strength.point(in, i, pt, t) * profile(t) * axis.strength;
                    amount = std::clamp(amount, -1.0f, 1.0f);
                    float grow = volume ? volumize.point(in, i, pt, t) * volumizeProfile(t) : 0.0f;
                    if (amount == 0.0f && grow == 0.0f) {
                        points[pt] = source[pt];
                        continue;
                    }
                    Vec3f a, tangent;
                    cursor.at(along[k], a, tangent);
                    const Vec3f p0 = source[pt];
                    const Vec3f offset = p0 - a;
                    const Vec3f across = offset - tangent * dot(offset, tangent);
                    const float distance = length(across);
                    // The way round the axis this point lies; a point on the axis takes its strand's own way.
                    const Vec3f side = distance > 1e-7f ? across / distance : sideOf(ids[i], tangent, p.seed);
                    Vec3f moved = p0;
                    if (amount > 0.0f) {
                        const Vec3f target = a + side * lock;
                        moved = p0 + (target - p0) * amount;
                        if (p.flatness > 0.0f) {
                            Vec3f thin = axis.thin - tangent * dot(axis.thin, tangent);
                            if (lengthSquared(thin) > 1e-12f) {
                                thin = normalized(thin);
                                moved = moved - thin * (dot(moved - a, thin) * p.flatness * amount);
                            }
                        }
                    } else if (amount < 0.0f && distance < p.repelRadius) {
                        moved = p0 + side * ((p.repelRadius - distance) * -amount);
                    }
                    if (grow != 0.0f) {
                        const Vec3f from = moved - a;
                        moved = moved + (from - tangent * dot(from, tangent)) * grow;
                    }
                    points[pt] = moved;
                }
            }
        });
    }

    /// A strand's own direction round the axis, for a point lying on it.
    static Vec3f sideOf(std::uint64_t id, Vec3f tangent, std::int64_t seed) {
        const Vec3f side = anyPerpendicular(tangent), up = cross(tangent, side);
        const float angle = 2.0f * std::numbers::pi_v<float> * look::unitDraw(look::strandKey(id, seed), kSideDraw);
        return side * std::cos(angle) + up * std::sin(angle);
    }

    std::mutex mutex_;
    std::vector<std::pair<std::uint64_t, std::shared_ptr<const CenterPlan>>> plans_;
};

}  // namespace

void registerClumpOperator(OperatorRegistry& registry) {
    registry.add("Clump",
                 typeInfo("look", "Pulls strands toward their clump's center (or into round locks; Twist after it for ropes).",
                          "clumps groups locks"),
                 [] { return std::make_unique<ClumpOperator>(); });
}

}  // namespace tressora
