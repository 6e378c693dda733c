#include "operators/growth/scatter.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <deque>
#include <mutex>

#include "core/errors.h"
#include "core/guide_hierarchy.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "core/system_memory.h"
#include "graph/operator_registry.h"
#include "maps/map_fields.h"
#include "maps/scalar_field.h"
#include "operators/growth/scatter_plan.h"
#include "operators/growth/scatter_relax.h"
#include "operators/growth/scatter_roots.h"

namespace tressora {

namespace {

constexpr std::size_t kGrain = 256;
/// Entries kept at each level of the node's cache.
constexpr std::size_t kCacheDepth = 2;

/// The strand resolution of an evaluation: the groom's, or 8; 1 to 256.
int segmentsOf(const EvalContext& context) {
    return std::clamp(context.segments > 0 ? context.segments : 8, 1, 256);
}

ParamSpec param(std::string name, ParamValue value, std::string description) {
    ParamSpec spec;
    spec.name = std::move(name);
    spec.defaultValue = std::move(value);
    spec.description = std::move(description);
    return spec;
}

ParamSpec slider(ParamSpec spec, double low, double high) {
    spec.softMin = low;
    spec.softMax = high;
    return spec;
}

ParamSpec shownWhen(ParamSpec spec, std::string layout) {
    spec.showWhen = ParamCondition{"layout", {std::move(layout)}};
    return spec;
}

/// A table with the spots derived from it: the relaxed ones (made on first need) and the
/// surface they lie on.
struct TableEntry {
    std::uint64_t key = 0;
    std::shared_ptr<const RootTable> table;
    std::shared_ptr<const ScalpMesh> shape;
    std::shared_ptr<const std::vector<StrandRoot>> even;
};

/// The roots at one randomness, for one table.
struct MixEntry {
    std::uint64_t tableKey = 0;
    std::uint64_t randomness = 0;
    std::shared_ptr<const std::vector<StrandRoot>> roots;
};

/// The node's derived state, shared with the instance that replaces it.
struct ScatterCache {
    std::mutex mutex;
    std::deque<TableEntry> tables;
    std::deque<MixEntry> mixes;
};

template <class Entry>
void remember(std::deque<Entry>& entries, Entry entry) {
    entries.push_back(std::move(entry));
    while (entries.size() > kCacheDepth) entries.pop_front();
}

/// What an evaluation reads from the params and inputs before any root is made.
struct ScatterInputs {
    std::shared_ptr<const ScalpMesh> scalp;
    std::shared_ptr<const FieldValue> density;  ///< null when constant
    double densityMax = 0.0;
    std::int64_t seed = 0;
    float length = 1.0f;
    int segments = 8;
    bool grid = false;
    float randomness = 1.0f;
    int rows = 100, columns = 100;
    float gridRandom = 0.0f;
    std::shared_ptr<const GuideFilter> guides;
};

/// The greatest value a density field can take: a map's range, else what it gives at the
/// triangles' corners and centres.
double fieldMaximum(const FieldValue& field, const ScalpMesh& scalp) {
    if (const auto* map = dynamic_cast<const ScalarField*>(&field)) return std::max(map->low(), map->high());
    if (const auto* constant = dynamic_cast<const ConstantFieldValue*>(&field)) return constant->value();
    std::vector<std::uint64_t> ids;
    std::vector<StrandRoot> probes;
    for (std::int32_t t = 0; t < static_cast<std::int32_t>(scalp.triangleCount()); ++t)
        for (const auto& [b1, b2] : {std::pair{0.0f, 0.0f}, {1.0f, 0.0f}, {0.0f, 1.0f}, {1.0f / 3, 1.0f / 3}}) {
            ids.push_back(ids.size());
            probes.push_back({t, b1, b2});
        }
    const std::vector<float> values = densityAtRoots(field, scalp, ids, probes);
    double greatest = field.remapped();
    for (const float v : values) greatest = std::max(greatest, static_cast<double>(v));
    return greatest;
}

class ScatterOperator final : public Operator {
public:
    ScatterOperator() {
        paramValues.setLimits("density", {0.0, std::nullopt});
        paramValues.setLimits("randomness", {0.0, 2.0});
        paramValues.setLimits("gridRows", {1.0, 20000.0});
        paramValues.setLimits("gridColumns", {1.0, 20000.0});
        paramValues.setLimits("gridRandom", {0.0, 1.0});
        paramValues.setLimits("guideRadius", {0.0, std::nullopt});
        paramValues.setLimits("tubeMargin", {0.0, std::nullopt});
    }

