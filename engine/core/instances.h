#pragma once
// Meshes placed on strands: the prototypes to place, the instance set that a node hands on
// beside its strands, and the one mesh that all instances of a frame bake into. Writers read
// these records by their fields alone.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/vec.h"

namespace tressora {

/// A texture coordinate.
struct MeshUv {
    float u = 0.0f;
    float v = 0.0f;
    constexpr bool operator==(const MeshUv&) const = default;
};

/// Three point indices of one triangle, counter-clockwise seen from its front.
using IndexTriangle = std::array<std::uint32_t, 3>;

/// A mesh to place on strands. Its local frame: +X runs along the strand from the root,
/// +Y along the skin normal, +Z is their cross product. `plateLength` and `plateHeight` are
/// the extent of the plate along +X and +Y, in the prototype's own units.
struct InstancePrototype {
    std::vector<Vec3f> points;
    std::vector<IndexTriangle> triangles;
    std::vector<MeshUv> uvs;  ///< empty, or one per point
    float plateLength = 1.0f;
    float plateHeight = 1.0f;
};

/// Finds a prototype by name (a scene mesh, a prototype stored in the groom file or a
/// built-in plate); null when the name is unknown. Called from one thread at a time.
using PrototypeLookup = std::function<std::shared_ptr<const InstancePrototype>(std::string_view name)>;

/// The names of the built-in plates.
inline constexpr std::array<std::string_view, 3> kBuiltinPrototypeNames = {
    "tressora:scale", "tressora:scaleRound", "tressora:scaleShield"};

/// True for the name of a built-in plate.
bool isBuiltinPrototype(std::string_view name);

/// Checks a prototype read from a groom file; throws GroomFileError naming what is wrong:
/// a triangle that names a missing point, or UVs that are neither absent nor one per point.
void checkStoredPrototype(const InstancePrototype& prototype);

/// Where an instance lies: its origin, the strand's direction and the skin normal there (any
/// length; placement makes them an orthonormal frame), and a uniform scale.
struct InstanceFrame {
    Vec3f position;
    Vec3f tangent{1.0f, 0.0f, 0.0f};
    Vec3f normal{0.0f, 1.0f, 0.0f};
    float size = 1.0f;
    constexpr bool operator==(const InstanceFrame&) const = default;
};

/// One placed mesh.
struct Instance {
    std::uint64_t strandId = 0;  ///< the strand it sits on
    std::uint32_t prototype = 0; ///< index into InstanceSet::prototypes
    InstanceFrame frame;
    Vec3f colour{1.0f, 1.0f, 1.0f};  ///< linear RGB
    float random = 0.0f;             ///< a per-instance value in [0, 1)
    bool conform = false;            ///< each vertex is bent onto the skin
    bool alongStrand = false;        ///< the mesh is bent along its strand
    /// An instance with neither bend lies where its frame alone says (a point instancer can carry it).
    constexpr bool rigid() const { return !conform && !alongStrand; }
    constexpr bool operator==(const Instance&) const = default;
};

/// The instances a node hands on beside its strands.
struct InstanceSet {
    std::vector<std::string> prototypes;  ///< prototype names, each once
    std::vector<Instance> instances;
    /// The strands only lay the instances out: writers mark them invisible.
    bool hidesStrands = false;

    /// The index of a prototype name, added at the end when new.
    std::uint32_t prototypeIndex(std::string_view name);

    /// Appends other's instances, mapping their prototype indices onto this set's names.
    void append(const InstanceSet& other);

    /// The instances whose strand id is in `strandIds` (any order), in their order here.
    InstanceSet forStrands(std::span<const std::uint64_t> strandIds) const;

    /// False, with a message when asked, if an instance names a prototype index past the list.
    bool validate(std::string* message = nullptr) const;

    /// A hash of every field by bits, for telling whether two evaluations are equal.
    std::uint64_t fingerprint() const;
};

/// One instance baked into a ScaleMesh: the triangles that are its own, and what a writer
/// needs to shade it or to place it again with a point instancer.
struct ScaleRecord {
    std::uint64_t id = 0;          ///< the strand it sits on
    std::uint32_t prototype = 0;   ///< index into the instance set's prototype names
    InstanceFrame frame;           ///< where it lies
    Vec3f rootColour{1.0f, 1.0f, 1.0f};
    float scaleId = 0.0f;          ///< a per-scale value in [0, 1) for shading variation
    MeshUv scaleUv;                ///< the scalp UV under its root, where known
    std::int32_t variant = 0;      ///< which of the prototype variants it took
    std::uint64_t firstTriangle = 0;
    std::uint64_t triangleCount = 0;
    constexpr bool operator==(const ScaleRecord&) const = default;
};

/// All instances of a frame baked into one mesh.
struct ScaleMesh {
    std::vector<Vec3f> points;
    std::vector<IndexTriangle> triangles;
    std::vector<MeshUv> uvs;           ///< one per point (zero where the prototype has none)
    std::vector<Vec3f> faceColours;    ///< one per triangle: its instance's colour
    std::vector<Vec3f> normals;        ///< empty, or one per point
    std::vector<ScaleRecord> records;  ///< one per baked instance, in instance order
};

/// Maps a point of a prototype's local frame into the scene by an instance frame.
Vec3f placePoint(const InstanceFrame& frame, Vec3f local);

/// Bends the placed points of one non-rigid instance (index into InstanceSet::instances).
/// Called in parallel for different instances.
using InstanceBend = std::function<void(std::size_t instance, std::span<Vec3f> points)>;

/// Bakes every instance into one mesh, in instance order: prototype points placed by the
/// frame, then, for instances that bend, passed to `bend` when given; one record per baked
/// instance (scale id from its random, variant from its prototype index; no normals). Instances
/// whose prototype the lookup does not know, or whose index is out of range, are left out.
/// The lookup is asked once per prototype name, on the calling thread; placement is parallel.
ScaleMesh bakeScaleMesh(const InstanceSet& set, const PrototypeLookup& lookup, const InstanceBend& bend = {});

}  // namespace tressora
