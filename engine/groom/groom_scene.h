#pragma once
// GroomScene: what a .groom file holds, in memory. Meshes and guides are held as their
// classes; sections whose inner structure belongs to other subsystems (parts, flow, maps,
// sculpts...) are held as the JSON they were read as and written back unchanged.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/guide_hierarchy.h"
#include "core/scalp_mesh.h"
#include "core/vec.h"

namespace tressora {

/// A mesh object of the file (the scalp, a named scalp, a collider): the mesh, plus the
/// authored polygon table and the subdivision settings, which are kept as read.
struct MeshObject {
    std::shared_ptr<const ScalpMesh> mesh;  ///< null: no mesh
    nlohmann::json polygons;                ///< null, or the faces as authored
    nlohmann::json subdivision;             ///< null, or the display mesh's subdivision

    explicit operator bool() const { return mesh != nullptr; }
};

/// A flat guide: its id, root position, curve and optional up direction at the root.
struct FlatGuide {
    std::uint64_t id = 0;
    Vec3f root;
    std::vector<Vec3f> points;
    std::optional<Vec3f> frameUp;
    bool operator==(const FlatGuide&) const = default;
};

/// An animation in an Alembic file: the file as stored (relative paths go through the
/// search paths), the object in it, and the file's modification stamp when last read.
struct CacheReference {
    std::string file;
    std::string object;
    double stamp = 0.0;
    bool empty() const { return file.empty(); }
    bool operator==(const CacheReference&) const = default;
};

/// Points of an animated cache at a frame; nothing when the cache has no sample there.
using ScalpPointSource = std::function<std::optional<std::vector<Vec3f>>(double frame)>;
/// Curves of an animated guide cache at a frame, one per flat guide.
using GuidePointSource = std::function<std::optional<std::vector<std::vector<Vec3f>>>(double frame)>;

struct GroomScene {
    // ---- the document, in the order the file writes it ----
    double framesPerSecond = 24.0;
    std::string units = "cm";
    std::string upAxis = "Y";  ///< "Y" or "Z"
    std::string source;        ///< what the groom was made from, free text
    nlohmann::json graph;      ///< the graph document; null for a groom without graph
    std::shared_ptr<const GuideHierarchy> hierarchy;
    nlohmann::json parts;        ///< object or null
    nlohmann::json correctives;  ///< object or null
    nlohmann::json flow;         ///< object or null
    nlohmann::json sculpts;      ///< object or null
    nlohmann::json controls;     ///< array or null
    nlohmann::json maps;         ///< object of map entries by name, or null
    MeshObject scalp;
    nlohmann::json topology;     ///< object or null: the scalp's topology when its points come from a cache
    std::map<std::string, MeshObject> scalps;
    std::vector<FlatGuide> guides;
    CacheReference scalpCache;
    CacheReference guideCache;
    std::vector<std::string> searchPaths;
    bool followScalp = false;
    std::string scaleSource;
    std::optional<double> scaleReference;
    std::optional<double> scaleTransformReference;
    nlohmann::json cardBake;     ///< object or null: `prefix`, `strands`
    std::map<std::string, CacheReference> simCaches;
    nlohmann::json prototypes;   ///< object of instance meshes by name, or null
    std::map<std::string, MeshObject> colliders;
    nlohmann::json transferMarkers;  ///< array or null
    nlohmann::json referencePhotos;  ///< array or null
    nlohmann::json guideGroupColors; ///< object or null
    std::vector<std::string> hiddenGuideGroups;

    // ---- not written ----
    /// The file the scene was read from or last written to (UTF-8); empty for a new groom.
    std::string filePath;
    /// The scalp cache's points by frame, attached by whoever opens the cache.
    ScalpPointSource scalpFrames;
    /// The guide cache's curves by frame, likewise.
    GuidePointSource guideFrames;

    /// The scalp at a frame: the cache's points on the scalp's topology when the cache has
    /// that frame, else the scalp as it stands (null without scalp).
    std::shared_ptr<const ScalpMesh> scalpHistoryAt(double frame) const;
};

/// Resolves a path written in the groom: an absolute path as it is; a relative one against
/// the file's own folder, then each of `searchPaths` in order (relative entries against the
/// file's folder), taking the first candidate that exists. When none exists, the candidate
/// in the file's folder (the path itself for a scene without file).
std::string groomPath(const GroomScene& scene, const std::string& relative);

}  // namespace tressora
