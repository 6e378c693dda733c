#pragma once
// A colour read at each strand's root by name: one of the groom's painted maps, a colour set
// of the scalp, or an image file laid over the scalp's UVs. HairColor's `map` reads it.

#include <cstdint>
#include <memory>
#include <string>

#include "core/scalp_mesh.h"
#include "core/strand_set.h"
#include "core/vec.h"
#include "graph/eval_context.h"
#include "maps/map_sampler.h"

namespace tressora::look {

class RootColorMap {
public:
    /// Looks `name` up in the evaluation's scene: painted maps first, then the scalp's colour
    /// sets, then an image file (through the groom's search paths when the context's maps
    /// know them). When it can't be read, ok() is false and problem() says why.
    RootColorMap(const std::string& name, const EvalContext& context);

    bool ok() const { return sampler_ != nullptr; }
    const std::string& problem() const { return problem_; }
    /// The map's colour (RGB) at the root of strand `strand`; any thread.
    Vec3f at(const StrandSet& strands, std::size_t strand) const;

private:
    std::shared_ptr<const MapSampler> resolve(const std::string& name, const EvalContext& context);
    std::shared_ptr<const MapSampler> fail(const std::string& name, const std::string& text);
    std::shared_ptr<const ScalpMesh> scalp_;
    std::string problem_;
    std::shared_ptr<const MapSampler> sampler_;  // last: made by resolve, which sets the others
};

/// A stamp of an image file's state (size and modification time) for cache keys; 0 when the
/// path names no file.
std::uint64_t fileStamp(const std::string& path);

}  // namespace tressora::look
