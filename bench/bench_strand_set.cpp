// Strand set throughput at groom size: 1M strands of 16 points (about 284 MB of arrays).
// Every case reports bytes per second; the Memcpy cases copy the same number of bytes with
// one plain memcpy on one thread, in the same run, as the yardstick. TRESSORA_THREADS=1
// runs the strand set cases on one thread too.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "core/block_copy.h"
#include "core/hash.h"
#include "core/parallel.h"
#include "core/strand_set.h"

namespace tressora {
namespace {

constexpr std::size_t kStrands = 1'000'000;
constexpr std::size_t kPointsPerStrand = 16;

// Builds the set in parallel through the resize and mutable accessors.
StrandSet makeSet(std::uint64_t seed) {
    StrandSet set;
    set.resizeStrands(kStrands);
    set.resizePoints(kStrands * kPointsPerStrand);
    std::span<std::uint64_t> ids = set.mutableIds();
    std::span<StrandRoot> roots = set.mutableRoots();
    std::span<std::uint64_t> offsets = set.mutableOffsets();
    std::span<Vec3f> points = set.mutablePoints();
    std::span<float> widths = set.mutableWidths();
    parallelRange(0, kStrands, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            ids[i] = hash64(seed + i);
            roots[i] = {static_cast<std::int32_t>(i % 5000), 0.25f, 0.5f};
            offsets[i + 1] = (i + 1) * kPointsPerStrand;
            DrawStream draw(ids[i]);
            const Vec3f base{draw.nextUnit(), draw.nextUnit(), draw.nextUnit()};
            for (std::size_t k = 0; k < kPointsPerStrand; ++k) {
                points[i * kPointsPerStrand + k] = base + Vec3f{0.0f, 0.1f * static_cast<float>(k), 0.0f};
                widths[i * kPointsPerStrand + k] = 0.01f;
            }
        }
    });
    return set;
}

const StrandSet& groom() {
    static const StrandSet set = makeSet(1);
    return set;
}

const StrandSet& otherGroom() {
    static const StrandSet set = makeSet(2);
    return set;
}

std::vector<std::size_t> everyOther() {
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < kStrands; i += 2) indices.push_back(i);
    return indices;
}

std::vector<std::size_t> firstHalf() {
    std::vector<std::size_t> indices(kStrands / 2);
    for (std::size_t i = 0; i < indices.size(); ++i) indices[i] = i;
    return indices;
}

std::size_t halfBytes() { return groom().subset(firstHalf()).byteSize(); }

void finish(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void BM_Memcpy(benchmark::State& state) {
    const std::size_t bytes = static_cast<std::size_t>(state.range(0));
    std::vector<unsigned char> source(bytes, 1), target(bytes, 2);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), bytes);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    finish(state, bytes);
}

void BM_BlockCopy(benchmark::State& state) {
    const std::size_t bytes = static_cast<std::size_t>(state.range(0));
    std::vector<unsigned char> source(bytes, 1), target(bytes, 2);
    for (auto _ : state) {
        blockCopy(target.data(), source.data(), bytes);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    finish(state, bytes);
}

void BM_Subset(benchmark::State& state, std::vector<std::size_t> (*choose)()) {
    const std::vector<std::size_t> indices = choose();
    StrandSet target;
    for (auto _ : state) {
        groom().subset(indices, target);
        benchmark::DoNotOptimize(target.points().data());
    }
    finish(state, target.byteSize());
}

void BM_ThinnedHalf(benchmark::State& state) {
    StrandSet target;
    for (auto _ : state) {
        groom().thinned(0.5f, target);
        benchmark::DoNotOptimize(target.points().data());
    }
    finish(state, target.byteSize());
}

void BM_Append(benchmark::State& state) {
    std::size_t bytes = 0;
    for (auto _ : state) {
        StrandSet set(groom());  // shared: the append copies both halves once
        set.append(otherGroom());
        bytes = set.byteSize();
        benchmark::DoNotOptimize(set.points().data());
    }
    finish(state, bytes);
}

void BM_Extent(benchmark::State& state) {
    StrandSet set(groom());
    set.mutableRoots();  // owned from here on: touching it again only drops the caches
    for (auto _ : state) {
        set.mutableRoots();
        benchmark::DoNotOptimize(set.extent());
    }
    finish(state, set.points().size_bytes() + set.offsets().size_bytes());
}

void BM_Fingerprint(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(groom().fingerprint());
    finish(state, groom().byteSize());
}

void BM_CopyThenWritePoints(benchmark::State& state) {
    for (auto _ : state) {
        StrandSet copy(groom());
        std::span<Vec3f> points = copy.mutablePoints();
        benchmark::DoNotOptimize(points.data());
    }
    finish(state, groom().points().size_bytes());
}

void registerAll() {
    const auto configure = [](benchmark::internal::Benchmark* b) {
        b->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
    };
    const std::int64_t full = static_cast<std::int64_t>(groom().byteSize());
    const std::int64_t half = static_cast<std::int64_t>(halfBytes());
    const std::int64_t points = static_cast<std::int64_t>(groom().points().size_bytes());
    configure(benchmark::RegisterBenchmark("Memcpy/points", BM_Memcpy)->Arg(points));
    configure(benchmark::RegisterBenchmark("BlockCopy/points", BM_BlockCopy)->Arg(points));
    configure(benchmark::RegisterBenchmark("CopyThenWritePoints", BM_CopyThenWritePoints));
    configure(benchmark::RegisterBenchmark("Memcpy/half", BM_Memcpy)->Arg(half));
    configure(benchmark::RegisterBenchmark("Subset/firstHalf", BM_Subset, &firstHalf));
    configure(benchmark::RegisterBenchmark("Subset/everyOther", BM_Subset, &everyOther));
    configure(benchmark::RegisterBenchmark("Thinned/0.5", BM_ThinnedHalf));
    configure(benchmark::RegisterBenchmark("Memcpy/twoSets", BM_Memcpy)->Arg(2 * full));
    configure(benchmark::RegisterBenchmark("Append", BM_Append));
    configure(benchmark::RegisterBenchmark("Extent", BM_Extent));
    configure(benchmark::RegisterBenchmark("Fingerprint", BM_Fingerprint));
}

}  // namespace
}  // namespace tressora

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    // TRESSORA_THREADS limits the threads, as in the program: 1 compares single-threaded work.
    tressora::runWithThreads([] {
        tressora::registerAll();
        benchmark::RunSpecifiedBenchmarks();
    });
    benchmark::Shutdown();
    return 0;
}
