#include "core/instances.h"

#include <algorithm>

#include "core/errors.h"
#include "core/hash.h"
#include "core/parallel.h"

namespace tressora {

bool isBuiltinPrototype(std::string_view name) {
    return std::find(kBuiltinPrototypeNames.begin(), kBuiltinPrototypeNames.end(), name) !=
           kBuiltinPrototypeNames.end();
}

void checkStoredPrototype(const InstancePrototype& prototype) {
    const std::size_t count = prototype.points.size();
    for (const IndexTriangle& triangle : prototype.triangles) {
        for (std::uint32_t corner : triangle) {
            if (corner >= count) throw GroomFileError("groom file: a prototype's triangle names a point it does not have");
        }
    }
    if (!prototype.uvs.empty() && prototype.uvs.size() != count) {
        throw GroomFileError("groom file: a prototype has " + std::to_string(prototype.uvs.size()) + " UVs for " +
                             std::to_string(count) + " points; give one UV per point or none");
    }
}

std::uint32_t InstanceSet::prototypeIndex(std::string_view name) {
    for (std::size_t i = 0; i < prototypes.size(); ++i) {
        if (prototypes[i] == name) return static_cast<std::uint32_t>(i);
    }
    prototypes.emplace_back(name);
    return static_cast<std::uint32_t>(prototypes.size() - 1);
}

void InstanceSet::append(const InstanceSet& other) {
    if (this == &other) {
        const InstanceSet copy = other;
        append(copy);
        return;
    }
    hidesStrands = hidesStrands || other.hidesStrands;
    std::vector<std::uint32_t> remap(other.prototypes.size());
    for (std::size_t i = 0; i < other.prototypes.size(); ++i) remap[i] = prototypeIndex(other.prototypes[i]);
    instances.reserve(instances.size() + other.instances.size());
    for (Instance instance : other.instances) {
        // An index past other's list stays past ours, so validate still reports it.
        instance.prototype = instance.prototype < remap.size()
                                 ? remap[instance.prototype]
                                 : static_cast<std::uint32_t>(prototypes.size() + instance.prototype);
        instances.push_back(instance);
    }
}

InstanceSet InstanceSet::forStrands(std::span<const std::uint64_t> strandIds) const {
    std::vector<std::uint64_t> sorted(strandIds.begin(), strandIds.end());
    std::sort(sorted.begin(), sorted.end());
    InstanceSet kept;
    kept.prototypes = prototypes;
    kept.hidesStrands = hidesStrands;
    for (const Instance& instance : instances) {
        if (std::binary_search(sorted.begin(), sorted.end(), instance.strandId)) kept.instances.push_back(instance);
    }
    return kept;
}

bool InstanceSet::validate(std::string* message) const {
    for (std::size_t i = 0; i < instances.size(); ++i) {
        if (instances[i].prototype >= prototypes.size()) {
            if (message) {
                *message = "instance " + std::to_string(i) + " names prototype " +
                           std::to_string(instances[i].prototype) + " of " + std::to_string(prototypes.size());
            }
            return false;
        }
    }
    return true;
}

std::uint64_t InstanceSet::fingerprint() const {
    std::uint64_t h = hash64(prototypes.size());
    for (const std::string& name : prototypes) h = combineText(h, name);
    h = combine(h, instances.size());
    const auto vec = [&h](Vec3f v) {
        h = combine(h, floatBits(v.x));
        h = combine(h, floatBits(v.y));
        h = combine(h, floatBits(v.z));
    };
    for (const Instance& instance : instances) {
        h = combine(h, instance.strandId);
        h = combine(h, instance.prototype);
        vec(instance.frame.position);
        vec(instance.frame.tangent);
        vec(instance.frame.normal);
        h = combine(h, floatBits(instance.frame.size));
        vec(instance.colour);
        h = combine(h, floatBits(instance.random));
        h = combine(h, (instance.conform ? 1u : 0u) | (instance.alongStrand ? 2u : 0u));
    }
    return hidesStrands ? combine(h, 1) : h;
}

Vec3f placePoint(const InstanceFrame& frame, Vec3f local) {
    Vec3f t = normalized(frame.tangent);
    if (t == Vec3f{}) t = {1.0f, 0.0f, 0.0f};
    Vec3f n = normalized(frame.normal - t * dot(frame.normal, t));
    if (n == Vec3f{}) {
        // The normal is missing or runs along the tangent: take any direction across it.
        const Vec3f helper = std::abs(t.y) < 0.9f ? Vec3f{0.0f, 1.0f, 0.0f} : Vec3f{1.0f, 0.0f, 0.0f};
        n = normalized(helper - t * dot(helper, t));
    }
    const Vec3f b = cross(t, n);
    return frame.position + (t * local.x + n * local.y + b * local.z) * frame.size;
}

ScaleMesh bakeScaleMesh(const InstanceSet& set, const PrototypeLookup& lookup, const InstanceBend& bend) {
    std::vector<std::shared_ptr<const InstancePrototype>> prototypes(set.prototypes.size());
    if (lookup) {
        for (std::size_t i = 0; i < prototypes.size(); ++i) prototypes[i] = lookup(set.prototypes[i]);
    }
    const auto prototypeOf = [&](const Instance& instance) -> const InstancePrototype* {
        return instance.prototype < prototypes.size() ? prototypes[instance.prototype].get() : nullptr;
    };

    // Where each instance's points and triangles start in the mesh.
    const std::size_t count = set.instances.size();
    std::vector<std::size_t> pointStart(count + 1, 0), triangleStart(count + 1, 0);
    for (std::size_t i = 0; i < count; ++i) {
        const InstancePrototype* prototype = prototypeOf(set.instances[i]);
        pointStart[i + 1] = pointStart[i] + (prototype ? prototype->points.size() : 0);
        triangleStart[i + 1] = triangleStart[i] + (prototype ? prototype->triangles.size() : 0);
    }

    ScaleMesh mesh;
    mesh.points.resize(pointStart[count]);
    mesh.uvs.resize(pointStart[count]);
    mesh.triangles.resize(triangleStart[count]);
    mesh.faceColours.resize(triangleStart[count]);
    for (std::size_t i = 0; i < count; ++i) {
        const Instance& instance = set.instances[i];
        if (!prototypeOf(instance)) continue;
        ScaleRecord record;
        record.id = instance.strandId;
        record.prototype = instance.prototype;
        record.frame = instance.frame;
        record.rootColour = instance.colour;
        record.scaleId = instance.random;
        record.variant = static_cast<std::int32_t>(instance.prototype);
        record.firstTriangle = triangleStart[i];
        record.triangleCount = triangleStart[i + 1] - triangleStart[i];
        mesh.records.push_back(record);
    }
    parallelRange(0, count, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const Instance& instance = set.instances[i];
            const InstancePrototype* prototype = prototypeOf(instance);
            if (!prototype) continue;
            const std::size_t p0 = pointStart[i], t0 = triangleStart[i];
            for (std::size_t k = 0; k < prototype->points.size(); ++k) {
                mesh.points[p0 + k] = placePoint(instance.frame, prototype->points[k]);
                if (k < prototype->uvs.size()) mesh.uvs[p0 + k] = prototype->uvs[k];
            }
            for (std::size_t k = 0; k < prototype->triangles.size(); ++k) {
                const IndexTriangle& triangle = prototype->triangles[k];
                for (int c = 0; c < 3; ++c) mesh.triangles[t0 + k][c] = static_cast<std::uint32_t>(p0 + triangle[c]);
                mesh.faceColours[t0 + k] = instance.colour;
            }
            if (bend && !instance.rigid()) {
                bend(i, std::span<Vec3f>(mesh.points.data() + p0, prototype->points.size()));
            }
        }
    });
    return mesh;
}

}  // namespace tressora
