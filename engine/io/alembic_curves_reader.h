#pragma once
// Reading strands and meshes back from Alembic archives: the curves of one object (or of every
// curves object) as strand sets per sample, and a polygon mesh's points per sample, as scalp
// caches and colliders use them. Both read the whole file at once, on the calling thread.

#include <string>
#include <vector>

#include "core/instances.h"
#include "core/strand_set.h"
#include "io/alembic/geom_params.h"

namespace tressora {

/// One sample of curves as read.
struct ReadCurvesSample {
    double time = 0.0;  ///< seconds
    /// Ids ("strandId", or a groom file's low and high halves joined; else the strand's
    /// index), strand ranges, points, widths (1.0 where the file has none), and the float and
    /// integer params of uniform or vertex scope as strand and point channels.
    StrandSet strands;
    std::vector<MeshUv> rootUvs;  ///< one per strand, or empty when the file has none
    /// Every arbitrary geometry param that is not already in ids, widths or uvs, per object in
    /// tree order and per object in file order, as stored.
    std::vector<abc::GeomParamSample> params;
};

struct ReadCurves {
    std::vector<ReadCurvesSample> samples;
};

/// The curves named `objectName` (an object's name, or that name + "Shape"), or of every
/// curves object when the name is empty, merged per sample in tree order. Samples follow the
/// first match's time sampling; other matches give their sample of the same index (their last
/// one past their end). AlembicError "no curves" (+ " named '<name>'") when nothing matches,
/// "<object> sample <i>: a curves sample has no positions or vertex counts", "... curve <k> has
/// a negative vertex count", "... the vertex counts add up to <n> points but the sample holds
/// <m>", and whatever the archive reader finds damaged.
ReadCurves readAlembicCurves(const std::string& path, const std::string& objectName = {});
/// The same, from an archive already open (a file's or bytes held in memory).
ReadCurves readAlembicCurves(const abc::ArchiveReader& archive, const std::string& objectName = {});

/// One sample of a mesh's points.
struct ReadMeshSample {
    double time = 0.0;  ///< seconds
    std::vector<Vec3f> points;
};

/// A polygon mesh as read: the topology of its first sample and the points of every sample.
struct ReadMesh {
    std::string object;  ///< the object's full name
    std::vector<std::int32_t> faceCounts;
    std::vector<std::int32_t> faceIndices;  ///< clockwise, as stored
    /// The first sample's uvs, one per face corner in stored order (from face-varying or
    /// per-point uvs); empty when the mesh has none.
    std::vector<std::array<float, 2>> cornerUvs;
    std::vector<ReadMeshSample> samples;
};

/// The first polygon mesh named `objectName` (or that name + "Shape"; any mesh when empty).
/// AlembicError "no polygon mesh" (+ " named '<name>'") when there is none.
ReadMesh readAlembicMesh(const std::string& path, const std::string& objectName = {});
ReadMesh readAlembicMesh(const abc::ArchiveReader& archive, const std::string& objectName = {});

}  // namespace tressora
