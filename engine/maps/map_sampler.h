#pragma once
// What a map gives at a strand's root: the samplers behind image maps, colour sets and
// vertex maps, and the choice of one number from their colour. Samplers are immutable and
// answer from any thread.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "graph/param_value.h"
#include "maps/texture.h"

namespace tressora {

struct PaintedMap;

/// Where a strand meets the scalp: the root triangle and weights, its UV and position.
struct RootSample {
    std::int32_t face = -1;  ///< -1 for a strand with no root on the scalp
    float b1 = 0.0f;
    float b2 = 0.0f;
    ScalpMesh::Uv uv{};
    Vec3f position;
};

/// The root of strand `strand`: UV and position from the scalp when the root lies on one of
/// its triangles; otherwise face -1 and the strand's first point (the origin without points).
/// `withPosition` false leaves the position out (0) for samplers that don't read it.
RootSample rootSample(const ScalpMesh* scalp, const StrandSet& strands, std::size_t strand, bool withPosition = true);

/// A map that gives a colour at a root.
class MapSampler {
public:
    virtual ~MapSampler() = default;
    /// RGBA at the root. A root off the scalp reads 0.
    virtual Rgba sample(const RootSample& root) const = 0;
    /// The mean colour over the map, for a consumer that needs one number.
    virtual Rgba mean() const = 0;
    /// What the map contributes to cache keys: it changes when the map's content does.
    virtual std::uint64_t stamp() const = 0;
    /// Whether sample() reads the root's position (the others read face, weights and UV).
    virtual bool readsPosition() const { return false; }
};

/// The channel an expression's map() asks for, 0 r, 1 g, 2 b, 3 a, 4 luminance, as a component.
MapComponent componentOfChannel(int channel);
/// One number of a colour: r, g, b or a, or the luminance for Luminance and Auto.
float pickComponent(const Rgba& colour, MapComponent component);

/// An image sampled at the root's UV.
std::shared_ptr<const MapSampler> textureSampler(std::shared_ptr<const Texture> texture);
/// A colour set of the scalp, four values per triangle corner, blended at the root.
/// Null when the scalp has no set of that name.
std::shared_ptr<const MapSampler> colorSetSampler(std::shared_ptr<const ScalpMesh> scalp, const std::string& name);
/// A painted vertex map, `channels` values per scalp point, blended at the root. The map's
/// vertex count must be the scalp's point count (the caller checks).
std::shared_ptr<const MapSampler> vertexMapSampler(std::shared_ptr<const ScalpMesh> scalp, const PaintedMap& map);

}  // namespace tressora
