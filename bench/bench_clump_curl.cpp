// Clump and Curl at groom size: 1M strands of 9 points rooted on a 200 x 200 grid scalp.
// Clump/firstFrame is a new node: it picks its centers and binds every strand (the plan),
// then pulls; Clump/nextFrame is the same node again, whose plan is kept: the pull alone,
// as every later frame runs it. Curl/frame winds the strands with its defaults (adding the
// points three a turn needs). TRESSORA_THREADS limits the threads, as in the program.

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"

namespace tressora {
namespace {

constexpr std::size_t kStrands = 1'000'000;
constexpr std::size_t kPoints = 9;
constexpr int kCells = 200;  // the scalp: kCells x kCells squares of 0.1, two triangles each

std::shared_ptr<const ScalpMesh> makeScalp() {
    std::vector<Vec3f> points;
    std::vector<ScalpMesh::Triangle> triangles;
    for (int z = 0; z <= kCells; ++z)
        for (int x = 0; x <= kCells; ++x) points.push_back({0.1f * float(x), 0.0f, 0.1f * float(z)});
    for (int z = 0; z < kCells; ++z)
        for (int x = 0; x < kCells; ++x) {
            const int a = z * (kCells + 1) + x, b = a + 1, c = a + kCells + 1, d = c + 1;
            triangles.push_back({a, c, b});
            triangles.push_back({b, c, d});
        }
    return std::make_shared<const ScalpMesh>(std::move(points), std::move(triangles));
}

// Gently curved strands of random lengths standing on the scalp, built in parallel.
std::shared_ptr<const StrandSet> makeGroom() {
    auto set = std::make_shared<StrandSet>();
    set->resizeStrands(kStrands);
    set->resizePoints(kStrands * kPoints);
    std::span<std::uint64_t> ids = set->mutableIds();
    std::span<StrandRoot> roots = set->mutableRoots();
    std::span<std::uint64_t> offsets = set->mutableOffsets();
    std::span<Vec3f> points = set->mutablePoints();
    parallelRange(0, kStrands, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            ids[i] = hash64(i);
            offsets[i + 1] = (i + 1) * kPoints;
            DrawStream draw(ids[i]);
            const float u = draw.nextUnit(), v = draw.nextUnit();
            roots[i] = {static_cast<std::int32_t>(draw.nextUnit() * float(kCells * kCells * 2 - 1)), u * 0.5f, v * 0.5f};
            const Vec3f base{u * 0.1f * kCells, 0.0f, v * 0.1f * kCells};
            const float step = 0.1f + 0.1f * draw.nextUnit();
            const float bend = draw.nextUnit() * 0.2f;
            for (std::size_t k = 0; k < kPoints; ++k) {
                const float a = bend * float(k);
                points[i * kPoints + k] = base + Vec3f{std::sin(a), std::cos(a) + float(k), 0.0f} * step;
            }
        }
    });
    return set;
}

struct Fixture {
    std::shared_ptr<const StrandSet> strands = makeGroom();
    SceneCatalog scene;
    Fixture() { scene.set("scalp", Value(makeScalp()), 1); }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

std::unique_ptr<Operator> node(const std::string& type) {
    auto op = OperatorRegistry::instance().create(type);
    if (type == "Clump") op->paramValues.set("lockRadius", 0.02);
    return op;
}

Value run(Operator& op) {
    EvalContext context;
    context.scene = &fixture().scene;
    return op.evaluate(context, {Value(fixture().strands)});
}

void BM_ClumpFirstFrame(benchmark::State& state) {
    for (auto _ : state) {
        auto op = node("Clump");
        benchmark::DoNotOptimize(run(*op).identity());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStrands));
}

void BM_ClumpNextFrame(benchmark::State& state) {
    auto op = node("Clump");
    run(*op);  // the plan
    for (auto _ : state) benchmark::DoNotOptimize(run(*op).identity());
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStrands));
}

void BM_CurlFrame(benchmark::State& state) {
    auto op = node("Curl");
    std::size_t points = 0;
    for (auto _ : state) {
        const Value out = run(*op);
        points = out.as<StrandSet>()->pointCount();
        benchmark::DoNotOptimize(out.identity());
    }
    state.counters["pointsOut"] = static_cast<double>(points);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStrands));
}

BENCHMARK(BM_ClumpFirstFrame)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ClumpNextFrame)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CurlFrame)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    tressora::runWithThreads([] {
        tressora::fixture();  // built once, before any case is timed
        benchmark::RunSpecifiedBenchmarks();
    });
    benchmark::Shutdown();
    return 0;
}
