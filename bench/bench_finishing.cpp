// The finishing nodes at groom size: Length, Width and Resample on 1M strands of 9 points,
// one at a time and chained as in the default graph. Each case reports strands per second.
// TRESSORA_THREADS limits the threads, as in the program.

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"

namespace tressora {
namespace {

constexpr std::size_t kStrands = 1'000'000;
constexpr std::size_t kPoints = 9;

// Gently curved strands of random lengths, built in parallel.
std::shared_ptr<const StrandSet> makeGroom() {
    auto set = std::make_shared<StrandSet>();
    set->resizeStrands(kStrands);
    set->resizePoints(kStrands * kPoints);
    std::span<std::uint64_t> ids = set->mutableIds();
    std::span<std::uint64_t> offsets = set->mutableOffsets();
    std::span<Vec3f> points = set->mutablePoints();
    parallelRange(0, kStrands, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            ids[i] = hash64(i);
            offsets[i + 1] = (i + 1) * kPoints;
            DrawStream draw(ids[i]);
            const Vec3f base{draw.nextUnit() * 20.0f, 0.0f, draw.nextUnit() * 20.0f};
            const float step = 0.5f + draw.nextUnit();
            const float bend = draw.nextUnit() * 0.4f;
            for (std::size_t k = 0; k < kPoints; ++k) {
                const float a = bend * float(k);
                points[i * kPoints + k] = base + Vec3f{std::sin(a), std::cos(a) + float(k), 0.0f} * step;
            }
        }
    });
    return set;
}

const std::shared_ptr<const StrandSet>& groom() {
    static const std::shared_ptr<const StrandSet> set = makeGroom();
    return set;
}

struct Node {
    std::string type;
    std::vector<std::pair<std::string, ParamValue>> params;
};

void BM_Nodes(benchmark::State& state, std::vector<Node> chain) {
    std::vector<std::unique_ptr<Operator>> ops;
    for (const Node& node : chain) {
        ops.push_back(OperatorRegistry::instance().create(node.type));
        for (const auto& [name, value] : node.params) ops.back()->paramValues.set(name, value);
    }
    EvalContext context;
    for (auto _ : state) {
        Value value(groom());
        for (const auto& op : ops) value = op->evaluate(context, {value});
        benchmark::DoNotOptimize(value.identity());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStrands));
}

void registerAll() {
    groom();  // built once, before any case is timed
    const auto add = [](const char* name, std::vector<Node> chain) {
        benchmark::RegisterBenchmark(name, BM_Nodes, std::move(chain))->Unit(benchmark::kMillisecond)->UseRealTime();
    };
    const Node length{"Length", {{"keep", 0.9}, {"trimMax", 0.2}}};
    const Node width{"Width", {}};
    const Node even{"Resample", {}};
    add("Length", {length});
    add("Width", {width});
    add("Resample/even", {even});
    add("Resample/length", {{"Resample", {{"mode", std::string("length")}}}});
    add("Resample/curvature", {{"Resample", {{"mode", std::string("curvature")}}}});
    add("LengthWidthResample", {length, width, even});
}

}  // namespace
}  // namespace tressora

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    tressora::runWithThreads([] {
        tressora::registerAll();
        benchmark::RunSpecifiedBenchmarks();
    });
    benchmark::Shutdown();
    return 0;
}
