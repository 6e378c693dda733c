#include "groom/follow_carry.h"

#include <stdexcept>

#include "core/parallel.h"

namespace tressora {

namespace {

constexpr std::size_t kStrandGrain = 256;

// A triangle's frame at a point of it: the origin there, x along the first edge, z the face
// normal and y completing the right-handed set. `solid` is false for a triangle without area.
struct SurfaceFrame {
    Vec3f origin, x, y, z;
    bool solid = false;
};

SurfaceFrame surfaceFrame(std::span<const Vec3f> points, const ScalpMesh::Triangle& t, float b1, float b2) {
    const Vec3f a = points[static_cast<std::size_t>(t[0])];
    const Vec3f e1 = points[static_cast<std::size_t>(t[1])] - a;
    const Vec3f e2 = points[static_cast<std::size_t>(t[2])] - a;
    SurfaceFrame f;
    f.origin = a + e1 * b1 + e2 * b2;
    f.x = normalized(e1);
    f.z = normalized(cross(e1, e2));
    f.y = cross(f.z, f.x);
    f.solid = lengthSquared(f.x) > 0.0f && lengthSquared(f.z) > 0.0f;
    return f;
}

}  // namespace

FollowCarry::FollowCarry(const StrandSet& strands, const ScalpMesh& rest) : roots_(strands.strandCount()) {
    const auto faces = static_cast<std::int64_t>(rest.triangleCount());
    // Strands without a face on this scalp (curves read from a file, say, in whatever order
    // the file had them) are bound where their first point is closest, all in one bulk query.
    std::vector<std::uint32_t> unbound;
    for (std::size_t i = 0; i < strands.strandCount(); ++i) {
        const StrandRoot root = strands.roots()[i];
        if (root.face >= 0 && root.face < faces) roots_[i] = {root.face, root.u, root.v};
        else if (faces > 0 && !strands.strandPoints(i).empty()) unbound.push_back(static_cast<std::uint32_t>(i));
    }
    std::vector<Vec3f> firsts(unbound.size());
    for (std::size_t k = 0; k < unbound.size(); ++k) firsts[k] = strands.strandPoints(unbound[k]).front();
    std::vector<SurfacePoint> hits(unbound.size());
    rest.closestPoints(firsts, hits);
    for (std::size_t k = 0; k < unbound.size(); ++k) roots_[unbound[k]] = {hits[k].face, hits[k].b1, hits[k].b2};
}

std::shared_ptr<const StrandSet> FollowCarry::carry(const StrandSet& strands, const ScalpMesh& rest,
                                                    const ScalpMesh& current) const {
    if (strands.strandCount() != roots_.size())
        throw std::invalid_argument("FollowCarry: the strands are not those the carry was made for");
    if (rest.pointCount() != current.pointCount() || rest.triangleCount() != current.triangleCount())
        throw std::invalid_argument("FollowCarry: the current scalp's topology is not the rest scalp's");
    auto moved = std::make_shared<StrandSet>(strands);
    const std::span<Vec3f> points = moved->mutablePoints();
    const std::span<const ScalpMesh::Triangle> triangles = rest.triangles();
    parallelRange(0, roots_.size(), kStrandGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const RootCarry& r = roots_[i];
            if (r.face < 0) continue;
            const ScalpMesh::Triangle& t = triangles[static_cast<std::size_t>(r.face)];
            const SurfaceFrame from = surfaceFrame(rest.points(), t, r.b1, r.b2);
            const SurfaceFrame to = surfaceFrame(current.points(), t, r.b1, r.b2);
            const PointRange range = moved->pointRange(i);
            for (std::size_t p = range.begin; p < range.end; ++p) {
                const Vec3f d = points[p] - from.origin;
                if (!from.solid || !to.solid) {
                    points[p] = to.origin + d;
                    continue;
                }
                points[p] = to.origin + to.x * dot(d, from.x) + to.y * dot(d, from.y) + to.z * dot(d, from.z);
            }
        }
    });
    return moved;
}

}  // namespace tressora