    std::string type() const override { return "Scatter"; }
    std::string role() const override { return "grow"; }
    std::vector<Port> inputs() const override {
        return {{"scalp", PortType::Mesh, false, ValueKind::Any}, {"guides", PortType::Guides, true, ValueKind::Any}};
    }

    std::vector<ParamSpec> params() const override {
        ParamSpec density = slider(
            param("density", 80.0, "Strands per unit area (mappable: texture, color set, expression, guide layer)"), 0,
            2000);
        density.unit = "density";
        ParamSpec seed = param("seed", std::int64_t{0}, "Random seed");
        seed.advanced = true;
        ParamSpec length = slider(
            param("length", 1.0,
                  "Length of the straight strands grown along the scalp's normal. An Interpolate after it gives the "
                  "strands the guides' shapes and lengths, so with guides this shows only where no guide reaches; to "
                  "make hair longer or shorter, brush the guides or trim with the Length node"),
            0, 10);
        length.unit = "length";
        length.animatable = true;
        ParamSpec randomness = shownWhen(
            slider(param("randomness", 1.0,
                         "How random the roots are: 0 evenly spread (blue noise), 1 at random (white noise); in "
                         "between each root moves smoothly from its even spot to its random one, past 1 on beyond it "
                         "(more clumps and gaps), up to 2. The same strands at every value"),
                   0, 1),
            "random");
        randomness.unit = "fraction";
        randomness.animatable = true;
        ParamSpec layout = param("layout", std::string("random"),
                                 "random: roots at random (randomness 0 spreads them evenly); uvGrid: one per cell of "
                                 "a grid over the scalp's UVs (rows x columns; density maps thin it)");
        layout.choices = {"random", "uvGrid"};
        const ParamSpec rows = shownWhen(
            slider(param("gridRows", std::int64_t{100}, "uvGrid: rows of the grid, along V"), 1, 1000), "uvGrid");
        const ParamSpec columns = shownWhen(
            slider(param("gridColumns", std::int64_t{100}, "uvGrid: columns of the grid, along U"), 1, 1000),
            "uvGrid");
        ParamSpec gridRandom =
            shownWhen(param("gridRandom", 0.0, "uvGrid: each root moved at random up to this share of its cell"),
                      "uvGrid");
        gridRandom.unit = "fraction";
        const ParamSpec previewAll =
            param("previewAll", false,
                  "Every root in the viewport too, whatever the groom's preview density: for a few big pieces "
                  "(feather shafts, scales, instances) that a thinned preview would leave bald");
        ParamSpec guideRadius = slider(
            param("guideRadius", 0.0,
                  "Only within this distance of a guide's root (the guides input): fur along drawn guides, a patch, "
                  "a stripe. 0, or nothing connected to guides: the whole scalp"),
            0, 5);
        guideRadius.unit = "length";
        guideRadius.advanced = true;
        ParamSpec tubeMargin = slider(
            param("tubeMargin", 0.0,
                  "With guideRadius: guides whose tube has a shape keep the roots on their tube's root footprint (its "
                  "outline laid on the scalp) instead of a disc, and within this share of the tube's half-width round "
                  "it (as Interpolate's tubeBlend measures)"),
            0, 1);
        tubeMargin.unit = "fraction";
        tubeMargin.advanced = true;
        return {density, seed, length, randomness, layout, rows, columns, gridRandom, previewAll, guideRadius,
                tubeMargin};
    }

    std::uint64_t contextStamp(const NodeKeyLookup&, int, const EvalContext& context) const override {
        return hash64(static_cast<std::uint64_t>(segmentsOf(context)));
    }

    bool usesScalpArea() const override { return usesScalpArea_.load(std::memory_order_relaxed); }

