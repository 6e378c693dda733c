#include "io/alembic/geom_writer.h"

#include <stdexcept>

namespace tressora::abc {

namespace {

// Sizes a param must have for its scope, given the points, curves or faces and face corners.
struct ScopeCounts {
    std::uint64_t points = 0;
    std::uint64_t primitives = 0;  // curves or faces
    std::uint64_t corners = 0;     // face-varying elements (meshes)
};

template <class T>
void checkParamSize(const std::string& where, const char* name, const std::optional<GeomValues<T>>& param,
                    const ScopeCounts& counts) {
    if (!param) return;
    const std::uint64_t size = param->indexed ? param->indices.size() : param->values.size();
    std::uint64_t expected = 0;
    switch (param->scope) {
        case GeometryScope::Constant: expected = 1; break;
        case GeometryScope::Uniform: expected = counts.primitives; break;
        case GeometryScope::Vertex: expected = counts.points; break;
        case GeometryScope::FaceVarying:
            if (counts.corners == 0) return;  // curves have no face corners; any size is accepted
            expected = counts.corners;
            break;
        default: return;
    }
    if (size != expected)
        throw std::invalid_argument("the " + std::string(name) + " of '" + where + "' have " + std::to_string(size) +
                                    " values where their scope needs " + std::to_string(expected));
}

// The sum of per-curve or per-face counts, refusing negative ones.
std::uint64_t sumCounts(std::span<const std::int32_t> counts, const std::string& where, const char* what) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        if (counts[i] < 0)
            throw std::invalid_argument("'" + where + "': " + what + " " + std::to_string(i) + " has a negative count");
        sum += static_cast<std::uint64_t>(counts[i]);
    }
    return sum;
}

// Writes one schema sample's optional param: creates it on first use (with empty samples for
// the frames before), writes the values given, or repeats the previous sample when none are.
template <class T>
void writeOptionalParam(CompoundWriter& parent, std::unique_ptr<GeomParamWriter>& param, const char* name,
                        const GeomParamType& type, const std::optional<GeomValues<T>>& values,
                        std::uint32_t earlierSamples, std::uint32_t timeSampling, const MetaData& extra = {}) {
    if (values && !param) {
        param = std::make_unique<GeomParamWriter>(parent, name, type, values->scope, values->indexed, timeSampling,
                                                  extra);
        for (std::uint32_t i = 0; i < earlierSamples; ++i) param->writeEmpty();
    }
    if (!param) return;
    if (!values) {
        param->writeRepeat();
        return;
    }
    const auto bytes = std::as_bytes(values->values);
    const std::uint64_t count = bytes.size() / (podSize(type.type.pod) * type.type.extent);
    if (param->indexed())
        param->writeIndexed(bytes, count, values->indices);
    else
        param->write(bytes, count);
}

void writeVectors(ArrayWriter& array, std::span<const Vec3f> values) {
    array.write(std::as_bytes(values), values.size());
}

}  // namespace

// ---- GeomWriter ------------------------------------------------------------------------------

GeomWriter::GeomWriter(const Init& init, std::string_view schema, std::uint32_t timeSampling)
    : ObjectWriter(init, schemaObjectMetaData(schema, schemas::kGeomBase, ".geom")), timeSampling_(timeSampling) {
    geom_ = &properties().addCompound(".geom", schemaCompoundMetaData(schema, schemas::kGeomBase));
    selfBounds_ = &geom_->addScalar(".selfBnds", {Pod::Float64, 6}, metaDataWith("interpretation", "box"), timeSampling);
    MetaData pointMd = metaDataWith("geoScope", "vtx");
    pointMd.set("interpretation", "point");
    positions_ = &geom_->addArray("P", {Pod::Float32, 3}, pointMd, timeSampling);
}

CompoundWriter& GeomWriter::arbGeomParams() {
    if (!arbGeomParams_) arbGeomParams_ = &geom_->addCompound(".arbGeomParams");
    return *arbGeomParams_;
}

