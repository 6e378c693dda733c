#pragma once
// ScalarField: the value of a mappable param per strand and per point, whatever its source
// (an image or vertex map, a strand channel, a guide layer, an expression). Each source's
// 0-1 value is remapped onto the map's min to max. Fields are immutable once made, shared,
// and answer from any thread for whatever strand set they are handed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "graph/field_value.h"
#include "maps/map_sampler.h"

namespace tressora {

class ScalarField : public FieldValue {
public:
    /// The remapped value: low + (high - low) * the source's value.
    float strandValue(const StrandSet& strands, std::size_t strand) const final;
    /// A field that does not vary along strands gives its strand value at every point.
    float pointValue(const StrandSet& strands, std::size_t strand, std::size_t point) const final;
    float pointValueAt(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const final;
    std::array<float, 3> strandColor(const StrandSet& strands, std::size_t strand) const final;
    std::array<float, 3> pointColor(const StrandSet& strands, std::size_t strand, std::size_t point) const final;
    /// The remapped mean of the source (or its value with nothing to vary by).
    float remapped() const final;
    std::uint64_t stamp() const final;
    bool selfContained() const override { return true; }

    float low() const { return low_; }
    float high() const { return high_; }

protected:
    ScalarField(float low, float high) : low_(low), high_(high) {}

    /// The source's value for a strand.
    virtual float rawStrand(const StrandSet& strands, std::size_t strand) const = 0;
    /// The source's value at a point whose parameter along the strand is t; only asked of
    /// fields that answer perPoint(). The strand's value by default.
    virtual float rawPoint(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const;
    /// The source's colour; three copies of its value by default.
    virtual std::array<float, 3> rawStrandColor(const StrandSet& strands, std::size_t strand) const;
    virtual std::array<float, 3> rawPointColor(const StrandSet& strands, std::size_t strand, std::size_t point,
                                               float t) const;
    virtual float rawMean() const = 0;
    /// What the source contributes to cache keys.
    virtual std::uint64_t sourceStamp() const = 0;

private:
    float remap(float raw) const { return low_ + (high_ - low_) * raw; }
    float low_, high_;
};

/// The parameter of a point along its strand by index: 0 at the root, 1 at the tip, 0 for a
/// strand of one point.
float pointParameter(const StrandSet& strands, std::size_t strand, std::size_t point);

/// An image or vertex map read at each strand's root: one value per strand.
class FieldMap final : public ScalarField {
public:
    /// `scalp` is the mesh the strands' roots refer to; `component` picks the number.
    FieldMap(std::shared_ptr<const MapSampler> sampler, std::shared_ptr<const ScalpMesh> scalp,
             MapComponent component, float low, float high);
    /// The unmapped colour at a strand's root.
    Rgba sample(const StrandSet& strands, std::size_t strand) const;
    bool perPoint() const override { return false; }
    bool rootValued() const override { return true; }

private:
    float rawStrand(const StrandSet& strands, std::size_t strand) const override;
    std::array<float, 3> rawStrandColor(const StrandSet& strands, std::size_t strand) const override;
    float rawMean() const override;
    std::uint64_t sourceStamp() const override;

    std::shared_ptr<const MapSampler> sampler_;
    std::shared_ptr<const ScalpMesh> scalp_;
    MapComponent component_;
    bool readsPosition_;
};

/// A channel of the strands, read from whatever set is handed in: a point channel of that
/// name per point, else a strand channel of that name; neither reads 0.
class ChannelField final : public ScalarField {
public:
    /// `perPoint`: whether the channel is a point channel, when that is known.
    ChannelField(std::string name, bool perPoint, float low, float high);
    bool perPoint() const override { return perPoint_; }
    const std::string& name() const { return name_; }

private:
    float rawStrand(const StrandSet& strands, std::size_t strand) const override;
    float rawPoint(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const override;
    float rawMean() const override { return 0.5f; }
    std::uint64_t sourceStamp() const override;

    std::string name_;
    bool perPoint_;
};

}  // namespace tressora
