// Curl: each strand winds around its own line: a helix, a planar wave, sharp zigzags or a
// tight coil a few strand widths across. The angle runs along the strand at `frequency` turns
// per unit of length (shaped by frequencyProfile, varied per strand and smoothly along it),
// in a frame carried along the strand without twisting. Where the points coming in are too
// few a turn for the curl, points are added first (up to maxSegments), so the curl does not
// alias into another. With weight, turns open up where more of them hang below.

#include "operators/look/curl.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cmath>
#include <numbers>

#include "core/guide_set.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "graph/operator_registry.h"
#include "operators/color/look_common.h"
#include "operators/growth/guide_conversion.h"
#include "operators/growth/node_support.h"

namespace tressora {
namespace {

using look::MappedFloat;
using look::RampTable;
using look::rampParam;

constexpr std::size_t kGrain = 256;
constexpr float kTwoPi = 2.0f * std::numbers::pi_v<float>;
constexpr std::uint64_t kRadiusDraw = 0xC1, kFrequencyDraw = 0xC2, kPhaseDraw = 0xC3, kPlaneDraw = 0xC4,
                        kSpacingDraw = 0xC5;

enum class Shape { Helix, Wave, Zigzag, Coil };

Ramp flat() { return Ramp{{{0.0, 1.0}, {1.0, 1.0}}, false}; }

Shape shapeOf(const std::string& text) {
    if (text == "wave") return Shape::Wave;
    if (text == "zigzag") return Shape::Zigzag;
    if (text == "coil") return Shape::Coil;
    return Shape::Helix;
}

/// Points a turn that keep every straight segment within `tolerance` of the radius from the
/// round curl (a chord of 2 pi / n strays r (1 - cos(pi / n))); 0 for no tolerance.
int pointsPerTurn(float tolerance, Shape shape) {
    if (!(tolerance > 0.0f)) return 0;
    const float n = std::numbers::pi_v<float> / std::acos(std::max(1.0f - std::min(tolerance, 1.0f), -1.0f));
    // A zigzag needs its kinks: at least four points a turn.
    return std::max(static_cast<int>(std::ceil(n - 1e-4f)), shape == Shape::Zigzag ? 4 : 3);
}

/// Smooth noise along a strand, in [-1, 1]: hashed values at whole steps, eased between.
float smoothNoise(std::uint64_t key, float x) {
    const float base = std::floor(x);
    const float f = x - base;
    const auto at = [&](float i) {
        return look::signedDraw(combine(key, static_cast<std::uint64_t>(static_cast<std::int64_t>(i))), kSpacingDraw);
    };
    const float e = f * f * (3.0f - 2.0f * f);
    return at(base) + (at(base + 1.0f) - at(base)) * e;
}

/// Sine and cosine of an angle in radians, within a few units in the 7th decimal: the angle
/// taken to within an eighth of a turn of a whole quarter turn, then short series. Several
/// times faster than the library's, which matters at a sine and a cosine a point.
void sinCos(float angle, float& s, float& c) {
    constexpr float kQuarters = 2.0f / std::numbers::pi_v<float>;
    constexpr float kQuarterHigh = 1.5707963705062866f, kQuarterLow = -4.371139000186243e-08f;
    const float q = std::floor(angle * kQuarters + 0.5f);
    const float r = (angle - q * kQuarterHigh) - q * kQuarterLow;
    const float r2 = r * r;
    const float sr = r + r * r2 * (-1.0f / 6.0f + r2 * (1.0f / 120.0f + r2 * (-1.0f / 5040.0f)));
    const float cr = 1.0f + r2 * (-0.5f + r2 * (1.0f / 24.0f + r2 * (-1.0f / 720.0f + r2 * (1.0f / 40320.0f))));
    switch (static_cast<int>(static_cast<std::int64_t>(q) & 3)) {
        case 0: s = sr; c = cr; break;
        case 1: s = cr; c = -sr; break;
        case 2: s = -sr; c = -cr; break;
        default: s = -cr; c = sr; break;
    }
}

/// The params of one evaluation, read once.
struct CurlSettings {
    Shape shape = Shape::Helix;
    float frequency = 0.4f, randomness = 0.3f, spacingRandom = 0.0f, coilWidths = 3.0f;
    float phase = 0.0f, phaseRandom = 1.0f, weight = 0.0f;
    Vec3f weightDirection{0, -1, 0};
    int perTurn = 3;  ///< points a turn wanted; 0: only the points coming in
    int maxSegments = 256;
    std::int64_t seed = 0;
    const StrandChannel* clumps = nullptr;  ///< coherence clump: the channel naming each strand's clump
};

/// What one strand draws: from its own id, or from its clump's number.
struct StrandDraws {
    std::uint64_t key = 0;
    float radius = 1.0f, frequency = 1.0f, phase = 0.0f;
    Vec3f reference;  ///< the direction the curl's plane starts from
};

StrandDraws drawsFor(const CurlSettings& s, std::uint64_t id, std::size_t strand) {
    StrandDraws d;
    d.key = s.clumps ? combine(hash64(std::bit_cast<std::uint32_t>(s.clumps->values()[strand])), static_cast<std::uint64_t>(s.seed))
                     : look::strandKey(id, s.seed);
    d.radius = 1.0f + 0.5f * s.randomness * look::signedDraw(d.key, kRadiusDraw);
    d.frequency = 1.0f + 0.5f * s.randomness * look::signedDraw(d.key, kFrequencyDraw);
    d.phase = s.phase + s.phaseRandom * look::unitDraw(d.key, kPhaseDraw);
    const float a = kTwoPi * look::unitDraw(d.key, kPlaneDraw), b = look::signedDraw(d.key, kPlaneDraw + 1);
    const float r = std::sqrt(std::max(0.0f, 1.0f - b * b));
    d.reference = {r * std::cos(a), b, r * std::sin(a)};
    return d;
}

class CurlOperator final : public Operator {
public:
    CurlOperator() {
        for (const char* name : {"randomness", "spacingRandom", "phaseRandom", "tolerance"})
            paramValues.setLimits(name, {0.0, 1.0});
        paramValues.setLimits("weight", {0.0, 10.0});
        paramValues.setLimits("maxSegments", {1.0, 4096.0});
    }
    std::string type() const override { return "Curl"; }
    std::string role() const override { return "look"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Curves}}; }
    Port output() const override { return {"out", PortType::Curves}; }

