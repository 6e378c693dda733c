#include "operators/look/clump_plan.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <map>

#include "core/hash.h"
#include "core/parallel.h"
#include "core/point_index.h"
#include "operators/growth/scatter_relax.h"
#include "operators/growth/scatter_roots.h"

namespace tressora {
namespace {

constexpr std::size_t kGrain = 2048;
constexpr std::uint64_t kSpotSalt = 0xC1A3'5B07ull;
constexpr std::uint64_t kWeightSalt = 0xC1A3'3E16ull;
constexpr std::uint64_t kPickSalt = 0xC1A3'71C4ull;

std::vector<Vec3f> rootPositions(const StrandSet& strands) {
    std::vector<Vec3f> out(strands.strandCount());
    const std::span<const Vec3f> points = strands.points();
    const std::span<const std::uint64_t> offsets = strands.offsets();
    parallelRange(0, out.size(), kGrain, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) out[i] = offsets[i] < offsets[i + 1] ? points[offsets[i]] : Vec3f{};
    });
    return out;
}

/// The values of a strand channel as whole numbers, or `fallback` everywhere without it.
std::vector<std::int64_t> channelGroups(const StrandSet& strands, const std::string& name, std::int64_t fallback) {
    std::vector<std::int64_t> out(strands.strandCount(), fallback);
    const StrandChannel* channel = name.empty() ? nullptr : strands.strandChannel(name);
    if (!channel || channel->values().size() != out.size()) return out;
    const std::span<const float> v = channel->values();
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = std::isfinite(v[i]) ? std::llround(v[i]) : fallback;
    return out;
}

/// Whether a strand is held by every preview of the set (Scatter's marks 1 and 2), so that a
/// center chosen among such strands exists at any preview density.
std::vector<std::uint8_t> heldByEveryPreview(const StrandSet& strands) {
    std::vector<std::uint8_t> out(strands.strandCount(), 1);
    const StrandChannel* marks = strands.strandChannel("_preview");
    if (!marks || marks->values().size() != out.size()) return out;
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = marks->values()[i] >= 1.0f;
    return out;
}

/// The spots where picked clumps lie: Scatter's candidates at the clumps' density on the
/// scalp, spread evenly and blended toward their random spots by `randomness`.
std::vector<Vec3f> pickedSpots(const ScalpMesh& scalp, std::size_t clumps, const CenterChoice& choice) {
    const double area = scalp.area();
    if (!(area > 0.0) || clumps == 0) return {};
    const double density = static_cast<double>(clumps) / area;
    RootTable table;
    makeCandidates(scalp, density, static_cast<std::int64_t>(combine(static_cast<std::uint64_t>(choice.seed), kSpotSalt)),
                   1.0f, table);
    std::vector<StrandRoot> spots = table.roots;
    if (choice.randomness != 1.0f && spots.size() > 1) {
        const RootFilter filter{nullptr, density, nullptr, &scalp};
        const std::vector<StrandRoot> even = relaxRoots(scalp, filter, table.ids, table.roots);
        spots = choice.randomness == 0.0f ? even : mixRoots(scalp, table.roots, even, choice.randomness);
    }
    std::vector<Vec3f> out(spots.size());
    for (std::size_t i = 0; i < spots.size(); ++i) out[i] = scalp.positionAt(spots[i].face, spots[i].u, spots[i].v);
    return out;
}

