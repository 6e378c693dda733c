// The channels of a USD layer: which attributes the first frame declares, and the sample
// that each frame appends to each of them.

#include <algorithm>
#include <unordered_map>

#include "core/hash.h"
#include "core/number_text.h"
#include "io/instance_transform.h"
#include "io/usd_identifiers.h"
#include "io/usd_writer_state.h"

namespace tressora {
namespace {

const char* const kUniform = "interpolation = \"uniform\"";
const char* const kVertex = "interpolation = \"vertex\"";

void declareInstancer(UsdWriter::State& s) {
    s.addChannel("int[] protoIndices");
    s.addChannel("point3f[] positions");
    s.addChannel("quath[] orientations");
    s.addChannel("float3[] scales");
    s.addChannel("int64[] ids");
}

bool anyRigid(const InstanceSet& set) {
    return std::any_of(set.instances.begin(), set.instances.end(), [](const Instance& i) { return i.rigid(); });
}

/// Writes one sample of `count` elements to a channel: "        <time>: [e0, e1],\n".
class SampleWriter {
public:
    SampleWriter(UsdWriter::State& state, double time) : state_(state) {
        head_ = "        ";
        appendDouble(head_, time);
        head_ += ": [";
    }

    template <class Element>
    void operator()(std::size_t count, Element&& element) {
        SpoolFile& spool = *state_.channels.at(next_++).spool;
        spool.write(head_);
        formatList(count, element, [&spool](std::string_view text) { spool.write(text); });
        spool.write("],\n");
        state_.output.check(spool);
    }

    std::size_t next() const { return next_; }

private:
    UsdWriter::State& state_;
    std::string head_;
    std::size_t next_ = 0;
};

// ---- Element formatters.

auto ints(std::span<const std::int32_t> values) {
    return [values](std::string& out, std::size_t i) { appendInteger(out, values[i]); };
}
auto floatsOr(std::span<const float> values, float fallback) {
    return [values, fallback](std::string& out, std::size_t i) {
        appendFloat(out, i < values.size() ? values[i] : fallback);
    };
}
auto vecs(std::span<const Vec3f> values, Vec3f fallback = {}) {
    return [values, fallback](std::string& out, std::size_t i) {
        appendVec3(out, i < values.size() ? values[i] : fallback);
    };
}
auto uvs(std::span<const MeshUv> values) {
    return [values](std::string& out, std::size_t i) {
        const MeshUv uv = i < values.size() ? values[i] : MeshUv{};
        appendVec2(out, uv.u, uv.v);
    };
}
auto ids64(std::span<const std::uint64_t> values) {
    // int64 in the file: an id above the signed range keeps its bits.
    return [values](std::string& out, std::size_t i) { appendInteger(out, static_cast<std::int64_t>(values[i])); };
}
void appendQuat(std::string& out, const std::array<float, 4>& q) {
    out += '(';
    for (int k = 0; k < 4; ++k) {
        if (k) out += ", ";
        appendFloat(out, q[static_cast<std::size_t>(k)]);
    }
    out += ')';
}

/// A channel's values, or an empty span when the set lacks it (every element then 0).
std::span<const float> channelValues(const StrandChannel* channel) {
    return channel ? channel->values() : std::span<const float>();
}

/// One point instancer's five arrays for the transforms given.
struct InstancerArrays {
    std::vector<std::int32_t> protoIndices;
    std::vector<Vec3f> positions;
    std::vector<std::array<float, 4>> orientations;
    std::vector<Vec3f> scales;
    std::vector<std::uint64_t> ids;

    void add(std::uint32_t prototype, const InstanceFrame& frame, std::uint64_t id) {
        const InstanceTransform t = placedTransform(frame);
        protoIndices.push_back(static_cast<std::int32_t>(prototype));
        positions.push_back(t.position);
        orientations.push_back(t.orientation);
        scales.push_back(t.scale);
        ids.push_back(id);
    }

