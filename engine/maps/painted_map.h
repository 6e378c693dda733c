#pragma once
// The groom's own maps, painted in a host and kept in the groom file under `maps`, by name:
// a texture paint (an image file over the scalp's UVs), a vertex map (values per scalp
// point) or a layer painted on the guides. MapCatalogValue is the scene item that carries
// them into an evaluation.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace tressora {

class ScalpMesh;

enum class PaintedMapKind { Guides = 0, Texture, Vertices };

/// "guides", "texture" or "vertices": the `kind` word of the groom file.
std::string_view paintedMapKindName(PaintedMapKind kind);

struct PaintedMap {
    PaintedMapKind kind = PaintedMapKind::Texture;
    /// texture: the image file as stored in the groom (relative paths resolve through the
    /// groom's search paths); empty while the paint has not been saved to a file.
    std::string file;
    /// texture and vertices: values per texel or per point, 1 (a mask) to 4 (RGBA).
    int channels = 1;
    /// vertices: the point count of the scalp it was painted on, and channels values per point.
    std::uint64_t vertexCount = 0;
    std::vector<float> values;
    /// guides: the layer's name on the guides; empty means the map's own name.
    std::string layer;
    /// Keys the engine does not read (a host's brush settings...), kept for writing back.
    nlohmann::json extra = nlohmann::json::object();

    bool operator==(const PaintedMap&) const = default;
};

/// The groom's maps by name. Immutable once shared.
class MapCatalogValue {
public:
    MapCatalogValue() = default;
    explicit MapCatalogValue(std::map<std::string, PaintedMap> maps);

    /// The map of that name, or null.
    const PaintedMap* find(const std::string& name) const;
    const std::map<std::string, PaintedMap>& maps() const { return maps_; }
    bool empty() const { return maps_.empty(); }
    /// A hash of every name and all content; it enters the keys of nodes that read maps.
    std::uint64_t stamp() const { return stamp_; }

private:
    std::map<std::string, PaintedMap> maps_;
    std::uint64_t stamp_ = 0;
};

/// A hash of one map's content.
std::uint64_t paintedMapStamp(const PaintedMap& map);

/// One entry of the groom file's `maps` object. Throws GroomFileError naming the key's dotted
/// path, "groom file: maps.<name>...", for anything it can't read.
PaintedMap paintedMapFromJson(const std::string& name, const nlohmann::json& value);
/// The entry as the groom file stores it: only the keys of its kind, the extra keys, and
/// values written in their shortest float form.
nlohmann::json paintedMapToJson(const PaintedMap& map);

/// The whole `maps` object (null gives an empty catalogue). Throws GroomFileError.
std::shared_ptr<const MapCatalogValue> mapCatalogFromJson(const nlohmann::json& maps);
/// The `maps` object of a catalogue.
nlohmann::json mapCatalogToJson(const MapCatalogValue& catalog);

/// One sentence for each vertex map painted on a scalp with another point count than
/// `scalp`, in name order, to show the user when a groom is opened.
std::vector<std::string> paintedMapMismatches(const MapCatalogValue& catalog, const ScalpMesh& scalp);

}  // namespace tressora
