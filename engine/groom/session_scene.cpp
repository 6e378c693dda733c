// The session's scene items: publishing scalps, guides and meshes in the catalogue with
// stamps, taking new scalp points and cache frames, and swapping the graph or guide texts.

#include <cstring>

#include <nlohmann/json.hpp>

#include "core/document_version.h"
#include "core/errors.h"
#include "core/guide_set.h"
#include "groom/groom_session.h"
#include "groom/mesh_json.h"

namespace tressora {

namespace {

bool sameBits(std::span<const Vec3f> a, std::span<const Vec3f> b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size_bytes()) == 0);
}

bool blank(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string_view::npos;
}

// The flat guides as a guide set, each rooted where its root position meets the scalp.
std::shared_ptr<const GuideSet> flatGuideSet(const std::vector<FlatGuide>& guides, const ScalpMesh* scalp) {
    auto set = std::make_shared<GuideSet>();
    for (const FlatGuide& g : guides) {
        StrandRoot root;
        if (scalp && scalp->triangleCount() != 0) {
            const SurfacePoint hit = scalp->closestPoint(g.root);
            root = {hit.face, hit.b1, hit.b2};
        }
        GuideTube tube;
        if (g.frameUp) tube.frameUp = *g.frameUp;
        set->addGuide(g.id, root, g.points, std::move(tube));
    }
    return set;
}

}  // namespace

void GroomSession::publishScalp(std::shared_ptr<const ScalpMesh> scalp, const std::vector<Vec3f>* restPoints) {
    const bool newTopology = !scalp_ || scalp_->topologyHash() != scalp->topologyHash() ||
                             scalp_->pointCount() != scalp->pointCount();
    scalp_ = std::move(scalp);
    scalpStamp_ = nextItemStamp();
    if (restPoints) {
        rest_ = std::make_shared<const ScalpMesh>(scalp_->withPoints(*restPoints));
        restStamp_ = nextItemStamp();
    } else if (newTopology) {
        // Without rest points, the pose the scalp was first seen in is its rest pose.
        rest_ = scalp_;
        restStamp_ = scalpStamp_;
    }
    catalog_.set("scalp", scene_->followScalp ? rest_ : scalp_, scene_->followScalp ? restStamp_ : scalpStamp_);
}

void GroomSession::publishMeshes() {
    for (const auto& [name, object] : scene_->scalps)
        if (object.mesh) catalog_.set("scalp:" + name, object.mesh, nextItemStamp());
    for (const auto& [name, object] : scene_->colliders)
        if (object.mesh) catalog_.set("collider:" + name, object.mesh, nextItemStamp());
}

void GroomSession::updateActiveHierarchy() {
    if (scene_->hierarchy.get() != publishedHierarchy_) {
        publishedHierarchy_ = scene_->hierarchy.get();
        if (scene_->hierarchy) catalog_.set("hierarchy", scene_->hierarchy, nextItemStamp());
        else catalog_.erase("hierarchy");
    }
    if (guidesVersion_ != publishedGuidesVersion_) {
        publishedGuidesVersion_ = guidesVersion_;
        if (scene_->guides.empty()) catalog_.erase("guides");
        else catalog_.set("guides", flatGuideSet(scene_->guides, (scene_->followScalp ? rest_ : scalp_).get()),
                          nextItemStamp());
    }
}

void GroomSession::updateScalpPoints(std::vector<Vec3f> points, const std::vector<Vec3f>* restPoints) {
    if (!scalp_) throw GroomFileError("updateScalpPoints: the session has no scalp");
    const std::size_t count = scalp_->pointCount();
    if (points.size() != count)
        throw GroomFileError("updateScalpPoints: " + std::to_string(points.size()) + " points for a scalp of " +
                             std::to_string(count));
    if (restPoints && restPoints->size() != count)
        throw GroomFileError("updateScalpPoints: " + std::to_string(restPoints->size()) + " points for a scalp of " +
                             std::to_string(count));
    const bool samePoints = sameBits(points, scalp_->points());
    const bool sameRest = !restPoints || sameBits(*restPoints, scalp_->restPoints());
    // The same points keep the same scalp and stamp, so no cached value is invalidated.
    if (samePoints && sameRest) return;
    auto mesh = std::make_shared<ScalpMesh>(samePoints ? *scalp_ : scalp_->withPoints(std::move(points)));
    if (!sameRest) mesh->setRestPoints(*restPoints);
    publishScalp(std::move(mesh), sameRest ? nullptr : restPoints);
}

void GroomSession::setFrame(double frame) {
    if (scene_->scalpFrames) {
        if (std::optional<std::vector<Vec3f>> points = scene_->scalpFrames(frame)) {
            ++reads_;
            if (scalp_) {
                updateScalpPoints(std::move(*points));
            } else if (!scene_->topology.is_null()) {
                // A scalp known only by its topology takes its points from the cache.
                MeshObject object = readMeshObject(scene_->topology, "topology", &*points);
                const std::vector<Vec3f> rest(object.mesh->restPoints().begin(), object.mesh->restPoints().end());
                publishScalp(object.mesh, object.mesh->hasRest() ? &rest : nullptr);
            }
        }
    }
    if (scene_->guideFrames && !scene_->guides.empty()) {
        if (std::optional<std::vector<std::vector<Vec3f>>> curves = scene_->guideFrames(frame)) {
            ++reads_;
            std::vector<FlatGuide>& guides = scene_->guides;
            if (curves->size() != guides.size())
                throw GroomFileError("setFrame: the guide cache has " + std::to_string(curves->size()) +
                                     " curves for " + std::to_string(guides.size()) + " guides");
            bool changed = false;
            for (std::size_t i = 0; i < guides.size(); ++i) {
                std::vector<Vec3f>& curve = (*curves)[i];
                if (sameBits(curve, guides[i].points)) continue;
                if (!curve.empty()) guides[i].root = curve.front();
                guides[i].points = std::move(curve);
                changed = true;
            }
            if (changed) ++guidesVersion_;
        }
    }
}

std::string GroomSession::graphJson() const {
    if (!graph_) return {};
    return graphToJson(*graph_).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void GroomSession::setGraphJson(std::string_view text) {
    nlohmann::json document;
    std::unique_ptr<Graph> next;
    if (!blank(text)) {
        document = parseDocument(text, "graph");
        next = graphFromJson(document, *registry_, resolver_);
    }
    // Nodes that stay keep their caches and last results, so a small edit re-evaluates only
    // what it touched.
    if (next && graph_) takeOverNodes(*next, *graph_);
    graph_ = std::move(next);
    scene_->graph = std::move(document);
}

std::string GroomSession::guidesJson() const { return scene_->hierarchy ? scene_->hierarchy->toJson() : std::string(); }

void GroomSession::setGuidesJson(std::string_view text) {
    scene_->hierarchy = blank(text) ? nullptr : std::make_shared<const GuideHierarchy>(GuideHierarchy::fromJson(text));
}

GroomScene GroomSession::document() const {
    GroomScene scene = *scene_;
    scene.graph = graph_ ? graphToJson(*graph_) : nlohmann::json();
    return scene;
}

}  // namespace tressora
