// Scatter on a head: about 150k and 1M roots, at random (randomness 1) and evenly spread
// (randomness 0), each from a cold node; and a new frame of a rigidly moving scalp, which
// finds its roots in the node's cache and only grows the strands again.
//
//   build/bench/bench_scatter                      (all cores)
//   TRESSORA_THREADS=1 build/bench/bench_scatter   (one thread)
// The head is meshes/nika.obj of the source tree (found beside this file, in the working
// folder or under TRESSORA_SOURCE_DIR), else a sphere of a head's size.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "../tests/core/test_meshes.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"
#include "operators/growth/scatter.h"

namespace tressora {
namespace {

/// The points and triangles of an OBJ file (polygons as fans); empty when it can't be read.
ScalpMesh readObj(const std::string& path) {
    std::ifstream file(path);
    std::vector<Vec3f> points;
    std::vector<ScalpMesh::Triangle> triangles;
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream in(line);
        std::string tag;
        in >> tag;
        if (tag == "v") {
            Vec3f p;
            in >> p.x >> p.y >> p.z;
            points.push_back(p);
        } else if (tag == "f") {
            std::vector<int> corners;
            for (std::string corner; in >> corner;) corners.push_back(std::stoi(corner.substr(0, corner.find('/'))) - 1);
            for (std::size_t k = 2; k < corners.size(); ++k) triangles.push_back({corners[0], corners[k - 1], corners[k]});
        }
    }
    return ScalpMesh(std::move(points), std::move(triangles));
}

const std::shared_ptr<const ScalpMesh>& headMesh() {
    static const std::shared_ptr<const ScalpMesh> mesh = [] {
        const std::string here = __FILE__;
        std::vector<std::string> places = {here.substr(0, here.find_last_of('/') + 1) + "../meshes/nika.obj",
                                           "meshes/nika.obj"};
        if (const char* source = std::getenv("TRESSORA_SOURCE_DIR")) places.push_back(std::string(source) + "/meshes/nika.obj");
        ScalpMesh head;
        for (const std::string& place : places)
            if (head.triangleCount() == 0) head = readObj(place);
        if (head.triangleCount() == 0) head = testing::icosphere(6, 10.0f);
        head.setRestPoints({head.points().begin(), head.points().end()});
        return std::make_shared<const ScalpMesh>(std::move(head));
    }();
    return mesh;
}

std::unique_ptr<Operator> makeScatter(double roots, double randomness) {
    static OperatorRegistry registry;
    static const bool registered = (registerScatterOperator(registry), true);
    (void)registered;
    auto op = registry.create("Scatter");
    op->paramValues.set("density", roots / headMesh()->area());
    op->paramValues.set("randomness", randomness);
    return op;
}

std::shared_ptr<const StrandSet> evaluate(Operator& op, std::shared_ptr<const ScalpMesh> scalp) {
    EvalContext context;
    std::shared_ptr<const StrandSet> out;
    runWithThreads([&] { out = op.evaluate(context, {Value(std::move(scalp)), Value()}).as<StrandSet>(); });
    return out;
}

void BM_ScatterCold(benchmark::State& state) {
    const double roots = static_cast<double>(state.range(0));
    const double randomness = static_cast<double>(state.range(1));
    std::size_t made = 0;
    for (auto _ : state) {
        auto op = makeScatter(roots, randomness);
        made = evaluate(*op, headMesh())->strandCount();
    }
    state.counters["roots"] = static_cast<double>(made);
    state.counters["roots/s"] =
        benchmark::Counter(static_cast<double>(made) * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ScatterCold)->Args({150000, 1})->Args({1000000, 1})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ScatterCold)->Args({150000, 0})->Args({1000000, 0})->Iterations(2)->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// A new frame of a scalp that moved rigidly: the roots come from the cache.
void BM_ScatterNewFrame(benchmark::State& state) {
    const double roots = static_cast<double>(state.range(0));
    auto op = makeScatter(roots, static_cast<double>(state.range(1)));
    evaluate(*op, headMesh());
    std::vector<std::shared_ptr<const ScalpMesh>> frames;
    for (int f = 1; f <= 4; ++f) {
        std::vector<Vec3f> moved(headMesh()->points().begin(), headMesh()->points().end());
        for (Vec3f& p : moved) p = Vec3f{p.x + 0.5f * f, p.y - 0.25f * f, p.z};
        frames.push_back(std::make_shared<const ScalpMesh>(headMesh()->withPoints(std::move(moved))));
    }
    std::size_t made = 0, frame = 0;
    for (auto _ : state) made = evaluate(*op, frames[frame++ % frames.size()])->strandCount();
    state.counters["roots/s"] =
        benchmark::Counter(static_cast<double>(made) * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ScatterNewFrame)->Args({1000000, 1})->Args({1000000, 0})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