    std::vector<ParamSpec> params() const override {
        return {
            ParamRow("radius", 0.5, "Curl radius, scene units (mappable, per point); a coil's is coilWidths")
                .unit("length")
                .slider(0, 2)
                .animatable()
                .shownWhen("shape", {"helix", "wave", "zigzag"}),
            ParamRow("frequency", 0.4, "Turns per unit of length").unit("perLength").slider(0, 2).animatable(),
            ParamRow("frequencyProfile", flat(),
                     "Frequency along the length, root to tip, a share of frequency (the tightest): curls loosening or "
                     "tightening toward the tip")
                .animatable(),
            ParamRow("randomness", 0.3, "Per-strand variation of radius and frequency, 0-1").unit("fraction").animatable(),
            ParamRow("spacingRandom", 0.0,
                     "Smooth random variation of the spacing along each strand (each clump's with coherence clump), "
                     "0-1: the frequency varies by up to this share every turn or two")
                .unit("fraction")
                .animatable(),
            ParamRow("profile", flat(), "Radius along the length, root to tip (eased in from 0 at the root over the first quarter turn)")
                .animatable(),
            ParamRow("shape", std::string("helix"),
                     "helix: around the strand; wave: a planar sine; zigzag: sharp planar kinks (kinky hair); coil: a "
                     "tight helix coilWidths strand widths across (coily hair)")
                .choices({"helix", "wave", "zigzag", "coil"})
                .animatable(),
            ParamRow("coilWidths", 3.0,
                     "Coil: its radius in strand widths at each point (the widths the strands carry: put a Width node "
                     "before it)")
                .slider(0, 10)
                .animatable()
                .shownWhen("shape", {"coil"}),
            ParamRow("phase", 0.0, "Where along a turn every curl starts, in turns (0-1)").unit("turns").slider(0, 1).animatable(),
            ParamRow("phaseRandom", 1.0, "How much of a turn each strand's (or clump's) start varies at random, 0-1")
                .unit("fraction")
                .animatable(),
            ParamRow("coherence", std::string("strand"),
                     "strand: each strand curls on its own; clump: the strands of a clump curl together around its "
                     "middle, with one phase, frequency and plane (ringlets; after a Clump)")
                .choices({"strand", "clump"})
                .animatable(),
            ParamRow("clumpChannel", std::string("clumpId"),
                     "Coherence clump: the channel naming each strand's clump (Clump writes clumpId)")
                .animatable()
                .advanced()
                .shownWhen("coherence", {"clump"})
                .readsChannel(),
            ParamRow("weight", 0.0,
                     "How much each part of a curl stretches under the hair hanging below it, 0 or more: its turns "
                     "spread apart where more turns hang below them along weightDirection (loose at the root, tight at "
                     "the tip; long ringlets more than short curls, hair lying across it or pointing up barely), each "
                     "turn keeping its length, so the radius narrows (an overstretched curl goes straight). 0: none; 1: "
                     "10 turns hanging straight below a point double its spacing")
                .slider(0, 2)
                .animatable(),
            ParamRow("weightDirection", Vec3f{0, -1, 0},
                     "The way the weight pulls (world space): curls stretch where the strands hang along it")
                .animatable()
                .worldDirection(),
            ParamRow("tolerance", 0.5,
                     "How far a straight segment may stray from the round curl, a share of its radius: where the points "
                     "coming in are too few a turn for it, Curl adds points (0.5: 3 a turn, so no curl aliases into "
                     "another; 0.3: 4; 0.1: 7; 0.03: 13; a zigzag gets its kinks). 0: only the points coming in. Points "
                     "added take the GPU preview off this node: more Resample segments keep it")
                .unit("fraction")
                .slider(0, 0.5)
                .advanced(),
            ParamRow("maxSegments", std::int64_t{256}, "The most segments a strand may have with the points Curl adds")
                .slider(16, 1024)
                .advanced(),
            ParamRow("seed", std::int64_t{0}, "Random seed").advanced(),
        };
    }

