// Evaluations per second of per-point expressions over 10M points, on two threads
// (and on one, for the per-core figure). The point loop fills the point's slots and
// runs the shared program, as a per-point param does; the batch form hands the program
// runs of points whose slots it gathered, and the interpreter dispatches each instruction
// once per eight points.

#include <benchmark/benchmark.h>

#include <tbb/task_arena.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

#include "core/parallel.h"
#include "expression/expression.h"
#include "expression/interpreter.h"

namespace tressora {
namespace {

constexpr std::size_t kPoints = 10'000'000;

struct PointTable {
    std::vector<Vec3f> positions;
    std::vector<float> t;
};

const PointTable& points() {
    static const PointTable table = [] {
        PointTable p;
        p.positions.resize(kPoints);
        p.t.resize(kPoints);
        std::mt19937 rng(42);
        std::uniform_real_distribution<float> coord(-10.0f, 10.0f);
        for (std::size_t i = 0; i < kPoints; ++i) {
            p.positions[i] = {coord(rng), coord(rng), coord(rng)};
            p.t[i] = static_cast<float>(i % 32) / 31.0f;
        }
        return p;
    }();
    return table;
}

void evaluatePoints(benchmark::State& state, const char* text) {
    const auto expression = Expression::compile(text);
    const PointTable& p = points();
    std::vector<float> out(kPoints);
    tbb::task_arena arena(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        arena.execute([&] {
            parallelRange(0, kPoints, 16384, [&](std::size_t lo, std::size_t hi) {
                ExpressionEnvironment env;
                for (std::size_t i = lo; i < hi; ++i) {
                    env[kSlotPx] = p.positions[i].x;
                    env[kSlotPy] = p.positions[i].y;
                    env[kSlotPz] = p.positions[i].z;
                    env[kSlotT] = p.t[i];
                    out[i] = expression->evaluate(env);
                }
            });
        });
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
    state.counters["instructions"] = static_cast<double>(expression->program().size());
}

void evaluateBatches(benchmark::State& state, const char* text) {
    const auto expression = Expression::compile(text);
    const PointTable& p = points();
    std::vector<float> out(kPoints);
    tbb::task_arena arena(static_cast<int>(state.range(0)));
    constexpr std::size_t kRun = 64;
    const ExpressionSlot slots[] = {kSlotPx, kSlotPy, kSlotPz, kSlotT};
    for (auto _ : state) {
        arena.execute([&] {
            parallelRange(0, kPoints, 16384, [&](std::size_t lo, std::size_t hi) {
                const ExpressionEnvironment env;
                float x[kRun], y[kRun], z[kRun];
                for (std::size_t first = lo; first < hi; first += kRun) {
                    const std::size_t n = std::min(kRun, hi - first);
                    for (std::size_t i = 0; i < n; ++i) {
                        x[i] = p.positions[first + i].x;
                        y[i] = p.positions[first + i].y;
                        z[i] = p.positions[first + i].z;
                    }
                    const float* values[] = {x, y, z, &p.t[first]};
                    evaluateBatch(*expression, env, ExpressionPoints{slots, values, nullptr, n}, &out[first]);
                }
            });
        });
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
    state.counters["instructions"] = static_cast<double>(expression->program().size());
}

// A noise of the position times a linear ramp along the strand: 10 instructions.
BENCHMARK_CAPTURE(evaluatePoints, noise_times_ramp, "noise(pointP * 4) * (1 - t)")
    ->Arg(2)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
// The same noise times a monotone curve ramp: 9 instructions, the curve runs as one call.
BENCHMARK_CAPTURE(evaluatePoints, noise_times_curve, "noise(pointP * 4) * curve(t, 0, 1, 4, 0.5, 0.8, 4, 1, 0, 4)")
    ->Arg(2)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
// Plain arithmetic of the same length: the interpreter's own cost.
BENCHMARK_CAPTURE(evaluatePoints, arithmetic, "(px * 2 + py) * (1 - t) + pz")
    ->Arg(2)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same programs, eight points per instruction dispatch.
BENCHMARK_CAPTURE(evaluateBatches, noise_times_ramp, "noise(pointP * 4) * (1 - t)")
    ->Arg(2)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(evaluateBatches, noise_times_curve, "noise(pointP * 4) * curve(t, 0, 1, 4, 0.5, 0.8, 4, 1, 0, 4)")
    ->Arg(2)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(evaluateBatches, arithmetic, "(px * 2 + py) * (1 - t) + pz")
    ->Arg(2)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