/// Picks centers among `candidates` (indices of strands): each spot takes its nearest
/// candidate not taken yet by an earlier spot. Without spots (no scalp), the candidates with
/// the smallest draws of their ids are taken, `clumps` of them.
std::vector<std::uint32_t> takeNearest(const std::vector<std::uint32_t>& candidates, const std::vector<Vec3f>& roots,
                                       const std::vector<Vec3f>& spots, std::size_t clumps,
                                       std::span<const std::uint64_t> ids, std::int64_t seed) {
    std::vector<std::uint32_t> out;
    if (candidates.empty()) return out;
    if (spots.empty()) {
        std::vector<std::pair<std::uint64_t, std::uint32_t>> ranked;
        ranked.reserve(candidates.size());
        for (std::uint32_t c : candidates)
            ranked.push_back({combine(hash64(ids[c]), combine(static_cast<std::uint64_t>(seed), kPickSalt)), c});
        const std::size_t n = std::min(clumps, ranked.size());
        std::partial_sort(ranked.begin(), ranked.begin() + static_cast<std::ptrdiff_t>(n), ranked.end());
        for (std::size_t i = 0; i < n; ++i) out.push_back(ranked[i].second);
        std::sort(out.begin(), out.end());
        return out;
    }
    std::vector<Vec3f> at(candidates.size());
    for (std::size_t i = 0; i < candidates.size(); ++i) at[i] = roots[candidates[i]];
    const PointIndex index(at);
    std::vector<std::uint32_t> nearest(spots.size(), PointIndex::npos);
    parallelRange(0, spots.size(), 64, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t s = lo; s < hi; ++s) {
            float d = 0.0f;
            nearest[s] = index.nearest(spots[s], d);
        }
    });
    std::vector<std::uint8_t> taken(candidates.size(), 0);
    for (std::uint32_t n : nearest)
        if (n != PointIndex::npos && !taken[n]) {
            taken[n] = 1;
            out.push_back(candidates[n]);
        }
    return out;
}

