// Writing an animated groom to USD text: 1M strands of 9 points, over 2 and 10 frames. Reports
// the layer's size as bytes processed (MB/s of text) and the seconds per frame. Peak memory is
// measured from outside (/usr/bin/time -v) by running one frame count at a time, e.g.
//   bench_usd_writer --benchmark_filter='/10/'
// and should not grow with the number of frames. TRESSORA_BENCH_DIR picks the folder
// (default: the system's temporary folder).

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "io/usd_writer.h"

namespace tressora {
namespace {

constexpr std::size_t kStrands = 1'000'000;
constexpr std::size_t kPoints = 9;

const StrandSet& groom() {
    static const StrandSet set = [] {
        StrandSet s;
        s.resizeStrands(kStrands);
        s.resizePoints(kStrands * kPoints);
        std::span<std::uint64_t> offsets = s.mutableOffsets();
        std::span<std::uint64_t> ids = s.mutableIds();
        std::span<Vec3f> points = s.mutablePoints();
        std::span<float> widths = s.mutableWidths();
        parallelRange(0, kStrands, 4096, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t i = lo; i < hi; ++i) {
                offsets[i + 1] = (i + 1) * kPoints;
                ids[i] = hash64(i);
                DrawStream draw(i);
                const Vec3f root{draw.nextUnit() * 20 - 10, draw.nextUnit() * 20 - 10, draw.nextUnit() * 20 - 10};
                for (std::size_t k = 0; k < kPoints; ++k) {
                    points[i * kPoints + k] = root + Vec3f{draw.nextUnit() * 0.1f, 0.25f * k, draw.nextUnit() * 0.1f};
                    widths[i * kPoints + k] = 0.01f * (1.0f - 0.1f * k);
                }
            }
        });
        return s;
    }();
    return set;
}

std::filesystem::path benchFolder() {
    const char* dir = std::getenv("TRESSORA_BENCH_DIR");
    return dir && *dir ? std::filesystem::path(dir) : std::filesystem::temp_directory_path();
}

void BM_UsdWriter(benchmark::State& state) {
    const int frames = static_cast<int>(state.range(0));
    const StrandSet& set = groom();
    const std::string path = (benchFolder() / "tressora_bench_usd_writer.usda").string();
    std::uintmax_t bytes = 0;
    for (auto _ : state) {
        UsdWriter writer(path, "groom", {});
        for (int f = 1; f <= frames; ++f) writer.writeFrame(f, set);
        writer.close();
        bytes += std::filesystem::file_size(path);
    }
    std::filesystem::remove(path);
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
    state.counters["frames"] = frames;
    state.counters["s/frame"] = benchmark::Counter(static_cast<double>(frames) * static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_UsdWriter)->Arg(2)->Arg(10)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