    void write(SampleWriter& sample) const {
        sample(protoIndices.size(), ints(protoIndices));
        sample(positions.size(), vecs(positions));
        sample(orientations.size(), [this](std::string& out, std::size_t i) { appendQuat(out, orientations[i]); });
        sample(scales.size(), vecs(scales));
        sample(ids.size(), ids64(ids));
    }
};

/// True when `index` names the same prototype in the first frame's list and the current one.
bool samePrototype(std::uint32_t index, const std::vector<std::string>& first,
                   const std::vector<std::string>& current) {
    return index < first.size() && index < current.size() && first[index] == current[index];
}

void writeStrandSamples(UsdWriter::State& s, SampleWriter& sample, const StrandSet& strands, const ExportView& view) {
    const std::size_t count = strands.strandCount();
    const std::size_t points = strands.pointCount();
    sample(count, ints(view.vertexCounts));
    sample(points, vecs(strands.points()));
    const Vec3f extent[2] = {view.boundsMin, view.boundsMax};
    sample(2, vecs(extent));
    sample(points, floatsOr(strands.widths(), 1.0f));
    sample(count, ids64(strands.ids()));
    if (s.hasUvs) sample(count, uvs(view.hasUvs ? std::span<const MeshUv>(view.rootUvs) : std::span<const MeshUv>()));
    if (s.hasColours) {
        sample(count, vecs(view.hasColours ? std::span<const Vec3f>(view.colours) : std::span<const Vec3f>()));
    }
    for (const std::string& name : s.strandChannels) {
        sample(count, floatsOr(channelValues(strands.strandChannel(name)), 0.0f));
    }
    for (const std::string& name : s.pointChannels) {
        sample(points, floatsOr(channelValues(strands.pointChannel(name)), 0.0f));
    }
}

void writeInstanceSamples(UsdWriter::State& s, SampleWriter& sample, const InstanceSet* set) {
    InstancerArrays arrays;
    if (set) {
        // Ids: the strand's id for its first instance, a hash of it and the instance's ordinal
        // on that strand for the others, so ids stay stable and distinct from frame to frame.
        std::unordered_map<std::uint64_t, std::uint64_t> seen;
        for (const Instance& instance : set->instances) {
            const std::uint64_t ordinal = seen[instance.strandId]++;
            if (!instance.rigid() || !samePrototype(instance.prototype, s.instancePrototypes, set->prototypes)) continue;
            const std::uint64_t id = ordinal == 0 ? instance.strandId : combine(instance.strandId, ordinal);
            arrays.add(instance.prototype, instance.frame, id);
        }
    }
    arrays.write(sample);
}

/// The index of the record that owns each triangle (record 0 where none does).
std::vector<std::uint32_t> triangleOwners(const ScaleMesh& mesh) {
    std::vector<std::uint32_t> owner(mesh.triangles.size(), 0);
    for (std::size_t r = 0; r < mesh.records.size(); ++r) {
        const ScaleRecord& record = mesh.records[r];
        const std::uint64_t size = owner.size();
        const std::uint64_t begin = std::min<std::uint64_t>(record.firstTriangle, size);
        const std::uint64_t end = record.triangleCount > size - begin ? size : begin + record.triangleCount;
        for (std::uint64_t t = begin; t < end; ++t) owner[t] = static_cast<std::uint32_t>(r);
    }
    return owner;
}

/// Per point normals: the mesh's own when it has one per point, else the area-weighted
/// average of the normals of the triangles around each point.
std::vector<Vec3f> pointNormals(const ScaleMesh& mesh) {
    if (mesh.normals.size() == mesh.points.size()) return mesh.normals;
    std::vector<Vec3f> normals(mesh.points.size());
    for (const IndexTriangle& t : mesh.triangles) {
        if (t[0] >= normals.size() || t[1] >= normals.size() || t[2] >= normals.size()) continue;
        const Vec3f n = cross(mesh.points[t[1]] - mesh.points[t[0]], mesh.points[t[2]] - mesh.points[t[0]]);
        for (std::uint32_t corner : t) normals[corner] += n;
    }
    for (Vec3f& n : normals) n = normalized(n);
    return normals;
}

/// Per point colours: the colour of the first triangle that uses the point; white for none.
std::vector<Vec3f> pointColours(const ScaleMesh& mesh) {
    std::vector<Vec3f> colours(mesh.points.size(), Vec3f{1.0f, 1.0f, 1.0f});
    std::vector<bool> set(mesh.points.size(), false);
    for (std::size_t f = 0; f < mesh.triangles.size() && f < mesh.faceColours.size(); ++f) {
        for (std::uint32_t corner : mesh.triangles[f]) {
            if (corner < colours.size() && !set[corner]) {
                colours[corner] = mesh.faceColours[f];
                set[corner] = true;
            }
        }
    }
    return colours;
}

void writeScaleMeshSamples(SampleWriter& sample, const ScaleMesh& mesh) {
    const std::size_t triangles = mesh.triangles.size();
    const std::size_t points = mesh.points.size();
    sample(triangles, [](std::string& out, std::size_t) { out += '3'; });
    sample(triangles * 3, [&mesh](std::string& out, std::size_t i) {
        appendInteger(out, mesh.triangles[i / 3][i % 3]);
    });
    sample(points, vecs(mesh.points));
    std::vector<Vec3f> extent;
    if (points != 0) {
        Vec3f lo = mesh.points[0], hi = mesh.points[0];
        for (const Vec3f& p : mesh.points) {
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], p[a]);
                hi[a] = std::max(hi[a], p[a]);
            }
        }
        extent = {lo, hi};
    }
    sample(extent.size(), vecs(extent));
    const std::vector<Vec3f> normals = pointNormals(mesh);
    sample(points, vecs(normals));
    sample(points, uvs(mesh.uvs));
    const std::vector<Vec3f> colours = pointColours(mesh);
    sample(points, vecs(colours));
    sample(points, vecs(colours));  // scaleColor: the same colours again, for shaders that read it

    const std::vector<std::uint32_t> owner = triangleOwners(mesh);
    const ScaleRecord none;
    const auto record = [&](std::size_t triangle) -> const ScaleRecord& {
        return mesh.records.empty() ? none : mesh.records[owner[triangle]];
    };
    sample(triangles, [&](std::string& out, std::size_t i) { appendVec3(out, record(i).rootColour); });
    sample(triangles, [&](std::string& out, std::size_t i) { appendFloat(out, record(i).scaleId); });
    sample(triangles, [&](std::string& out, std::size_t i) { appendVec2(out, record(i).scaleUv.u, record(i).scaleUv.v); });
    sample(triangles, [&](std::string& out, std::size_t i) { appendInteger(out, record(i).variant); });
}