/// Picks a tube's centers among its strands: in the order of their drawn keys, a strand
/// becomes a center when no center of the tube lies within `spacing` of its root.
std::vector<std::uint32_t> pickInTube(const std::vector<std::uint32_t>& members, const std::vector<Vec3f>& roots,
                                      float spacing, std::span<const std::uint64_t> ids, std::int64_t seed) {
    std::vector<std::pair<std::uint64_t, std::uint32_t>> ranked;
    for (std::uint32_t m : members)
        ranked.push_back({combine(hash64(ids[m]), combine(static_cast<std::uint64_t>(seed), kPickSalt)), m});
    std::sort(ranked.begin(), ranked.end());
    std::vector<std::uint32_t> out;
    const float limit = spacing * spacing;
    for (const auto& entry : ranked) {
        const std::uint32_t m = entry.second;
        const bool clear = std::none_of(out.begin(), out.end(),
                                        [&](std::uint32_t c) { return lengthSquared(roots[c] - roots[m]) < limit; });
        if (clear) out.push_back(m);
    }
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

float clumpNumber(std::uint64_t centerId) { return static_cast<float>(hash64(centerId) >> 41); }

std::size_t plannedClumpCount(const CenterChoice& choice, double area) {
    if (!choice.bySize) return static_cast<std::size_t>(std::max<std::int64_t>(choice.count, 0));
    if (!(choice.size > 0.0) || !(area > 0.0)) return 0;
    const double n = std::round(area / (choice.size * choice.size));
    return n > 1e7 ? std::size_t{10'000'000} : static_cast<std::size_t>(n);
}

std::shared_ptr<const CenterPlan> buildCenterPlan(const StrandSet& strands, const CenterChoice& choice) {
    auto plan = std::make_shared<CenterPlan>();
    const std::size_t n = strands.strandCount();
    plan->clumpOf.assign(n, CenterPlan::kNone);
    const std::vector<Vec3f> roots = rootPositions(strands);
    const std::span<const std::uint64_t> ids = strands.ids();
    const std::vector<std::int64_t> region = channelGroups(strands, choice.regionChannel, 0);
    const std::vector<std::int64_t> tube =
        choice.followTubes ? channelGroups(strands, "tubeId", -1) : std::vector<std::int64_t>(n, -1);

    // Where each clump's root lies, and what defines it.
    std::vector<Vec3f> centerRoots;
    std::vector<std::int64_t> centerRegion, centerTube;
    if (choice.source == CenterSource::Pick) {
        const double area = choice.scalp ? choice.scalp->area() : 0.0;
        const std::size_t clumps = plannedClumpCount(choice, area);
        if (clumps == 0 || n == 0) return plan;
        const std::vector<std::uint8_t> held = heldByEveryPreview(strands);
        std::vector<std::uint32_t> loose;                          // candidates in no tube
        std::map<std::int64_t, std::vector<std::uint32_t>> tubes;  // candidates per tube
        for (std::uint32_t i = 0; i < n; ++i) {
            if (!held[i]) continue;
            const float weight = choice.centerWeight.empty() ? 1.0f : choice.centerWeight[i];
            if (weight < 1.0f &&
                !(weight > unitFromBits(combine(hash64(ids[i]), combine(static_cast<std::uint64_t>(choice.seed), kWeightSalt)))))
                continue;
            if (tube[i] >= 0)
                tubes[tube[i]].push_back(i);
            else
                loose.push_back(i);
        }
        const std::vector<Vec3f> spots = choice.scalp ? pickedSpots(*choice.scalp, clumps, choice) : std::vector<Vec3f>{};
        std::vector<std::uint32_t> centers = takeNearest(loose, roots, spots, clumps, ids, choice.seed);
        const float spacing = area > 0.0 ? static_cast<float>(std::sqrt(area / static_cast<double>(clumps))) : 0.0f;
        for (const auto& [id, members] : tubes) {
            const std::vector<std::uint32_t> inTube = pickInTube(members, roots, spacing, ids, choice.seed);
            centers.insert(centers.end(), inTube.begin(), inTube.end());
        }
        for (std::uint32_t c : centers) {
            plan->axis.push_back(c);
            plan->centerIds.push_back(ids[c]);
            centerRoots.push_back(roots[c]);
            centerRegion.push_back(region[c]);
            centerTube.push_back(tube[c]);
        }
    } else {
        const std::size_t m = std::min(choice.inputIds.size(), choice.inputRoots.size());
        if (m == 0 || n == 0) return plan;
        std::vector<std::uint32_t> nearestStrand(m, 0);
        if (choice.source == CenterSource::InputPoints) {
            const PointIndex index(roots);
            parallelRange(0, m, 64, [&](std::size_t lo, std::size_t hi) {
                for (std::size_t c = lo; c < hi; ++c) {
                    float d = 0.0f;
                    nearestStrand[c] = index.nearest(choice.inputRoots[c], d);
                }
            });
        }
        for (std::uint32_t c = 0; c < m; ++c) {
            const bool points = choice.source == CenterSource::InputPoints;
            const std::uint32_t s = nearestStrand[c];
            if (points && s == PointIndex::npos) continue;
            plan->axis.push_back(points ? s : c);
            plan->centerIds.push_back(points ? ids[s] : choice.inputIds[c]);
            centerRoots.push_back(choice.inputRoots[c]);
            // A center's region is its strand's (for a curve, the strand nearest its root's).
            centerRegion.push_back(points ? region[s] : 0);
            centerTube.push_back(-1);
        }
        if (choice.source == CenterSource::InputCurves && !region.empty()) {
            const PointIndex index(roots);
            for (std::size_t c = 0; c < centerRoots.size(); ++c) {
                float d = 0.0f;
                const std::uint32_t s = index.nearest(centerRoots[c], d);
                if (s != PointIndex::npos) centerRegion[c] = region[s];
            }
        }
    }
    plan->roots = centerRoots;

    // Each strand joins the nearest center of its own region and tube.
    std::map<std::pair<std::int64_t, std::int64_t>, std::vector<std::uint32_t>> groups;
    for (std::uint32_t c = 0; c < centerRoots.size(); ++c) groups[{centerRegion[c], centerTube[c]}].push_back(c);
    std::map<std::pair<std::int64_t, std::int64_t>, std::pair<PointIndex, const std::vector<std::uint32_t>*>> indexes;
    for (const auto& [key, members] : groups) {
        std::vector<Vec3f> at;
        for (std::uint32_t c : members) at.push_back(centerRoots[c]);
        indexes.emplace(key, std::make_pair(PointIndex(at), &members));
    }
    parallelRange(0, n, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const auto it = indexes.find({region[i], tube[i]});
            if (it == indexes.end()) continue;
            float d = 0.0f;
            const std::uint32_t k = it->second.first.nearest(roots[i], d);
            if (k != PointIndex::npos) plan->clumpOf[i] = (*it->second.second)[k];
        }
    });
    // A picked center gathers toward itself, whatever lies nearer.
    if (choice.source == CenterSource::Pick)
        for (std::uint32_t c = 0; c < plan->axis.size(); ++c) plan->clumpOf[plan->axis[c]] = c;

    // The nearest other clumps of each clump, for copyAmount.
    const PointIndex all(centerRoots);
    plan->neighbours.resize(centerRoots.size());
    parallelRange(0, centerRoots.size(), 64, [&](std::size_t lo, std::size_t hi) {
        std::uint32_t found[CenterPlan::kNeighbours + 1];
        float distances[CenterPlan::kNeighbours + 1];
        for (std::size_t c = lo; c < hi; ++c) {
            const std::size_t k = all.kNearest(centerRoots[c], CenterPlan::kNeighbours + 1, found, distances);
            auto& list = plan->neighbours[c];
            list.fill(CenterPlan::kNone);
            std::size_t used = 0;
            for (std::size_t j = 0; j < k && used < CenterPlan::kNeighbours; ++j)
                if (found[j] != c) list[used++] = found[j];
        }
    });
    return plan;
}

