#include "groom/groom_scene.h"

#include <filesystem>
#include <system_error>

#include "groom/groom_files.h"

namespace tressora {

namespace fs = std::filesystem;

std::shared_ptr<const ScalpMesh> GroomScene::scalpHistoryAt(double frame) const {
    if (!scalp.mesh) return nullptr;
    if (!scalpFrames) return scalp.mesh;
    std::optional<std::vector<Vec3f>> points = scalpFrames(frame);
    if (!points || points->size() != scalp.mesh->pointCount()) return scalp.mesh;
    return std::make_shared<const ScalpMesh>(scalp.mesh->withPoints(std::move(*points)));
}

std::string groomPath(const GroomScene& scene, const std::string& relative) {
    const fs::path given = pathFromUtf8(relative);
    if (relative.empty() || given.is_absolute()) return relative;
    const fs::path folder = scene.filePath.empty() ? fs::path() : pathFromUtf8(scene.filePath).parent_path();

    std::vector<fs::path> candidates{folder / given};
    for (const std::string& entry : scene.searchPaths) {
        const fs::path base = pathFromUtf8(entry);
        candidates.push_back((base.is_absolute() ? base : folder / base) / given);
    }
    for (const fs::path& candidate : candidates) {
        std::error_code error;
        if (fs::exists(candidate, error)) return utf8Text(candidate.lexically_normal());
    }
    return utf8Text(candidates.front().lexically_normal());
}

}  // namespace tressora