    std::string note(const EvalContext&) const override {
        const int fewest = fewestPerTurn_.load(std::memory_order_relaxed);
        if (fewest >= 3) return {};
        return "Curl winds some strands with " + std::to_string(fewest) +
               " points a turn or fewer, too few to draw it (it aliases into another curl): raise tolerance or "
               "maxSegments, or Resample's segments before it";
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        fewestPerTurn_.store(INT_MAX, std::memory_order_relaxed);
        const Value& input = requireInput(inputs, 0, "Curl", "strands");
        if (const auto guides = input.as<GuideSet>()) {
            // Guides keep their points: a guide set's layout is its own.
            const auto strands = strandsFromGuides(*guides, 1.0f, true);
            return Value(guidesWithStrandPoints(*guides, *curled(context, *strands, false)));
        }
        const auto strands = input.as<StrandSet>();
        return strands ? Value(std::shared_ptr<const StrandSet>(curled(context, *strands, true))) : input;
    }

private:
    CurlSettings read(const EvalContext& context, const StrandSet& in, bool addPoints) const {
        CurlSettings s;
        s.shape = shapeOf(paramValues.getString("shape", "helix"));
        s.frequency = static_cast<float>(paramValues.getFloat("frequency", 0.4) / context.scale);
        s.randomness = static_cast<float>(paramValues.getFloat("randomness", 0.3));
        s.spacingRandom = static_cast<float>(paramValues.getFloat("spacingRandom", 0.0));
        s.coilWidths = static_cast<float>(paramValues.getFloat("coilWidths", 3.0));
        s.phase = static_cast<float>(paramValues.getFloat("phase", 0.0));
        s.phaseRandom = static_cast<float>(paramValues.getFloat("phaseRandom", 1.0));
        s.weight = static_cast<float>(paramValues.getFloat("weight", 0.0));
        const Vec3f down = paramValues.getVec3("weightDirection", Vec3f{0, -1, 0});
        s.weightDirection = lengthSquared(down) > 0.0f ? normalized(down) : Vec3f{0, -1, 0};
        s.perTurn = addPoints ? pointsPerTurn(static_cast<float>(paramValues.getFloat("tolerance", 0.5)), s.shape) : 0;
        s.maxSegments = static_cast<int>(paramValues.getInt("maxSegments", 256));
        s.seed = paramValues.getInt("seed", 0);
        if (paramValues.getString("coherence", "strand") == "clump") {
            const std::string channel = paramValues.getString("clumpChannel", "clumpId");
            s.clumps = in.strandChannel(channel);
            if (!s.clumps) throw GraphError("Curl: coherence clump needs a Clump before it (no '" + channel + "' channel)");
        }
        return s;
    }

