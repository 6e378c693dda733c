#include "operators/color/look_common.h"

#include <algorithm>

#include "graph/ramp.h"
#include "maps/map_fields.h"

namespace tressora::look {

OperatorInfo typeInfo(std::string category, std::string description, std::string keywords) {
    OperatorInfo info;
    info.category = std::move(category);
    info.description = std::move(description);
    info.keywords = std::move(keywords);
    return info;
}

ParamSpec param(std::string name, ParamValue defaultValue, std::string description, std::string unit,
                std::optional<double> softMin, std::optional<double> softMax) {
    ParamSpec spec;
    spec.name = std::move(name);
    spec.defaultValue = std::move(defaultValue);
    spec.description = std::move(description);
    spec.unit = std::move(unit);
    spec.softMin = softMin;
    spec.softMax = softMax;
    return spec;
}

ParamSpec choiceParam(std::string name, std::string defaultValue, std::vector<std::string> choices,
                      std::string description) {
    ParamSpec spec = param(std::move(name), std::move(defaultValue), std::move(description));
    spec.choices = std::move(choices);
    return spec;
}

void applyRanges(ParamSet& params, std::initializer_list<ParamRange> ranges) {
    for (const ParamRange& range : ranges) params.setLimits(range.name, {range.min, range.max});
}

MappedFloat::MappedFloat(const std::string& name, const ParamSet& params, const EvalContext& context,
                         const StrandSet& strands, std::optional<double> min, std::optional<double> max)
    : min_(min), max_(max) {
    MapBinding binding;
    binding.strands = &strands;
    binding.strandsInput = true;
    field_ = fieldFromParam(name, params.get(name), context, binding);
    if (field_) field_->strandIndexed(strands);
    else constant_ = clamp(static_cast<float>(params.getFloat(name, 0.0)));
}

float MappedFloat::clamp(float v) const {
    if (min_ && v < *min_) v = static_cast<float>(*min_);
    if (max_ && v > *max_) v = static_cast<float>(*max_);
    return v;
}

float MappedFloat::fieldStrand(const StrandSet& strands, std::size_t strand) const {
    return clamp(field_->strandValue(strands, strand));
}

float MappedFloat::fieldPoint(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const {
    return clamp(field_->perPoint() ? field_->pointValueAt(strands, strand, point, t)
                                    : field_->strandValue(strands, strand));
}

ColorSpans addStrandColors(StrandSet& strands, Vec3f initial) {
    ColorSpans spans;
    strands.addStrandChannel(kColorR, initial.x);
    strands.addStrandChannel(kColorG, initial.y);
    strands.addStrandChannel(kColorB, initial.z);
    spans.r = strands.mutableStrandChannel(kColorR);
    spans.g = strands.mutableStrandChannel(kColorG);
    spans.b = strands.mutableStrandChannel(kColorB);
    return spans;
}

ColorSpans addPointColors(StrandSet& strands) {
    const bool had = strands.pointChannel(kColorR) && strands.pointChannel(kColorG) && strands.pointChannel(kColorB);
    strands.addPointChannel(kColorR, 0.0f);
    strands.addPointChannel(kColorG, 0.0f);
    strands.addPointChannel(kColorB, 0.0f);
    ColorSpans spans{strands.mutablePointChannel(kColorR), strands.mutablePointChannel(kColorG),
                     strands.mutablePointChannel(kColorB)};
    if (!had) {
        const ColorReader reader(strands, {0.0f, 0.0f, 0.0f});
        for (std::size_t s = 0; s < strands.strandCount(); ++s) {
            const Vec3f c = reader.strand(s);
            const PointRange range = strands.pointRange(s);
            for (std::size_t p = range.begin; p < range.end; ++p) spans.set(p, c);
        }
    }
    return spans;
}

void removePointColors(StrandSet& strands) {
    strands.removePointChannel(kColorR);
    strands.removePointChannel(kColorG);
    strands.removePointChannel(kColorB);
}

namespace {
const float* values(const StrandChannel* channel, std::size_t size) {
    return channel && channel->size() == size ? channel->values().data() : nullptr;
}
}  // namespace

ColorReader::ColorReader(const StrandSet& strands, Vec3f fallback) : fallback_(fallback) {
    const std::size_t n = strands.strandCount(), p = strands.pointCount();
    strandR_ = values(strands.strandChannel(kColorR), n);
    strandG_ = values(strands.strandChannel(kColorG), n);
    strandB_ = values(strands.strandChannel(kColorB), n);
    if (!strandR_ || !strandG_ || !strandB_) strandR_ = strandG_ = strandB_ = nullptr;
    pointR_ = values(strands.pointChannel(kColorR), p);
    pointG_ = values(strands.pointChannel(kColorG), p);
    pointB_ = values(strands.pointChannel(kColorB), p);
    if (!pointR_ || !pointG_ || !pointB_) pointR_ = pointG_ = pointB_ = nullptr;
}

Vec3f ColorReader::strand(std::size_t strand) const {
    return strandR_ ? Vec3f{strandR_[strand], strandG_[strand], strandB_[strand]} : fallback_;
}

Vec3f ColorReader::point(std::size_t strand, std::size_t point) const {
    return pointR_ ? Vec3f{pointR_[point], pointG_[point], pointB_[point]} : this->strand(strand);
}

Ramp rampParam(const ParamSet& params, const std::string& name, const Ramp& fallback) {
    Ramp ramp = params.getRamp(name, fallback);
    return ramp.keys.empty() ? fallback : ramp;
}

RampTable::RampTable(const Ramp& ramp) {
    for (int i = 0; i <= kSteps; ++i) samples_[i] = static_cast<float>(evaluateRamp(ramp, double(i) / kSteps));
    constant_ = std::all_of(samples_, samples_ + kSteps + 1, [&](float v) { return v == samples_[0]; });
}

float RampTable::lookUp(float x) const {
    if (!(x > 0.0f)) return samples_[0];
    if (x >= 1.0f) return samples_[kSteps];
    const float at = x * kSteps;
    const int i = static_cast<int>(at);
    return samples_[i] + (samples_[i + 1] - samples_[i]) * (at - static_cast<float>(i));
}

}  // namespace tressora::look
