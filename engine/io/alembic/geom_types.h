#pragma once
// Value types of the geometry schemas (curves, polygon meshes, transforms): geometry scopes,
// curve kinds, bounding boxes, and the schema names and metadata the format uses.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "core/vec.h"
#include "io/alembic/abc_types.h"

namespace tressora::abc {

/// Two floats: a texture coordinate.
using Vec2f = std::array<float, 2>;

/// How many values a geometry param holds: one in all (Constant), one per curve or face
/// (Uniform), one per vertex of the curves' segments (Varying), one per point (Vertex), one per
/// face corner (FaceVarying).
enum class GeometryScope : std::uint8_t { Constant, Uniform, Varying, Vertex, FaceVarying, Unknown };

/// "con", "uni", "var", "vtx", "fvr" ("" for Unknown).
std::string_view scopeToken(GeometryScope scope);
/// The scope of a token; an empty token means Constant, an unknown one Unknown.
GeometryScope parseScope(std::string_view token);

enum class CurveType : std::uint8_t { Cubic = 0, Linear = 1, VariableOrder = 2 };
enum class CurveWrap : std::uint8_t { NonPeriodic = 0, Periodic = 1 };
enum class CurveBasis : std::uint8_t { None = 0, Bezier = 1, BSpline = 2, CatmullRom = 3, Hermite = 4, Power = 5 };

/// An axis-aligned box in double precision; empty is min = +max double, max = -max double.
struct Box3d {
    std::array<double, 3> min{1.7976931348623157e308, 1.7976931348623157e308, 1.7976931348623157e308};
    std::array<double, 3> max{-1.7976931348623157e308, -1.7976931348623157e308, -1.7976931348623157e308};

    bool isEmpty() const { return max[0] < min[0] || max[1] < min[1] || max[2] < min[2]; }
    void extendBy(const Vec3f& p);
    void extendBy(const Box3d& other);
    /// min x, y, z, then max x, y, z: the stored order.
    std::array<double, 6> values() const { return {min[0], min[1], min[2], max[0], max[1], max[2]}; }
    static Box3d fromValues(std::span<const double> six);
    bool operator==(const Box3d&) const = default;
};

/// The bounds of points, computed in parallel chunks (the result never depends on threads).
Box3d boundsOf(std::span<const Vec3f> points);

/// The schema names the writers stamp and the readers look for.
namespace schemas {
inline constexpr std::string_view kCurves = "AbcGeom_Curve_v2";
inline constexpr std::string_view kPolyMesh = "AbcGeom_PolyMesh_v1";
inline constexpr std::string_view kXform = "AbcGeom_Xform_v3";
inline constexpr std::string_view kGeomBase = "AbcGeom_GeomBase_v1";
}  // namespace schemas

/// An object's metadata for a schema: schema, base type (when not empty) and
/// "<schema>:<compound>" title.
MetaData schemaObjectMetaData(std::string_view schema, std::string_view baseType, std::string_view compound);
/// The schema compound's metadata: schema and base type.
MetaData schemaCompoundMetaData(std::string_view schema, std::string_view baseType);
/// Metadata with one key set.
MetaData metaDataWith(const std::string& key, const std::string& value);

}  // namespace tressora::abc
