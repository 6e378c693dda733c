#pragma once
// FieldValue: what a Field port carries — a value per strand or per point, evaluated lazily
// by the consumer. Fields are immutable once published and answer from any thread.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "graph/param_value.h"

namespace tressora {

class StrandSet;

class FieldValue {
public:
    virtual ~FieldValue() = default;

    /// The value of strand `strand` of `strands`.
    virtual float strandValue(const StrandSet& strands, std::size_t strand) const = 0;
    /// The value at point `point` (an index into the set's point arrays) of strand `strand`.
    virtual float pointValue(const StrandSet& strands, std::size_t strand, std::size_t point) const = 0;
    /// The same with the point's parameter t (0 at the root, 1 at the tip) given.
    virtual float pointValueAt(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const {
        (void)t;
        return pointValue(strands, strand, point);
    }
    /// Tells the field that strands will be asked by index into `strands` from now on (a field
    /// that caches per-strand lookups prepares them here). Nothing to do by default.
    virtual void strandIndexed(const StrandSet& strands) const { (void)strands; }
    /// One number standing for the whole field where a consumer needs a single value.
    virtual float remapped() const = 0;
    /// What the field contributes to a consumer's cache key; 0 for nothing beyond its identity.
    virtual std::uint64_t stamp() const { return 0; }
    /// Whether the value varies along a strand.
    virtual bool perPoint() const { return true; }
    /// Whether the field answers without preparation or outside state (safe to ask at once).
    virtual bool selfContained() const { return false; }
    /// Whether the field reads the frame (its values change over time).
    virtual bool readsTime() const { return false; }
    /// Whether strandValue is what pointValue gives at the root.
    virtual bool rootValued() const { return false; }
    /// RGB of a strand; three copies of the scalar by default.
    virtual std::array<float, 3> strandColor(const StrandSet& strands, std::size_t strand) const {
        const float v = strandValue(strands, strand);
        return {v, v, v};
    }
    /// RGB at a point; three copies of the scalar by default.
    virtual std::array<float, 3> pointColor(const StrandSet& strands, std::size_t strand, std::size_t point) const {
        const float v = pointValue(strands, strand, point);
        return {v, v, v};
    }
};

/// One number everywhere.
class ConstantFieldValue final : public FieldValue {
public:
    explicit ConstantFieldValue(float value) : value_(value) {}
    float strandValue(const StrandSet&, std::size_t) const override { return value_; }
    float pointValue(const StrandSet&, std::size_t, std::size_t) const override { return value_; }
    float remapped() const override { return value_; }
    std::uint64_t stamp() const override;
    bool perPoint() const override { return false; }
    bool selfContained() const override { return true; }
    float value() const { return value_; }

private:
    float value_;
};

/// One colour everywhere; its scalar is the colour's luminance.
class ConstantColorField final : public FieldValue {
public:
    explicit ConstantColorField(std::array<float, 3> rgb) : rgb_(rgb) {}
    float strandValue(const StrandSet&, std::size_t) const override { return luminance(); }
    float pointValue(const StrandSet&, std::size_t, std::size_t) const override { return luminance(); }
    float remapped() const override { return luminance(); }
    std::uint64_t stamp() const override;
    bool perPoint() const override { return false; }
    bool selfContained() const override { return true; }
    std::array<float, 3> strandColor(const StrandSet&, std::size_t) const override { return rgb_; }
    std::array<float, 3> pointColor(const StrandSet&, std::size_t, std::size_t) const override { return rgb_; }

private:
    float luminance() const { return 0.2126f * rgb_[0] + 0.7152f * rgb_[1] + 0.0722f * rgb_[2]; }
    std::array<float, 3> rgb_;
};

/// A source field passed through a ramp: output = low + (high - low) * ramp(source).
class RemapFieldValue final : public FieldValue {
public:
    RemapFieldValue(std::shared_ptr<const FieldValue> source, Ramp ramp, float low, float high);
    float strandValue(const StrandSet& strands, std::size_t strand) const override;
    float pointValue(const StrandSet& strands, std::size_t strand, std::size_t point) const override;
    float pointValueAt(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const override;
    void strandIndexed(const StrandSet& strands) const override { source_->strandIndexed(strands); }
    float remapped() const override { return map(source_->remapped()); }
    std::uint64_t stamp() const override;
    bool perPoint() const override { return source_->perPoint(); }
    bool selfContained() const override { return true; }
    bool readsTime() const override { return source_->readsTime(); }

private:
    float map(float v) const;
    std::shared_ptr<const FieldValue> source_;
    Ramp ramp_;
    float low_, high_;
};

/// Two fields (or a field and a number) combined.
class CombineFieldValue final : public FieldValue {
public:
    enum class Mode { Add, Subtract, Multiply, Min, Max, Mix };
    /// `b` may be null: `number` then stands in for it. `mixAmount` is how much of b in Mix.
    CombineFieldValue(Mode mode, std::shared_ptr<const FieldValue> a, std::shared_ptr<const FieldValue> b,
                      float number, float mixAmount = 0.5f);
    float strandValue(const StrandSet& strands, std::size_t strand) const override;
    float pointValue(const StrandSet& strands, std::size_t strand, std::size_t point) const override;
    void strandIndexed(const StrandSet& strands) const override;
    float remapped() const override;
    std::uint64_t stamp() const override;
    bool perPoint() const override;
    bool readsTime() const override;

private:
    float apply(float a, float b) const;
    Mode mode_;
    std::shared_ptr<const FieldValue> a_, b_;
    float number_, mix_;
};

/// Makes a field from a map reference for the strands of one evaluation; the map layer
/// provides it through the evaluation context, since sampling textures and colour sets is
/// not the graph's business.
class MapFieldFactory {
public:
    virtual std::shared_ptr<const FieldValue> fieldFor(const MapRef& map) const = 0;

protected:
    ~MapFieldFactory() = default;
};

}  // namespace tressora
