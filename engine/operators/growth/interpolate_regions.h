#pragma once
// Regions painted on the scalp in colours, for Interpolate's regionMap: each colour the
// guides are rooted on is a region; a strand blends only the guides of its own region.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/guide_set.h"
#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "graph/eval_context.h"
#include "maps/map_sampler.h"

namespace tressora {

class RegionMap {
public:
    /// Finds the map `name`: a painted map of the groom (scene item "maps"), a colour set of
    /// the scalp, or an image file read at the scalp's UVs. Without one, nothing and a
    /// sentence for the user in *problem.
    static std::optional<RegionMap> resolve(const std::string& name, const EvalContext& context,
                                            std::shared_ptr<const ScalpMesh> scalp, std::string* problem);

    /// What the regions depend on besides the roots: the map's content.
    std::uint64_t stamp() const { return sampler_->stamp(); }

    /// Samples the map at every guide root and numbers the distinct colours found there in
    /// guide order; returns each guide's region. Call once before strandRegion.
    std::vector<std::int32_t> bindGuides(const GuideSet& guides);

    /// The region of a strand's root: the region of its colour, the nearer of two regions
    /// for a colour painted softly between them, or -1 for a colour no guide is rooted on.
    /// Read-only: any thread.
    std::int32_t strandRegion(const StrandSet& strands, std::size_t strand) const;

    /// The region of a colour, as strandRegion decides it.
    std::int32_t regionOf(const Rgba& colour) const;

private:
    RegionMap(std::shared_ptr<const MapSampler> sampler, std::shared_ptr<const ScalpMesh> scalp)
        : sampler_(std::move(sampler)), scalp_(std::move(scalp)) {}

    std::shared_ptr<const MapSampler> sampler_;
    std::shared_ptr<const ScalpMesh> scalp_;
    std::vector<Rgba> colours_;  ///< by region number
};

}  // namespace tressora