    std::string note(const EvalContext&) const override {
        if (!capped_.load(std::memory_order_relaxed)) return {};
        return "Scatter: the viewport shows fewer strands than the preview density asks, to stay within its point "
               "budget";
    }

    void adoptState(Operator& previous) override {
        auto* other = dynamic_cast<ScatterOperator*>(&previous);
        if (!other || other == this) return;
        cache_ = other->cache_;
        usesScalpArea_.store(other->usesScalpArea_.load());
        capped_.store(other->capped_.load());
    }

    Value evaluate(EvalContext& context, const std::vector<Value>& inputs) override;

private:
    ScatterInputs readInputs(const EvalContext& context, const std::vector<Value>& inputs) const;
    std::uint64_t tableKey(const ScatterInputs& in, float generate) const;
    TableEntry tableFor(const ScatterInputs& in, float generate);
    std::shared_ptr<const std::vector<StrandRoot>> rootsFor(const ScatterInputs& in, TableEntry entry);

    std::shared_ptr<ScatterCache> cache_ = std::make_shared<ScatterCache>();
    std::atomic<bool> usesScalpArea_{false};
    std::atomic<bool> capped_{false};
};

ScatterInputs ScatterOperator::readInputs(const EvalContext& context, const std::vector<Value>& inputs) const {
    ScatterInputs in;
    in.scalp = inputs.empty() ? nullptr : inputs[0].as<ScalpMesh>();
    const auto guides = inputs.size() > 1 ? inputs[1].as<GuideSet>() : nullptr;

    // A field connected to `density` arrives behind the declared inputs: the only mappable param.
    for (std::size_t slot = 2; slot < inputs.size() && !in.density; ++slot) in.density = inputs[slot].as<FieldValue>();
    if (!in.density) {
        MapBinding binding;
        binding.guidesInput = true;
        binding.guides = guides;
        in.density = fieldFromParam("density", paramValues.get("density"), context, binding);
    }
    in.densityMax = in.density ? fieldMaximum(*in.density, *in.scalp) : paramValues.getFloat("density", 80.0);
    if (in.densityMax < 0.0) in.densityMax = 0.0;  // a NaN stays, for the limit check
    in.seed = paramValues.getInt("seed", 0);
    in.length = static_cast<float>(paramValues.getFloat("length", 1.0));
    in.segments = segmentsOf(context);
    in.grid = paramValues.getString("layout", "random") == "uvGrid";
    const double randomness = paramValues.getFloat("randomness", 1.0);
    in.randomness = static_cast<float>(std::isnan(randomness) ? 1.0 : std::clamp(randomness, 0.0, 2.0));
    in.rows = static_cast<int>(std::clamp<std::int64_t>(paramValues.getInt("gridRows", 100), 1, 20000));
    in.columns = static_cast<int>(std::clamp<std::int64_t>(paramValues.getInt("gridColumns", 100), 1, 20000));
    in.gridRandom = static_cast<float>(std::clamp(paramValues.getFloat("gridRandom", 0.0), 0.0, 1.0));
    if (in.grid && !in.scalp->hasUvs()) throw GraphError("Scatter: the uvGrid layout needs the scalp's UVs");

    const double radius = paramValues.getFloat("guideRadius", 0.0);
    if (radius > 0.0) {
        if (!guides || guides->pointCount() == 0)
            throw GraphError("Scatter: guideRadius needs guides on the guides input (a Guides node)");
        const double margin = std::max(0.0, paramValues.getFloat("tubeMargin", 0.0));
        // Custom tube shapes live in the groom's guide library.
        TubeShapeLibrary library;
        if (const SceneItem* item = context.sceneItem(kGuidesItem))
            if (const auto hierarchy = item->value.as<GuideHierarchy>()) library = hierarchy->tubeShapes();
        in.guides = std::make_shared<const GuideFilter>(*guides, static_cast<float>(radius),
                                                        static_cast<float>(margin), library);
    }
    return in;
}

std::uint64_t ScatterOperator::tableKey(const ScatterInputs& in, float generate) const {
    // Roots live on the rest pose when there is one, so a deforming scalp keeps its table.
    const ScalpMesh& scalp = *in.scalp;
    std::uint64_t h = scalp.hasRest() ? combine(combine(0x5E57, scalp.topologyHash()), scalp.restHash())
                                      : combine(0xC047, scalp.contentHash());
    h = combine(h, doubleBits(in.densityMax));
    h = combine(h, static_cast<std::uint64_t>(in.seed));
    h = combine(h, floatBits(generate));
    h = combine(h, in.guides ? in.guides->stamp() : 0);
    h = combine(h, in.grid ? 1 : 0);
    if (in.grid) {
        h = combine(combine(combine(h, static_cast<std::uint64_t>(in.rows)), static_cast<std::uint64_t>(in.columns)),
                    floatBits(in.gridRandom));
        h = combine(h, scalp.uvHash());
    }
    if (in.density) {
        const std::uint64_t stamp = in.density->stamp();
        h = combine(h, stamp != 0 ? stamp : reinterpret_cast<std::uintptr_t>(in.density.get()));
    }
    return h;
}

TableEntry ScatterOperator::tableFor(const ScatterInputs& in, float generate) {
    const std::uint64_t key = tableKey(in, generate);
    {
        const std::lock_guard<std::mutex> lock(cache_->mutex);
        for (const TableEntry& entry : cache_->tables)
            if (entry.key == key) return entry;
    }
    TableEntry entry;
    entry.key = key;
    if (in.scalp->hasRest()) {
        const std::span<const Vec3f> rest = in.scalp->restPoints();
        const std::span<const ScalpMesh::Triangle> triangles = in.scalp->triangles();
        auto shape = std::make_shared<ScalpMesh>(std::vector<Vec3f>(rest.begin(), rest.end()),
                                                 std::vector<ScalpMesh::Triangle>(triangles.begin(), triangles.end()));
        if (in.scalp->hasUvs()) shape->setUvs({in.scalp->uvs().begin(), in.scalp->uvs().end()});
        entry.shape = std::move(shape);
    } else {
        entry.shape = in.scalp;
    }
    auto table = std::make_shared<RootTable>();
    if (in.grid)
        makeGridCandidates(*entry.shape, in.rows, in.columns, in.gridRandom, in.seed, generate, *table);
    else
        makeCandidates(*entry.shape, in.densityMax, in.seed, generate, *table);
    thinRoots(RootFilter{in.density, in.densityMax, in.guides, in.scalp.get()}, *table);
    entry.table = std::move(table);
    const std::lock_guard<std::mutex> lock(cache_->mutex);
    remember(cache_->tables, entry);
    return entry;
}

std::shared_ptr<const std::vector<StrandRoot>> ScatterOperator::rootsFor(const ScatterInputs& in, TableEntry entry) {
    const auto random = std::shared_ptr<const std::vector<StrandRoot>>(entry.table, &entry.table->roots);
    if (in.grid || in.randomness == 1.0f || entry.table->roots.size() < 2 || !(in.densityMax > 0.0)) return random;

    const std::uint64_t randomness = floatBits(in.randomness);
    {
        const std::lock_guard<std::mutex> lock(cache_->mutex);
        for (const MixEntry& mix : cache_->mixes)
            if (mix.tableKey == entry.key && mix.randomness == randomness) return mix.roots;
        for (const TableEntry& known : cache_->tables)
            if (known.key == entry.key && known.even) entry.even = known.even;
    }
    if (!entry.even) {
        const RootFilter filter{in.density, in.densityMax, in.guides, in.scalp.get()};
        entry.even = std::make_shared<const std::vector<StrandRoot>>(
            relaxRoots(*entry.shape, filter, entry.table->ids, entry.table->roots));
        const std::lock_guard<std::mutex> lock(cache_->mutex);
        for (TableEntry& known : cache_->tables)
            if (known.key == entry.key) known.even = entry.even;
    }
    auto mixed = std::make_shared<const std::vector<StrandRoot>>(
        mixRoots(*entry.shape, entry.table->roots, *entry.even, in.randomness));
    const std::lock_guard<std::mutex> lock(cache_->mutex);
    remember(cache_->mixes, MixEntry{entry.key, randomness, mixed});
    return mixed;
}

Value ScatterOperator::evaluate(EvalContext& context, const std::vector<Value>& inputs) {
    if (inputs.empty() || !inputs[0].as<ScalpMesh>()) {
        context.addNote("Scatter: no scalp on the scalp input: connect a Scalp node");
        return Value(std::make_shared<const StrandSet>());
    }
    const ScatterInputs in = readInputs(context, inputs);
    usesScalpArea_.store(!in.grid, std::memory_order_relaxed);

    ScatterPlanInput planInput;
    planInput.grid = in.grid;
    planInput.plannedCount = in.grid ? static_cast<double>(in.rows) * in.columns
                                     : (in.scalp->hasRest() ? in.scalp->restArea() : in.scalp->area()) * in.densityMax;
    if (!std::isfinite(in.densityMax)) planInput.plannedCount = in.densityMax;
    planInput.segments = in.segments;
    planInput.previewFraction = context.previewFraction;
    planInput.previewPointBudget = context.previewPointBudget;
    planInput.previewAll = paramValues.getBool("previewAll", false);
    planInput.memoryBytes = usableMemoryBytes();
    const ScatterPlan plan = planScatter(planInput);
    capped_.store(plan.capped, std::memory_order_relaxed);
    if (!plan.note.empty()) context.addNote(plan.note);

    if (planInput.plannedCount <= 0.0) return Value(std::make_shared<const StrandSet>());
    const TableEntry entry = tableFor(in, plan.generate);
    const std::shared_ptr<const RootTable> table = entry.table;
    const auto roots = rootsFor(in, entry);

    // The roots this evaluation shows, in table order, with their preview marks.
    const std::size_t count = table->ids.size();
    std::vector<std::int8_t> marks(count);
    parallelRange(0, count, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) marks[i] = static_cast<std::int8_t>(previewMark(table->ids[i], plan));
    });
    std::vector<std::uint32_t> taken;
    taken.reserve(count);
    bool allHeld = true;
    for (std::uint32_t i = 0; i < count; ++i)
        if (marks[i] >= 0) {
            taken.push_back(i);
            allHeld = allHeld && marks[i] == 1;
        }

