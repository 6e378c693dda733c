#include "operators/growth/interpolate_regions.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "maps/map_fields.h"
#include "maps/painted_map.h"
#include "maps/texture_cache.h"

namespace tressora {
namespace {

/// Colours closer than this (RGB distance) are one region.
constexpr float kSameColour = 0.05f;

float colourDistance(const Rgba& a, const Rgba& b) {
    const float r = a[0] - b[0], g = a[1] - b[1], bl = a[2] - b[2];
    return std::sqrt(r * r + g * g + bl * bl);
}

/// Distance from c to the segment between a and b, and where along it (0 at a, 1 at b).
float segmentDistance(const Rgba& c, const Rgba& a, const Rgba& b, float& along) {
    float ab2 = 0.0f, dotp = 0.0f;
    for (int i = 0; i < 3; ++i) {
        ab2 += (b[i] - a[i]) * (b[i] - a[i]);
        dotp += (c[i] - a[i]) * (b[i] - a[i]);
    }
    along = ab2 > 0.0f ? std::clamp(dotp / ab2, 0.0f, 1.0f) : 0.0f;
    Rgba onSegment{};
    for (int i = 0; i < 3; ++i) onSegment[i] = a[i] + (b[i] - a[i]) * along;
    return colourDistance(c, onSegment);
}

bool onScalp(const ScalpMesh* scalp, std::int32_t face) {
    return scalp && face >= 0 && static_cast<std::size_t>(face) < scalp->triangleCount();
}

}  // namespace

std::optional<RegionMap> RegionMap::resolve(const std::string& name, const EvalContext& context,
                                            std::shared_ptr<const ScalpMesh> scalp, std::string* problem) {
    const auto fail = [&](const std::string& text) -> std::optional<RegionMap> {
        if (problem) *problem = text;
        return std::nullopt;
    };
    const MapFields* fields = dynamic_cast<const MapFields*>(context.maps);
    const auto resolvePath = [&](const std::string& path) { return fields ? fields->resolvePath(path) : path; };
    std::shared_ptr<const MapCatalogValue> catalog;
    if (const SceneItem* item = context.sceneItem(kMapsItem)) catalog = item->value.as<MapCatalogValue>();
    try {
        if (const PaintedMap* painted = catalog ? catalog->find(name) : nullptr) {
            if (painted->kind == PaintedMapKind::Vertices) {
                if (!scalp || painted->vertexCount != scalp->pointCount())
                    return fail("regionMap '" + name + "': the vertex map does not fit this scalp (paint it again)");
                return RegionMap(vertexMapSampler(scalp, *painted), scalp);
            }
            if (painted->kind == PaintedMapKind::Texture) {
                if (painted->file.empty()) return fail("regionMap '" + name + "': the texture map has no image file yet");
                if (!scalp || !scalp->hasUvs())
                    return fail("regionMap '" + name + "': an image needs a scalp with UVs (connect the scalp input)");
                return RegionMap(textureSampler(acquireTexture(resolvePath(painted->file))), scalp);
            }
            return fail("regionMap '" + name + "': a map painted on the guides has no regions on the scalp; paint "
                        "the regions on the scalp");
        }
        if (auto sampler = colorSetSampler(scalp, name)) return RegionMap(std::move(sampler), scalp);
        const std::string path = resolvePath(name);
        std::error_code error;
        if (std::filesystem::is_regular_file(path, error)) {
            if (!scalp || !scalp->hasUvs())
                return fail("regionMap '" + name + "': an image needs a scalp with UVs (connect the scalp input)");
            return RegionMap(textureSampler(acquireTexture(path)), scalp);
        }
    } catch (const std::exception& e) {
        return fail("regionMap '" + name + "': " + e.what());
    }
    return fail("regionMap '" + name +
                "': no map, color set or image of that name (Groom Tools > Paint > New... makes a map); the "
                "strands blend across regions");
}

std::vector<std::int32_t> RegionMap::bindGuides(const GuideSet& guides) {
    colours_.clear();
    std::vector<std::int32_t> regions(guides.guideCount(), -1);
    for (std::size_t g = 0; g < guides.guideCount(); ++g) {
        const StrandRoot root = guides.roots()[g];
        RootSample at;
        if (onScalp(scalp_.get(), root.face)) {
            at.face = root.face;
            at.b1 = root.u;
            at.b2 = root.v;
            at.uv = scalp_->uvAt(root.face, root.u, root.v);
            at.position = scalp_->positionAt(root.face, root.u, root.v);
        } else {
            const auto pts = guides.guidePoints(g);
            if (!pts.empty()) at.position = pts[0];
        }
        const Rgba colour = sampler_->sample(at);
        std::int32_t found = -1;
        for (std::size_t r = 0; r < colours_.size() && found < 0; ++r)
            if (colourDistance(colour, colours_[r]) < kSameColour) found = static_cast<std::int32_t>(r);
        if (found < 0) {
            found = static_cast<std::int32_t>(colours_.size());
            colours_.push_back(colour);
        }
        regions[g] = found;
    }
    return regions;
}

std::int32_t RegionMap::regionOf(const Rgba& colour) const {
    std::int32_t best = -1;
    float bestDistance = kSameColour;
    for (std::size_t r = 0; r < colours_.size(); ++r) {
        const float d = colourDistance(colour, colours_[r]);
        if (d < bestDistance) {
            bestDistance = d;
            best = static_cast<std::int32_t>(r);
        }
    }
    if (best >= 0) return best;
    // Soft paint between two region colours joins the nearer of them.
    float bestSegment = kSameColour;
    for (std::size_t a = 0; a < colours_.size(); ++a) {
        for (std::size_t b = a + 1; b < colours_.size(); ++b) {
            float along = 0.0f;
            const float d = segmentDistance(colour, colours_[a], colours_[b], along);
            if (d < bestSegment) {
                bestSegment = d;
                best = static_cast<std::int32_t>(along <= 0.5f ? a : b);
            }
        }
    }
    return best;
}

std::int32_t RegionMap::strandRegion(const StrandSet& strands, std::size_t strand) const {
    return regionOf(sampler_->sample(rootSample(scalp_.get(), strands, strand, sampler_->readsPosition())));
}

}  // namespace tressora
