#pragma once
// ExpressionMap: a mappable param driven by an expression, run per strand, or per point when
// the expression varies along strands, in the environment of the strand set handed in.

#include <cstddef>
#include <memory>
#include <span>

#include "expression/expression.h"
#include "maps/scalar_field.h"
#include "maps/strand_environment.h"

namespace tressora {

class ExpressionMap final : public ScalarField {
public:
    /// `maps` answers the expression's map() and cmap() (null: they read 0); `scalp` is the
    /// mesh the roots refer to; `base` carries the frame and time.
    ExpressionMap(std::shared_ptr<const Expression> expression, std::shared_ptr<const BoundMaps> maps,
                  std::shared_ptr<const ScalpMesh> scalp, const ExpressionEnvironment& base, float low, float high);

    /// The remapped value at a strand, or at one of its points (an index into the set's point
    /// arrays; ExpressionEnvironment::kNoPoint for the strand).
    float evaluate(const StrandSet& strands, std::size_t strand,
                   std::size_t point = ExpressionEnvironment::kNoPoint) const;
    /// The remapped vector of a vector expression (a number expression gives it three times).
    Vec3f evaluateVector(const StrandSet& strands, std::size_t strand,
                         std::size_t point = ExpressionEnvironment::kNoPoint) const;
    /// Every point of a strand at once, into `out` (one value per point of the strand); the
    /// strand's slots are filled once. The fast path for per-point consumers.
    void evaluatePoints(const StrandSet& strands, std::size_t strand, std::span<float> out) const;

    const Expression& expression() const { return *expression_; }
    bool perPoint() const override { return expression_->uses().perPoint; }
    bool readsTime() const override { return expression_->readsTime(); }

private:
    float rawStrand(const StrandSet& strands, std::size_t strand) const override;
    float rawPoint(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const override;
    std::array<float, 3> rawStrandColor(const StrandSet& strands, std::size_t strand) const override;
    std::array<float, 3> rawPointColor(const StrandSet& strands, std::size_t strand, std::size_t point,
                                       float t) const override;
    float rawMean() const override;
    std::uint64_t sourceStamp() const override;
    Vec3f rawVector(const StrandSet& strands, std::size_t strand, std::size_t point) const;

    std::shared_ptr<const Expression> expression_;
    std::shared_ptr<const BoundMaps> maps_;
    std::shared_ptr<const ScalpMesh> scalp_;
    ExpressionEnvironment base_;
};

}  // namespace tressora