CompoundWriter& GeomWriter::userProperties() {
    if (!userProperties_) userProperties_ = &geom_->addCompound(".userProperties");
    return *userProperties_;
}

GeomParamWriter& GeomWriter::addArbGeomParam(std::string name, const GeomParamType& type, GeometryScope scope,
                                             bool indexed, const MetaData& extra) {
    CompoundWriter& parent = arbGeomParams();
    userParams_.push_back(
        std::make_unique<GeomParamWriter>(parent, std::move(name), type, scope, indexed, timeSampling_, extra));
    return *userParams_.back();
}

void GeomWriter::writeBounds(const std::optional<Box3d>& given, std::span<const Vec3f> positions) {
    const Box3d box = given ? *given : boundsOf(positions);
    const std::array<double, 6> values = box.values();
    selfBounds_->writeValues(std::span<const double>(values));
}

void GeomWriter::writeVelocities(const std::optional<std::span<const Vec3f>>& velocities) {
    if (velocities && !velocities_) {
        velocities_ = &geom_->addArray(".velocities", {Pod::Float32, 3}, metaDataWith("interpretation", "vector"),
                                       timeSampling_);
        for (std::uint32_t i = 0; i < numSamples_; ++i) velocities_->write({}, 0);
    }
    if (!velocities_) return;
    if (velocities)
        writeVectors(*velocities_, *velocities);
    else
        velocities_->writeRepeat();
}

void GeomWriter::writeUvsAndNormals(const std::optional<GeomValues<Vec2f>>& uvs,
                                    const std::optional<GeomValues<Vec3f>>& normals, const MetaData& uvExtra) {
    writeOptionalParam(*geom_, uvs_, "uv", GeomParamType::vec2(), uvs, numSamples_, timeSampling_, uvExtra);
    writeOptionalParam(*geom_, normals_, "N", GeomParamType::normal3(), normals, numSamples_, timeSampling_);
}

void GeomWriter::closeSchema() {
    for (auto it = userParams_.rbegin(); it != userParams_.rend(); ++it) (*it)->close();
    closeOwnProperties();
    if (userProperties_) userProperties_->close();
    if (arbGeomParams_) arbGeomParams_->close();
    selfBounds_->close();
    geom_->close();
}

// ---- CurvesWriter ----------------------------------------------------------------------------

CurvesWriter::CurvesWriter(const Init& init, std::uint32_t timeSampling)
    : GeomWriter(init, schemas::kCurves, timeSampling) {
    vertexCounts_ = &geom_->addArray("nVertices", {Pod::Int32, 1}, {}, timeSampling);
    basisAndType_ = &geom_->addScalar("curveBasisAndType", {Pod::Uint8, 4}, {}, timeSampling);
}

void CurvesWriter::write(const CurvesSample& sample) {
    requireOpen();
    const std::uint64_t points = sumCounts(sample.vertexCounts, fullName(), "curve");
    if (points != sample.positions.size())
        throw std::invalid_argument("'" + fullName() + "': the vertex counts add up to " + std::to_string(points) +
                                    " points but the sample holds " + std::to_string(sample.positions.size()));
    const ScopeCounts counts{points, sample.vertexCounts.size(), 0};
    checkParamSize(fullName(), "widths", sample.widths, counts);
    checkParamSize(fullName(), "uvs", sample.uvs, counts);
    checkParamSize(fullName(), "normals", sample.normals, counts);
    if (sample.velocities && sample.velocities->size() != points)
        throw std::invalid_argument("'" + fullName() + "': the velocities must have one value per point");

    const std::uint8_t basisAndType[4] = {static_cast<std::uint8_t>(sample.type), static_cast<std::uint8_t>(sample.wrap),
                                          static_cast<std::uint8_t>(sample.basis),
                                          static_cast<std::uint8_t>(sample.basis)};
    writeVectors(*positions_, sample.positions);
    vertexCounts_->writeValues(sample.vertexCounts);
    basisAndType_->writeValues(std::span<const std::uint8_t>(basisAndType));
    writeVelocities(sample.velocities);
    // The first sample stores its bounds before the params, later ones after them.
    if (numSamples_ == 0) writeBounds(sample.selfBounds, sample.positions);
    writeUvsAndNormals(sample.uvs, sample.normals);
    writeOptionalParam(*geom_, widths_, "width", GeomParamType::float32(), sample.widths, numSamples_, timeSampling_);
    if (numSamples_ != 0) writeBounds(sample.selfBounds, sample.positions);
    ++numSamples_;
}

