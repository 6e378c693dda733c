// The growth chain as a groom evaluates it: Scalp, Guides, Scatter, Interpolate, Length,
// Width and Resample (8 segments, so 9 points a strand) on the example head and its guides,
// through a GroomSession. Measures a whole evaluation from cold caches at about 150k and 1M
// strands, and the next frame of a scalp that moves rigidly (the strands grown at rest are
// carried onto the moved scalp; the graph is not run again).
//
//   build/bench/bench_growth_chain [--benchmark_filter=...]
//
// Needs examples/nika.groom of the source tree; skips when it is missing.

#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/strand_set.h"
#include "groom/groom_file.h"
#include "groom/groom_session.h"

namespace tressora {
namespace {

const std::string kExample = std::string(TRESSORA_SOURCE_DIR) + "/examples/nika.groom";

// The example's own density grows about this many strands on its scalp.
constexpr double kExampleDensity = 80.0;

nlohmann::json chainGraph(double density) {
    nlohmann::json g = nlohmann::json::parse(R"({"version":1,"output":"output","nodes":[
        {"name":"scalp","type":"Scalp"},
        {"name":"guides","type":"Guides"},
        {"name":"scatter","type":"Scatter"},
        {"name":"interpolate","type":"Interpolate"},
        {"name":"length","type":"Length","params":{"fraction":1.0,"trimMin":0.0,"trimMax":0.2}},
        {"name":"width","type":"Width"},
        {"name":"resample","type":"Resample","params":{"segments":8}},
        {"name":"output","type":"Output"}],
      "connections":[
        {"from":"scalp","to":"scatter","input":"scalp"},
        {"from":"scatter","to":"interpolate","input":"strands"},
        {"from":"guides","to":"interpolate","input":"guides"},
        {"from":"scalp","to":"interpolate","input":"scalp"},
        {"from":"interpolate","to":"length","input":"strands"},
        {"from":"length","to":"width","input":"strands"},
        {"from":"width","to":"resample","input":"strands"},
        {"from":"resample","to":"output","input":"strands"}]})");
    g["nodes"][2]["params"] = {{"density", density}};
    return g;
}

// The example groom with the chain's graph at a density that grows about `strands` strands.
GroomScene chainScene(double strands, bool follow) {
    GroomScene scene = readGroom(kExample);
    scene.graph = chainGraph(kExampleDensity * strands / 33720.0);
    scene.followScalp = follow;
    return scene;
}

// The scalp's points turned by `angle` about +y and moved: a rigid motion.
std::vector<Vec3f> movedPoints(const ScalpMesh& rest, float angle) {
    const float c = std::cos(angle), s = std::sin(angle);
    std::vector<Vec3f> points;
    points.reserve(rest.points().size());
    for (const Vec3f& p : rest.points()) points.push_back({c * p.x + s * p.z + 0.5f, p.y + 0.25f, -s * p.x + c * p.z});
    return points;
}

void wholeChain(benchmark::State& state) {
    if (!std::filesystem::exists(kExample)) {
        state.SkipWithError("examples/nika.groom is missing");
        return;
    }
    std::size_t strands = 0;
    for (auto _ : state) {
        state.PauseTiming();
        GroomSession session(chainScene(static_cast<double>(state.range(0)), false));
        state.ResumeTiming();
        const auto result = session.evaluate(1.0);
        strands = result ? result->strandCount() : 0;
        benchmark::DoNotOptimize(result.get());
    }
    state.counters["strands"] = static_cast<double>(strands);
    state.counters["strands/s"] =
        benchmark::Counter(static_cast<double>(strands) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void rigidScalpFrame(benchmark::State& state) {
    if (!std::filesystem::exists(kExample)) {
        state.SkipWithError("examples/nika.groom is missing");
        return;
    }
    GroomSession session(chainScene(static_cast<double>(state.range(0)), true));
    const std::shared_ptr<const ScalpMesh> rest = session.scalp();
    session.evaluate(1.0);
    double frame = 1.0;
    std::size_t strands = 0;
    for (auto _ : state) {
        frame += 1.0;
        state.PauseTiming();
        session.updateScalpPoints(movedPoints(*rest, static_cast<float>(frame) * 0.01f));
        state.ResumeTiming();
        const auto result = session.evaluate(frame);
        strands = result ? result->strandCount() : 0;
        benchmark::DoNotOptimize(result.get());
    }
    state.counters["strands"] = static_cast<double>(strands);
}

BENCHMARK(wholeChain)->Arg(150000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(rigidScalpFrame)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