void writeScaleInstancerSamples(UsdWriter::State& s, SampleWriter& sample, const ScaleMesh* mesh,
                                const InstanceSet* set) {
    InstancerArrays arrays;
    std::vector<const ScaleRecord*> kept;
    if (mesh && set) {
        for (const ScaleRecord& record : mesh->records) {
            if (!samePrototype(record.prototype, s.scalePrototypes, set->prototypes)) continue;
            arrays.add(record.prototype, record.frame, record.id);
            kept.push_back(&record);
        }
    }
    arrays.write(sample);
    sample(kept.size(), [&](std::string& out, std::size_t i) { appendVec3(out, kept[i]->rootColour); });
    sample(kept.size(), [&](std::string& out, std::size_t i) { appendFloat(out, kept[i]->scaleId); });
    sample(kept.size(), [&](std::string& out, std::size_t i) { appendVec2(out, kept[i]->scaleUv.u, kept[i]->scaleUv.v); });
    sample(kept.size(), [&](std::string& out, std::size_t i) { appendInteger(out, kept[i]->variant); });
}

}  // namespace

void declareUsdChannels(UsdWriter::State& s, const StrandSet& strands, const ExportView& view,
                        const ScaleMesh* scaleMesh) {
    s.hasUvs = view.hasUvs;
    s.hasColours = view.hasColours;
    s.strandChannels = view.strandChannels;
    s.pointChannels = view.pointChannels;

    s.addChannel("int[] curveVertexCounts");
    s.addChannel("point3f[] points");
    s.addChannel("float3[] extent");
    s.addChannel("float[] widths", kVertex);
    s.addChannel("int64[] primvars:strandId", kUniform);
    if (s.hasUvs) s.addChannel("texCoord2f[] primvars:st", kUniform);
    if (s.hasColours) s.addChannel("color3f[] primvars:displayColor", kUniform);
    // Strand and point channels share one list of names, so the two kinds never collide.
    std::vector<std::string> names = s.strandChannels;
    names.insert(names.end(), s.pointChannels.begin(), s.pointChannels.end());
    const std::vector<std::string> primvars = uniqueIdentifiers(names, kReservedPrimvarNames);
    for (std::size_t i = 0; i < primvars.size(); ++i) {
        s.addChannel("float[] primvars:" + primvars[i], i < s.strandChannels.size() ? kUniform : kVertex);
    }
    s.strandEnd = s.channels.size();

    const InstanceSet* set = strands.instances().get();
    if (set) {
        s.strandsInvisible = set->hidesStrands;
        if (anyRigid(*set)) {
            s.instancer = true;
            s.instancePrototypes = set->prototypes;
            declareInstancer(s);
        }
    }
    s.instanceEnd = s.channels.size();

    if (scaleMesh && !scaleMesh->records.empty() && set) {
        const ScaleOutput mode = s.options.scales;
        s.scaleMesh = mode == ScaleOutput::mesh || mode == ScaleOutput::both;
        s.scaleInstancer = mode == ScaleOutput::instancer || mode == ScaleOutput::both;
    }
    if (s.scaleMesh) {
        s.addChannel("int[] faceVertexCounts");
        s.addChannel("int[] faceVertexIndices");
        s.addChannel("point3f[] points");
        s.addChannel("float3[] extent");
        s.addChannel("normal3f[] normals", kVertex);
        s.addChannel("texCoord2f[] primvars:st", kVertex);
        s.addChannel("color3f[] primvars:displayColor", kVertex);
        s.addChannel("color3f[] primvars:scaleColor", kVertex);
        s.addChannel("color3f[] primvars:scaleRootColor", kUniform);
        s.addChannel("float[] primvars:scaleId", kUniform);
        s.addChannel("float2[] primvars:scaleUV", kUniform);
        s.addChannel("int[] primvars:scaleVariant", kUniform);
    }
    s.scaleMeshEnd = s.channels.size();
    if (s.scaleInstancer) {
        s.scalePrototypes = set->prototypes;
        declareInstancer(s);
        s.addChannel("color3f[] primvars:scaleRootColor", kVertex);
        s.addChannel("float[] primvars:scaleId", kVertex);
        s.addChannel("float2[] primvars:scaleUV", kVertex);
        s.addChannel("int[] primvars:scaleVariant", kVertex);
    }
}

void writeUsdSamples(UsdWriter::State& s, double time, const StrandSet& strands, const ExportView& view,
                     const ScaleMesh* scaleMesh) {
    SampleWriter sample(s, time);
    writeStrandSamples(s, sample, strands, view);
    const InstanceSet* set = strands.instances().get();
    if (s.instancer) writeInstanceSamples(s, sample, set);
    if (s.scaleMesh) writeScaleMeshSamples(sample, scaleMesh ? *scaleMesh : ScaleMesh());
    if (s.scaleInstancer) writeScaleInstancerSamples(s, sample, scaleMesh, set);
}

}  // namespace tressora
