#pragma once
// GroomStats: the figures of a session's last evaluation and of its life so far, as one
// plain record and as one line of JSON.

#include <cstdint>
#include <map>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace tressora {

/// Cards of the result and the state of their baked textures.
struct CardStats {
    std::uint64_t cardStrands = 0;
    std::uint64_t cardTriangles = 0;
    std::uint64_t cardTextures = 0;
    std::uint64_t cardFeathers = 0;
    bool cardsBaked = false;  ///< the groom holds a card bake
    bool cardsStale = false;  ///< the bake was made for another strand count
};

/// One Simulate node: frames simulated, live or baked, and its bake.
struct SimulationStats {
    std::uint64_t frames = 0;
    bool live = false;
    bool baked = false;
    bool bakeStale = false;
    double bakedFirst = 0.0;
    double bakedLast = 0.0;
    std::string bakedFile;
    double stepMs = 0.0;
};

/// Milliseconds of the last evaluation: all of it, the graph's part, the follow carry's.
struct EvaluationTimes {
    double evaluate = 0.0;
    double graph = 0.0;
    double follow = 0.0;
};

struct GroomStats {
    std::string view;             ///< the request's tag, else "viewport" or "render"
    std::uint64_t strands = 0;    ///< in the last result
    std::uint64_t points = 0;
    std::uint64_t guides = 0;     ///< guides the groom holds (hierarchy, else flat guides)
    CardStats cards;
    std::uint64_t triangles = 0;  ///< triangles of the result's meshes (instances)
    std::uint64_t textures = 0;   ///< painted texture maps of the groom
    std::uint64_t feathers = 0;
    bool stale = false;           ///< the last evaluation failed: what is shown comes from before
    std::uint64_t cardNodes = 0;  ///< active Cards nodes upstream of the output
    bool hairColor = false;       ///< an active HairColor node
    bool renderData = false;      ///< an active RenderData node
    std::uint64_t colorNodes = 0; ///< active HairColor, Bands and FeatherColor nodes
    std::uint64_t colorBlends = 0;///< active Blend nodes
    EvaluationTimes times;
    std::uint64_t runs = 0;       ///< evaluations of the session
    std::uint64_t channels = 0;   ///< strand and point channels of the result
    std::uint64_t notes = 0;      ///< nodes with a note in the last evaluation
    std::uint64_t frames = 0;     ///< distinct frames evaluated
    std::uint64_t reads = 0;      ///< frames read from the scalp and guide caches
    std::uint64_t scalpHistory = 0;  ///< scalp poses handed to the last evaluation
    std::uint64_t instances = 0;
    std::uint64_t restEvaluations = 0;  ///< evaluations at the rest pose (follow scalp)
    std::uint64_t distanceFieldsMade = 0;
    std::uint64_t cacheBytes = 0;       ///< what the graph's cached values hold
    std::uint64_t cacheEvictions = 0;
    std::uint64_t strokeDocument = 0;   ///< bytes of the sculpt strokes the groom holds
    std::map<std::string, SimulationStats> simulations;  ///< by Simulate node name
};

/// The stats as a JSON object (keys in ascending order).
nlohmann::json statsToJson(const GroomStats& stats);

/// The stats as one line of compact JSON.
std::string statsJson(const GroomStats& stats);

}  // namespace tressora
