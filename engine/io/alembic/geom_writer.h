#pragma once
// Schema writers: a transform, curves and a polygon mesh, each an object of the archive with
// the properties the Alembic geometry schemas define, created, written and closed in the order
// the Alembic library uses (so equal input gives equal files). Make them with
// parent.addChild<CurvesWriter>("name", timeSampling); write one sample per frame.
// Like every writer, they belong to one thread.

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/vec.h"
#include "io/alembic/abc_writer.h"
#include "io/alembic/geom_params.h"
#include "io/alembic/geom_types.h"

namespace tressora::abc {

/// Common ground of curves and meshes: the schema compound, self bounds, and the user
/// compounds ".arbGeomParams" and ".userProperties".
class GeomWriter : public ObjectWriter {
public:
    /// The ".arbGeomParams" compound, created on first use.
    CompoundWriter& arbGeomParams();
    /// The ".userProperties" compound, created on first use.
    CompoundWriter& userProperties();
    /// Adds a user geometry param to ".arbGeomParams" with this object's time sampling.
    GeomParamWriter& addArbGeomParam(std::string name, const GeomParamType& type, GeometryScope scope,
                                     bool indexed = false, const MetaData& extra = {});
    std::uint32_t numSamples() const { return numSamples_; }
    std::uint32_t timeSampling() const { return timeSampling_; }

protected:
    GeomWriter(const Init& init, std::string_view schema, std::uint32_t timeSampling);
    /// Closes the user params (latest first), then calls closeOwnProperties, then the user
    /// compounds, the bounds and the schema compound.
    void closeSchema() final;
    virtual void closeOwnProperties() = 0;
    void writeBounds(const std::optional<Box3d>& given, std::span<const Vec3f> positions);
    /// Writes the velocities (created when first given, repeated when left out).
    void writeVelocities(const std::optional<std::span<const Vec3f>>& velocities);
    /// Writes the uvs, then the normals (each created when first given).
    void writeUvsAndNormals(const std::optional<GeomValues<Vec2f>>& uvs, const std::optional<GeomValues<Vec3f>>& normals,
                            const MetaData& uvExtra = {});

    CompoundWriter* geom_ = nullptr;
    ScalarWriter* selfBounds_ = nullptr;
    ArrayWriter* positions_ = nullptr;
    ArrayWriter* velocities_ = nullptr;
    std::unique_ptr<GeomParamWriter> uvs_;
    std::unique_ptr<GeomParamWriter> normals_;
    std::uint32_t timeSampling_ = 0;
    std::uint32_t numSamples_ = 0;

private:
    CompoundWriter* arbGeomParams_ = nullptr;
    CompoundWriter* userProperties_ = nullptr;
    std::vector<std::unique_ptr<GeomParamWriter>> userParams_;
};

/// One frame of curves. Spans are read during write() only.
struct CurvesSample {
    std::span<const Vec3f> positions;            ///< every curve's points, one curve after another
    std::span<const std::int32_t> vertexCounts;  ///< points per curve
    CurveType type = CurveType::Linear;
    CurveWrap wrap = CurveWrap::NonPeriodic;
    CurveBasis basis = CurveBasis::None;
    std::optional<Box3d> selfBounds;             ///< computed from the positions when absent
    std::optional<std::span<const Vec3f>> velocities;
    std::optional<GeomValues<float>> widths;     ///< stored as "width"
    std::optional<GeomValues<Vec2f>> uvs;        ///< stored as "uv"
    std::optional<GeomValues<Vec3f>> normals;    ///< stored as "N"
};

class CurvesWriter final : public GeomWriter {
public:
    CurvesWriter(const Init& init, std::uint32_t timeSampling);
    /// Writes one sample. The vertex counts must be non-negative and add up to the positions;
    /// widths, uvs and normals must fit their scope. A param given once must be given on later
    /// frames or it repeats its previous values. Throws std::invalid_argument for a bad sample.
    void write(const CurvesSample& sample);

private:
    void closeOwnProperties() override;

    ArrayWriter* vertexCounts_ = nullptr;
    ScalarWriter* basisAndType_ = nullptr;
    std::unique_ptr<GeomParamWriter> widths_;
};

/// One frame of a polygon mesh (faces listed clockwise, as Alembic stores them).
struct PolyMeshSample {
    std::span<const Vec3f> positions;
    std::span<const std::int32_t> faceIndices;  ///< every face's point indices, face after face
    std::span<const std::int32_t> faceCounts;   ///< corners per face
    std::optional<Box3d> selfBounds;
    std::optional<std::span<const Vec3f>> velocities;
    std::optional<GeomValues<Vec2f>> uvs;      ///< usually face-varying
    std::optional<GeomValues<Vec3f>> normals;  ///< usually face-varying
};

class PolyMeshWriter final : public GeomWriter {
public:
    PolyMeshWriter(const Init& init, std::uint32_t timeSampling);
    /// The uv set's name, stored as "sourceName" with the uvs; only before the first uvs.
    void setUvSourceName(std::string name);
    /// Writes one sample. Face counts must be non-negative and add up to the face indices,
    /// which must name existing points. Throws std::invalid_argument for a bad sample.
    void write(const PolyMeshSample& sample);

private:
    void closeOwnProperties() override;

    ArrayWriter* faceIndices_ = nullptr;
    ArrayWriter* faceCounts_ = nullptr;
    std::string uvSourceName_;
};

/// A transform that places its children where they are (the identity), as a parent for shapes.
class XformWriter final : public ObjectWriter {
public:
    XformWriter(const Init& init, std::uint32_t timeSampling);
    /// Writes one identity sample; `inherits` says whether the parent's transform applies.
    void writeIdentity(bool inherits = true);
    std::uint32_t numSamples() const { return inherits_->numSamples(); }

private:
    void closeSchema() override;

    CompoundWriter* xform_ = nullptr;
    ScalarWriter* inherits_ = nullptr;
};

}  // namespace tressora::abc
