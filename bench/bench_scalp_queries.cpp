// Surface query rates on a 100,000-triangle head: closest-point queries through the spatial
// tree (1M random points per iteration, spread over the worker threads as operators do) for
// points at the skin, near it and anywhere in the head's box, beside the brute-force rate on a
// small sample; then the same through the bulk call, which walks them in spatial order; plus
// ray hits, tree build and refit.
//
//   build/bench/bench_scalp_queries                      (all cores)
//   TRESSORA_THREADS=2 build/bench/bench_scalp_queries   (two threads)
// Rates are per second of real time; the CPU column is the whole process's processor time,
// so on a busy machine queries / CPU time shows what the threads achieved while running.

#include <benchmark/benchmark.h>

#include <atomic>
#include <vector>

#include "../tests/core/test_meshes.h"
#include "core/parallel.h"
#include "core/scalp_mesh.h"

namespace tressora {
namespace {

const ScalpMesh& headMesh() {
    static const ScalpMesh mesh = testing::head(201, 250);  // 2 * 250 * 200 = 100,000 triangles
    return mesh;
}

/// Query points uniform in the head's bounding box grown by 10 percent on each side.
std::vector<Vec3f> boxPoints(std::size_t count, std::uint64_t seed) {
    DrawStream s(seed);
    std::vector<Vec3f> q(count);
    for (Vec3f& p : q) {
        const float x = testing::drawIn(s, -10.5f, 10.5f);
        const float y = testing::drawIn(s, -12.5f, 14.0f);
        const float z = testing::drawIn(s, -12.0f, 12.0f);
        p = {x, y, z};
    }
    return q;
}

/// Query points on the surface moved up to `spread` along the normal either way (the head is
/// about 20 units across): 0.1 for roots being re-attached, 1 for strand points near the skin.
std::vector<Vec3f> nearPoints(std::size_t count, std::uint64_t seed, float spread) {
    const ScalpMesh& mesh = headMesh();
    DrawStream s(seed);
    std::vector<Vec3f> q(count);
    for (Vec3f& p : q) {
        const auto face = static_cast<std::int32_t>(s.next() % mesh.triangleCount());
        const float u = s.nextUnit(), v = s.nextUnit() * (1.0f - u);
        p = mesh.positionAt(face, u, v) + mesh.normalAt(face, u, v) * testing::drawIn(s, -spread, spread);
    }
    return q;
}

void runClosest(benchmark::State& state, const std::vector<Vec3f>& queries) {
    const ScalpMesh& mesh = headMesh();
    (void)mesh.closestPoint({0, 0, 0});  // build the tree outside the timing
    std::atomic<std::int64_t> found{0};
    for (auto _ : state) {
        runWithThreads([&] {
            parallelRange(0, queries.size(), 4096, [&](std::size_t lo, std::size_t hi) {
                std::int64_t n = 0;
                for (std::size_t i = lo; i < hi; ++i) n += mesh.closestPoint(queries[i]).face >= 0;
                found += n;
            });
        });
    }
    benchmark::DoNotOptimize(found.load());
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(queries.size()));
    state.counters["threads"] = threadLimit();
}

/// The same queries through the bulk call, which takes them in spatial order.
void runClosestBulk(benchmark::State& state, const std::vector<Vec3f>& queries) {
    const ScalpMesh& mesh = headMesh();
    (void)mesh.closestPoint({0, 0, 0});
    std::vector<SurfacePoint> out(queries.size());
    for (auto _ : state) {
        runWithThreads([&] { mesh.closestPoints(queries, out); });
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(queries.size()));
    state.counters["threads"] = threadLimit();
}

void BM_ClosestPointsBulkRoots(benchmark::State& state) {
    static const std::vector<Vec3f> queries = nearPoints(1'000'000, 5, 0.1f);
    runClosestBulk(state, queries);
}

void BM_ClosestPointsBulkNearSurface(benchmark::State& state) {
    static const std::vector<Vec3f> queries = nearPoints(1'000'000, 2, 1.0f);
    runClosestBulk(state, queries);
}

void BM_ClosestPointsBulkBox(benchmark::State& state) {
    static const std::vector<Vec3f> queries = boxPoints(1'000'000, 1);
    runClosestBulk(state, queries);
}

void BM_ClosestPointTreeBox(benchmark::State& state) {
    static const std::vector<Vec3f> queries = boxPoints(1'000'000, 1);
    runClosest(state, queries);
}

void BM_ClosestPointTreeRoots(benchmark::State& state) {
    static const std::vector<Vec3f> queries = nearPoints(1'000'000, 5, 0.1f);
    runClosest(state, queries);
}

void BM_ClosestPointTreeNearSurface(benchmark::State& state) {
    static const std::vector<Vec3f> queries = nearPoints(1'000'000, 2, 1.0f);
    runClosest(state, queries);
}

void BM_ClosestPointBruteBox(benchmark::State& state) {
    const ScalpMesh& mesh = headMesh();
    static const std::vector<Vec3f> queries = boxPoints(64, 3);
    std::int64_t found = 0;
    for (auto _ : state)
        for (const Vec3f& q : queries) found += mesh.closestPointBrute(q).face >= 0;
    benchmark::DoNotOptimize(found);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(queries.size()));
    state.counters["threads"] = 1;
}

void BM_RayHitTree(benchmark::State& state) {
    const ScalpMesh& mesh = headMesh();
    static const std::vector<Vec3f> origins = boxPoints(1'000'000, 4);
    (void)mesh.closestPoint({0, 0, 0});
    std::atomic<std::int64_t> hits{0};
    for (auto _ : state) {
        runWithThreads([&] {
            parallelRange(0, origins.size(), 4096, [&](std::size_t lo, std::size_t hi) {
                std::int64_t n = 0;
                RayHit hit;
                for (std::size_t i = lo; i < hi; ++i) {
                    const Vec3f o = origins[i];
                    n += mesh.intersect(o, Vec3f{0.0f, 1.0f, 0.0f} - o, hit);
                }
                hits += n;
            });
        });
    }
    benchmark::DoNotOptimize(hits.load());
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(origins.size()));
}

void BM_TreeBuild(benchmark::State& state) {
    const ScalpMesh& mesh = headMesh();
    for (auto _ : state) {
        auto tree = BvhTree::build(mesh.points(), mesh.triangles());
        benchmark::DoNotOptimize(tree);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(mesh.triangleCount()));
}

void BM_TreeRefit(benchmark::State& state) {
    const ScalpMesh& mesh = headMesh();
    const BvhTree& shape = mesh.bvh()->tree();
    for (auto _ : state) {
        auto tree = BvhTree::refit(shape, mesh.points(), mesh.triangles());
        benchmark::DoNotOptimize(tree);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(mesh.triangleCount()));
}

BENCHMARK(BM_ClosestPointTreeRoots)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_ClosestPointTreeBox)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_ClosestPointTreeNearSurface)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_ClosestPointsBulkRoots)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_ClosestPointsBulkBox)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_ClosestPointsBulkNearSurface)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_ClosestPointBruteBox)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RayHitTree)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_TreeBuild)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TreeRefit)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
