#pragma once
// Reading a triangle mesh from a mesh file, for making a scalp: a Wavefront OBJ file, or a
// mesh inside an Alembic file. Failures are MeshFileError with a sentence that begins with
// the file's name (the OBJ reader's with "<file>:<line>").

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/scalp_mesh.h"
#include "core/vec.h"

namespace tressora::cli {

/// A mesh as read: points, triangles (faces fanned around their first corner), how many
/// triangles each face became, and UVs per triangle corner when the file gives one for every
/// corner (empty otherwise).
struct MeshFileData {
    std::vector<Vec3f> points;
    std::vector<MeshTriangle> triangles;
    std::vector<std::int32_t> polygons;
    std::vector<std::array<float, 2>> uvs;
};

/// Reads the mesh of a file, by its lower-cased extension: ".obj" or ".abc". `object` picks
/// the mesh inside an Alembic file by name (default: the first); an OBJ file ignores it.
/// Any other extension throws "'<path>' is not a mesh file this reads (.obj or .abc)".
MeshFileData readMeshFile(const std::string& path, const std::string& object = {});

/// Reads an OBJ file whole ("cannot open '<path>'" when it can't be opened).
MeshFileData readObjFile(const std::string& path);

/// Reads the first polygon mesh of an Alembic file (or the one named `object`) at its first
/// sample, each face a fan; "<path>: the mesh has no triangles" when it has none, and
/// "<path>: <reason>" when the archive cannot be read.
MeshFileData readAlembicMeshFile(const std::string& path, const std::string& object = {});

/// Parses OBJ text; `name` is the file's name as messages give it. Vertices, texture
/// coordinates and faces are read; every other statement (materials, groups, normals,
/// smoothing) is skipped.
MeshFileData parseObj(std::string_view text, const std::string& name);

/// The scalp made of a mesh as read: its points, triangles, UVs and polygon table, and the
/// given name.
ScalpMesh scalpMeshFromFile(const MeshFileData& mesh, std::string name = {});

}  // namespace tressora::cli