    /// The frequency (turns per unit of length) at a length share t and arc length s.
    static float frequencyAt(const CurlSettings& s, const StrandDraws& d, const RampTable& profile, float t, float at) {
        float f = s.frequency * d.frequency * profile(t);
        if (s.spacingRandom > 0.0f) f *= 1.0f + s.spacingRandom * 0.5f * smoothNoise(d.key, at * s.frequency / 1.5f);
        return std::max(f, 0.0f);
    }

    std::shared_ptr<StrandSet> curled(const EvalContext& context, const StrandSet& in, bool addPoints) {
        const CurlSettings s = read(context, in, addPoints);
        const RampTable frequencyProfile(rampParam(paramValues, "frequencyProfile", flat()));
        const std::size_t strands = in.strandCount();
        const std::span<const std::uint64_t> ids = in.ids();

        // How many points each strand needs: enough for perTurn points a turn over its turns.
        std::vector<std::uint64_t> counts(strands);
        std::atomic<int> fewest{INT_MAX};
        parallelRange(0, strands, kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                const auto points = in.strandPoints(i);
                counts[i] = points.size();
                if (points.size() < 2) continue;
                const StrandDraws d = drawsFor(s, ids[i], i);
                float total = 0.0f, turns = 0.0f;
                for (std::size_t k = 1; k < points.size(); ++k) total += length(points[k] - points[k - 1]);
                // Turns over the strand, summed over 16 steps of its length.
                for (int step = 0; step < 16; ++step) {
                    const float t = (static_cast<float>(step) + 0.5f) / 16.0f;
                    turns += frequencyAt(s, d, frequencyProfile, t, t * total) * total / 16.0f;
                }
                std::uint64_t segments = points.size() - 1;
                if (s.perTurn > 0) {
                    const double wanted = std::ceil(static_cast<double>(turns) * s.perTurn);
                    const double most = static_cast<double>(std::max<int>(s.maxSegments, static_cast<int>(segments)));
                    segments = static_cast<std::uint64_t>(std::clamp(wanted, static_cast<double>(segments), most));
                    counts[i] = segments + 1;
                }
                if (turns > 0.0f) {
                    const int perTurn = static_cast<int>(std::floor(static_cast<float>(segments) / turns));
                    int seen = fewest.load(std::memory_order_relaxed);
                    while (perTurn < seen && !fewest.compare_exchange_weak(seen, perTurn)) {}
                }
            }
        });
        fewestPerTurn_.store(fewest.load(), std::memory_order_relaxed);

        auto out = std::make_shared<StrandSet>(resampledTo(in, counts));
        wind(context, s, frequencyProfile, *out);
        return out;
    }

    /// The curl itself, point by point, on strands that have the points it needs.
    void wind(const EvalContext& context, const CurlSettings& s, const RampTable& frequencyProfile, StrandSet& set) const {
        const StrandSet before = set;  // shares the arrays: the points read while new ones are written
        const MappedFloat radius("radius", paramValues, context, before);
        const RampTable profile(rampParam(paramValues, "profile", flat()));
        const float scale = static_cast<float>(context.scale);
        const std::span<const Vec3f> source = before.points();
        const std::span<const float> widths = before.widths();
        const std::span<const std::uint64_t> ids = before.ids();
        // Every point is written below, so the points coming in are not copied first.
        const std::span<Vec3f> points = set.overwrittenPoints();
        parallelRange(0, before.strandCount(), kGrain, [&](std::size_t lo, std::size_t hi) {
            std::vector<float> along, angle, stretch;
            for (std::size_t i = lo; i < hi; ++i) {
                const PointRange r = before.pointRange(i);
                const std::size_t n = r.size();
                std::copy(source.begin() + std::ptrdiff_t(r.begin), source.begin() + std::ptrdiff_t(r.end),
                          points.begin() + std::ptrdiff_t(r.begin));
                if (n < 2) continue;
                const StrandDraws d = drawsFor(s, ids[i], i);
                along.assign(n, 0.0f);
                for (std::size_t k = 1; k < n; ++k) along[k] = along[k - 1] + length(source[r.begin + k] - source[r.begin + k - 1]);
                const float total = along.back();
                if (!(total > 0.0f)) continue;

                // Weight: how much each point's spacing opens under the turns hanging below it.
                stretch.assign(n, 1.0f);
                angle.assign(n, 0.0f);
                for (std::size_t k = 1; k < n; ++k) {
                    const float mid = 0.5f * (along[k] + along[k - 1]);
                    angle[k] = angle[k - 1] + kTwoPi * frequencyAt(s, d, frequencyProfile, mid / total, mid) * (along[k] - along[k - 1]);
                }
                if (s.weight > 0.0f) {
                    const Vec3f tip = source[r.end - 1];
                    for (std::size_t k = 0; k + 1 < n; ++k) {
                        const Vec3f below = tip - source[r.begin + k];
                        const float reach = length(below);
                        const float hang = reach > 0.0f ? std::max(0.0f, dot(below, s.weightDirection) / reach) : 0.0f;
                        const float turnsBelow = (angle[n - 1] - angle[k]) / kTwoPi;
                        stretch[k] = 1.0f + s.weight * turnsBelow * hang / 10.0f;
                    }
                    stretch[n - 1] = 1.0f;
                    for (std::size_t k = 1; k < n; ++k) {
                        const float mid = 0.5f * (along[k] + along[k - 1]);
                        const float g = 0.5f * (stretch[k] + stretch[k - 1]);
                        angle[k] = angle[k - 1] +
                                   kTwoPi * frequencyAt(s, d, frequencyProfile, mid / total, mid) / g * (along[k] - along[k - 1]);
                    }
                }

                // A frame carried along the strand: each normal is the last one made square to the new direction.
                Vec3f tangent = normalized(source[r.begin + 1] - source[r.begin]);
                Vec3f normal = d.reference - tangent * dot(d.reference, tangent);
                normal = lengthSquared(normal) > 1e-8f ? normalized(normal) : anyPerpendicular(tangent);
                const float start = kTwoPi * d.phase;
                for (std::size_t k = 0; k < n; ++k) {
                    const std::size_t pt = r.begin + k;
                    if (k > 0) {
                        // The direction of the segment ahead (at the tip, of the last one).
                        const Vec3f ahead = k + 1 < n ? source[pt + 1] - source[pt] : source[pt] - source[pt - 1];
                        if (lengthSquared(ahead) > 0.0f) tangent = normalized(ahead);
                        const Vec3f square = normal - tangent * dot(normal, tangent);
                        if (lengthSquared(square) > 1e-12f) normal = normalized(square);
                    }
                    const Vec3f binormal = cross(tangent, normal);
                    const float t = along[k] / total;
                    // Eased in from the root over the first quarter turn.
                    const float in = std::min(angle[k] / (0.25f * kTwoPi), 1.0f);
                    const float ease = in * in * (3.0f - 2.0f * in);
                    float size = (s.shape == Shape::Coil ? s.coilWidths * widths[pt] : radius.point(before, i, pt, t) * scale) *
                                 profile(t) * d.radius * ease;
                    if (s.weight > 0.0f && stretch[k] > 1.0f) {
                        // The turn keeps its length: a longer pitch leaves less of it to go round.
                        const float f = std::max(frequencyAt(s, d, frequencyProfile, t, along[k]), 1e-6f);
                        const float pitch = 1.0f / f, turn = std::hypot(kTwoPi * size, pitch);
                        size = std::sqrt(std::max(0.0f, turn * turn - pitch * stretch[k] * pitch * stretch[k])) / kTwoPi;
                    }
                    float sine = 0.0f, cosine = 1.0f;
                    sinCos(start + angle[k], sine, cosine);
                    Vec3f offset;
                    switch (s.shape) {
                        case Shape::Wave: offset = normal * (size * sine); break;
                        case Shape::Zigzag:
                            offset = normal * (size * (2.0f / std::numbers::pi_v<float>) * std::asin(std::clamp(sine, -1.0f, 1.0f)));
                            break;
                        default: offset = (normal * cosine + binormal * sine) * size; break;
                    }
                    // Round the strand's own line; the ease keeps the root where it is.
                    points[pt] = source[pt] + offset;
                }
            }
        });
    }

    /// `in` with strand i resampled evenly by length to counts[i] points where that is more
    /// than it has; ids, roots and strand channels shared, widths and point channels carried.
    static StrandSet resampledTo(const StrandSet& in, const std::vector<std::uint64_t>& counts) {
        bool more = false;
        for (std::size_t i = 0; i < counts.size() && !more; ++i) more = counts[i] > in.pointRange(i).size();
        if (!more) return in;
        StrandSet out(in);
        std::uint64_t total = 0;
        const std::span<std::uint64_t> offsets = out.mutableOffsets();
        for (std::size_t i = 0; i < counts.size(); ++i) {
            total += counts[i];
            offsets[i + 1] = total;
        }
        out.resizePoints(total);
        std::vector<std::pair<const StrandChannel*, std::span<float>>> channels;
        for (const auto& [name, channel] : in.pointChannels()) channels.push_back({&channel, out.mutablePointChannel(name)});
        const std::span<Vec3f> points = out.mutablePoints();
        const std::span<float> widths = out.mutableWidths();
        parallelRange(0, counts.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
            std::vector<float> along;
            for (std::size_t i = lo; i < hi; ++i) {
                const PointRange from = in.pointRange(i);
                const std::size_t to = static_cast<std::size_t>(offsets[i]), n = static_cast<std::size_t>(counts[i]);
                const auto source = in.strandPoints(i);
                if (n == from.size()) {
                    std::copy(source.begin(), source.end(), points.begin() + static_cast<std::ptrdiff_t>(to));
                    for (std::size_t k = 0; k < n; ++k) {
                        widths[to + k] = in.widths()[from.begin + k];
                        for (auto& [channel, values] : channels) values[to + k] = channel->values()[from.begin + k];
                    }
                    continue;
                }
                along.assign(source.size(), 0.0f);
                for (std::size_t k = 1; k < source.size(); ++k) along[k] = along[k - 1] + length(source[k] - source[k - 1]);
                const float length = along.back();
                std::size_t segment = 0;
                for (std::size_t k = 0; k < n; ++k) {
                    const float at = length * static_cast<float>(k) / static_cast<float>(n - 1);
                    while (segment + 2 < source.size() && at > along[segment + 1]) ++segment;
                    const float span = along[segment + 1] - along[segment];
                    const float w = span > 0.0f ? std::clamp((at - along[segment]) / span, 0.0f, 1.0f) : 0.0f;
                    const std::size_t a = from.begin + segment, b = a + 1;
                    points[to + k] = source[segment] + (source[segment + 1] - source[segment]) * w;
                    widths[to + k] = in.widths()[a] + (in.widths()[b] - in.widths()[a]) * w;
                    for (auto& [channel, values] : channels)
                        values[to + k] = channel->values()[a] + (channel->values()[b] - channel->values()[a]) * w;
                }
            }
        });
        return out;
    }

    std::atomic<int> fewestPerTurn_{INT_MAX};
};

}  // namespace

void registerCurlOperator(OperatorRegistry& registry) {
    registry.add("Curl", typeInfo("look", "Helical curls around each strand.", "coil wave helix kinky afro"),
                 [] { return std::make_unique<CurlOperator>(); });
}

}  // namespace tressora
