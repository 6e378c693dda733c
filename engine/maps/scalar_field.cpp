#include "maps/scalar_field.h"

#include "core/hash.h"

namespace tressora {

float ScalarField::rawPoint(const StrandSet& strands, std::size_t strand, std::size_t, float) const {
    return rawStrand(strands, strand);
}

std::array<float, 3> ScalarField::rawStrandColor(const StrandSet& strands, std::size_t strand) const {
    const float v = rawStrand(strands, strand);
    return {v, v, v};
}

std::array<float, 3> ScalarField::rawPointColor(const StrandSet& strands, std::size_t strand, std::size_t point,
                                                float t) const {
    if (!perPoint()) return rawStrandColor(strands, strand);
    const float v = rawPoint(strands, strand, point, t);
    return {v, v, v};
}

float ScalarField::strandValue(const StrandSet& strands, std::size_t strand) const {
    return remap(rawStrand(strands, strand));
}

float ScalarField::pointValue(const StrandSet& strands, std::size_t strand, std::size_t point) const {
    if (!perPoint()) return remap(rawStrand(strands, strand));
    return remap(rawPoint(strands, strand, point, pointParameter(strands, strand, point)));
}

float ScalarField::pointValueAt(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const {
    if (!perPoint()) return remap(rawStrand(strands, strand));
    return remap(rawPoint(strands, strand, point, t));
}

std::array<float, 3> ScalarField::strandColor(const StrandSet& strands, std::size_t strand) const {
    std::array<float, 3> c = rawStrandColor(strands, strand);
    for (float& v : c) v = remap(v);
    return c;
}

std::array<float, 3> ScalarField::pointColor(const StrandSet& strands, std::size_t strand, std::size_t point) const {
    std::array<float, 3> c = rawPointColor(strands, strand, point, pointParameter(strands, strand, point));
    for (float& v : c) v = remap(v);
    return c;
}

float ScalarField::remapped() const { return remap(rawMean()); }

std::uint64_t ScalarField::stamp() const {
    return combine(combine(sourceStamp(), floatBits(low_)), floatBits(high_));
}

float pointParameter(const StrandSet& strands, std::size_t strand, std::size_t point) {
    const PointRange range = strands.pointRange(strand);
    if (range.size() < 2 || point <= range.begin) return 0.0f;
    return static_cast<float>(point - range.begin) / static_cast<float>(range.size() - 1);
}

// ---- FieldMap ----------------------------------------------------------------------------

FieldMap::FieldMap(std::shared_ptr<const MapSampler> sampler, std::shared_ptr<const ScalpMesh> scalp,
                   MapComponent component, float low, float high)
    : ScalarField(low, high),
      sampler_(std::move(sampler)),
      scalp_(std::move(scalp)),
      component_(component),
      readsPosition_(sampler_->readsPosition()) {}

Rgba FieldMap::sample(const StrandSet& strands, std::size_t strand) const {
    return sampler_->sample(rootSample(scalp_.get(), strands, strand, readsPosition_));
}

float FieldMap::rawStrand(const StrandSet& strands, std::size_t strand) const {
    return pickComponent(sample(strands, strand), component_);
}

std::array<float, 3> FieldMap::rawStrandColor(const StrandSet& strands, std::size_t strand) const {
    const Rgba c = sample(strands, strand);
    return {c[0], c[1], c[2]};
}

float FieldMap::rawMean() const { return pickComponent(sampler_->mean(), component_); }

std::uint64_t FieldMap::sourceStamp() const {
    const std::uint64_t h = combine(combine(0xF1E1D, sampler_->stamp()), static_cast<std::uint64_t>(component_));
    return combine(h, scalp_ ? scalp_->contentHash() : 0);
}

// ---- ChannelField ------------------------------------------------------------------------

ChannelField::ChannelField(std::string name, bool perPoint, float low, float high)
    : ScalarField(low, high), name_(std::move(name)), perPoint_(perPoint) {}

float ChannelField::rawStrand(const StrandSet& strands, std::size_t strand) const {
    if (const StrandChannel* channel = strands.strandChannel(name_)) {
        const auto values = channel->values();
        return strand < values.size() ? values[strand] : 0.0f;
    }
    if (const StrandChannel* channel = strands.pointChannel(name_)) {
        const PointRange range = strands.pointRange(strand);
        const auto values = channel->values();
        return range.size() > 0 && range.begin < values.size() ? values[range.begin] : 0.0f;
    }
    return 0.0f;
}

float ChannelField::rawPoint(const StrandSet& strands, std::size_t strand, std::size_t point, float) const {
    if (const StrandChannel* channel = strands.pointChannel(name_)) {
        const auto values = channel->values();
        return point < values.size() ? values[point] : 0.0f;
    }
    return rawStrand(strands, strand);
}

std::uint64_t ChannelField::sourceStamp() const { return combineText(0xC4A7, name_); }

}  // namespace tressora
