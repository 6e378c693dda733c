// Resample: how many points each strand gets (even, by length against a steady reference,
// or by how much it bends), then each strand laid anew along its own polyline.

#include "operators/growth/resample.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "core/parallel.h"
#include "graph/operator_registry.h"
#include "operators/growth/guide_conversion.h"
#include "operators/growth/node_support.h"

namespace tressora {

namespace {

constexpr std::size_t kGrain = 256;
constexpr float kRadiansPerDegree = 0.017453292f;
constexpr double kSegmentCap = 1000000.0;

enum class Mode { Even, Length, Curvature };

Mode parseMode(const std::string& text) {
    if (text == "even") return Mode::Even;
    if (text == "length") return Mode::Length;
    if (text == "curvature") return Mode::Curvature;
    throw GraphError("Resample: mode must be even, length or curvature");
}

// The angle (radians) between the segments before and after interior point i; 0 when one of
// them has no length.
float turnAt(std::span<const Vec3f> p, std::size_t i) {
    const Vec3f a = p[i] - p[i - 1];
    const Vec3f b = p[i + 1] - p[i];
    const float la = length(a);
    const float lb = length(b);
    if (la <= 0.0f || lb <= 0.0f) return 0.0f;
    return std::acos(std::clamp(dot(a, b) / (la * lb), -1.0f, 1.0f));
}

float strandTurn(std::span<const Vec3f> p) {
    float total = 0.0f;
    for (std::size_t i = 1; i + 1 < p.size(); ++i) total += turnAt(p, i);
    return total;
}

// The reference length of "length" mode: the 95th percentile of the lengths of the strands
// every preview holds, quantised to about 1% steps so it hardly moves between frames.
double referenceLength(const StrandSet& set, double sceneScale) {
    const StrandChannel* preview = set.strandChannel("_preview");
    std::vector<float> lengths(set.strandCount(), -1.0f);
    parallelRange(0, set.strandCount(), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i)
            if (!preview || preview->values()[i] >= 0.5f) lengths[i] = polylineLength(set.strandPoints(i));
    });
    std::erase_if(lengths, [](float l) { return l < 0.0f; });
    if (lengths.empty()) lengths.push_back(1.0f);
    const std::size_t rank =
        std::min(lengths.size() - 1, static_cast<std::size_t>(std::floor(double(lengths.size()) * 0.95)));
    std::nth_element(lengths.begin(), lengths.begin() + static_cast<std::ptrdiff_t>(rank), lengths.end());
    double r = std::max(double(lengths[rank]), 1e-9);
    const bool scaled = sceneScale != 1.0 && sceneScale > 0.0;
    if (scaled) r /= sceneScale;
    if (std::isfinite(r) && r > 0.0) r = std::pow(10.0, std::round(std::log10(r) * 230.0) / 230.0);
    if (scaled) r *= sceneScale;
    return r;
}

struct Plan {
    Mode mode = Mode::Even;
    int segments = 16;
    int minSegments = 3;
    float maxAngle = 15.0f;
    double reference = 1.0;  // "length" mode only
};

// Points for one strand under the plan; strands of fewer than 2 points keep theirs.
std::uint32_t pointsFor(const Plan& plan, const StrandSet& set, std::size_t strand) {
    const std::size_t n = set.pointRange(strand).size();
    if (n < 2) return static_cast<std::uint32_t>(n);
    const int s = plan.segments;
    long segs = s;
    if (plan.mode == Mode::Length) {
        const float len = polylineLength(set.strandPoints(strand));
        segs = std::lroundf(float(s) * len / float(plan.reference));
    } else if (plan.mode == Mode::Curvature) {
        const double turn = strandTurn(set.strandPoints(strand));
        segs = static_cast<long>(std::min(std::ceil(turn / (plan.maxAngle * kRadiansPerDegree)), kSegmentCap));
    }
    segs = std::min<long>(std::max<long>(segs, plan.minSegments), s);
    return static_cast<std::uint32_t>(segs + 1);
}

// Where one strand's new values go and where they come from.
struct Target {
    std::span<Vec3f> points;
    std::span<float> widths;
    std::vector<std::pair<std::span<const float>, std::span<float>>> channels;  // source, target
};

Target targetOf(const StrandSet& in, StrandSet& out) {
    Target t{out.mutablePoints(), out.mutableWidths(), {}};
    for (const auto& [name, channel] : in.pointChannels())
        t.channels.emplace_back(channel.values(), out.mutablePointChannel(name));
    return t;
}

void copyPoint(const StrandSet& in, const Target& t, std::size_t from, std::size_t to) {
    t.points[to] = in.points()[from];
    t.widths[to] = in.widths()[from];
    for (const auto& [src, dst] : t.channels) dst[to] = src[from];
}

