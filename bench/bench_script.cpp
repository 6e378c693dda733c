// The Script node at groom size: a 10-statement per point script on 1M strands of 9 points.
// Reports points per second (items). TRESSORA_THREADS limits the threads (2 on the build
// machine).

#include <benchmark/benchmark.h>

#include <memory>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "graph/node_definition.h"
#include "graph/operator_registry.h"
#include "library/node_file.h"

namespace tressora {
namespace {

constexpr std::size_t kStrands = 1'000'000;
constexpr std::size_t kPoints = 9;

std::shared_ptr<const StrandSet> makeSet() {
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
            const Vec3f base{unit(ids[i]) * 20.0f, 0.0f, unit(ids[i] + 1) * 20.0f};
            for (std::size_t k = 0; k < kPoints; ++k)
                points[i * kPoints + k] = base + Vec3f{0.0f, 0.5f * static_cast<float>(k), 0.0f};
        }
    });
    return set;
}

const std::shared_ptr<const StrandSet>& strands() {
    static const std::shared_ptr<const StrandSet> set = makeSet();
    return set;
}

const char* const kScript =
    "per point {\n"
    "    $a = t * t;\n"
    "    $b = sin(t * 6.2832 + rand * 6.2832);\n"
    "    $c = [$b, 0, cos(t * 6.2832)];\n"
    "    $d = N * ($amount * $a);\n"
    "    $e = $c * (0.2 * t);\n"
    "    P += $d + $e;\n"
    "    $w = mix(1, 0.2, t);\n"
    "    width = 0.01 * $w;\n"
    "    $m = clamp($a + $b * 0.1, 0, 1);\n"
    "    channel.mass = $m;\n"
    "}\n";

void ScriptPerPoint(benchmark::State& state) {
    const Value input(strands());
    auto op = OperatorRegistry::instance().create("Script");
    const nlohmann::json file = {{"tsnode", 1},
                                 {"id", "bench.ten_statements"},
                                 {"label", "Ten statements"},
                                 {"params", {{{"name", "amount"}, {"type", "length"}, {"default", 0.5}}}},
                                 {"writes", {"P", "width", "channel.mass"}},
                                 {"script", kScript}};
    dynamic_cast<NodeDefinition&>(*op).readDefinition(checkNodeFile(file).document);
    declareParams(*op);
    for (auto _ : state) {
        runWithThreads([&] {
            EvalContext context;
            benchmark::DoNotOptimize(op->evaluate(context, {input}));
        });
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStrands * kPoints));
}

}  // namespace
}  // namespace tressora

BENCHMARK(tressora::ScriptPerPoint)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
