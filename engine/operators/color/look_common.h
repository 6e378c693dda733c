#pragma once
// Helpers shared by the look nodes (HairColor, Bands, FeatherColor, RenderData, Noise):
// declaring params, reading a mappable float per strand or per point, per-strand random
// draws keyed by id and seed, and the colour channels every renderer reads.

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/hash.h"
#include "core/strand_set.h"
#include "core/vec.h"
#include "graph/eval_context.h"
#include "graph/operator_registry.h"
#include "graph/param_set.h"
#include "graph/param_spec.h"
#include "maps/scalar_field.h"

namespace tressora::look {

/// The colour channels, one value per strand (the root colour) and, where colour changes
/// along the strands, one per point under the same names.
inline constexpr const char* kColorR = "colorR";
inline constexpr const char* kColorG = "colorG";
inline constexpr const char* kColorB = "colorB";
inline constexpr const char* kMelanin = "melanin";
inline constexpr const char* kMelaninRedness = "melaninRedness";
inline constexpr const char* kSpecular = "specular";
inline constexpr const char* kRoughness = "roughness";
inline constexpr const char* kTilt = "tilt";
inline constexpr const char* kOpacity = "opacity";
inline constexpr const char* kIridescence = "iridescence";

/// What a type registers: its category, description and keywords (no label, not hidden).
OperatorInfo typeInfo(std::string category, std::string description, std::string keywords);

/// A param declaration in one call; the remaining fields are set on the result.
ParamSpec param(std::string name, ParamValue defaultValue, std::string description, std::string unit = {},
                std::optional<double> softMin = std::nullopt, std::optional<double> softMax = std::nullopt);
/// A string param offering a fixed list of texts.
ParamSpec choiceParam(std::string name, std::string defaultValue, std::vector<std::string> choices,
                      std::string description);

/// A hard range of a param, applied to what getFloat and getInt return.
struct ParamRange {
    const char* name;
    std::optional<double> min;
    std::optional<double> max;
};
void applyRanges(ParamSet& params, std::initializer_list<ParamRange> ranges);

/// A mappable float param for one evaluation: its constant, or the field its map gives.
/// Reads are thread-safe once made.
class MappedFloat {
public:
    /// Throws GraphError (from the maps) when the param's map can't be read.
    MappedFloat(const std::string& name, const ParamSet& params, const EvalContext& context, const StrandSet& strands,
                std::optional<double> min = std::nullopt, std::optional<double> max = std::nullopt);
    // A constant is read inline: hot loops call these per point.
    float strand(const StrandSet& strands, std::size_t strand) const {
        return field_ ? fieldStrand(strands, strand) : constant_;
    }
    float point(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const {
        return field_ ? fieldPoint(strands, strand, point, t) : constant_;
    }
    /// Whether values change along strands; false for a constant or a per-strand map.
    bool perPoint() const { return field_ && field_->perPoint(); }
    bool mapped() const { return field_ != nullptr; }
    float constant() const { return constant_; }

private:
    float clamp(float v) const;
    float fieldStrand(const StrandSet& strands, std::size_t strand) const;
    float fieldPoint(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const;
    std::shared_ptr<const ScalarField> field_;
    float constant_ = 0.0f;
    std::optional<double> min_, max_;
};

/// The key of a strand's random draws: its id folded with the node's seed.
constexpr std::uint64_t strandKey(std::uint64_t id, std::int64_t seed) {
    return combine(hash64(id), static_cast<std::uint64_t>(seed));
}
/// A draw in [0, 1) for one purpose (`salt`) of a key.
constexpr float unitDraw(std::uint64_t key, std::uint64_t salt) { return unitFromBits(combine(key, salt)); }
/// A draw in [-1, 1) for one purpose of a key.
constexpr float signedDraw(std::uint64_t key, std::uint64_t salt) { return 2.0f * unitDraw(key, salt) - 1.0f; }

/// The writable colour channels of one kind (strand or point).
struct ColorSpans {
    std::span<float> r, g, b;
    void set(std::size_t i, Vec3f c) const { r[i] = c.x; g[i] = c.y; b[i] = c.z; }
};
/// Adds (or keeps) the strand colour channels; new values are `initial`.
ColorSpans addStrandColors(StrandSet& strands, Vec3f initial = {0.0f, 0.0f, 0.0f});
/// Adds (or keeps) the point colour channels; a point without them takes its strand's colour.
ColorSpans addPointColors(StrandSet& strands);
/// Removes the point colour channels (colour no longer changes along strands).
void removePointColors(StrandSet& strands);

/// The colours a later node starts from: per point when the set has point colours, else per
/// strand; `fallback` where the set has none.
class ColorReader {
public:
    ColorReader(const StrandSet& strands, Vec3f fallback);
    bool any() const { return strandR_ != nullptr || pointR_ != nullptr; }
    Vec3f strand(std::size_t strand) const;
    Vec3f point(std::size_t strand, std::size_t point) const;

private:
    const float *strandR_ = nullptr, *strandG_ = nullptr, *strandB_ = nullptr;
    const float *pointR_ = nullptr, *pointG_ = nullptr, *pointB_ = nullptr;
    Vec3f fallback_;
};

/// The ramp param's value, or `fallback` when it has no keys.
Ramp rampParam(const ParamSet& params, const std::string& name, const Ramp& fallback);

/// A ramp sampled once over 0..1 for reading at every point: linear between 256 samples
/// (within a thousandth of the curve for the look's ramps). Any thread.
class RampTable {
public:
    explicit RampTable(const Ramp& ramp);
    float operator()(float x) const { return constant_ ? samples_[0] : lookUp(x); }
    /// True when the ramp has one value everywhere: hot loops may read it once.
    bool constant() const { return constant_; }

private:
    float lookUp(float x) const;
    static constexpr int kSteps = 256;
    float samples_[kSteps + 1];
    bool constant_ = false;
};

/// Linear interpolation and clamping for colour arithmetic.
inline Vec3f mixColor(Vec3f a, Vec3f b, float w) { return a + (b - a) * w; }
inline float clamp01(float v) { return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v); }

}  // namespace tressora::look
