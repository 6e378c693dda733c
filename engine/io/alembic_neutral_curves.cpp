#include "io/alembic_neutral_curves.h"

#include <array>
#include <cmath>
#include <string_view>

#include "core/parallel.h"
#include "io/usd_identifiers.h"

namespace tressora::alembic_out {
namespace {

using abc::GeometryScope;
using abc::GeomParamType;

constexpr std::size_t kGrain = 4096;

/// Names taken by the shape's own params besides the channels.
const std::array<std::string_view, 11> kReservedNames = {
    "st", "strandId", "displayColor", "displayOpacity", "widths", "points", "normals",
    "width", "uv", "groupId", "clumpId"};

/// Strand channels written as integers rather than floats.
bool isIdChannel(std::string_view name) { return name == "groupId" || name == "clumpId"; }

template <class T>
void writeTyped(abc::GeomParamWriter& param, const std::vector<T>& values, std::uint64_t count) {
    param.write(std::as_bytes(std::span<const T>(values)), count);
}

}  // namespace

std::vector<std::int32_t> integerChannel(const StrandSet* strands, std::string_view name) {
    const std::size_t count = strands ? strands->strandCount() : 0;
    std::vector<std::int32_t> out(count, 0);
    const StrandChannel* channel = strands ? strands->strandChannel(name) : nullptr;
    if (!channel || channel->size() != count) return out;
    const std::span<const float> values = channel->values();
    for (std::size_t i = 0; i < count; ++i)
        out[i] = std::isfinite(values[i]) ? static_cast<std::int32_t>(std::lround(values[i])) : 0;
    return out;
}

namespace {

std::vector<float> scaled(std::span<const float> values, std::size_t count, float scale) {
    std::vector<float> out(count, scale);
    parallelRange(0, std::min(count, values.size()), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) out[i] = values[i] * scale;
    });
    return out;
}

std::vector<Vec3f> scaled(std::span<const Vec3f> points, float scale) {
    std::vector<Vec3f> out(points.begin(), points.end());
    if (scale == 1.0f) return out;
    parallelRange(0, out.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) out[i] *= scale;
    });
    return out;
}

}  // namespace

// ---- NeutralCurves --------------------------------------------------------------------------

NeutralCurves::NeutralCurves(abc::ObjectWriter& parent, const std::string& name, std::uint32_t timeSampling)
    : xform_(&parent.addChild<abc::XformWriter>(name, timeSampling)),
      curves_(&xform_->addChild<abc::CurvesWriter>(name + "Shape", timeSampling)) {}

void NeutralCurves::declare(const StrandSet& strands, const ExportView& view) {
    declared_ = true;
    hasUvs_ = view.hasUvs;
    strandId_ = &curves_->addArbGeomParam("strandId", GeomParamType::uint64(), GeometryScope::Uniform);
    const auto fits = [&](std::string_view name) {
        const StrandChannel* c = strands.strandChannel(name);
        return c && c->size() == strands.strandCount();
    };
    if (fits("groupId")) groupId_ = &curves_->addArbGeomParam("groupId", GeomParamType::int32(), GeometryScope::Uniform);
    if (fits("clumpId")) clumpId_ = &curves_->addArbGeomParam("clumpId", GeomParamType::int32(), GeometryScope::Uniform);

    // Strand and point channels share one list of names, so the two kinds never collide.
    std::vector<std::string> names;
    for (const std::string& name : view.strandChannels)
        if (!isIdChannel(name)) channels_.push_back({name, false, nullptr});
    for (const std::string& name : view.pointChannels) channels_.push_back({name, true, nullptr});
    for (const Channel& c : channels_) names.push_back(c.name);
    const std::vector<std::string> stored = uniqueIdentifiers(names, kReservedNames);
    for (std::size_t i = 0; i < channels_.size(); ++i)
        channels_[i].param = &curves_->addArbGeomParam(
            stored[i], GeomParamType::float32(), channels_[i].perPoint ? GeometryScope::Vertex : GeometryScope::Uniform);
}

