#pragma once
// Layers painted on guides, read for strands: a strand takes the layer of the guides whose
// roots lie nearest its own, weighted by inverse squared distance. A layer with one value
// per guide gives one value per strand; a layer with a value per guide point is read along
// the guides at the strand point's parameter.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/guide_set.h"
#include "core/point_index.h"
#include "maps/scalar_field.h"

namespace tressora {

/// One layer of a guide set with the index of the guides' roots. Immutable; any thread.
class GuideLayer {
public:
    /// How many of the nearest guides blend into a strand's value.
    static constexpr std::size_t kNeighbours = 4;

    /// Null when no guide carries a layer of that name.
    static std::shared_ptr<const GuideLayer> make(std::shared_ptr<const GuideSet> guides, const std::string& layer);

    /// The layer at a root position, at parameter t along the guides (0 root, 1 tip).
    float at(Vec3f position, float t) const;
    /// Whether the layer has a value per guide point.
    bool perPoint() const { return pointValues_ != nullptr; }
    /// The mean over guides (over points for a point layer).
    float mean() const;
    std::uint64_t stamp() const { return stamp_; }

private:
    GuideLayer() = default;
    float guideValue(std::size_t guide, float t) const;

    std::shared_ptr<const GuideSet> guides_;
    const std::vector<float>* guideValues_ = nullptr;  // one per guide
    const std::vector<float>* pointValues_ = nullptr;  // one per guide point
    std::vector<std::uint32_t> guideOfRoot_;           // guides with points, by root index
    PointIndex roots_;
    std::uint64_t stamp_ = 0;
};

/// A mappable param read from a guide layer.
class GuideSampler final : public ScalarField {
public:
    /// `scalp` places the strands' roots (their first points are used without it).
    GuideSampler(std::shared_ptr<const GuideLayer> layer, std::shared_ptr<const ScalpMesh> scalp, float low,
                 float high);
    bool perPoint() const override { return layer_->perPoint(); }

private:
    float rawStrand(const StrandSet& strands, std::size_t strand) const override;
    float rawPoint(const StrandSet& strands, std::size_t strand, std::size_t point, float t) const override;
    float rawMean() const override { return layer_->mean(); }
    std::uint64_t sourceStamp() const override;

    std::shared_ptr<const GuideLayer> layer_;
    std::shared_ptr<const ScalpMesh> scalp_;
};

/// A guide layer as an expression's map(): its value at the root, in r, g and b.
std::shared_ptr<const MapSampler> guideLayerSampler(std::shared_ptr<const GuideLayer> layer);

}  // namespace tressora
