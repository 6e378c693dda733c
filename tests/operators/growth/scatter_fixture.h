#pragma once
// Helpers for Scatter's tests: a node made through the registry, scalps, and an evaluation
// with the inputs handed straight to the operator.

#include <map>
#include <memory>
#include <vector>

#include "core/guide_set.h"
#include "core/hash.h"
#include "core/point_index.h"
#include "core/strand_set.h"
#include "core/test_meshes.h"
#include "graph/operator_registry.h"
#include "maps/scalar_field.h"
#include "operators/growth/scatter.h"

namespace tressora::scattertest {

inline std::unique_ptr<Operator> makeScatter(const std::map<std::string, ParamValue>& params = {}) {
    std::unique_ptr<Operator> op = OperatorRegistry::instance().create("Scatter");
    for (const auto& [name, value] : params) op->paramValues.set(name, value);
    return op;
}

inline std::shared_ptr<const ScalpMesh> sphere(float radius = 1.0f, int levels = 3) {
    return std::make_shared<const ScalpMesh>(testing::icosphere(levels, radius));
}

/// A flat square of n x n cells, with UVs equal to its x and y over its size.
inline std::shared_ptr<const ScalpMesh> square(int n, float size = 1.0f) {
    ScalpMesh mesh = testing::grid(n, size);
    std::vector<ScalpMesh::Uv> uvs;
    for (const auto& tri : mesh.triangles())
        for (int corner = 0; corner < 3; ++corner) {
            const Vec3f p = mesh.points()[static_cast<std::size_t>(tri[corner])];
            uvs.push_back({p.x / size, p.y / size});
        }
    mesh.setUvs(std::move(uvs));
    return std::make_shared<const ScalpMesh>(std::move(mesh));
}

inline std::shared_ptr<const StrandSet> run(Operator& op, std::shared_ptr<const ScalpMesh> scalp,
                                            EvalContext context = {}, std::vector<Value> extra = {}) {
    std::vector<Value> inputs{Value(std::move(scalp)), Value()};
    inputs.insert(inputs.end(), extra.begin(), extra.end());
    const Value out = op.evaluate(context, inputs);
    return out.as<StrandSet>();
}

/// Root spot of each strand by id.
inline std::map<std::uint64_t, StrandRoot> rootsById(const StrandSet& set) {
    std::map<std::uint64_t, StrandRoot> out;
    for (std::size_t i = 0; i < set.strandCount(); ++i) out[set.ids()[i]] = set.roots()[i];
    return out;
}

/// The smallest and the mean distance from each root to its nearest other root.
struct Spacing {
    float smallest = 0.0f;
    float mean = 0.0f;
};
inline Spacing spacing(const StrandSet& set) {
    std::vector<Vec3f> roots;
    for (std::size_t i = 0; i < set.strandCount(); ++i) roots.push_back(set.strandPoints(i)[0]);
    const PointIndex index(roots);
    Spacing s{1e30f, 0.0f};
    for (const Vec3f& p : roots) {
        std::uint32_t found[2];
        float d2[2];
        index.kNearest(p, 2, found, d2);
        s.smallest = std::min(s.smallest, std::sqrt(d2[1]));
        s.mean += std::sqrt(d2[1]) / static_cast<float>(roots.size());
    }
    return s;
}

/// A density map for tests: `high` where x is above `cut`, 0 elsewhere.
class HalfMap final : public ScalarField {
public:
    HalfMap(float high, std::shared_ptr<const ScalpMesh> scalp, float cut = 0.0f)
        : ScalarField(0.0f, high), scalp_(std::move(scalp)), cut_(cut) {}
    bool perPoint() const override { return false; }

private:
    float rawStrand(const StrandSet& strands, std::size_t strand) const override {
        const StrandRoot r = strands.roots()[strand];
        return scalp_->positionAt(r.face, r.u, r.v).x > cut_ ? 1.0f : 0.0f;
    }
    float rawMean() const override { return 0.5f; }
    std::uint64_t sourceStamp() const override { return combine(0x4A1F, floatBits(cut_)); }
    std::shared_ptr<const ScalpMesh> scalp_;
    float cut_;
};

}  // namespace tressora::scattertest
