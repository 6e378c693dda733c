#pragma once
// Schema readers: transforms, curves and polygon meshes, read sample by sample from an open
// archive. A property with fewer samples than the schema (a constant topology, say) gives its
// last sample for later indices, as Alembic readers do. Readers keep pointers into the
// ArchiveReader, which must outlive them; their const functions may run on several threads.

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "core/vec.h"
#include "io/alembic/abc_reader.h"
#include "io/alembic/geom_params.h"
#include "io/alembic/geom_types.h"

namespace tressora::abc {

/// Whether an object carries the schema (by name, any version: "AbcGeom_Curve_v1" is curves too).
bool isCurves(const ObjectReader& object);
bool isPolyMesh(const ObjectReader& object);
bool isXform(const ObjectReader& object);

/// A transform sample: the local matrix (row-major, points as row vectors, translation in
/// elements 12-14) and whether the parent's transform applies.
struct XformData {
    double time = 0.0;
    bool inherits = true;
    std::array<double, 16> matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
};

class XformReader {
public:
    /// Throws AlembicError when the object is not a transform or has no ".xform" compound.
    explicit XformReader(const ObjectReader& object);
    std::uint32_t numSamples() const { return numSamples_; }
    const TimeSampling& timeSampling() const;
    std::uint32_t timeSamplingIndex() const { return timed_ ? timed_->header().timeSampling : 0; }
    /// Sample `index` (below numSamples(), or 0 for a transform without samples).
    XformData read(std::uint32_t index) const;

private:
    const ObjectReader* object_;
    const PropertyReader* inherits_ = nullptr;
    const PropertyReader* ops_ = nullptr;
    const PropertyReader* values_ = nullptr;
    const PropertyReader* timed_ = nullptr;
    std::uint32_t numSamples_ = 0;
};

/// What a curves or mesh sample holds in common.
struct GeomData {
    double time = 0.0;
    std::vector<Vec3f> positions;
    std::optional<Box3d> selfBounds;
    std::vector<Vec3f> velocities;
    std::optional<GeomParamSample> uvs;
    std::optional<GeomParamSample> normals;
};

/// A curves sample as stored.
struct CurvesData : GeomData {
    std::vector<std::int32_t> vertexCounts;
    CurveType type = CurveType::Cubic;
    CurveWrap wrap = CurveWrap::NonPeriodic;
    CurveBasis basis = CurveBasis::Bezier;
    std::optional<GeomParamSample> widths;
    std::vector<float> knots;
    std::vector<std::uint8_t> orders;
    std::vector<float> weights;
};

/// What curves and meshes share: the schema compound, bounds and user params.
class GeomReader {
public:
    std::uint32_t numSamples() const { return positions_->numSamples(); }
    const TimeSampling& timeSampling() const { return positions_->timeSampling(); }
    std::uint32_t timeSamplingIndex() const { return positions_->header().timeSampling; }
    const ObjectReader& object() const { return *object_; }
    /// The params of ".arbGeomParams", in file order.
    const std::vector<GeomParamReader>& arbGeomParams() const { return arbGeomParams_; }
    const GeomParamReader* arbGeomParam(std::string_view name) const;
    /// The ".userProperties" compound, or nullptr.
    const PropertyReader* userProperties() const { return geom_->find(".userProperties"); }
    /// The schema compound (".geom").
    const PropertyReader& geom() const { return *geom_; }

protected:
    GeomReader(const ObjectReader& object, const char* what, bool schemaFits);
    /// The named child of the schema compound, checked to be an array or scalar of `type`.
    const PropertyReader* child(const char* name, PropertyKind kind, DataType type, bool required) const;
    /// Checks the index and reads the time, positions, bounds, velocities, uvs and normals.
    void readCommon(std::uint32_t index, GeomData& data) const;

    const ObjectReader* object_;
    const PropertyReader* geom_ = nullptr;

private:
    const PropertyReader* positions_ = nullptr;
    const PropertyReader* selfBounds_ = nullptr;
    const PropertyReader* velocities_ = nullptr;
    std::optional<GeomParamReader> uvs_, normals_;
    std::vector<GeomParamReader> arbGeomParams_;
};

class CurvesReader final : public GeomReader {
public:
    /// Throws AlembicError when the object is not curves or lacks "P" or "nVertices".
    explicit CurvesReader(const ObjectReader& object);
    /// Sample `index` (below numSamples()).
    CurvesData read(std::uint32_t index) const;

private:
    const PropertyReader* vertexCounts_ = nullptr;
    const PropertyReader* basisAndType_ = nullptr;
    const PropertyReader* knots_ = nullptr;
    const PropertyReader* orders_ = nullptr;
    const PropertyReader* weights_ = nullptr;
    std::optional<GeomParamReader> widths_;
};

/// A polygon mesh sample as stored (faces clockwise).
struct PolyMeshData : GeomData {
    std::vector<std::int32_t> faceIndices;
    std::vector<std::int32_t> faceCounts;
};

class PolyMeshReader final : public GeomReader {
public:
    /// Throws AlembicError when the object is not a polygon mesh or lacks its topology.
    explicit PolyMeshReader(const ObjectReader& object);
    /// Sample `index` (below numSamples()).
    PolyMeshData read(std::uint32_t index) const;

private:
    const PropertyReader* faceIndices_ = nullptr;
    const PropertyReader* faceCounts_ = nullptr;
};

}  // namespace tressora::abc
