#pragma once
// Area-weighted sampling of a mesh's surface: a face drawn with probability proportional to
// its area, then a point uniform over that face.

#include <cstdint>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/vec.h"

namespace tressora {

class AreaSampler {
public:
    /// A sampler over the mesh's current areas, or its rest areas when `rest` is true and
    /// the mesh has rest data.
    explicit AreaSampler(const ScalpMesh& mesh, bool rest = false);

    /// The total area sampled (double precision running sum of the face areas).
    double totalArea() const { return cumulative_.empty() ? 0.0 : cumulative_.back(); }

    /// The face whose cumulative area is the first not below u * total, for u in [0, 1];
    /// capped at the last face. -1 when the mesh has no area. Faces of zero area are never
    /// picked.
    std::int32_t pickFace(double u) const;

    /// A root uniform over the surface from three numbers in [0, 1): u1 picks the face;
    /// with s = sqrt(u2) the weights are b1 = (1 - u3) * s and b2 = u3 * s.
    /// Face -1 when the mesh has no area.
    StrandRoot sample(double u1, float u2, float u3) const;

private:
    std::vector<double> cumulative_;
};

}  // namespace tressora