    const std::size_t strands = taken.size();
    const std::size_t perStrand = static_cast<std::size_t>(in.segments) + 1;
    auto set = std::make_shared<StrandSet>();
    set->resizeStrands(strands);
    set->resizePoints(strands * perStrand);
    if (!allHeld) {
        const std::span<float> preview = set->addStrandChannel("_preview", 1.0f);
        parallelRange(0, strands, kGrain, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t s = lo; s < hi; ++s) preview[s] = static_cast<float>(marks[taken[s]]);
        });
    }
    const std::span<std::uint64_t> ids = set->mutableIds();
    const std::span<StrandRoot> outRoots = set->mutableRoots();
    const std::span<std::uint64_t> offsets = set->mutableOffsets();
    const std::span<Vec3f> points = set->mutablePoints();
    const ScalpMesh& scalp = *in.scalp;
    parallelRange(0, strands, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t s = lo; s < hi; ++s) {
            const std::uint32_t i = taken[s];
            const StrandRoot root = (*roots)[i];
            ids[s] = table->ids[i];
            outRoots[s] = root;
            offsets[s + 1] = (s + 1) * perStrand;
            const Vec3f base = scalp.positionAt(root.face, root.u, root.v);
            const Vec3f normal = scalp.normalAt(root.face, root.u, root.v);
            for (std::size_t k = 0; k < perStrand; ++k)
                points[s * perStrand + k] = base + normal * (in.length * static_cast<float>(k) / static_cast<float>(in.segments));
        }
    });
    return Value(std::shared_ptr<const StrandSet>(std::move(set)));
}

}  // namespace

void registerScatterOperator(OperatorRegistry& registry) {
    registry.add("Scatter",
                 OperatorInfo{"grow", "Roots over the scalp: how many hairs, and where.",
                              "density count roots number hairs", "", false},
                 [] { return std::make_unique<ScatterOperator>(); });
}

}  // namespace tressora
