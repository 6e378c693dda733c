#pragma once
// A tube record: the cross-section shape a guide sweeps, with its width, aspect and twist,
// each one number or a list spaced evenly from root (t = 0) to tip (t = 1), and how the
// lists are sampled onto a guide.

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "core/tube_shape.h"

namespace tressora {

struct Tube {
    std::string shape = "round";
    std::vector<float> width{1.0f};   ///< half-width, scene units, 0 or more
    std::vector<float> aspect{1.0f};  ///< height over width, above 0
    std::vector<float> twist{0.0f};   ///< radians about the guide, absolute at each sample
    float scaleWidth = 1.0f;          ///< multiplies every width, 0 or more
    int samples = 16;                 ///< samples along the guide, 2 to 1024
    std::string smooth;               ///< "width", "aspect", "twist", "all" or empty for none
    int passes = 1;                   ///< smoothing passes, 1 to 100

    bool operator==(const Tube&) const = default;
};

/// The value of a list at t in [0, 1] (clamped): linear between evenly spaced entries;
/// a list of one number is that number, an empty list 0.
float tubeValueAt(const std::vector<float>& list, float t);

/// Reads a tube; absent members keep their defaults. Throws std::invalid_argument with the
/// user's sentence ("tube: a JSON object", "tube width: 0 or more", ...). The shape must be
/// a built-in or in `library`.
Tube parseTube(const nlohmann::json& value, const TubeShapeLibrary& library);

/// Writes a tube; a list whose entries are all equal is written as one number. smooth is
/// written only when set.
nlohmann::json tubeToJson(const Tube& tube);

/// A tube's width, aspect and twist as `samples` values each from root to tip: widths
/// multiplied by scaleWidth, then the lists named by `smooth` smoothed `passes` times (each
/// inner value moved to a quarter of each neighbour plus half itself; the ends stay).
struct TubeProfiles {
    std::vector<float> width;
    std::vector<float> aspect;
    std::vector<float> twist;
};
TubeProfiles sampleTube(const Tube& tube);

}  // namespace tressora
