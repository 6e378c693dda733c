#include "groom/groom_stats.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace tressora {

namespace {

// Milliseconds to a thousandth, so the line stays short.
double ms(double value) { return std::round(value * 1000.0) / 1000.0; }

}  // namespace

nlohmann::json statsToJson(const GroomStats& s) {
    using nlohmann::json;
    json simulations = json::object();
    for (const auto& [name, sim] : s.simulations)
        simulations[name] = {{"frames", sim.frames},         {"live", sim.live},
                             {"baked", sim.baked},           {"bakeStale", sim.bakeStale},
                             {"bakedFirst", sim.bakedFirst}, {"bakedLast", sim.bakedLast},
                             {"bakedFile", sim.bakedFile},   {"stepMs", ms(sim.stepMs)}};
    return {
        {"view", s.view},
        {"strands", s.strands},
        {"points", s.points},
        {"guides", s.guides},
        {"cards",
         {{"cardStrands", s.cards.cardStrands},
          {"cardTriangles", s.cards.cardTriangles},
          {"cardTextures", s.cards.cardTextures},
          {"cardFeathers", s.cards.cardFeathers},
          {"cardsBaked", s.cards.cardsBaked},
          {"cardsStale", s.cards.cardsStale}}},
        {"triangles", s.triangles},
        {"textures", s.textures},
        {"feathers", s.feathers},
        {"stale", s.stale},
        {"cardNodes", s.cardNodes},
        {"hairColor", s.hairColor},
        {"renderData", s.renderData},
        {"colorNodes", s.colorNodes},
        {"colorBlends", s.colorBlends},
        {"times", {{"evaluate", ms(s.times.evaluate)}, {"graph", ms(s.times.graph)}, {"follow", ms(s.times.follow)}}},
        {"runs", s.runs},
        {"channels", s.channels},
        {"notes", s.notes},
        {"frames", s.frames},
        {"reads", s.reads},
        {"scalpHistory", s.scalpHistory},
        {"instances", s.instances},
        {"restEvaluations", s.restEvaluations},
        {"distanceFieldsMade", s.distanceFieldsMade},
        {"cacheBytes", s.cacheBytes},
        {"cacheEvictions", s.cacheEvictions},
        {"strokeDocument", s.strokeDocument},
        {"simulations", std::move(simulations)},
    };
}

std::string statsJson(const GroomStats& stats) {
    return statsToJson(stats).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace tressora
