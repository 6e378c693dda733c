#include "groom/scene_caches.h"

#include <cmath>
#include <memory>
#include <optional>

#include "core/errors.h"
#include "io/alembic_curves_reader.h"

namespace tressora {
namespace {

/// The index of the sample nearest `frame` within half a frame, if any.
template <class Sample>
std::optional<std::size_t> sampleAt(const std::vector<Sample>& samples, double fps, double frame) {
    std::optional<std::size_t> best;
    double bestDistance = 0.5 + 1e-9;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double distance = std::abs(samples[i].time * fps - frame);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = i;
        }
    }
    return best;
}

void attachScalpCache(GroomScene& scene) {
    if (!scene.scalp && scene.topology.is_null()) throw GroomFileError("the groom file has a scalp cache but no scalp");
    const std::string path = groomPath(scene, scene.scalpCache.file);
    auto mesh = std::make_shared<const ReadMesh>(readAlembicMesh(path, scene.scalpCache.object));
    if (scene.scalp) {
        const std::size_t expected = scene.scalp.mesh->pointCount();
        for (const ReadMeshSample& sample : mesh->samples)
            if (sample.points.size() != expected)
                throw GroomFileError("scalp cache '" + path + "' has " + std::to_string(sample.points.size()) +
                                     " points; the groom's scalp has " + std::to_string(expected));
    }
    const double fps = scene.framesPerSecond;
    scene.scalpFrames = [mesh, fps](double frame) -> std::optional<std::vector<Vec3f>> {
        const std::optional<std::size_t> i = sampleAt(mesh->samples, fps, frame);
        if (!i) return std::nullopt;
        return mesh->samples[*i].points;
    };
}

void attachGuideCache(GroomScene& scene) {
    const std::string path = groomPath(scene, scene.guideCache.file);
    auto curves = std::make_shared<const ReadCurves>(readAlembicCurves(path, scene.guideCache.object));
    const double fps = scene.framesPerSecond;
    scene.guideFrames = [curves, fps](double frame) -> std::optional<std::vector<std::vector<Vec3f>>> {
        const std::optional<std::size_t> i = sampleAt(curves->samples, fps, frame);
        if (!i) return std::nullopt;
        const StrandSet& set = curves->samples[*i].strands;
        std::vector<std::vector<Vec3f>> out(set.strandCount());
        for (std::size_t s = 0; s < out.size(); ++s) out[s].assign(set.strandPoints(s).begin(), set.strandPoints(s).end());
        return out;
    };
}

}  // namespace

void attachSceneCaches(GroomScene& scene) {
    if (!scene.scalpCache.empty()) attachScalpCache(scene);
    if (!scene.guideCache.empty()) attachGuideCache(scene);
}

}  // namespace tressora