// Lays strand `strand` of `in` out as m points starting at `begin` of the target. Working
// arrays are kept per thread, so the loop does not allocate per strand.
void resampleOne(const StrandSet& in, std::size_t strand, std::size_t begin, std::size_t m, bool curvature,
                 const Target& t) {
    const PointRange r = in.pointRange(strand);
    const std::size_t n = r.size();
    if (n < 2 || m < 2) {
        for (std::size_t j = 0; j < m && n != 0; ++j) copyPoint(in, t, r.begin + std::min(j, n - 1), begin + j);
        return;
    }
    if (n == m && !curvature) {
        for (std::size_t j = 0; j < m; ++j) copyPoint(in, t, r.begin + j, begin + j);
        return;
    }
    const std::span<const Vec3f> p = in.strandPoints(strand);
    thread_local std::vector<float> s;
    thread_local std::vector<float> bend;
    s.assign(n, 0.0f);
    for (std::size_t i = 1; i < n; ++i) s[i] = s[i - 1] + length(p[i] - p[i - 1]);
    const float total = s[n - 1];
    for (std::size_t i = 0; i < n; ++i) s[i] = total > 0.0f ? s[i] / total : float(i) / float(n - 1);
    if (curvature) {
        bend.assign(n, 0.0f);
        for (std::size_t i = 1; i + 1 < n; ++i) bend[i] = turnAt(p, i);
        // c accumulates the turn; reuse the turn array once each value has been read.
        float c = 0.0f, previous = bend[0];
        bend[0] = 0.0f;
        for (std::size_t i = 1; i < n; ++i) {
            c += (previous + bend[i]) * 0.5f;
            previous = bend[i];
            bend[i] = c;
        }
        if (c > 0.0001f)
            for (std::size_t i = 0; i < n; ++i) s[i] = 0.4f * s[i] + 0.6f * bend[i] / c;
    }
    std::size_t k = 0;
    for (std::size_t j = 0; j < m; ++j) {
        const float tj = float(j) / float(m - 1);
        while (k + 2 < n && tj > s[k + 1]) ++k;
        const float d = s[k + 1] - s[k];
        const float alpha = d > 0.0f ? std::clamp((tj - s[k]) / d, 0.0f, 1.0f) : 0.0f;
        const std::size_t a = r.begin + k, b = a + 1, o = begin + j;
        t.points[o] = in.points()[a] + (in.points()[b] - in.points()[a]) * alpha;
        t.widths[o] = in.widths()[a] + (in.widths()[b] - in.widths()[a]) * alpha;
        for (const auto& [src, dst] : t.channels) dst[o] = src[a] + (src[b] - src[a]) * alpha;
    }
}

// Resamples into `out`, whose offsets are already set, the strands listed in `only` (every
// strand when null).
void resampleRange(const StrandSet& in, StrandSet& out, const std::vector<std::uint32_t>* only, bool curvature) {
    const Target t = targetOf(in, out);
    const std::span<const std::uint64_t> offsets = out.offsets();
    const std::size_t count = only ? only->size() : in.strandCount();
    parallelRange(0, count, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t x = lo; x < hi; ++x) {
            const std::size_t i = only ? (*only)[x] : x;
            resampleOne(in, i, offsets[i], offsets[i + 1] - offsets[i], curvature, t);
        }
    });
}

bool sameChannelNames(const ChannelMap& a, const ChannelMap& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const auto& x, const auto& y) { return x.first == y.first; });
}