void NeutralCurves::write(const StrandSet* strands, const ScalpUvs* scalp, float scale) {
    const StrandSet empty;
    const StrandSet& set = strands ? *strands : empty;
    const ExportView view = buildExportView(set, scalp, 0);
    if (!declared_) declare(set, view);

    const std::size_t strandCount = set.strandCount(), pointCount = set.pointCount();
    const std::vector<Vec3f> points = scaled(set.points(), scale);
    const std::vector<float> widths = scaled(set.widths(), pointCount, scale);
    std::vector<abc::Vec2f> uvs;
    if (hasUvs_) {
        uvs.resize(strandCount, abc::Vec2f{0.0f, 0.0f});
        if (view.hasUvs)
            for (std::size_t i = 0; i < strandCount; ++i) uvs[i] = {view.rootUvs[i].u, view.rootUvs[i].v};
    }

    xform_->writeIdentity();
    abc::CurvesSample sample;
    sample.positions = points;
    sample.vertexCounts = view.vertexCounts;
    sample.widths = abc::GeomValues<float>(widths, GeometryScope::Vertex);
    if (hasUvs_) sample.uvs = abc::GeomValues<abc::Vec2f>(uvs, GeometryScope::Uniform);
    curves_->write(sample);

    const std::span<const std::uint64_t> ids = set.ids();
    strandId_->write(std::as_bytes(ids), ids.size());
    if (groupId_) writeTyped(*groupId_, integerChannel(&set, "groupId"), strandCount);
    if (clumpId_) writeTyped(*clumpId_, integerChannel(&set, "clumpId"), strandCount);
    for (const Channel& c : channels_) {
        const std::size_t count = c.perPoint ? pointCount : strandCount;
        const StrandChannel* channel = c.perPoint ? set.pointChannel(c.name) : set.strandChannel(c.name);
        std::vector<float> values(count, 0.0f);
        if (channel && channel->size() == count) values.assign(channel->values().begin(), channel->values().end());
        writeTyped(*c.param, values, count);
    }
}

// ---- ScaleMeshObject ------------------------------------------------------------------------

ScaleMeshObject::ScaleMeshObject(abc::ObjectWriter& parent, std::uint32_t timeSampling)
    : xform_(&parent.addChild<abc::XformWriter>("scales", timeSampling)),
      mesh_(&xform_->addChild<abc::PolyMeshWriter>("scalesShape", timeSampling)),
      colour_(&mesh_->addArbGeomParam("scaleColor", GeomParamType::color3(), GeometryScope::Vertex)),
      rootColour_(&mesh_->addArbGeomParam("scaleRootColor", GeomParamType::color3(), GeometryScope::Uniform)),
      scaleId_(&mesh_->addArbGeomParam("scaleId", GeomParamType::float32(), GeometryScope::Uniform)),
      scaleUv_(&mesh_->addArbGeomParam("scaleUV", GeomParamType::vec2(), GeometryScope::Uniform)),
      variant_(&mesh_->addArbGeomParam("scaleVariant", GeomParamType::int32(), GeometryScope::Uniform)) {}

void ScaleMeshObject::write(const ScaleMesh* mesh, float scale) {
    const ScaleMesh empty;
    const ScaleMesh& m = mesh ? *mesh : empty;
    const std::size_t faces = m.triangles.size(), points = m.points.size();
    std::vector<std::int32_t> indices(faces * 3);
    const std::vector<std::int32_t> counts(faces, 3);
    for (std::size_t f = 0; f < faces; ++f) {
        // Counter-clockwise in the engine, clockwise in the archive.
        indices[f * 3] = static_cast<std::int32_t>(m.triangles[f][0]);
        indices[f * 3 + 1] = static_cast<std::int32_t>(m.triangles[f][2]);
        indices[f * 3 + 2] = static_cast<std::int32_t>(m.triangles[f][1]);
    }
    // Per point: the colour of a triangle using it (a point belongs to one instance).
    std::vector<Vec3f> pointColours(points, Vec3f{1.0f, 1.0f, 1.0f});
    for (std::size_t f = 0; f < faces && f < m.faceColours.size(); ++f)
        for (std::uint32_t p : m.triangles[f])
            if (p < points) pointColours[p] = m.faceColours[f];
    // Per face: what the face's instance record says.
    std::vector<Vec3f> rootColours(faces, Vec3f{1.0f, 1.0f, 1.0f});
    std::vector<float> scaleIds(faces, 0.0f);
    std::vector<abc::Vec2f> scaleUvs(faces, abc::Vec2f{0.0f, 0.0f});
    std::vector<std::int32_t> variants(faces, 0);
    for (const ScaleRecord& r : m.records)
        for (std::uint64_t f = r.firstTriangle; f < r.firstTriangle + r.triangleCount && f < faces; ++f) {
            rootColours[f] = r.rootColour;
            scaleIds[f] = r.scaleId;
            scaleUvs[f] = {r.scaleUv.u, r.scaleUv.v};
            variants[f] = r.variant;
        }
    std::vector<abc::Vec2f> uvs;
    if (m.uvs.size() == points)
        for (const MeshUv& uv : m.uvs) uvs.push_back({uv.u, uv.v});

    const std::vector<Vec3f> positions = scaled(m.points, scale);
    xform_->writeIdentity();
    abc::PolyMeshSample sample;
    sample.positions = positions;
    sample.faceIndices = indices;
    sample.faceCounts = counts;
    if (!uvs.empty() || points == 0) sample.uvs = abc::GeomValues<abc::Vec2f>(uvs, GeometryScope::Vertex);
    mesh_->write(sample);
    writeTyped(*colour_, pointColours, points);
    writeTyped(*rootColour_, rootColours, faces);
    writeTyped(*scaleId_, scaleIds, faces);
    writeTyped(*scaleUv_, scaleUvs, faces);
    writeTyped(*variant_, variants, faces);
}

}  // namespace tressora::alembic_out
