// Look nodes at groom size: HairColor and Noise on 1M strands of 9 points. Each case reports
// strands per second (items). TRESSORA_THREADS limits the threads (2 on the build machine).

#include <benchmark/benchmark.h>

#include <memory>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"

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

void runLook(benchmark::State& state, const char* type, std::map<std::string, ParamValue> params) {
    const Value input(strands());
    auto op = OperatorRegistry::instance().create(type);
    for (auto& [name, value] : params) op->paramValues.set(name, value);
    for (auto _ : state) {
        runWithThreads([&] {
            EvalContext context;
            benchmark::DoNotOptimize(op->evaluate(context, {input}));
        });
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStrands));
}

void HairColorMelanin(benchmark::State& state) { runLook(state, "HairColor", {}); }
void HairColorTips(benchmark::State& state) {
    runLook(state, "HairColor", {{"tipStrength", 0.5}, {"hueRandom", 0.1}, {"saturationRandom", 0.1}});
}
void NoiseStrand(benchmark::State& state) { runLook(state, "Noise", {}); }
void NoiseWorld(benchmark::State& state) {
    runLook(state, "Noise", {{"space", std::string("world")}, {"frequency", 1.0}});  // both octaves drawn
}

BENCHMARK(HairColorMelanin)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(HairColorTips)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(NoiseStrand)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(NoiseWorld)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
