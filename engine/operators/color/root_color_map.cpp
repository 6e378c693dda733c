#include "operators/color/root_color_map.h"

#include <filesystem>
#include <system_error>

#include "core/errors.h"
#include "core/hash.h"
#include "maps/map_fields.h"
#include "maps/painted_map.h"
#include "maps/texture_cache.h"

namespace tressora::look {
namespace {

std::string resolvedPath(const std::string& path, const EvalContext& context) {
    if (const auto* fields = dynamic_cast<const MapFields*>(context.maps)) return fields->resolvePath(path);
    return path;
}

bool isFile(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(std::filesystem::u8path(path), error);
}

}  // namespace

RootColorMap::RootColorMap(const std::string& name, const EvalContext& context)
    : sampler_(resolve(name, context)) {}

std::shared_ptr<const MapSampler> RootColorMap::resolve(const std::string& name, const EvalContext& context) {
    const SceneItem* scalpItem = context.sceneItem(kScalpItem);
    scalp_ = scalpItem ? scalpItem->value.as<ScalpMesh>() : nullptr;
    const SceneItem* mapsItem = context.sceneItem(kMapsItem);
    const auto catalog = mapsItem ? mapsItem->value.as<MapCatalogValue>() : nullptr;
    const bool uvs = scalp_ && scalp_->hasUvs();
    try {
        if (const PaintedMap* painted = catalog ? catalog->find(name) : nullptr) {
            switch (painted->kind) {
                case PaintedMapKind::Guides:
                    return fail(name, "a guide layer reaches the strands through Interpolate (put HairColor after "
                                      "it); for painted color, convert the layer");
                case PaintedMapKind::Texture:
                    if (painted->file.empty()) return fail(name, "the texture map has no image file yet");
                    if (!uvs) return fail(name, "an image needs a scalp with UVs");
                    return textureSampler(acquireTexture(resolvedPath(painted->file, context)));
                case PaintedMapKind::Vertices:
                    if (!scalp_ || painted->vertexCount != scalp_->pointCount())
                        return fail(name, "the vertex map does not fit this scalp (paint it again, or convert it)");
                    return vertexMapSampler(scalp_, *painted);
            }
        }
        if (auto set = colorSetSampler(scalp_, name)) return set;
        const std::string path = resolvedPath(name, context);
        if (isFile(path)) {
            if (!uvs) return fail(name, "an image needs a scalp with UVs");
            return textureSampler(acquireTexture(path));
        }
    } catch (const TextureError& e) {
        return fail(name, e.what());
    }
    return fail(name, "no map, color set or image of that name (Groom Tools > Paint > New... makes a map)");
}

std::shared_ptr<const MapSampler> RootColorMap::fail(const std::string& name, const std::string& text) {
    problem_ = "map '" + name + "': " + text;
    return nullptr;
}

Vec3f RootColorMap::at(const StrandSet& strands, std::size_t strand) const {
    const Rgba c = sampler_->sample(rootSample(scalp_.get(), strands, strand, sampler_->readsPosition()));
    return {c[0], c[1], c[2]};
}

std::uint64_t fileStamp(const std::string& path) {
    std::error_code error;
    const std::filesystem::path p = std::filesystem::u8path(path);
    const auto size = std::filesystem::file_size(p, error);
    if (error) return 0;
    const auto time = std::filesystem::last_write_time(p, error);
    if (error) return 0;
    return combine(combine(hash64(size), static_cast<std::uint64_t>(time.time_since_epoch().count())),
                   path.size());
}

}  // namespace tressora::look