class ResampleOperator final : public Operator {
public:
    ResampleOperator() {
        paramValues.setLimits("segments", {0.0, 1024.0});
        paramValues.setLimits("minSegments", {1.0, std::nullopt});
        paramValues.setLimits("maxAngle", {0.5, std::nullopt});
    }
    std::string type() const override { return "Resample"; }
    std::string role() const override { return "shape"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Curves}}; }
    Port output() const override { return {"out", PortType::Curves}; }

    std::vector<ParamSpec> params() const override {
        return {
            ParamRow("segments", std::int64_t{16},
                     "Segments per strand (points = segments + 1); every Scatter before it grows its strands with "
                     "them (the most any Resample after it, on the way to the Output, asks for). 0: keep each "
                     "strand's")
                .slider(0, 64),
            ParamRow("mode", std::string("even"),
                     "even: segments for every strand; curvature: fewer points for render and export, fewer for "
                     "straighter strands, placed where they bend; length: fewer for shorter strands")
                .choices({"even", "curvature", "length"})
                .animatable(),
            ParamRow("minSegments", std::int64_t{3}, "With length or curvature: the fewest segments a strand gets")
                .slider(1, 16)
                .shownWhen("mode", {"length", "curvature"}),
            ParamRow("maxAngle", 15.0,
                     "With curvature: about how far (degrees) a strand may turn per segment; smaller keeps curls "
                     "rounder with more points")
                .unit("angle")
                .slider(1, 45)
                .shownWhen("mode", {"curvature"}),
        };
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override {
        const Value& input = requireInput(inputs, 0, "Resample", "strands");
        const Plan plan = makePlan();
        if (const auto guides = input.as<GuideSet>()) {
            if (plan.segments == 0) return input;
            const auto strands = strandsFromGuides(*guides, 1.0f, true);
            const auto resampled = run(context, *strands, planFor(plan, *strands, context));
            return Value(guidesWithStrandPoints(*guides, *resampled));
        }
        const auto strands = input.as<StrandSet>();
        if (!strands || plan.segments == 0) return input;
        return Value(run(context, *strands, planFor(plan, *strands, context)));
    }

    bool evaluateIncremental(EvalContext& context, const std::vector<Value>& inputs, const InputChanges& changes,
                             const Value& previous, Value& result, StrandChanges& resultChanges) override {
        const StrandChanges* changed = patchableChanges(changes);
        const auto in = inputs.empty() ? nullptr : inputs[0].as<StrandSet>();
        const auto last = previous.as<StrandSet>();
        if (!changed || !in || !last || in->strandCount() != last->strandCount() ||
            !sameChannelNames(in->pointChannels(), last->pointChannels()))
            return false;
        Plan plan = makePlan();
        resultChanges = {false, changed->strands, false};
        if (plan.segments == 0) {
            result = inputs[0];
            return true;
        }
        plan = planFor(plan, *in, context);
        // A strand whose count moves changes the layout: that takes a full run.
        const auto sameCount = [&](std::size_t i) {
            return pointsFor(plan, *in, i) == last->pointRange(i).size();
        };
        if (plan.mode == Mode::Length) {
            for (std::size_t i = 0; i < in->strandCount(); ++i)
                if (!sameCount(i)) return false;
        } else {
            for (const std::uint32_t i : changed->strands)
                if (i >= in->strandCount() || !sameCount(i)) return false;
        }
        auto out = std::make_shared<StrandSet>(*in);
        out->resizePoints(last->pointCount());
        std::ranges::copy(last->offsets(), out->mutableOffsets().begin());
        std::ranges::copy(last->points(), out->mutablePoints().begin());
        std::ranges::copy(last->widths(), out->mutableWidths().begin());
        for (const auto& [name, channel] : last->pointChannels())
            std::ranges::copy(channel.values(), out->mutablePointChannel(name).begin());
        resampleRange(*in, *out, &changed->strands, plan.mode == Mode::Curvature);
        result = Value(std::shared_ptr<const StrandSet>(std::move(out)));
        return true;
    }

private:
    Plan makePlan() const {
        Plan plan;
        plan.mode = parseMode(paramValues.getString("mode", "even"));
        plan.segments = static_cast<int>(paramValues.getInt("segments", 16));
        plan.minSegments = static_cast<int>(paramValues.getInt("minSegments", 3));
        plan.maxAngle = static_cast<float>(paramValues.getFloat("maxAngle", 15.0));
        return plan;
    }

    static Plan planFor(Plan plan, const StrandSet& set, const EvalContext& context) {
        if (plan.mode == Mode::Length) plan.reference = referenceLength(set, context.scale);
        return plan;
    }

    static std::shared_ptr<StrandSet> run(const EvalContext&, const StrandSet& in, const Plan& plan) {
        std::vector<std::uint32_t> n(in.strandCount());
        parallelRange(0, n.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) n[i] = pointsFor(plan, in, i);
        });
        return resampleStrands(in, n, plan.mode == Mode::Curvature);
    }
};

}  // namespace

std::shared_ptr<StrandSet> resampleStrands(const StrandSet& in, std::span<const std::uint32_t> counts,
                                           bool curvature) {
    if (counts.size() != in.strandCount())
        throw std::invalid_argument("resampleStrands: one count per strand is needed");
    bool same = !curvature;
    for (std::size_t i = 0; same && i < counts.size(); ++i) same = counts[i] == in.pointRange(i).size();
    if (same) return std::make_shared<StrandSet>(in);
    auto out = std::make_shared<StrandSet>(in);
    std::uint64_t total = 0;
    for (const std::uint32_t c : counts) total += c;
    out->resizePoints(total);
    const std::span<std::uint64_t> offsets = out->mutableOffsets();
    offsets[0] = 0;
    for (std::size_t i = 0; i < counts.size(); ++i) offsets[i + 1] = offsets[i] + counts[i];
    resampleRange(in, *out, nullptr, curvature);
    return out;
}

void registerResampleOperator(OperatorRegistry& registry) {
    registry.add("Resample", typeInfo("shape", "Evens out the points along each strand.", "points segments cvs even"),
                 [] { return std::make_unique<ResampleOperator>(); });
}

}  // namespace tressora
