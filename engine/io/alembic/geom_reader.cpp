#include "io/alembic/geom_reader.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "core/errors.h"

namespace tressora::abc {

namespace {

using Matrix = std::array<double, 16>;

constexpr Matrix kIdentity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

bool hasSchema(const ObjectReader& object, std::string_view prefix) {
    return object.schema().starts_with(prefix);
}

std::uint32_t clampIndex(const PropertyReader& p, std::uint32_t index) {
    return std::min(index, p.numSamples() - 1);
}

bool hasSamples(const PropertyReader* p) { return p && p->numSamples() > 0; }

Matrix multiply(const Matrix& a, const Matrix& b) {
    Matrix out{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) out[i * 4 + j] += a[i * 4 + k] * b[k * 4 + j];
    return out;
}

// A rotation about an axis for points as row vectors (p' = p * M), angle in degrees.
Matrix rotation(double x, double y, double z, double degrees) {
    const double length = std::sqrt(x * x + y * y + z * z);
    if (length > 0) {
        x /= length;
        y /= length;
        z /= length;
    }
    const double radians = degrees * std::numbers::pi / 180.0;
    const double s = std::sin(radians), c = std::cos(radians), t = 1.0 - c;
    Matrix m = kIdentity;
    m[0] = x * x * t + c;
    m[1] = x * y * t + z * s;
    m[2] = x * z * t - y * s;
    m[4] = x * y * t - z * s;
    m[5] = y * y * t + c;
    m[6] = y * z * t + x * s;
    m[8] = x * z * t + y * s;
    m[9] = y * z * t - x * s;
    m[10] = z * z * t + c;
    return m;
}

// The matrix of one transform operation (type in the code's high nibble) from its channels.
Matrix operationMatrix(unsigned type, const double* v) {
    Matrix m = kIdentity;
    switch (type) {
        case 0: m[0] = v[0], m[5] = v[1], m[10] = v[2]; break;     // scale
        case 1: m[12] = v[0], m[13] = v[1], m[14] = v[2]; break;   // translate
        case 2: m = rotation(v[0], v[1], v[2], v[3]); break;       // rotate about an axis
        case 3: std::copy(v, v + 16, m.begin()); break;            // matrix
        case 4: m = rotation(1, 0, 0, v[0]); break;                // rotate X
        case 5: m = rotation(0, 1, 0, v[0]); break;                // rotate Y
        case 6: m = rotation(0, 0, 1, v[0]); break;                // rotate Z
        default: break;
    }
    return m;
}

constexpr unsigned kChannels[7] = {3, 3, 4, 16, 1, 1, 1};

void requireSchema(const ObjectReader& object, bool fits, const char* what) {
    if (fits) return;
    const std::string schema = object.schema();
    throw AlembicError("'" + object.properties().fileName() + "': '" + object.fullName() + "' is not " + what + " (" +
                       (schema.empty() ? std::string("it has no schema") : "its schema is '" + schema + "'") + ")");
}

}  // namespace

bool isCurves(const ObjectReader& object) { return hasSchema(object, "AbcGeom_Curve_v"); }
bool isPolyMesh(const ObjectReader& object) { return hasSchema(object, "AbcGeom_PolyMesh_v"); }
bool isXform(const ObjectReader& object) { return hasSchema(object, "AbcGeom_Xform_v"); }

// ---- XformReader -----------------------------------------------------------------------------

XformReader::XformReader(const ObjectReader& object) : object_(&object) {
    requireSchema(object, isXform(object), "a transform");
    const PropertyReader* xform = object.properties().find(".xform");
    if (!xform || !xform->isCompound())
        throw AlembicError("'" + object.properties().fileName() + "': '" + object.fullName() +
                           "' is not a transform (it has no .xform compound)");
    auto sampled = [&](const char* name) -> const PropertyReader* {
        const PropertyReader* p = xform->find(name);
        return p && !p->isCompound() ? p : nullptr;
    };
    inherits_ = sampled(".inherits");
    ops_ = sampled(".ops");
    values_ = sampled(".vals");
    for (const PropertyReader* p : {inherits_, values_})
        if (p && p->numSamples() > numSamples_) {
            numSamples_ = p->numSamples();
            timed_ = p;
        }
}

const TimeSampling& XformReader::timeSampling() const {
    static const TimeSampling kStatic = TimeSampling::identity();
    return timed_ ? timed_->timeSampling() : kStatic;
}

XformData XformReader::read(std::uint32_t index) const {
    if (index >= std::max<std::uint32_t>(numSamples_, 1))
        throw std::out_of_range("'" + object_->fullName() + "' has no transform sample " + std::to_string(index));
    XformData data;
    if (timed_) data.time = timed_->sampleTime(clampIndex(*timed_, index));
    if (hasSamples(inherits_)) data.inherits = inherits_->numbers(clampIndex(*inherits_, index)).at(0) != 0.0;
    if (!hasSamples(ops_)) return data;

    const std::vector<double> codes = ops_->numbers(clampIndex(*ops_, index));
    const std::vector<double> values = hasSamples(values_) ? values_->numbers(clampIndex(*values_, index))
                                                           : std::vector<double>();
    std::size_t needed = 0;
    for (double code : codes) {
        const unsigned type = static_cast<unsigned>(code) >> 4;
        if (type > 6) ops_->damaged("holds the unknown transform operation " + std::to_string(type));
        needed += kChannels[type];
    }
    if (needed != values.size())
        values_ ? values_->damaged("holds " + std::to_string(values.size()) + " values where its operations need " +
                                   std::to_string(needed))
                : ops_->damaged("lists transform operations but their values are missing");
    // Each operation applies before the ones listed ahead of it.
    Matrix m = kIdentity;
    const double* v = values.data();
    for (double code : codes) {
        const unsigned type = static_cast<unsigned>(code) >> 4;
        m = multiply(operationMatrix(type, v), m);
        v += kChannels[type];
    }
    data.matrix = m;
    return data;
}

// ---- GeomReader ------------------------------------------------------------------------------

GeomReader::GeomReader(const ObjectReader& object, const char* what, bool schemaFits) : object_(&object) {
    requireSchema(object, schemaFits, what);
    geom_ = object.properties().find(".geom");
    if (!geom_ || !geom_->isCompound())
        throw AlembicError("'" + object.properties().fileName() + "': '" + object.fullName() + "' is not " + what +
                           " (it has no .geom compound)");
    positions_ = child("P", PropertyKind::Array, {Pod::Float32, 3}, true);
    selfBounds_ = child(".selfBnds", PropertyKind::Scalar, {Pod::Float64, 6}, false);
    velocities_ = child(".velocities", PropertyKind::Array, {Pod::Float32, 3}, false);
    uvs_ = GeomParamReader::find(geom_, "uv");
    normals_ = GeomParamReader::find(geom_, "N");
    arbGeomParams_ = GeomParamReader::all(geom_->find(".arbGeomParams"));
}

const PropertyReader* GeomReader::child(const char* name, PropertyKind kind, DataType type, bool required) const {
    const PropertyReader* p = geom_->find(name);
    const bool fits = p && p->kind() == kind && p->type() == type;
    if (fits) return p;
    if (!required) return nullptr;
    const std::string where = "'" + geom_->fileName() + "': '" + object_->fullName() + "'";
    if (!p) throw AlembicError(where + " has no " + name + " property");
    throw AlembicError(where + " stores " + name + " as " + std::to_string(p->type().extent) + " x " +
                       std::string(podName(p->type().pod)) + ", not as " + std::to_string(type.extent) + " x " +
                       std::string(podName(type.pod)));
}

const GeomParamReader* GeomReader::arbGeomParam(std::string_view name) const {
    for (const GeomParamReader& p : arbGeomParams_)
        if (p.name() == name) return &p;
    return nullptr;
}

namespace {

std::optional<GeomParamSample> readParam(const std::optional<GeomParamReader>& param, std::uint32_t index) {
    if (!param || param->numSamples() == 0) return std::nullopt;
    return param->read(index);
}

template <class T>
std::vector<T> readOptional(const PropertyReader* p, std::uint32_t index) {
    if (!hasSamples(p)) return {};
    return p->values<T>(clampIndex(*p, index));
}

std::vector<Vec3f> readVectors(const PropertyReader* p, std::uint32_t index) {
    if (!hasSamples(p)) return {};
    return p->elements<Vec3f>(clampIndex(*p, index), Pod::Float32);
}

}  // namespace

void GeomReader::readCommon(std::uint32_t index, GeomData& data) const {
    if (index >= numSamples())
        throw std::out_of_range("'" + object_->fullName() + "' has " + std::to_string(numSamples()) +
                                " samples; there is no sample " + std::to_string(index));
    data.time = positions_->sampleTime(index);
    data.positions = positions_->elements<Vec3f>(index, Pod::Float32);
    if (hasSamples(selfBounds_))
        data.selfBounds = Box3d::fromValues(selfBounds_->values<double>(clampIndex(*selfBounds_, index)));
    data.velocities = readVectors(velocities_, index);
    data.uvs = readParam(uvs_, index);
    data.normals = readParam(normals_, index);
}

// ---- CurvesReader ----------------------------------------------------------------------------

CurvesReader::CurvesReader(const ObjectReader& object) : GeomReader(object, "curves", isCurves(object)) {
    vertexCounts_ = child("nVertices", PropertyKind::Array, {Pod::Int32, 1}, true);
    basisAndType_ = child("curveBasisAndType", PropertyKind::Scalar, {Pod::Uint8, 4}, false);
    knots_ = child(".knots", PropertyKind::Array, {Pod::Float32, 1}, false);
    orders_ = child(".orders", PropertyKind::Array, {Pod::Uint8, 1}, false);
    weights_ = child("w", PropertyKind::Array, {Pod::Float32, 1}, false);
    widths_ = GeomParamReader::find(geom_, "width");
}

CurvesData CurvesReader::read(std::uint32_t index) const {
    CurvesData data;
    readCommon(index, data);
    data.vertexCounts = readOptional<std::int32_t>(vertexCounts_, index);
    if (hasSamples(basisAndType_)) {
        const std::vector<std::uint8_t> bt = basisAndType_->values<std::uint8_t>(clampIndex(*basisAndType_, index));
        data.type = static_cast<CurveType>(bt[0]);
        data.wrap = static_cast<CurveWrap>(bt[1]);
        data.basis = static_cast<CurveBasis>(bt[2]);
    }
    data.widths = readParam(widths_, index);
    data.knots = readOptional<float>(knots_, index);
    data.orders = readOptional<std::uint8_t>(orders_, index);
    data.weights = readOptional<float>(weights_, index);
    return data;
}

// ---- PolyMeshReader --------------------------------------------------------------------------

PolyMeshReader::PolyMeshReader(const ObjectReader& object)
    : GeomReader(object, "a polygon mesh", isPolyMesh(object)) {
    faceIndices_ = child(".faceIndices", PropertyKind::Array, {Pod::Int32, 1}, true);
    faceCounts_ = child(".faceCounts", PropertyKind::Array, {Pod::Int32, 1}, true);
}

PolyMeshData PolyMeshReader::read(std::uint32_t index) const {
    PolyMeshData data;
    readCommon(index, data);
    data.faceIndices = readOptional<std::int32_t>(faceIndices_, index);
    data.faceCounts = readOptional<std::int32_t>(faceCounts_, index);
    return data;
}

}  // namespace tressora::abc
