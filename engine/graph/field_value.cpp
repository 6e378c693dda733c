#include "graph/field_value.h"

#include <algorithm>
#include <cmath>

#include "core/hash.h"
#include "graph/ramp.h"

namespace tressora {

std::uint64_t ConstantFieldValue::stamp() const { return combine(0xC0F1, floatBits(value_)); }

std::uint64_t ConstantColorField::stamp() const {
    return combine(combine(combine(0xC01F, floatBits(rgb_[0])), floatBits(rgb_[1])), floatBits(rgb_[2]));
}

RemapFieldValue::RemapFieldValue(std::shared_ptr<const FieldValue> source, Ramp ramp, float low, float high)
    : source_(std::move(source)), ramp_(std::move(ramp)), low_(low), high_(high) {}

float RemapFieldValue::map(float v) const {
    return low_ + (high_ - low_) * static_cast<float>(evaluateRamp(ramp_, v));
}
float RemapFieldValue::strandValue(const StrandSet& s, std::size_t i) const { return map(source_->strandValue(s, i)); }
float RemapFieldValue::pointValue(const StrandSet& s, std::size_t i, std::size_t p) const {
    return map(source_->pointValue(s, i, p));
}
float RemapFieldValue::pointValueAt(const StrandSet& s, std::size_t i, std::size_t p, float t) const {
    return map(source_->pointValueAt(s, i, p, t));
}
std::uint64_t RemapFieldValue::stamp() const {
    std::uint64_t h = hashParamValue(combine(0x4E3A, source_->stamp()), ramp_);
    return combine(combine(h, floatBits(low_)), floatBits(high_));
}

CombineFieldValue::CombineFieldValue(Mode mode, std::shared_ptr<const FieldValue> a, std::shared_ptr<const FieldValue> b,
                                     float number, float mixAmount)
    : mode_(mode), a_(std::move(a)), b_(std::move(b)), number_(number), mix_(mixAmount) {}

float CombineFieldValue::apply(float a, float b) const {
    switch (mode_) {
        case Mode::Add: return a + b;
        case Mode::Subtract: return a - b;
        case Mode::Multiply: return a * b;
        case Mode::Min: return std::min(a, b);
        case Mode::Max: return std::max(a, b);
        case Mode::Mix: return a + (b - a) * mix_;
    }
    return a;
}

float CombineFieldValue::strandValue(const StrandSet& s, std::size_t i) const {
    return apply(a_->strandValue(s, i), b_ ? b_->strandValue(s, i) : number_);
}
float CombineFieldValue::pointValue(const StrandSet& s, std::size_t i, std::size_t p) const {
    return apply(a_->pointValue(s, i, p), b_ ? b_->pointValue(s, i, p) : number_);
}
void CombineFieldValue::strandIndexed(const StrandSet& s) const {
    a_->strandIndexed(s);
    if (b_) b_->strandIndexed(s);
}
float CombineFieldValue::remapped() const { return apply(a_->remapped(), b_ ? b_->remapped() : number_); }
std::uint64_t CombineFieldValue::stamp() const {
    std::uint64_t h = combine(combine(0xC0B1, static_cast<std::uint64_t>(mode_)), a_->stamp());
    h = combine(h, b_ ? b_->stamp() : floatBits(number_));
    return combine(h, floatBits(mix_));
}
bool CombineFieldValue::perPoint() const { return a_->perPoint() || (b_ && b_->perPoint()); }
bool CombineFieldValue::readsTime() const { return a_->readsTime() || (b_ && b_->readsTime()); }

}  // namespace tressora
