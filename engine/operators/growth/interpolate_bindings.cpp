#include "operators/growth/interpolate_bindings.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <map>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/point_index.h"

namespace tressora {
namespace {

constexpr std::size_t kMaxNeighbors = 16;
constexpr float kInfinity = std::numeric_limits<float>::infinity();

std::atomic<std::uint64_t> searchedStrands{0};

/// A point index over some of the guides, with the guide index of each of its points.
struct GuideIndex {
    PointIndex index;
    std::vector<std::uint32_t> guides;
};

/// One index over all guides, and one per region that guides are rooted in.
struct GuideIndices {
    GuideIndex all;
    std::map<std::int32_t, GuideIndex> regions;

    const GuideIndex& forRegion(std::int32_t region) const {
        if (region < 0) return all;
        const auto it = regions.find(region);
        return it == regions.end() ? all : it->second;
    }
};

GuideIndex makeIndex(std::span<const Vec3f> roots, std::vector<std::uint32_t> guides) {
    std::vector<Vec3f> points(guides.size());
    for (std::size_t i = 0; i < guides.size(); ++i) points[i] = roots[guides[i]];
    return {PointIndex(points), std::move(guides)};
}

GuideIndices makeIndices(std::span<const Vec3f> roots, std::span<const std::int32_t> regions) {
    GuideIndices out;
    std::vector<std::uint32_t> all(roots.size());
    std::map<std::int32_t, std::vector<std::uint32_t>> byRegion;
    for (std::uint32_t g = 0; g < roots.size(); ++g) {
        all[g] = g;
        if (!regions.empty() && regions[g] >= 0) byRegion[regions[g]].push_back(g);
    }
    out.all = makeIndex(roots, std::move(all));
    for (auto& [region, guides] : byRegion) out.regions.emplace(region, makeIndex(roots, std::move(guides)));
    return out;
}

std::uint64_t chunkKey(const StrandSet& strands, std::size_t first, std::size_t count, std::uint64_t inputsKey) {
    const auto ids = strands.ids();
    const auto roots = strands.roots();
    std::uint64_t h = combine(inputsKey, count);
    for (std::size_t i = first; i < first + count; ++i) {
        const StrandRoot& r = roots[i];
        h = combine(h, ids[i]);
        h = combine(h, static_cast<std::uint64_t>(static_cast<std::uint32_t>(r.face)));
        h = combine(h, floatBits(r.u) | (floatBits(r.v) << 32));
        // A root off the scalp is known by its position alone.
        if (r.face < 0) {
            const auto pts = strands.strandPoints(i);
            const Vec3f p = pts.empty() ? Vec3f{} : pts[0];
            h = combine(h, floatBits(p.x) | (floatBits(p.y) << 32));
            h = combine(h, floatBits(p.z));
        }
    }
    return h;
}

std::shared_ptr<const BindingChunk> bindChunk(const StrandSet& strands, std::size_t first, std::size_t count,
                                              std::uint64_t key, const BindingInputs& inputs,
                                              const BindingSettings& settings, const GuideIndices& indices,
                                              std::span<const float> reaches, const SurfaceFronts* fronts) {
    auto chunk = std::make_shared<BindingChunk>();
    chunk->first = first;
    chunk->count = count;
    chunk->key = key;
    chunk->start.reserve(count + 1);
    chunk->start.push_back(0);
    chunk->nearest.resize(count);
    const bool regions = !inputs.guideRegions.empty();
    if (regions) chunk->region.resize(count, -1);
    if (inputs.strandTube) chunk->tube.resize(count);

    const std::size_t k = std::clamp<std::size_t>(static_cast<std::size_t>(std::max(settings.neighbors, 1)), 1,
                                                  kMaxNeighbors);
    std::array<std::uint32_t, kMaxNeighbors> found{};
    std::array<float, kMaxNeighbors> d2{};
    std::array<float, kMaxNeighbors> distance{};
    std::array<float, kMaxNeighbors> reach{};
    std::array<float, kMaxNeighbors> weight{};
    for (std::size_t s = 0; s < count; ++s) {
        const std::size_t strand = first + s;
        const auto pts = strands.strandPoints(strand);
        const Vec3f root = pts.empty() ? Vec3f{} : pts[0];
        std::int32_t region = -1;
        if (regions) {
            region = inputs.strandRegion(strand);
            chunk->region[s] = region;
        }
        // The index answers nearest first with ties by guide order, so the list needs no
        // second, tie-ordered query.
        const GuideIndex& index = indices.forRegion(region);
        const std::size_t n = index.index.kNearest(root, k, found.data(), d2.data());
        for (std::size_t c = 0; c < n; ++c) {
            found[c] = index.guides[found[c]];
            distance[c] = std::sqrt(d2[c]);
            reach[c] = reaches[found[c]];
        }
        const StrandRoot at = strands.roots()[strand];
        if (fronts && at.face >= 0) {
            // Along the surface, where the straight distance leaves the guide within reach:
            // a guide the front did not reach is beyond it.
            for (std::size_t c = 0; c < n; ++c) {
                if (!(distance[c] < reach[c]) && std::isfinite(reach[c])) continue;
                const auto along = (*fronts)[found[c]].distanceTo(at, root);
                distance[c] = along ? std::max(*along, distance[c]) : kInfinity;
            }
        }
        guideWeights({distance.data(), n}, {reach.data(), n}, settings, {weight.data(), n});
        for (std::size_t c = 0; c < n; ++c) {
            if (!(weight[c] > 0.0f)) continue;
            chunk->guide.push_back(found[c]);
            chunk->weight.push_back(weight[c]);
        }
        chunk->start.push_back(static_cast<std::uint32_t>(chunk->guide.size()));
        chunk->nearest[s] = n > 0 ? std::sqrt(d2[0]) : kInfinity;
        if (inputs.strandTube) chunk->tube[s] = inputs.strandTube(strand);
    }
    searchedStrands.fetch_add(count, std::memory_order_relaxed);
    return chunk;
}

}  // namespace

std::uint64_t bindingKey(std::span<const std::uint64_t> guideIds, std::span<const StrandRoot> guideRoots,
                         std::span<const Vec3f> guideRootPositions, const BindingSettings& settings) {
    std::uint64_t h = combine(hash64(0x1e7e4b1d5ull), static_cast<std::uint64_t>(settings.neighbors));
    h = combine(h, floatBits(settings.reach));
    h = combine(h, floatBits(settings.power));
    h = combine(h, guideIds.size());
    for (std::size_t g = 0; g < guideIds.size(); ++g) {
        h = combine(h, guideIds[g]);
        const StrandRoot r = g < guideRoots.size() ? guideRoots[g] : StrandRoot{};
        h = combine(h, static_cast<std::uint64_t>(static_cast<std::uint32_t>(r.face)));
        h = combine(h, floatBits(r.u) | (floatBits(r.v) << 32));
        if (r.face < 0 && g < guideRootPositions.size()) {
            const Vec3f p = guideRootPositions[g];
            h = combine(h, floatBits(p.x) | (floatBits(p.y) << 32));
            h = combine(h, floatBits(p.z));
        }
    }
    return h;
}

std::vector<float> guideReaches(std::span<const Vec3f> roots, std::span<const std::int32_t> regions,
                                const BindingSettings& settings) {
    const GuideIndices indices = makeIndices(roots, regions);
    const std::size_t neighbors =
        std::clamp<std::size_t>(static_cast<std::size_t>(std::max(settings.neighbors, 1)), 1, kMaxNeighbors);
    std::vector<float> reaches(roots.size(), kInfinity);
    parallelRange(0, roots.size(), 256, [&](std::size_t lo, std::size_t hi) {
        std::array<std::uint32_t, kMaxNeighbors + 1> found{};
        std::array<float, kMaxNeighbors + 1> d2{};
        for (std::size_t g = lo; g < hi; ++g) {
            const GuideIndex& index = indices.forRegion(regions.empty() ? -1 : regions[g]);
            const std::size_t n = index.index.kNearest(roots[g], neighbors + 1, found.data(), d2.data());
            std::size_t others = 0;
            for (std::size_t c = 0; c < n; ++c) {
                if (index.guides[found[c]] == g) continue;
                if (++others == neighbors) {
                    reaches[g] = std::sqrt(d2[c]) * settings.reach;
                    break;
                }
            }
        }
    });
    return reaches;
}

void guideWeights(std::span<const float> distances, std::span<const float> reaches, const BindingSettings& settings,
                  std::span<float> weights) {
    const std::size_t n = distances.size();
    if (n == 0) return;
    std::fill(weights.begin(), weights.end(), 0.0f);
    if (n == 1 || settings.neighbors <= 1) {
        weights[0] = 1.0f;
        return;
    }
    // Inverse-distance weights cut to 0 at each guide's reach; the 1e-6 floor keeps a strand
    // on a guide's root finite, with that guide dominating.
    float largest = 0.0f;
    for (std::size_t c = 0; c < n; ++c) {
        const float d = distances[c];
        const float r = reaches[c];
        float raw;
        if (std::isfinite(r)) raw = d < r ? (r - d) / (r * std::max(d, 1e-6f)) : 0.0f;
        else raw = 1.0f / std::max(d, 1e-6f);
        weights[c] = raw;
        largest = std::max(largest, raw);
    }
    if (!(largest > 0.0f)) {
        // Beyond every candidate's reach the strand still follows the guides: plain inverse
        // distance, so there is no seam where reaches end.
        for (std::size_t c = 0; c < n; ++c) {
            weights[c] = 1.0f / std::max(distances[c], 1e-6f);
            largest = std::max(largest, weights[c]);
        }
    }
    float sum = 0.0f;
    for (std::size_t c = 0; c < n; ++c) {
        const float x = weights[c] / largest;
        const float w = settings.power == 2.0f ? x * x : std::pow(x, settings.power);
        weights[c] = w;
        sum += w;
    }
    if (!(sum > 0.0f)) {
        // power 0 of a zero raw, or underflow: the nearest takes all.
        std::fill(weights.begin(), weights.end(), 0.0f);
        weights[0] = 1.0f;
        return;
    }
    for (std::size_t c = 0; c < n; ++c) weights[c] /= sum;
}

std::shared_ptr<const BindingTable> bindStrands(const StrandSet& strands, const BindingInputs& inputs,
                                                const BindingSettings& settings, const BindingTable* previous) {
    auto table = std::make_shared<BindingTable>();
    table->key = inputs.key;
    const std::size_t strandCount = strands.strandCount();
    const std::size_t chunkCount = (strandCount + BindingChunk::kStrands - 1) / BindingChunk::kStrands;
    table->chunks.resize(chunkCount);

    std::vector<std::uint64_t> keys(chunkCount);
    std::vector<char> stale(chunkCount, 0);
    std::atomic<bool> anyStale{false};
    parallelRange(0, chunkCount, 16, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t c = lo; c < hi; ++c) {
            const std::size_t first = c * BindingChunk::kStrands;
            const std::size_t count = std::min(BindingChunk::kStrands, strandCount - first);
            keys[c] = chunkKey(strands, first, count, inputs.key);
            if (previous && c < previous->chunks.size() && previous->chunks[c] &&
                previous->chunks[c]->key == keys[c] && previous->chunks[c]->count == count) {
                table->chunks[c] = previous->chunks[c];
            } else {
                stale[c] = 1;
                anyStale.store(true, std::memory_order_relaxed);
            }
        }
    });
    if (!anyStale.load()) return table;

    // Searching needs the guides' indices and reaches; a pass that reuses every chunk skips them.
    const GuideIndices indices = makeIndices(inputs.guideRoots, inputs.guideRegions);
    const std::vector<float> reaches = guideReaches(inputs.guideRoots, inputs.guideRegions, settings);
    std::shared_ptr<const SurfaceFronts> fronts;
    if (inputs.makeFronts) {
        // An isolated guide (infinite reach) spreads as far as the farthest finite reach.
        float farthest = 0.0f;
        for (float r : reaches)
            if (std::isfinite(r)) farthest = std::max(farthest, r);
        std::vector<float> limits(reaches.begin(), reaches.end());
        for (float& r : limits)
            if (!std::isfinite(r)) r = farthest > 0.0f ? farthest : kInfinity;
        fronts = inputs.makeFronts(limits);
    }
    parallelRange(0, chunkCount, 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t c = lo; c < hi; ++c) {
            if (!stale[c]) continue;
            const std::size_t first = c * BindingChunk::kStrands;
            const std::size_t count = std::min(BindingChunk::kStrands, strandCount - first);
            table->chunks[c] = bindChunk(strands, first, count, keys[c], inputs, settings, indices, reaches,
                                                fronts.get());
        }
    });
    return table;
}

std::uint64_t bindingSearchCount() { return searchedStrands.load(std::memory_order_relaxed); }

}  // namespace tressora
