#include "maps/guide_sampler.h"

#include <algorithm>
#include <cmath>

#include "core/hash.h"

namespace tressora {
namespace {

class GuideLayerSampler final : public MapSampler {
public:
    explicit GuideLayerSampler(std::shared_ptr<const GuideLayer> layer) : layer_(std::move(layer)) {}
    Rgba sample(const RootSample& root) const override {
        const float v = layer_->at(root.position, 0.0f);
        return {v, v, v, 1.0f};
    }
    Rgba mean() const override {
        const float v = layer_->mean();
        return {v, v, v, 1.0f};
    }
    std::uint64_t stamp() const override { return combine(0x6E1D, layer_->stamp()); }
    bool readsPosition() const override { return true; }

private:
    std::shared_ptr<const GuideLayer> layer_;
};

}  // namespace

std::shared_ptr<const GuideLayer> GuideLayer::make(std::shared_ptr<const GuideSet> guides, const std::string& layer) {
    if (!guides) return nullptr;
    std::shared_ptr<GuideLayer> made(new GuideLayer());
    made->guideValues_ = guides->attribute(layer);
    made->pointValues_ = made->guideValues_ ? nullptr : guides->pointAttribute(layer);
    if (!made->guideValues_ && !made->pointValues_) return nullptr;
    std::vector<Vec3f> roots;
    for (std::size_t g = 0; g < guides->guideCount(); ++g) {
        const auto points = guides->guidePoints(g);
        if (points.empty()) continue;
        roots.push_back(points[0]);
        made->guideOfRoot_.push_back(static_cast<std::uint32_t>(g));
    }
    made->roots_ = PointIndex(roots);
    made->stamp_ = combineText(combine(0x6A7E, guides->fingerprint()), layer);
    made->guides_ = std::move(guides);
    return made;
}

float GuideLayer::guideValue(std::size_t guide, float t) const {
    if (guideValues_) return guide < guideValues_->size() ? (*guideValues_)[guide] : 0.0f;
    const auto [first, last] = guides_->pointRange(guide);
    const std::vector<float>& values = *pointValues_;
    if (last <= first || last > values.size()) return 0.0f;
    const float x = std::clamp(t, 0.0f, 1.0f) * static_cast<float>(last - first - 1);
    const std::size_t i = static_cast<std::size_t>(x);
    const std::size_t a = first + i, b = std::min<std::size_t>(a + 1, last - 1);
    return values[a] + (values[b] - values[a]) * (x - static_cast<float>(i));
}

float GuideLayer::at(Vec3f position, float t) const {
    std::uint32_t nearest[kNeighbours];
    float distances[kNeighbours];
    const std::size_t found = roots_.kNearest(position, kNeighbours, nearest, distances);
    if (found == 0) return 0.0f;
    // A root on a guide's root takes that guide alone.
    if (distances[0] <= 1e-12f) return guideValue(guideOfRoot_[nearest[0]], t);
    float sum = 0.0f, weights = 0.0f;
    for (std::size_t k = 0; k < found; ++k) {
        const float w = 1.0f / distances[k];
        sum += w * guideValue(guideOfRoot_[nearest[k]], t);
        weights += w;
    }
    return weights > 0.0f && std::isfinite(sum / weights) ? sum / weights : 0.0f;
}

float GuideLayer::mean() const {
    const std::vector<float>& values = guideValues_ ? *guideValues_ : *pointValues_;
    if (values.empty()) return 0.0f;
    double sum = 0.0;
    for (float v : values) sum += v;
    return static_cast<float>(sum / static_cast<double>(values.size()));
}

GuideSampler::GuideSampler(std::shared_ptr<const GuideLayer> layer, std::shared_ptr<const ScalpMesh> scalp,
                           float low, float high)
    : ScalarField(low, high), layer_(std::move(layer)), scalp_(std::move(scalp)) {}

float GuideSampler::rawStrand(const StrandSet& strands, std::size_t strand) const {
    return layer_->at(rootSample(scalp_.get(), strands, strand).position, 0.0f);
}

float GuideSampler::rawPoint(const StrandSet& strands, std::size_t strand, std::size_t, float t) const {
    return layer_->at(rootSample(scalp_.get(), strands, strand).position, t);
}

std::uint64_t GuideSampler::sourceStamp() const {
    return combine(combine(0x65A3, layer_->stamp()), scalp_ ? scalp_->contentHash() : 0);
}

std::shared_ptr<const MapSampler> guideLayerSampler(std::shared_ptr<const GuideLayer> layer) {
    return std::make_shared<const GuideLayerSampler>(std::move(layer));
}

}  // namespace tressora
