#include "io/alembic_groom_layout.h"

#include <algorithm>
#include <cmath>

#include "core/parallel.h"
#include "io/alembic_neutral_curves.h"
#include "io/alembic_writer.h"

namespace tressora::alembic_out {
namespace {

using abc::GeometryScope;
using abc::GeomParamType;

constexpr std::size_t kGrain = 4096;

/// The channel when it holds one value per element, else null.
const StrandChannel* sized(const StrandChannel* channel, std::size_t count) {
    return channel && channel->size() == count ? channel : nullptr;
}

bool hasPointColours(const StrandSet& set) {
    const std::size_t n = set.pointCount();
    return sized(set.pointChannel("colorR"), n) && sized(set.pointChannel("colorG"), n) &&
           sized(set.pointChannel("colorB"), n);
}

/// A channel's values, or zeros where the set lacks it (an attribute fixed by the first frame).
std::vector<float> channelValues(const StrandChannel* channel, std::size_t count) {
    if (!channel || channel->size() != count) return std::vector<float>(count, 0.0f);
    return {channel->values().begin(), channel->values().end()};
}

template <class T>
void put(abc::GeomParamWriter& param, const std::vector<T>& values, std::uint64_t count) {
    param.write(std::as_bytes(std::span<const T>(values)), count);
}

/// Occlusion along each strand: the point channel "ao" where the strands carry one, else a
/// ramp from 0.5 at the root to 1 at the tip, the darkening a hair shader gives deep hair.
std::vector<float> occlusion(const StrandSet& set) {
    const std::size_t points = set.pointCount();
    if (const StrandChannel* ao = sized(set.pointChannel("ao"), points)) return channelValues(ao, points);
    std::vector<float> out(points, 1.0f);
    parallelRange(0, set.strandCount(), 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const PointRange r = set.pointRange(i);
            const std::size_t n = r.size();
            for (std::size_t k = 0; k < n; ++k)
                out[r.begin + k] = n > 1 ? 0.5f + 0.5f * static_cast<float>(k) / static_cast<float>(n - 1) : 1.0f;
        }
    });
    return out;
}

}  // namespace

Vec3f toImporterSpace(Vec3f p, bool sourceZUp, float s) {
    return sourceZUp ? Vec3f{s * p.x, -s * p.y, s * p.z} : Vec3f{s * p.x, s * p.z, s * p.y};
}

GroomAttributes groomAttributesOf(const StrandSet* set, const ExportView& view, bool guides, bool writeAo) {
    GroomAttributes a;
    if (!set) return a;
    a.rootUvs = view.hasUvs;
    if (hasPointColours(*set))
        a.colour = GroomAttributes::Colour::perPoint;
    else if (view.hasColours)
        a.colour = GroomAttributes::Colour::perStrand;
    a.roughness = sized(set->strandChannel("roughness"), set->strandCount()) != nullptr;
    a.clumpId = sized(set->strandChannel("clumpId"), set->strandCount()) != nullptr;
    a.iridescence = !guides && sized(set->pointChannel("iridescence"), set->pointCount()) != nullptr;
    a.ao = a.iridescence && writeAo;
    return a;
}

GroomCurves::GroomCurves(abc::ObjectWriter& parent, const std::string& name, std::uint32_t timeSampling,
                         bool guides, const GroomAttributes& attributes)
    : curves_(&parent.addChild<abc::CurvesWriter>(name, timeSampling)), guides_(guides), attributes_(attributes) {
    const auto add = [&](const char* attribute, const GeomParamType& type, GeometryScope scope) {
        params_.push_back(&curves_->addArbGeomParam(attribute, type, scope));
    };
    add("groom_version_major", GeomParamType::int32(), GeometryScope::Constant);
    add("groom_version_minor", GeomParamType::int32(), GeometryScope::Constant);
    add("groom_group_name", GeomParamType::string(), GeometryScope::Constant);
    add("groom_group_id", GeomParamType::int32(), GeometryScope::Uniform);
    add("groom_id", GeomParamType::int32(), GeometryScope::Uniform);
    add("tressora_strand_id_low", GeomParamType::uint32(), GeometryScope::Uniform);
    add("tressora_strand_id_high", GeomParamType::uint32(), GeometryScope::Uniform);
    add("groom_width", GeomParamType::float32(), GeometryScope::Vertex);
    if (guides_) add("groom_guide", GeomParamType::int32(), GeometryScope::Constant);
    if (attributes_.rootUvs) add("groom_root_uv", GeomParamType::vec2(), GeometryScope::Uniform);
    if (attributes_.colour != GroomAttributes::Colour::none)
        add("groom_color", GeomParamType::color3(),
            attributes_.colour == GroomAttributes::Colour::perPoint ? GeometryScope::Vertex : GeometryScope::Uniform);
    if (attributes_.roughness) add("groom_roughness", GeomParamType::float32(), GeometryScope::Uniform);
    if (attributes_.clumpId) add("groom_clump_id", GeomParamType::int32(), GeometryScope::Uniform);
    if (attributes_.iridescence) add("groom_iridescence", GeomParamType::float32(), GeometryScope::Vertex);
    if (attributes_.ao) add("groom_ao", GeomParamType::float32(), GeometryScope::Vertex);
}