std::uint64_t centerPlanKey(const StrandSet& strands, const CenterChoice& choice) {
    const std::size_t n = strands.strandCount();
    const std::span<const std::uint64_t> ids = strands.ids();
    const std::span<const StrandRoot> roots = strands.roots();
    const StrandChannel* marks = strands.strandChannel("_preview");
    const StrandChannel* region = choice.regionChannel.empty() ? nullptr : strands.strandChannel(choice.regionChannel);
    const StrandChannel* tube = choice.followTubes ? strands.strandChannel("tubeId") : nullptr;
    const auto bits = [](float v) { return static_cast<std::uint64_t>(std::bit_cast<std::uint32_t>(v)); };

    // Fixed chunks hashed in parallel, then folded in order: the same key on any thread count.
    const std::size_t chunks = (n + kGrain - 1) / kGrain;
    std::vector<std::uint64_t> chunkHash(chunks);
    parallelRange(0, chunks, 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t c = lo; c < hi; ++c) {
            std::uint64_t h = hash64(c);
            for (std::size_t i = c * kGrain; i < std::min(n, (c + 1) * kGrain); ++i) {
                h = combine(h, ids[i]);
                h = combine(h, static_cast<std::uint64_t>(static_cast<std::uint32_t>(roots[i].face)) |
                                   bits(roots[i].u) << 32);
                h = combine(h, bits(roots[i].v));
                if (marks) h = combine(h, bits(marks->values()[i]));
                if (region) h = combine(h, bits(region->values()[i]));
                if (tube) h = combine(h, bits(tube->values()[i]));
                if (!choice.centerWeight.empty()) h = combine(h, bits(choice.centerWeight[i]));
            }
            chunkHash[c] = h;
        }
    });
    std::uint64_t h = hash64(n);
    for (const std::uint64_t c : chunkHash) h = combine(h, c);
    h = combine(h, static_cast<std::uint64_t>(choice.source));
    h = combine(h, choice.bySize ? 1u : 0u);
    h = combine(h, static_cast<std::uint64_t>(choice.count));
    h = combine(h, std::bit_cast<std::uint64_t>(choice.size));
    h = combine(h, bits(choice.randomness));
    h = combine(h, static_cast<std::uint64_t>(choice.seed));
    h = combine(h, choice.followTubes ? 1u : 0u);
    for (const char c : choice.regionChannel) h = combine(h, static_cast<unsigned char>(c));
    // The scalp counts by its area, in steps of 1%: a smaller edit keeps every clump.
    if (choice.scalp && choice.scalp->area() > 0.0f)
        h = combine(h, static_cast<std::uint64_t>(std::llround(std::log(choice.scalp->area()) / std::log(1.01))));
    for (std::size_t c = 0; c < choice.inputIds.size(); ++c) {
        h = combine(h, choice.inputIds[c]);
        if (c < choice.inputRoots.size())
            h = combine(combine(h, bits(choice.inputRoots[c].x) | bits(choice.inputRoots[c].y) << 32),
                        bits(choice.inputRoots[c].z));
    }
    return h;
}

}  // namespace tressora
