#pragma once
// A small groom for the map tests: a flat scalp over [0, 1] x [0, 1] whose UVs are its x and
// y, with a colour set, strands rooted on it with channels, guides beside it, and the
// evaluation context that carries them as scene items.

#include <memory>
#include <vector>

#include "core/guide_set.h"
#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "core/test_meshes.h"
#include "graph/eval_context.h"
#include "maps/map_fields.h"
#include "maps/painted_map.h"

namespace tressora::testing {

/// A 2 x 2 grid (8 triangles, 9 points) with UVs equal to x and y, and the colour set "tint"
/// holding (x, y, 0.25, 1 - x) at every corner.
inline std::shared_ptr<const ScalpMesh> mapScalp(bool uvs = true) {
    auto scalp = std::make_shared<ScalpMesh>(grid(2));
    std::vector<ScalpMesh::Uv> corners;
    std::vector<ScalpMesh::Color> tint;
    for (const ScalpMesh::Triangle& t : scalp->triangles())
        for (int k = 0; k < 3; ++k) {
            const Vec3f p = scalp->points()[static_cast<std::size_t>(t[k])];
            corners.push_back({p.x, p.y});
            tint.push_back({p.x, p.y, 0.25f, 1.0f - p.x});
        }
    if (uvs) scalp->setUvs(corners);
    scalp->setColorSet("tint", tint);
    return scalp;
}

/// Six strands of four points, strand s rooted on face s at weights (0.2, 0.3) and rising
/// along z by 0.1 * (s + 1) per point; ids 100 + s; strand channel "group" = s, point
/// channel "curl" = the point's index along its strand.
inline StrandSet mapStrands(const ScalpMesh& scalp) {
    StrandSet set;
    for (int s = 0; s < 6; ++s) {
        const Vec3f root = scalp.positionAt(s, 0.2f, 0.3f);
        std::vector<Vec3f> points;
        for (int k = 0; k < 4; ++k) points.push_back(root + Vec3f{0, 0, 0.1f * static_cast<float>((s + 1) * k)});
        set.addStrand(100 + static_cast<std::uint64_t>(s), {s, 0.2f, 0.3f}, points);
    }
    std::span<float> group = set.addStrandChannel("group");
    for (std::size_t s = 0; s < group.size(); ++s) group[s] = static_cast<float>(s);
    std::span<float> curl = set.addPointChannel("curl");
    for (std::size_t p = 0; p < curl.size(); ++p) curl[p] = static_cast<float>(p % 4);
    return set;
}

/// Two guides standing at (0, 0) and (1, 1) with the per-guide layer "curly" (0 and 1) and
/// the per-point layer "frizz" (0 at the root to 1 at the tip of both).
inline std::shared_ptr<const GuideSet> mapGuides() {
    auto guides = std::make_shared<GuideSet>();
    for (int g = 0; g < 2; ++g) {
        const Vec3f root{static_cast<float>(g), static_cast<float>(g), 0};
        const std::vector<Vec3f> points = {root, root + Vec3f{0, 0, 1}, root + Vec3f{0, 0, 2}};
        guides->addGuide(1 + static_cast<std::uint64_t>(g), {}, points, {}, {{"curly", static_cast<float>(g)}},
                         {{"frizz", {0.0f, 0.5f, 1.0f}}});
    }
    return guides;
}

/// The scene items and the context of one evaluation; stays where it was made.
struct MapScene {
    explicit MapScene(std::shared_ptr<const ScalpMesh> mesh = mapScalp()) : scalp(std::move(mesh)), strands(mapStrands(*scalp)) {
        scene.set(kScalpItem, scalp, 1);
        context.scene = &scene;
        context.frame = 12.0;
        context.fps = 24.0;
    }
    MapScene(const MapScene&) = delete;

    void setCatalog(std::map<std::string, PaintedMap> maps) {
        scene.set(kMapsItem, std::make_shared<const MapCatalogValue>(std::move(maps)), 2);
    }
    void setGuides(std::shared_ptr<const GuideSet> guides) { scene.set(kGuidesItem, std::move(guides), 3); }

    std::shared_ptr<const ScalpMesh> scalp;
    StrandSet strands;
    SceneCatalog scene;
    EvalContext context;
};

inline MapRef mapRef(MapSource source, std::string text, MapComponent component = MapComponent::Auto,
                     double min = 0.0, double max = 1.0) {
    return MapRef{source, std::move(text), component, min, max};
}

}  // namespace tressora::testing