void GroomCurves::write(const StrandSet* set, const ExportView& view, const std::string& groupName,
                        std::int32_t groupId, const GroomSpace& space) {
    const StrandSet empty;
    const StrandSet& s = set ? *set : empty;
    const std::size_t strands = s.strandCount(), pointCount = s.pointCount();
    const float factor = space.factor();

    std::vector<Vec3f> points(pointCount);
    std::vector<float> widths(pointCount, factor);
    const std::span<const Vec3f> source = s.points();
    const std::span<const float> sourceWidths = s.widths();
    parallelRange(0, pointCount, kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            points[i] = toImporterSpace(source[i], space.sourceZUp, factor);
            if (i < sourceWidths.size()) widths[i] = sourceWidths[i] * factor;
        }
    });
    const std::vector<std::int32_t> counts = view.vertexCounts;
    abc::CurvesSample sample;
    sample.positions = points;
    sample.vertexCounts = counts;
    curves_->write(sample);

    std::vector<std::int32_t> groupIds(strands, groupId < 0 ? 0 : groupId), ids(strands);
    std::vector<std::uint32_t> low(strands), high(strands);
    if (groupId < 0) groupIds = integerChannel(&s, "groupId");
    for (std::size_t i = 0; i < strands; ++i) {
        const std::uint64_t id = s.ids()[i];
        low[i] = static_cast<std::uint32_t>(id);
        high[i] = static_cast<std::uint32_t>(id >> 32);
        ids[i] = static_cast<std::int32_t>(low[i]);
    }

    std::size_t next = 0;
    const auto param = [&]() -> abc::GeomParamWriter& { return *params_[next++]; };
    const std::vector<std::int32_t> major{kGroomSchemaMajor}, minor{kGroomSchemaMinor};
    put(param(), major, 1);
    put(param(), minor, 1);
    const std::vector<std::string> name{groupName};
    param().writeStrings(name);
    put(param(), groupIds, strands);
    put(param(), ids, strands);
    put(param(), low, strands);
    put(param(), high, strands);
    put(param(), widths, pointCount);
    if (guides_) put(param(), std::vector<std::int32_t>{1}, 1);
    if (attributes_.rootUvs) {
        std::vector<abc::Vec2f> uvs(strands, abc::Vec2f{0.0f, 0.0f});
        if (view.hasUvs)
            for (std::size_t i = 0; i < strands; ++i)
                uvs[i] = {std::clamp(view.rootUvs[i].u, 0.0f, 1.0f), std::clamp(view.rootUvs[i].v, 0.0f, 1.0f)};
        put(param(), uvs, strands);
    }
    if (attributes_.colour == GroomAttributes::Colour::perPoint) {
        std::vector<Vec3f> colours(pointCount);
        const std::vector<float> r = channelValues(s.pointChannel("colorR"), pointCount),
                                 g = channelValues(s.pointChannel("colorG"), pointCount),
                                 b = channelValues(s.pointChannel("colorB"), pointCount);
        for (std::size_t i = 0; i < pointCount; ++i) colours[i] = {r[i], g[i], b[i]};
        put(param(), colours, pointCount);
    } else if (attributes_.colour == GroomAttributes::Colour::perStrand) {
        std::vector<Vec3f> colours = view.hasColours ? view.colours : std::vector<Vec3f>(strands);
        put(param(), colours, strands);
    }
    if (attributes_.roughness) put(param(), channelValues(s.strandChannel("roughness"), strands), strands);
    if (attributes_.clumpId) put(param(), integerChannel(&s, "clumpId"), strands);
    if (attributes_.iridescence) put(param(), channelValues(s.pointChannel("iridescence"), pointCount), pointCount);
    if (attributes_.ao) put(param(), occlusion(s), pointCount);
}

}  // namespace tressora::alembic_out