void CurvesWriter::closeOwnProperties() {
    basisAndType_->close();
    if (velocities_) velocities_->close();
    if (widths_) widths_->close();
    if (normals_) normals_->close();
    if (uvs_) uvs_->close();
    vertexCounts_->close();
    positions_->close();
}

// ---- PolyMeshWriter --------------------------------------------------------------------------

PolyMeshWriter::PolyMeshWriter(const Init& init, std::uint32_t timeSampling)
    : GeomWriter(init, schemas::kPolyMesh, timeSampling) {
    faceIndices_ = &geom_->addArray(".faceIndices", {Pod::Int32, 1}, {}, timeSampling);
    faceCounts_ = &geom_->addArray(".faceCounts", {Pod::Int32, 1}, {}, timeSampling);
}

void PolyMeshWriter::setUvSourceName(std::string name) {
    if (uvs_) throw std::logic_error("'" + fullName() + "': the uv set is named before the first uvs are written");
    uvSourceName_ = std::move(name);
}

void PolyMeshWriter::write(const PolyMeshSample& sample) {
    requireOpen();
    const std::uint64_t corners = sumCounts(sample.faceCounts, fullName(), "face");
    if (corners != sample.faceIndices.size())
        throw std::invalid_argument("'" + fullName() + "': the face counts add up to " + std::to_string(corners) +
                                    " corners but the sample lists " + std::to_string(sample.faceIndices.size()));
    for (std::int32_t index : sample.faceIndices)
        if (index < 0 || static_cast<std::uint64_t>(index) >= sample.positions.size())
            throw std::invalid_argument("'" + fullName() + "': the face index " + std::to_string(index) +
                                        " names no point of the " + std::to_string(sample.positions.size()));
    const ScopeCounts counts{sample.positions.size(), sample.faceCounts.size(), corners};
    checkParamSize(fullName(), "uvs", sample.uvs, counts);
    checkParamSize(fullName(), "normals", sample.normals, counts);
    if (sample.velocities && sample.velocities->size() != sample.positions.size())
        throw std::invalid_argument("'" + fullName() + "': the velocities must have one value per point");

    writeVectors(*positions_, sample.positions);
    faceIndices_->writeValues(sample.faceIndices);
    faceCounts_->writeValues(sample.faceCounts);
    writeVelocities(sample.velocities);
    writeBounds(sample.selfBounds, sample.positions);
    writeUvsAndNormals(sample.uvs, sample.normals,
                       uvSourceName_.empty() ? MetaData() : metaDataWith("sourceName", uvSourceName_));
    ++numSamples_;
}

void PolyMeshWriter::closeOwnProperties() {
    if (normals_) normals_->close();
    if (uvs_) uvs_->close();
    faceCounts_->close();
    faceIndices_->close();
    if (velocities_) velocities_->close();
    positions_->close();
}

// ---- XformWriter -----------------------------------------------------------------------------

XformWriter::XformWriter(const Init& init, std::uint32_t timeSampling)
    : ObjectWriter(init, schemaObjectMetaData(schemas::kXform, "", ".xform")) {
    xform_ = &properties().addCompound(".xform", schemaCompoundMetaData(schemas::kXform, ""));
    inherits_ = &xform_->addScalar(".inherits", {Pod::Bool, 1}, {}, timeSampling);
}

void XformWriter::writeIdentity(bool inherits) {
    requireOpen();
    inherits_->writeValue(inherits);
}

void XformWriter::closeSchema() {
    inherits_->close();
    xform_->close();
}

}  // namespace tressora::abc
