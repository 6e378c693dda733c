// The session's reports: stats over the last evaluation and the session's life, and the
// questions about the graph that hosts and writers ask (motion, card and mesh nodes).

#include <unordered_map>

#include <nlohmann/json.hpp>

#include "core/distance_field.h"
#include "groom/graph_time.h"
#include "groom/groom_session.h"
#include "groom/instance_count.h"

namespace tressora {

namespace {

// What the graph's nodes hold in their last results, each shared array once.
std::uint64_t cachedBytes(const Graph& graph) {
    std::unordered_map<const void*, std::size_t> buffers;
    for (const auto& [id, node] : graph.nodes()) {
        if (!node.state.valid) continue;
        for (const Value& value : node.state.outputs)
            if (const auto strands = value.as<StrandSet>())
                strands->forEachBlock([&buffers](const void* data, std::size_t bytes) { buffers[data] = bytes; });
    }
    std::uint64_t total = 0;
    for (const auto& [data, bytes] : buffers) total += bytes;
    return total;
}

void countCardBake(const nlohmann::json& bake, GroomStats& s) {
    if (!bake.is_object()) return;
    const auto prefix = bake.find("prefix");
    s.cards.cardsBaked = prefix != bake.end() && prefix->is_string() && !prefix->get_ref<const std::string&>().empty();
    const auto strands = bake.find("strands");
    s.cards.cardsStale = s.cards.cardsBaked && strands != bake.end() && strands->is_number() &&
                         strands->get<double>() != static_cast<double>(s.strands);
}

}  // namespace

GroomStats GroomSession::stats() {
    GroomStats s;
    s.view = view_;
    if (lastStrands_) {
        s.strands = lastStrands_->strandCount();
        s.points = lastStrands_->pointCount();
        s.channels = lastStrands_->strandChannels().size() + lastStrands_->pointChannels().size();
        s.instances = instanceCount(*lastStrands_);
    }
    s.guides = scene_->hierarchy ? scene_->hierarchy->guides().size() : scene_->guides.size();
    countCardBake(scene_->cardBake, s);
    if (scene_->maps.is_object())
        for (const auto& [name, entry] : scene_->maps.items())
            if (entry.is_object() && entry.value("kind", std::string()) == "texture") ++s.textures;
    s.stale = stale_;
    s.times = times_;
    s.runs = runs_;
    s.notes = notes_.size();
    s.frames = frames_.size();
    s.reads = reads_;
    s.scalpHistory = historyFrames_;
    s.restEvaluations = restEvaluations_;
    s.distanceFieldsMade = distanceFieldCacheStats().misses - distanceFieldsAtStart_;
    s.strokeDocument = scene_->sculpts.is_null() ? 0 : scene_->sculpts.dump().size();
    if (!graph_) return s;

    s.cacheBytes = cachedBytes(*graph_);
    s.cacheEvictions = graph_->evictionCount();
    forEachWorkingUpstream(*graph_, graph_->outputNode(), [&](const std::string& path, Operator& op) {
        const std::string type = op.type();
        if (type == "Cards") ++s.cardNodes;
        if (type == "HairColor") s.hairColor = true;
        if (type == "RenderData") s.renderData = true;
        if (type == "HairColor" || type == "Bands" || type == "FeatherColor") ++s.colorNodes;
        if (type == "Blend") ++s.colorBlends;
        if (type == "Simulate") {
            SimulationStats& sim = s.simulations[path];
            if (const auto bake = scene_->simCaches.find(path); bake != scene_->simCaches.end()) {
                sim.baked = true;
                sim.bakedFile = bake->second.file;
            }
            sim.live = !sim.baked;
        }
        return true;
    });
    return s;
}

bool GroomSession::hasMotion() {
    if (!scene_->scalpCache.empty() || !scene_->guideCache.empty() || scene_->scalpFrames || scene_->guideFrames)
        return true;
    return graph_ && graphReadsTime(*graph_, graph_->outputNode());
}

bool GroomSession::hasActiveNode(const std::string& type) {
    if (!graph_) return false;
    return !forEachWorkingUpstream(*graph_, graph_->outputNode(),
                                   [&type](const std::string&, Operator& op) { return op.type() != type; });
}

}  // namespace tressora
