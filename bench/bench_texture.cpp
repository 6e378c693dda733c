// Bilinear samples per second from a loaded 4096 x 4096 RGBA texture, on one and two
// threads, at random UVs (each sample a cache miss) and sweeping the image; the same through
// a UDIM tile set (tile lookup without a lock); and a texture map read per strand at a
// million roots in face order, as a mappable param does.

#include <benchmark/benchmark.h>

#include <tbb/task_arena.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <vector>

#include <unistd.h>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "maps/map_sampler.h"
#include "maps/scalar_field.h"
#include "maps/texture_cache.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#include <stb_image_write.h>

namespace tressora {
namespace {

constexpr int kSize = 4096;
constexpr std::size_t kSamples = std::size_t{1} << 22;

const Texture& texture4k() {
    static const Texture texture = [] {
        std::vector<float> pixels(static_cast<std::size_t>(kSize) * kSize * 4);
        for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = unit(i);
        return Texture(kSize, kSize, 4, std::move(pixels));
    }();
    return texture;
}

/// Random UVs over `tilesU` x `tilesV` unit squares.
const std::vector<std::array<float, 2>>& uvs(int tilesU, int tilesV) {
    static std::vector<std::array<float, 2>> cache[4];
    auto& list = cache[tilesU * tilesV - 1];
    if (list.empty()) {
        list.resize(kSamples);
        DrawStream draw(static_cast<std::uint64_t>(tilesU * 10 + tilesV));
        for (auto& uv : list) uv = {draw.nextUnit() * static_cast<float>(tilesU), draw.nextUnit() * static_cast<float>(tilesV)};
    }
    return list;
}

template <class Sample>
void sampleLoop(benchmark::State& state, const std::vector<std::array<float, 2>>& list, Sample&& sample) {
    std::vector<float> out(list.size());
    tbb::task_arena arena(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        arena.execute([&] {
            parallelRange(0, list.size(), 16384, [&](std::size_t lo, std::size_t hi) {
                for (std::size_t i = lo; i < hi; ++i) out[i] = sample(list[i][0], list[i][1]);
            });
        });
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(list.size()));
}

void SampleLuminance4k(benchmark::State& state) {
    const Texture& t = texture4k();
    sampleLoop(state, uvs(1, 1), [&](float u, float v) { return t.sampleLuminance(u, v); });
}
BENCHMARK(SampleLuminance4k)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

/// UVs that sweep the image row by row with a little jitter: roots met in surface order, as
/// scattered strands usually are, rather than at random.
const std::vector<std::array<float, 2>>& sweepUvs() {
    static const std::vector<std::array<float, 2>> list = [] {
        std::vector<std::array<float, 2>> out(kSamples);
        DrawStream draw(3);
        for (std::size_t i = 0; i < kSamples; ++i) {
            const float x = static_cast<float>(i % 2048) * 2.0f + draw.nextUnit();
            const float y = static_cast<float>((i / 2048) % 2048) * 2.0f + draw.nextUnit();
            out[i] = {x / kSize, y / kSize};
        }
        return out;
    }();
    return list;
}

void SampleLuminance4kSweep(benchmark::State& state) {
    const Texture& t = texture4k();
    sampleLoop(state, sweepUvs(), [&](float u, float v) { return t.sampleLuminance(u, v); });
}
BENCHMARK(SampleLuminance4kSweep)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void SampleRed4k(benchmark::State& state) {
    const Texture& t = texture4k();
    sampleLoop(state, uvs(1, 1), [&](float u, float v) { return t.sample(u, v)[0]; });
}
BENCHMARK(SampleRed4k)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Four 2048 x 2048 RGB tiles (1001, 1002, 1011, 1012) written once to a temporary folder.
std::shared_ptr<const Texture> tileSet() {
    static const std::shared_ptr<const Texture> texture = [] {
        const auto folder = std::filesystem::temp_directory_path() / ("tressora-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        std::vector<unsigned char> pixels(2048u * 2048u * 3u);
        for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(hash64(i));
        for (int tile : {1001, 1002, 1011, 1012}) {
            const std::string path = (folder / ("tile." + std::to_string(tile) + ".png")).string();
            stbi_write_png(path.c_str(), 2048, 2048, 3, pixels.data(), 2048 * 3);
        }
        auto t = acquireTexture((folder / "tile.<UDIM>.png").string());
        for (float u : {0.5f, 1.5f})
            for (float v : {0.5f, 1.5f}) t->sample(u, v);  // load every tile before timing
        std::filesystem::remove_all(folder);
        return t;
    }();
    return texture;
}

void SampleUdimTiles(benchmark::State& state) {
    const auto t = tileSet();
    sampleLoop(state, uvs(2, 2), [&](float u, float v) { return t->sampleLuminance(u, v); });
}
BENCHMARK(SampleUdimTiles)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

/// A 1000 x 1000 quad grid with UVs, and a million strands rooted on it.
struct RootedStrands {
    std::shared_ptr<const ScalpMesh> scalp;
    StrandSet strands;
};

const RootedStrands& rooted() {
    static const RootedStrands r = [] {
        constexpr int n = 1000;
        std::vector<Vec3f> points;
        std::vector<ScalpMesh::Triangle> triangles;
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i) points.push_back({float(i) / n, float(j) / n, 0});
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                const int a = j * (n + 1) + i;
                triangles.push_back({a, a + 1, a + n + 2});
                triangles.push_back({a, a + n + 2, a + n + 1});
            }
        auto mesh = std::make_shared<ScalpMesh>(points, triangles);
        std::vector<ScalpMesh::Uv> corners;
        for (const auto& t : mesh->triangles())
            for (int k = 0; k < 3; ++k) corners.push_back({points[std::size_t(t[k])].x, points[std::size_t(t[k])].y});
        mesh->setUvs(std::move(corners));
        RootedStrands out;
        DrawStream draw(7);
        const std::vector<Vec3f> strand = {{0, 0, 0}, {0, 0, 1}};
        out.strands.reserve(1000000, 2000000);
        // Roots in face order, as scattered strands come.
        for (std::uint64_t s = 0; s < 1000000; ++s) {
            const float b1 = draw.nextUnit() * 0.5f, b2 = draw.nextUnit() * 0.5f;
            out.strands.addStrand(s + 1, {static_cast<std::int32_t>(2 * s), b1, b2}, strand);
        }
        out.scalp = std::move(mesh);
        return out;
    }();
    return r;
}

void TextureMapPerStrand(benchmark::State& state) {
    const RootedStrands& r = rooted();
    const auto texture = std::shared_ptr<const Texture>(&texture4k(), [](const Texture*) {});
    const FieldMap field(textureSampler(texture), r.scalp, MapComponent::Auto, 0.0f, 1.0f);
    std::vector<float> out(r.strands.strandCount());
    tbb::task_arena arena(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        arena.execute([&] {
            parallelRange(0, out.size(), 256, [&](std::size_t lo, std::size_t hi) {
                for (std::size_t i = lo; i < hi; ++i) out[i] = field.strandValue(r.strands, i);
            });
        });
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * out.size()));
}
BENCHMARK(TextureMapPerStrand)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
