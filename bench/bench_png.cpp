// The PNG encoder against stb_image_write's (from libstb-dev) on the same 4096 x 4096 RGBA
// image in one run: time per image and the file's size, as counters. The image mixes smooth
// gradients, flat areas and hair-like streaks with noise, as a preview or a baked map has.

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "core/hash.h"
#include "core/parallel.h"
#include "io/png_writer.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#endif
#include <stb_image_write.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace tressora {
namespace {

constexpr int kSide = 4096;

const std::vector<std::uint8_t>& image() {
    static const std::vector<std::uint8_t> pixels = [] {
        std::vector<std::uint8_t> p(static_cast<std::size_t>(kSide) * kSide * 4);
        parallelRange(0, kSide, 16, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t y = lo; y < hi; ++y)
                for (std::size_t x = 0; x < kSide; ++x) {
                    std::uint8_t* px = &p[(y * kSide + x) * 4];
                    const bool background = (x / 512 + y / 512) % 3 == 0;
                    const float streak = std::sin(0.05f * float(x) + 0.002f * float(y) * float(y % 97));
                    const std::uint8_t noise = static_cast<std::uint8_t>(hash64(y * kSide + x) & 7u);
                    px[0] = background ? 9 : static_cast<std::uint8_t>(90 + 60 * streak + noise);
                    px[1] = background ? 9 : static_cast<std::uint8_t>(60 + 40 * streak + noise);
                    px[2] = background ? 11 : static_cast<std::uint8_t>(40 + 20 * streak);
                    px[3] = 255;
                }
        });
        return p;
    }();
    return pixels;
}

void BM_OurEncoder(benchmark::State& state) {
    std::size_t bytes = 0;
    for (auto _ : state) bytes = encodePng(kSide, kSide, 4, image()).size();
    state.counters["fileMB"] = static_cast<double>(bytes) / 1e6;
}

void BM_StbImageWrite(benchmark::State& state) {
    int bytes = 0;
    for (auto _ : state) {
        unsigned char* file = stbi_write_png_to_mem(image().data(), kSide * 4, kSide, kSide, 4, &bytes);
        STBIW_FREE(file);
    }
    state.counters["fileMB"] = static_cast<double>(bytes) / 1e6;
}

BENCHMARK(BM_OurEncoder)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StbImageWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    tressora::runWithThreads([] {
        tressora::image();
        benchmark::RunSpecifiedBenchmarks();
    });
    benchmark::Shutdown();
    return 0;
}
