#include "io/alembic/geom_types.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "core/parallel.h"

namespace tressora::abc {

namespace {

constexpr std::string_view kScopeTokens[] = {"con", "uni", "var", "vtx", "fvr", ""};

// Points per chunk when bounds are computed in parallel.
constexpr std::size_t kBoundsChunk = 1 << 16;

}  // namespace

std::string_view scopeToken(GeometryScope scope) { return kScopeTokens[static_cast<int>(scope)]; }

GeometryScope parseScope(std::string_view token) {
    if (token.empty()) return GeometryScope::Constant;
    for (int i = 0; i < 5; ++i)
        if (kScopeTokens[i] == token) return static_cast<GeometryScope>(i);
    return GeometryScope::Unknown;
}

void Box3d::extendBy(const Vec3f& p) {
    for (int k = 0; k < 3; ++k) {
        const double v = p[k];
        min[k] = std::min(min[k], v);
        max[k] = std::max(max[k], v);
    }
}

void Box3d::extendBy(const Box3d& other) {
    for (int k = 0; k < 3; ++k) {
        min[k] = std::min(min[k], other.min[k]);
        max[k] = std::max(max[k], other.max[k]);
    }
}

Box3d Box3d::fromValues(std::span<const double> six) {
    Box3d box;
    if (six.size() != 6) return box;
    for (int k = 0; k < 3; ++k) {
        box.min[k] = six[k];
        box.max[k] = six[k + 3];
    }
    return box;
}

Box3d boundsOf(std::span<const Vec3f> points) {
    // Chunks keep their box in single precision (exact: converting floats to double keeps their
    // order), which is several times faster than extending a double box point by point.
    const std::size_t chunks = (points.size() + kBoundsChunk - 1) / kBoundsChunk;
    std::vector<Box3d> partial(chunks);
    parallelRange(0, chunks, 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t c = lo; c < hi; ++c) {
            const std::size_t end = std::min(points.size(), (c + 1) * kBoundsChunk);
            constexpr float kInf = std::numeric_limits<float>::infinity();
            Vec3f low{kInf, kInf, kInf}, high{-kInf, -kInf, -kInf};
            for (std::size_t i = c * kBoundsChunk; i < end; ++i) {
                const Vec3f& p = points[i];
                low.x = p.x < low.x ? p.x : low.x;
                low.y = p.y < low.y ? p.y : low.y;
                low.z = p.z < low.z ? p.z : low.z;
                high.x = p.x > high.x ? p.x : high.x;
                high.y = p.y > high.y ? p.y : high.y;
                high.z = p.z > high.z ? p.z : high.z;
            }
            for (int k = 0; k < 3; ++k) {
                partial[c].min[k] = low[k];
                partial[c].max[k] = high[k];
            }
        }
    });
    Box3d box;
    for (const Box3d& b : partial) box.extendBy(b);
    return box;
}

MetaData schemaObjectMetaData(std::string_view schema, std::string_view baseType, std::string_view compound) {
    MetaData md = schemaCompoundMetaData(schema, baseType);
    md.set("schemaObjTitle", std::string(schema) + ":" + std::string(compound));
    return md;
}

MetaData schemaCompoundMetaData(std::string_view schema, std::string_view baseType) {
    MetaData md;
    md.set("schema", std::string(schema));
    md.set("schemaBaseType", std::string(baseType));
    return md;
}

MetaData metaDataWith(const std::string& key, const std::string& value) {
    MetaData md;
    md.set(key, value);
    return md;
}

}  // namespace tressora::abc
