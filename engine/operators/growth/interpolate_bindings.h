#pragma once
// Which guides each strand blends, and with what weight: the search half of Interpolate.
// Bindings are kept in chunks of 256 consecutive strands; a later evaluation reuses every
// chunk whose strands (ids and roots) are unchanged while the guides' roots and the params
// that choose guides stay the same, so animated guides cost only the blend.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "core/strand_set.h"
#include "core/surface_graph.h"
#include "core/vec.h"

namespace tressora {

/// A strand's place in a guide's tube, decided when it is bound.
struct TubeSpot {
    std::int32_t guide = -1;  ///< the tube's guide index; -1 for none
    float u = 0.0f;           ///< section coordinates, -1 to 1 across the tube at the root
    float v = 0.0f;
    float ride = 0.0f;        ///< 1 inside the tube, falling to 0 across its soft edge
};

/// The bindings of up to 256 consecutive strands [first, first + count). Strand s of the
/// chunk blends guides guide[start[s]] .. guide[start[s + 1] - 1] with the weights beside
/// them (summing to 1).
struct BindingChunk {
    static constexpr std::size_t kStrands = 256;

    std::size_t first = 0;
    std::size_t count = 0;
    std::uint64_t key = 0;  ///< hash of the chunk's ids and roots and of the choosing inputs
    std::vector<std::uint32_t> start;
    std::vector<std::uint32_t> guide;
    std::vector<float> weight;
    std::vector<float> nearest;        ///< straight distance to the nearest candidate guide root
    std::vector<std::int32_t> region;  ///< region number, -1 for none (empty without regions)
    std::vector<TubeSpot> tube;        ///< empty without tubes
};

/// What chooses the guides of a strand.
struct BindingSettings {
    int neighbors = 3;   ///< candidates per strand, and the neighbour a guide's reach runs to
    float reach = 1.5f;  ///< multiple of the distance to that neighbour
    float power = 2.0f;  ///< falloff power of the weights
};

/// The guides' side of a binding and the per-strand hooks, valid for one call of bindStrands.
struct BindingInputs {
    std::span<const Vec3f> guideRoots;
    /// One region number per guide (-1 none); empty when there are no regions.
    std::span<const std::int32_t> guideRegions;
    /// The region of strand i; called only when guideRegions is not empty.
    std::function<std::int32_t(std::size_t)> strandRegion;
    /// The tube a strand is rooted in; empty when tubes are not filled.
    std::function<TubeSpot(std::size_t)> strandTube;
    /// With followSurface: makes each guide's front out to the given distances (its reach),
    /// called only when some strand is searched; empty for straight distances.
    std::function<std::shared_ptr<const SurfaceFronts>(std::span<const float>)> makeFronts;
    /// A hash of everything above and of the settings: a different key rebinds every chunk.
    std::uint64_t key = 0;
};

/// The chunk table of one evaluation, shared and immutable once made.
struct BindingTable {
    std::uint64_t key = 0;
    std::vector<std::shared_ptr<const BindingChunk>> chunks;
};

/// The key of the guides' roots (ids, scalp attachments, positions) and the settings.
std::uint64_t bindingKey(std::span<const std::uint64_t> guideIds, std::span<const StrandRoot> guideRoots,
                         std::span<const Vec3f> guideRootPositions, const BindingSettings& settings);

/// Each guide's reach: the distance from its root to its neighbors-th nearest other guide
/// root among the guides of its own region (all guides without regions), times `reach`;
/// infinite when it has no such neighbour. Parallel over guides.
std::vector<float> guideReaches(std::span<const Vec3f> roots, std::span<const std::int32_t> regions,
                                const BindingSettings& settings);

/// Binds every strand of `strands`, reusing the chunks of `previous` (may be null) whose key
/// is unchanged. Parallel over chunks; the result is independent of the thread count.
std::shared_ptr<const BindingTable> bindStrands(const StrandSet& strands, const BindingInputs& inputs,
                                                const BindingSettings& settings, const BindingTable* previous);

/// The weights of candidates at straight distances `distances` (nearest first) with reaches
/// `reaches`, written to `weights` (same size; zero for a guide beyond its reach unless every
/// candidate is). With one candidate or neighbors 1 the nearest takes all.
void guideWeights(std::span<const float> distances, std::span<const float> reaches, const BindingSettings& settings,
                  std::span<float> weights);

/// How many strands had their guides searched, process-wide: instrumentation that tells a
/// pass that reused its bindings from one that searched.
std::uint64_t bindingSearchCount();

}  // namespace tressora
