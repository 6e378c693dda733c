// The preview renderer at an agent's size: the example groom grown to about 150k strands,
// four views at 512 x 512, encoded to PNG. TRESSORA_THREADS limits the threads.

#include <benchmark/benchmark.h>

#include <cstdio>

#include "core/parallel.h"
#include "groom/groom_file.h"
#include "groom/groom_session.h"
#include "io/preview_renderer.h"

namespace tressora {
namespace {

struct Groom {
    std::unique_ptr<GroomSession> session;
    std::shared_ptr<const StrandSet> strands;
};

Groom& groom() {
    static Groom g = [] {
        GroomScene scene = readGroom(std::string(TRESSORA_SOURCE_DIR) + "/examples/nika.groom");
        for (auto& node : scene.graph["nodes"])
            if (node["type"] == "Scatter") node["params"]["density"] = 80.0 * 150000.0 / 33720.0;
        Groom out;
        out.session = std::make_unique<GroomSession>(std::move(scene));
        out.strands = out.session->evaluate(1.0);
        return out;
    }();
    return g;
}

void BM_Preview4Views512(benchmark::State& state) {
    PreviewRequest request;
    request.size = 1024;  // a 2 x 2 grid of 512-pixel views
    request.views = {"front", "side", "back", "three_quarter"};
    for (auto _ : state) {
        const PreviewImage image = renderPreview(groom().strands.get(), groom().session->scalp().get(), request);
        benchmark::DoNotOptimize(image.png.data());
    }
    state.counters["strands"] = static_cast<double>(groom().strands->strandCount());
}

BENCHMARK(BM_Preview4Views512)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    tressora::runWithThreads([] {
        tressora::groom();
        benchmark::RunSpecifiedBenchmarks();
    });
    benchmark::Shutdown();
    return 0;
}
