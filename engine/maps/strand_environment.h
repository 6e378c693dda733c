#pragma once
// The environment an expression runs in for the strands of a set: the evaluation's frame
// and time, then per strand its root, surface, shape and ids, per point its parameter and
// position, the set's channels and the groom's maps, each filled only when the expression
// reads it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "expression/expression.h"
#include "graph/eval_context.h"
#include "maps/map_sampler.h"

namespace tressora {

/// An environment for one evaluation: frame and time (frame / fps) set, the rest 0.
ExpressionEnvironment expressionEnvironment(const EvalContext& context);

/// The per-strand random value of the `rand` slot: drawn from the strand's id alone, and
/// independent of the draw that keeps strands in a preview.
float strandRandom(std::uint64_t id);

/// The samplers of an expression's maps, in the order of its mapNames. Immutable; any thread.
class BoundMaps {
public:
    explicit BoundMaps(std::vector<std::shared_ptr<const MapSampler>> samplers);
    /// The colour of map `map` at a root; 0 for an index past the list.
    Rgba sample(std::uint32_t map, const RootSample& root) const;
    std::size_t size() const { return samplers_.size(); }
    std::uint64_t stamp() const { return stamp_; }

private:
    std::vector<std::shared_ptr<const MapSampler>> samplers_;
    std::uint64_t stamp_ = 0;
};

/// Fills an expression's environment strand by strand and point by point. One per worker,
/// on its stack; it can't be copied since the environment points into it.
class StrandEnvironment {
public:
    /// `scalp` (may be null) is the mesh the roots refer to; `base` gives frame and time;
    /// `maps` (may be null) answers map() and cmap().
    StrandEnvironment(const Expression& expression, const StrandSet& strands, const ScalpMesh* scalp,
                      const ExpressionEnvironment& base, const BoundMaps* maps);
    /// The same for a program that is no single expression (a script): what it reads of
    /// strands and points, and the channels its PushChannel instructions count in.
    StrandEnvironment(const ExpressionUses& uses, std::span<const std::string> readChannels, const StrandSet& strands,
                      const ScalpMesh* scalp, const ExpressionEnvironment& base, const BoundMaps* maps);
    StrandEnvironment(const StrandEnvironment&) = delete;
    StrandEnvironment& operator=(const StrandEnvironment&) = delete;

    /// Fills the slots of strand `strand` and leaves no point set.
    void setStrand(std::size_t strand);
    /// Fills the slots of a point of the current strand (an index into the set's point
    /// arrays): t by index, pt measured by arc length.
    void setPoint(std::size_t point);
    /// The same with t given (a consumer may place a point between stored ones).
    void setPoint(std::size_t point, float t);
    /// The same with both parameters known: t by index, pt by arc length.
    void setPoint(std::size_t point, float t, float pt);

    const ExpressionEnvironment& environment() const { return env_; }
    /// Precondition for these two: made for an expression.
    float evaluate() const { return expression_->evaluate(env_); }
    Vec3f evaluateVector() const { return expression_->evaluateVector(env_); }
    /// The current strand's root, as map() reads it.
    const RootSample& root() const { return probe_.root; }

private:
    /// Hands the current root to the bound maps.
    struct Probe final : ExpressionMaps {
        const BoundMaps* maps = nullptr;
        RootSample root;
        float value(std::uint32_t map, int channel, const ExpressionEnvironment& env) const override;
        Vec3f color(std::uint32_t map, const ExpressionEnvironment& env) const override;
    };

    static constexpr std::size_t kInlineChannels = 8;

    const Expression* expression_ = nullptr;
    const StrandSet& strands_;
    const ScalpMesh* scalp_;
    ExpressionUses uses_;
    bool needsRoot_;
    ExpressionEnvironment env_;
    Probe probe_;
    PointRange range_;
    std::array<std::span<const float>, kInlineChannels> strandInline_{}, pointInline_{};
    std::vector<std::span<const float>> strandTables_, pointTables_;
};

}  // namespace tressora
