// Alembic throughput: one frame of 1M linear curves x 9 points with per-point widths and 64-bit
// strand ids, written and read through the archive layer, beside writing and reading the same
// arrays with plain file I/O in the same run. The goal is to stay within 2x of plain I/O.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "io/alembic/geom_reader.h"
#include "io/alembic/geom_writer.h"

namespace {

using namespace tressora;
using namespace tressora::abc;

constexpr std::size_t kCurves = 1'000'000;
constexpr std::size_t kPointsPerCurve = 9;

struct Frame {
    std::vector<Vec3f> points;
    std::vector<float> widths;
    std::vector<std::int32_t> counts;
    std::vector<std::uint64_t> ids;

    Frame() : points(kCurves * kPointsPerCurve), widths(points.size()), counts(kCurves, kPointsPerCurve), ids(kCurves) {
        for (std::size_t c = 0; c < kCurves; ++c) {
            ids[c] = (c + 1) * 0x9E3779B97F4A7C15ull;
            for (std::size_t k = 0; k < kPointsPerCurve; ++k) {
                const std::size_t i = c * kPointsPerCurve + k;
                points[i] = {float(c % 1000) * 0.01f, float(k) * 0.1f, float(c / 1000) * 0.01f};
                widths[i] = 0.01f * float(kPointsPerCurve - k);
            }
        }
    }
    std::int64_t bytes() const {
        return static_cast<std::int64_t>(points.size() * sizeof(Vec3f) + widths.size() * 4 + counts.size() * 4 +
                                         ids.size() * 8);
    }
};

const Frame& frame() {
    static const Frame f;
    return f;
}

std::string scratch(const char* name) {
    return (std::filesystem::temp_directory_path() / (std::string("tressora-bench-") + name)).string();
}

void writeArchive(const std::string& path) {
    const Frame& f = frame();
    ArchiveWriter archive(path);
    const std::uint32_t ts = archive.addTimeSampling(TimeSampling::uniform(1.0 / 24.0, 1.0 / 24.0));
    auto& groom = archive.top().addChild<XformWriter>("groom", ts);
    auto& shape = groom.addChild<CurvesWriter>("groomShape", ts);
    auto& ids = shape.addArbGeomParam("strandId", GeomParamType::uint64(), GeometryScope::Uniform);
    CurvesSample sample;
    sample.positions = f.points;
    sample.vertexCounts = f.counts;
    sample.widths = GeomValues<float>{f.widths, GeometryScope::Vertex};
    groom.writeIdentity();
    shape.write(sample);
    ids.writeValues(std::span<const std::uint64_t>(f.ids));
    archive.close();
}

// The same arrays, written back to back with POSIX writes.
void writePlain(const std::string& path) {
    const Frame& f = frame();
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    for (auto bytes : {std::as_bytes(std::span(f.points)), std::as_bytes(std::span(f.widths)),
                       std::as_bytes(std::span(f.counts)), std::as_bytes(std::span(f.ids))})
        if (::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    ::close(fd);
}

void BM_AlembicWrite(benchmark::State& state) {
    const std::string path = scratch("write.abc");
    frame();
    for (auto _ : state) {
        writeArchive(path);
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * frame().bytes());
}

void BM_PlainWrite(benchmark::State& state) {
    const std::string path = scratch("write.raw");
    frame();
    for (auto _ : state) {
        writePlain(path);
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * frame().bytes());
}

void BM_AlembicRead(benchmark::State& state) {
    const std::string path = scratch("read.abc");
    writeArchive(path);
    for (auto _ : state) {
        const ArchiveReader archive(path);
        const CurvesReader curves(*archive.findObject("/groom/groomShape"));
        const CurvesData data = curves.read(0);
        const std::vector<std::uint64_t> ids = curves.arbGeomParam("strandId")->read(0).as<std::uint64_t>();
        benchmark::DoNotOptimize(data.positions.data());
        benchmark::DoNotOptimize(ids.data());
    }
    state.SetBytesProcessed(state.iterations() * frame().bytes());
    std::filesystem::remove(path);
}

void BM_PlainRead(benchmark::State& state) {
    const std::string path = scratch("read.raw");
    writePlain(path);
    const Frame& f = frame();
    for (auto _ : state) {
        std::vector<Vec3f> points(f.points.size());
        std::vector<float> widths(f.widths.size());
        std::vector<std::int32_t> counts(f.counts.size());
        std::vector<std::uint64_t> ids(f.ids.size());
        const int fd = ::open(path.c_str(), O_RDONLY);
        for (auto bytes : {std::as_writable_bytes(std::span(points)), std::as_writable_bytes(std::span(widths)),
                           std::as_writable_bytes(std::span(counts)), std::as_writable_bytes(std::span(ids))})
            if (::read(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
        ::close(fd);
        benchmark::DoNotOptimize(points.data());
        benchmark::DoNotOptimize(ids.data());
    }
    state.SetBytesProcessed(state.iterations() * frame().bytes());
    std::filesystem::remove(path);
}

BENCHMARK(BM_AlembicWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_PlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_AlembicRead)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_PlainRead)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
