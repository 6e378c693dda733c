// Interpolate on a head-sized sphere (radius 10, 20,480 triangles): 1M strands of 9 points
// from 100 guides. "Bind" is a first evaluation on a fresh node (guide search and weights
// for every strand, then the blend); "Frame" is a re-evaluation with the guides moved, as
// on the next frame of an animation, where the bindings stand and only the blend runs.
// processCpuMs is the processor time of all threads per iteration: on a busy machine it
// tells the work apart from the waiting (real time on n idle cores is about it over n).
//
//   build/bench/bench_interpolate
//   TRESSORA_THREADS=2 build/bench/bench_interpolate

#include <benchmark/benchmark.h>

#include <cmath>
#include <ctime>
#include <memory>
#include <vector>

#include "../tests/core/test_meshes.h"
#include "core/guide_set.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"
#include "operators/growth/interpolate_bindings.h"

namespace tressora {
namespace {

constexpr std::size_t kStrands = 1'000'000;
constexpr std::size_t kGuides = 100;
constexpr int kPoints = 9;

struct Scene {
    std::shared_ptr<const ScalpMesh> scalp;
    std::shared_ptr<const StrandSet> strands;
    std::vector<std::shared_ptr<const GuideSet>> frames;  ///< the guides at a few frames
};

StrandRoot drawRoot(const ScalpMesh& mesh, DrawStream& s) {
    const auto face = static_cast<std::int32_t>(s.next() % mesh.triangleCount());
    float u = s.nextUnit(), v = s.nextUnit();
    if (u + v > 1.0f) {
        u = 1.0f - u;
        v = 1.0f - v;
    }
    return {face, u, v};
}

/// Guides bent sideways from the normal; `frame` sways their tips.
std::shared_ptr<const GuideSet> guidesAt(const ScalpMesh& mesh, int frame) {
    auto guides = std::make_shared<GuideSet>();
    DrawStream s(42);
    for (std::size_t g = 0; g < kGuides; ++g) {
        const StrandRoot root = drawRoot(mesh, s);
        const Vec3f p = mesh.positionAt(root.face, root.u, root.v);
        const Vec3f n = mesh.normalAt(root.face, root.u, root.v);
        const Vec3f side = normalized(cross(n, Vec3f{0, 1, 0.3f}));
        const float sway = 0.3f * std::sin(0.2f * static_cast<float>(frame) + static_cast<float>(g));
        std::vector<Vec3f> pts;
        for (int i = 0; i < 8; ++i) {
            const float t = static_cast<float>(i) / 7.0f;
            pts.push_back(p + n * (4.0f * t) + side * ((1.5f + sway) * t * t) + Vec3f{0, -2.0f * t * t, 0});
        }
        guides->addGuide(g + 1, root, pts, {});
    }
    return guides;
}

const Scene& scene() {
    static const Scene made = [] {
        Scene sc;
        auto mesh = std::make_shared<ScalpMesh>(testing::icosphere(5, 10.0f));
        auto strands = std::make_shared<StrandSet>();
        strands->reserve(kStrands, kStrands * kPoints);
        DrawStream s(7);
        std::vector<Vec3f> pts(kPoints);
        for (std::size_t i = 0; i < kStrands; ++i) {
            const StrandRoot root = drawRoot(*mesh, s);
            const Vec3f p = mesh->positionAt(root.face, root.u, root.v);
            const Vec3f n = mesh->normalAt(root.face, root.u, root.v);
            for (int k = 0; k < kPoints; ++k) pts[static_cast<std::size_t>(k)] = p + n * (0.5f * static_cast<float>(k));
            strands->addStrand(i + 1, root, pts);
        }
        for (int f = 0; f < 4; ++f) sc.frames.push_back(guidesAt(*mesh, f));
        sc.scalp = mesh;
        sc.strands = strands;
        return sc;
    }();
    return made;
}

/// Processor time of the whole process (all threads), in milliseconds.
double processCpuMs() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) * 1e-6;
}

Value evaluateOn(Operator& node, const std::shared_ptr<const GuideSet>& guides) {
    const Scene& sc = scene();
    EvalContext context;
    Value out;
    runWithThreads([&] { out = node.evaluate(context, {Value(sc.strands), Value(guides), Value(sc.scalp)}); });
    return out;
}

void BM_InterpolateBind(benchmark::State& state) {
    const Scene& sc = scene();
    const double cpu = processCpuMs();
    for (auto _ : state) {
        auto node = OperatorRegistry::instance().create("Interpolate");
        benchmark::DoNotOptimize(evaluateOn(*node, sc.frames[0]));
    }
    state.counters["processCpuMs"] = (processCpuMs() - cpu) / static_cast<double>(state.iterations());
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStrands));
}
BENCHMARK(BM_InterpolateBind)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_InterpolateFrame(benchmark::State& state) {
    const Scene& sc = scene();
    auto node = OperatorRegistry::instance().create("Interpolate");
    if (state.range(0)) node->paramValues.set("smoothGuides", true);
    evaluateOn(*node, sc.frames[0]);
    const std::uint64_t searched = bindingSearchCount();
    std::size_t frame = 1;
    const double cpu = processCpuMs();
    for (auto _ : state) {
        benchmark::DoNotOptimize(evaluateOn(*node, sc.frames[frame]));
        frame = frame % (sc.frames.size() - 1) + 1;
    }
    state.counters["processCpuMs"] = (processCpuMs() - cpu) / static_cast<double>(state.iterations());
    if (bindingSearchCount() != searched) state.SkipWithError("a frame searched guides again");
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kStrands));
}
BENCHMARK(BM_InterpolateFrame)->Arg(0)->Arg(1)->ArgName("smooth")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
