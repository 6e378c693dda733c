// Reading and writing a production-sized groom: a 100k-triangle scalp with per-corner UVs
// and rest points, and 1,000 flat guides of 20 points. Reports the time and the file's size.

#include <benchmark/benchmark.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "core/hash.h"
#include "groom/groom_file.h"

namespace tressora {
namespace {

constexpr int kGrid = 224;  // 2 * 224 * 224 = 100,352 triangles

// A wavy sheet with irregular coordinates, so numbers take their full length in text.
GroomScene bigScene() {
    std::vector<Vec3f> points;
    std::vector<ScalpMesh::Triangle> triangles;
    for (int z = 0; z <= kGrid; ++z)
        for (int x = 0; x <= kGrid; ++x) {
            const float jitter = unit(static_cast<std::uint64_t>(z * 1000 + x)) * 0.001f;
            points.push_back({static_cast<float>(x) * 0.0913f + jitter, std::sin(static_cast<float>(x) * 0.07f) * 1.7f,
                              static_cast<float>(z) * 0.0871f - jitter});
        }
    const auto at = [](int x, int z) { return z * (kGrid + 1) + x; };
    for (int z = 0; z < kGrid; ++z)
        for (int x = 0; x < kGrid; ++x) {
            triangles.push_back({at(x, z), at(x, z + 1), at(x + 1, z)});
            triangles.push_back({at(x + 1, z), at(x, z + 1), at(x + 1, z + 1)});
        }
    std::vector<ScalpMesh::Uv> uvs;
    for (const auto& t : triangles)
        for (int c : t) {
            const Vec3f p = points[static_cast<std::size_t>(c)];
            uvs.push_back({p.x / 20.5f, p.z / 19.6f});
        }
    auto mesh = std::make_shared<ScalpMesh>(points, triangles);
    mesh->setUvs(std::move(uvs));
    mesh->setRestPoints(points);

    GroomScene scene;
    scene.scalp.mesh = mesh;
    for (std::uint64_t g = 0; g < 1000; ++g) {
        FlatGuide guide{g + 1, points[g * 37], {}, std::nullopt};
        for (int k = 0; k < 20; ++k)
            guide.points.push_back(guide.root + Vec3f{0.013f * static_cast<float>(k), 0.31f * static_cast<float>(k),
                                                      unit(g * 20 + static_cast<std::uint64_t>(k)) * 0.1f});
        scene.guides.push_back(std::move(guide));
    }
    return scene;
}

const GroomScene& scene() {
    static const GroomScene s = bigScene();
    return s;
}

void BM_WriteGroomText(benchmark::State& state) {
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::string text = groomText(scene());
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.counters["bytes"] = static_cast<double>(bytes);
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}
BENCHMARK(BM_WriteGroomText)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ReadGroomText(benchmark::State& state) {
    const std::string text = groomText(scene());
    for (auto _ : state) {
        const GroomScene back = groomFromText(text);
        benchmark::DoNotOptimize(back.scalp.mesh.get());
    }
    state.counters["bytes"] = static_cast<double>(text.size());
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}
BENCHMARK(BM_ReadGroomText)->Unit(benchmark::kMillisecond)->UseRealTime();

// The JSON parse alone, for comparison with the whole read.
void BM_ParseGroomText(benchmark::State& state) {
    const std::string text = groomText(scene());
    for (auto _ : state) {
        const nlohmann::json doc = nlohmann::json::parse(text);
        benchmark::DoNotOptimize(doc.size());
    }
}
BENCHMARK(BM_ParseGroomText)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_WriteAndReadGroomFile(benchmark::State& state) {
    const std::string path = (std::filesystem::temp_directory_path() / "tressora_bench.groom").string();
    for (auto _ : state) {
        writeGroom(path, scene());
        const GroomScene back = readGroom(path);
        benchmark::DoNotOptimize(back.scalp.mesh.get());
    }
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(path));
    std::filesystem::remove(path);
}
BENCHMARK(BM_WriteAndReadGroomFile)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
