#include "core/area_sampler.h"

#include <algorithm>
#include <cmath>

namespace tressora {

AreaSampler::AreaSampler(const ScalpMesh& mesh, bool rest) {
    const auto areas = rest && mesh.hasRest() ? mesh.restAreas() : mesh.triangleAreas();
    cumulative_.resize(areas.size());
    double sum = 0.0;
    for (std::size_t i = 0; i < areas.size(); ++i) {
        sum += areas[i];
        cumulative_[i] = sum;
    }
}

std::int32_t AreaSampler::pickFace(double u) const {
    const double total = totalArea();
    if (!(total > 0.0)) return -1;
    const double target = u * total;
    auto it = std::lower_bound(cumulative_.begin(), cumulative_.end(), target);
    if (it == cumulative_.end()) --it;
    // A target of exactly 0 would land on leading faces of zero area: step past them.
    std::size_t face = static_cast<std::size_t>(it - cumulative_.begin());
    while (face + 1 < cumulative_.size() && cumulative_[face] == (face ? cumulative_[face - 1] : 0.0)) ++face;
    return static_cast<std::int32_t>(face);
}

StrandRoot AreaSampler::sample(double u1, float u2, float u3) const {
    const std::int32_t face = pickFace(u1);
    if (face < 0) return {};
    const float s = std::sqrt(u2);
    return {face, (1.0f - u3) * s, u3 * s};
}

}  // namespace tressora
