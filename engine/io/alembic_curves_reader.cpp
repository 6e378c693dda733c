#include "io/alembic_curves_reader.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "core/errors.h"
#include "io/alembic/geom_reader.h"

namespace tressora {
namespace {

using abc::GeometryScope;
using abc::GeomParamSample;

/// Whether an object answers to a requested name (an empty request takes every object).
bool matches(const abc::ObjectReader& object, const std::string& name) {
    return name.empty() || object.name() == name || object.name() == name + "Shape";
}

std::string named(const std::string& what, const std::string& name) {
    return name.empty() ? what : what + " named '" + name + "'";
}

/// One value per point from a width param of any scope, or nothing when it does not fit.
std::optional<std::vector<float>> perPoint(const GeomParamSample& param, const std::vector<std::int32_t>& counts,
                                           std::size_t points) {
    const std::vector<double> values = param.expanded().numbers();
    std::vector<float> out(points);
    if (values.size() == points) {
        std::transform(values.begin(), values.end(), out.begin(), [](double v) { return static_cast<float>(v); });
    } else if (values.size() == counts.size()) {
        std::size_t p = 0;
        for (std::size_t i = 0; i < counts.size(); ++i)
            for (std::int32_t k = 0; k < counts[i]; ++k) out[p++] = static_cast<float>(values[i]);
    } else if (values.size() == 1) {
        std::fill(out.begin(), out.end(), static_cast<float>(values[0]));
    } else {
        return std::nullopt;
    }
    return out;
}

void checkSample(const std::string& object, std::uint32_t index, const abc::CurvesData& data) {
    const std::string where = object + " sample " + std::to_string(index) + ": ";
    std::uint64_t sum = 0;
    for (std::size_t k = 0; k < data.vertexCounts.size(); ++k) {
        if (data.vertexCounts[k] < 0)
            throw AlembicError(where + "curve " + std::to_string(k) + " has a negative vertex count");
        sum += static_cast<std::uint64_t>(data.vertexCounts[k]);
    }
    if ((data.positions.empty() && sum > 0) || (!data.positions.empty() && data.vertexCounts.empty()))
        throw AlembicError(where + "a curves sample has no positions or vertex counts");
    if (sum != data.positions.size())
        throw AlembicError(where + "the vertex counts add up to " + std::to_string(sum) + " points but the sample holds " +
                           std::to_string(data.positions.size()));
}

/// The strands of one object's sample, ready to append.
void readObjectSample(const abc::CurvesReader& reader, std::uint32_t index, ReadCurvesSample& out) {
    const std::string& object = reader.object().fullName();
    const abc::CurvesData data = reader.read(index);
    checkSample(object, index, data);
    const std::size_t curves = data.vertexCounts.size(), points = data.positions.size();

    std::map<std::string, GeomParamSample> params;
    std::vector<std::string> order;
    for (const abc::GeomParamReader& param : reader.arbGeomParams()) {
        order.push_back(param.name());
        params.emplace(param.name(), param.read(index).expanded(object + "/" + param.name()));
    }
    std::set<std::string> used;
    const auto take = [&](const char* name) -> const GeomParamSample* {
        const auto found = params.find(name);
        if (found == params.end()) return nullptr;
        used.insert(name);
        return &found->second;
    };

    // Ids: "strandId" when it fits, else the halves of a groom file, else the index.
    std::vector<std::uint64_t> ids(curves);
    for (std::size_t i = 0; i < curves; ++i) ids[i] = i;
    const GeomParamSample* strandId = take("strandId");
    const GeomParamSample* low = take("tressora_strand_id_low");
    const GeomParamSample* high = take("tressora_strand_id_high");
    if (strandId && strandId->count == curves && abc::podSize(strandId->type.pod) == 8 && strandId->type.extent == 1) {
        ids = strandId->as<std::uint64_t>();
    } else if (low && high && low->count == curves && high->count == curves && low->type.pod == abc::Pod::Uint32 &&
               high->type.pod == abc::Pod::Uint32) {
        const std::vector<std::uint32_t> lo = low->as<std::uint32_t>(), hi = high->as<std::uint32_t>();
        for (std::size_t i = 0; i < curves; ++i) ids[i] = (std::uint64_t{hi[i]} << 32) | lo[i];
    }

    std::optional<std::vector<float>> widths;
    if (data.widths) widths = perPoint(*data.widths, data.vertexCounts, points);
    if (const GeomParamSample* groomWidth = take("groom_width"); !widths && groomWidth)
        widths = perPoint(*groomWidth, data.vertexCounts, points);

    std::vector<MeshUv> uvs;
    std::optional<GeomParamSample> uvParam = data.uvs;
    if (const GeomParamSample* rootUv = take("groom_root_uv"); !uvParam && rootUv) uvParam = *rootUv;
    if (uvParam && uvParam->type.extent == 2) {
        const GeomParamSample expanded = uvParam->expanded(object + "/uv");
        const std::vector<double> v = expanded.numbers();
        if (v.size() == curves * 2)
            for (std::size_t i = 0; i < curves; ++i)
                uvs.push_back({static_cast<float>(v[i * 2]), static_cast<float>(v[i * 2 + 1])});
    }

    // This object's strands, then its numeric params of one component as channels.
    StrandSet set;
    set.reserve(curves, points);
    std::size_t p = 0;
    for (std::size_t i = 0; i < curves; ++i) {
        const std::size_t n = static_cast<std::size_t>(data.vertexCounts[i]);
        const std::span<const Vec3f> curve(data.positions.data() + p, n);
        set.addStrand(ids[i], StrandRoot{}, curve,
                      widths ? std::span<const float>(widths->data() + p, n) : std::span<const float>());
        p += n;
    }
    for (const std::string& name : order) {
        if (used.count(name)) continue;
        const GeomParamSample& param = params.at(name);
        if (param.type.extent == 1 && !abc::isStringPod(param.type.pod) && param.type.pod != abc::Pod::Uint64 &&
            param.type.pod != abc::Pod::Int64) {
            const std::vector<double> values = param.numbers();
            if (param.scope == GeometryScope::Uniform && values.size() == curves) {
                std::span<float> c = set.addStrandChannel(name);
                for (std::size_t i = 0; i < curves; ++i) c[i] = static_cast<float>(values[i]);
            } else if ((param.scope == GeometryScope::Vertex || param.scope == GeometryScope::Varying) &&
                       values.size() == points) {
                std::span<float> c = set.addPointChannel(name);
                for (std::size_t i = 0; i < points; ++i) c[i] = static_cast<float>(values[i]);
            }
        }
        out.params.push_back(param);
    }

    // Root uvs stay aligned with the strands across objects: a file part without them gets zeros.
    const std::size_t before = out.strands.strandCount();
    if (!uvs.empty() || !out.rootUvs.empty()) {
        out.rootUvs.resize(before);
        if (uvs.empty()) uvs.resize(curves);
        out.rootUvs.insert(out.rootUvs.end(), uvs.begin(), uvs.end());
    }
    out.strands.append(set);
}

}  // namespace

ReadCurves readAlembicCurves(const std::string& path, const std::string& objectName) {
    return readAlembicCurves(abc::ArchiveReader(path), objectName);
}

ReadCurves readAlembicCurves(const abc::ArchiveReader& archive, const std::string& objectName) {
    std::vector<abc::CurvesReader> readers;
    archive.forEachObject([&](const abc::ObjectReader& object) {
        if (abc::isCurves(object) && matches(object, objectName)) readers.emplace_back(object);
    });
    if (readers.empty()) throw AlembicError(named("no curves", objectName));

    ReadCurves result;
    const abc::CurvesReader& first = readers.front();
    result.samples.resize(first.numSamples());
    for (std::uint32_t i = 0; i < first.numSamples(); ++i) {
        ReadCurvesSample& sample = result.samples[i];
        sample.time = first.timeSampling().sampleTime(i);
        for (const abc::CurvesReader& reader : readers) {
            if (reader.numSamples() == 0) continue;
            readObjectSample(reader, std::min(i, reader.numSamples() - 1), sample);
        }
    }
    return result;
}

namespace {

// A mesh's uvs per face corner: face-varying ones as they are, per-point ones looked up
// through the face indices. Anything else (or a count that does not fit) gives none.
std::vector<std::array<float, 2>> cornerUvs(const abc::PolyMeshData& data, const std::string& object) {
    std::vector<std::array<float, 2>> out;
    if (!data.uvs || data.uvs->type.extent != 2) return out;
    const GeomParamSample expanded = data.uvs->expanded(object + "/uv");
    const std::vector<double> v = expanded.numbers();
    const std::size_t corners = data.faceIndices.size();
    if (expanded.scope == abc::GeometryScope::FaceVarying && v.size() == corners * 2) {
        for (std::size_t c = 0; c < corners; ++c)
            out.push_back({static_cast<float>(v[c * 2]), static_cast<float>(v[c * 2 + 1])});
    } else if ((expanded.scope == abc::GeometryScope::Vertex || expanded.scope == abc::GeometryScope::Varying) &&
               v.size() == data.positions.size() * 2) {
        for (const std::int32_t index : data.faceIndices) {
            if (index < 0 || static_cast<std::size_t>(index) >= data.positions.size()) return {};
            const std::size_t k = static_cast<std::size_t>(index);
            out.push_back({static_cast<float>(v[k * 2]), static_cast<float>(v[k * 2 + 1])});
        }
    }
    return out;
}

}  // namespace

ReadMesh readAlembicMesh(const std::string& path, const std::string& objectName) {
    return readAlembicMesh(abc::ArchiveReader(path), objectName);
}

ReadMesh readAlembicMesh(const abc::ArchiveReader& archive, const std::string& objectName) {
    const abc::ObjectReader* found = nullptr;
    archive.forEachObject([&](const abc::ObjectReader& object) {
        if (!found && abc::isPolyMesh(object) && matches(object, objectName)) found = &object;
    });
    if (!found) throw AlembicError(named("no polygon mesh", objectName));
    const abc::PolyMeshReader reader(*found);
    ReadMesh mesh;
    mesh.object = found->fullName();
    for (std::uint32_t i = 0; i < reader.numSamples(); ++i) {
        abc::PolyMeshData data = reader.read(i);
        if (i == 0) {
            mesh.cornerUvs = cornerUvs(data, mesh.object);
            mesh.faceCounts = std::move(data.faceCounts);
            mesh.faceIndices = std::move(data.faceIndices);
        }
        mesh.samples.push_back({reader.timeSampling().sampleTime(i), std::move(data.positions)});
    }
    return mesh;
}

}  // namespace tressora
