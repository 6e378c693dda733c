#include "maps/expression_map.h"

#include "core/hash.h"

namespace tressora {

ExpressionMap::ExpressionMap(std::shared_ptr<const Expression> expression, std::shared_ptr<const BoundMaps> maps,
                             std::shared_ptr<const ScalpMesh> scalp, const ExpressionEnvironment& base, float low,
                             float high)
    : ScalarField(low, high),
      expression_(std::move(expression)),
      maps_(std::move(maps)),
      scalp_(std::move(scalp)),
      base_(base) {
    base_.maps = nullptr;
    base_.strandChannels = {};
    base_.pointChannels = {};
}

float ExpressionMap::rawStrand(const StrandSet& strands, std::size_t strand) const {
    StrandEnvironment env(*expression_, strands, scalp_.get(), base_, maps_.get());
    env.setStrand(strand);
    // An expression that varies along the strand gives the strand its value at the root.
    if (perPoint() && strands.pointRange(strand).size() > 0) env.setPoint(strands.pointRange(strand).begin, 0.0f, 0.0f);
    return env.evaluate();
}

float ExpressionMap::rawPoint(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const {
    StrandEnvironment env(*expression_, strands, scalp_.get(), base_, maps_.get());
    env.setStrand(strand);
    if (point < strands.pointCount()) env.setPoint(point, t);
    return env.evaluate();
}

Vec3f ExpressionMap::rawVector(const StrandSet& strands, std::size_t strand, std::size_t point) const {
    StrandEnvironment env(*expression_, strands, scalp_.get(), base_, maps_.get());
    env.setStrand(strand);
    if (point != ExpressionEnvironment::kNoPoint && point < strands.pointCount()) env.setPoint(point);
    else if (perPoint() && strands.pointRange(strand).size() > 0) env.setPoint(strands.pointRange(strand).begin, 0.0f, 0.0f);
    return env.evaluateVector();
}

std::array<float, 3> ExpressionMap::rawStrandColor(const StrandSet& strands, std::size_t strand) const {
    const Vec3f v = rawVector(strands, strand, ExpressionEnvironment::kNoPoint);
    return {v.x, v.y, v.z};
}

std::array<float, 3> ExpressionMap::rawPointColor(const StrandSet& strands, std::size_t strand, std::size_t point,
                                                  float) const {
    const Vec3f v = rawVector(strands, strand, point);
    return {v.x, v.y, v.z};
}

float ExpressionMap::evaluate(const StrandSet& strands, std::size_t strand, std::size_t point) const {
    if (point == ExpressionEnvironment::kNoPoint) return strandValue(strands, strand);
    return pointValue(strands, strand, point);
}

Vec3f ExpressionMap::evaluateVector(const StrandSet& strands, std::size_t strand, std::size_t point) const {
    const auto c = point == ExpressionEnvironment::kNoPoint ? strandColor(strands, strand)
                                                             : pointColor(strands, strand, point);
    return {c[0], c[1], c[2]};
}

void ExpressionMap::evaluatePoints(const StrandSet& strands, std::size_t strand, std::span<float> out) const {
    const PointRange range = strands.pointRange(strand);
    if (!perPoint()) {
        const float v = strandValue(strands, strand);
        for (std::size_t i = 0; i < out.size() && i < range.size(); ++i) out[i] = v;
        return;
    }
    StrandEnvironment env(*expression_, strands, scalp_.get(), base_, maps_.get());
    env.setStrand(strand);
    const std::span<const Vec3f> points = strands.points();
    float total = 0.0f;
    for (std::size_t p = range.begin + 1; p < range.end; ++p) total += length(points[p] - points[p - 1]);
    float along = 0.0f;
    const float last = range.size() > 1 ? static_cast<float>(range.size() - 1) : 1.0f;
    for (std::size_t i = 0; i < out.size() && i < range.size(); ++i) {
        const std::size_t p = range.begin + i;
        if (i > 0) along += length(points[p] - points[p - 1]);
        const float t = static_cast<float>(i) / last;
        env.setPoint(p, t, total > 0.0f ? along / total : t);
        out[i] = low() + (high() - low()) * env.evaluate();
    }
}

float ExpressionMap::rawMean() const { return expression_->evaluate(base_); }

std::uint64_t ExpressionMap::sourceStamp() const {
    std::uint64_t h = combineText(0xE4B9, expression_->source());
    h = combine(h, maps_ ? maps_->stamp() : 0);
    h = combine(h, scalp_ ? scalp_->contentHash() : 0);
    if (expression_->readsTime()) h = combine(combine(h, floatBits(base_[kSlotFrame])), floatBits(base_[kSlotTime]));
    return h;
}

}  // namespace tressora
