// Choosing strands: subset by index and thinning by id.

#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "core/hash.h"
#include "core/instances.h"
#include "core/parallel.h"
#include "core/strand_set.h"

namespace tressora {
namespace {

// A per-strand array to fill: target[k] = source[indices[k]] for the chosen k.
struct GatherPlan {
    const void* source;
    void* target;
    void (*gather)(const void* source, void* target, const std::size_t* indices, std::size_t lo, std::size_t hi);
};

template <class T>
void gatherElements(const void* source, void* target, const std::size_t* indices, std::size_t lo, std::size_t hi) {
    const T* in = static_cast<const T*>(source);
    T* out = static_cast<T*>(target);
    for (std::size_t k = lo; k < hi; ++k) out[k] = in[indices[k]];
}

template <class T>
GatherPlan gatherPlan(const T* source, T* target) {
    return {source, target, &gatherElements<T>};
}

// A per-point array to fill by blocks of consecutive points.
struct BlockPlan {
    const unsigned char* source;
    unsigned char* target;
    std::size_t elementBytes;
};

template <class T>
BlockPlan blockPlan(const T* source, T* target) {
    return {reinterpret_cast<const unsigned char*>(source), reinterpret_cast<unsigned char*>(target), sizeof(T)};
}

}  // namespace

void StrandSet::subset(std::span<const std::size_t> indices, StrandSet& target) const {
    if (&target == this) throw std::invalid_argument("StrandSet::subset: the target must be another set");
    const std::size_t strands = strandCount();
    for (std::size_t index : indices) {
        if (index >= strands) {
            throw std::invalid_argument("StrandSet::subset: strand index " + std::to_string(index) +
                                        " is out of range for a set of " + std::to_string(strands) + " strands");
        }
    }
    target.dropCaches();
    const std::size_t chosen = indices.size();
    const std::uint64_t* offsets = offsets_.data();

    // The target's offsets: a running sum of the chosen strands' point counts.
    const std::span<std::uint64_t> targetOffsets = target.offsets_.overwrite(chosen + 1, target.mutex_);
    targetOffsets[0] = 0;
    for (std::size_t k = 0; k < chosen; ++k) {
        targetOffsets[k + 1] = targetOffsets[k] + (offsets[indices[k] + 1] - offsets[indices[k]]);
    }
    const std::size_t points = targetOffsets[chosen];

    // Every element of the target is written below exactly once, so the arrays are not cleared first.
    std::vector<GatherPlan> perStrand = {
        gatherPlan(ids_.data(), target.ids_.overwrite(chosen, target.mutex_).data()),
        gatherPlan(roots_.data(), target.roots_.overwrite(chosen, target.mutex_).data()),
    };
    std::vector<BlockPlan> perPoint = {
        blockPlan(points_.data(), target.points_.overwrite(points, target.mutex_).data()),
        blockPlan(widths_.data(), target.widths_.overwrite(points, target.mutex_).data()),
    };
    ChannelMap strandChannels, pointChannels;
    for (const auto& [name, channel] : strandChannels_) {
        StrandChannel& c = strandChannels[name];
        c.default_ = channel.default_;
        perStrand.push_back(gatherPlan(channel.values_.data(), c.values_.overwrite(chosen, target.mutex_).data()));
    }
    for (const auto& [name, channel] : pointChannels_) {
        StrandChannel& c = pointChannels[name];
        c.default_ = channel.default_;
        perPoint.push_back(blockPlan(channel.values_.data(), c.values_.overwrite(points, target.mutex_).data()));
    }

    const std::size_t* chosenIndices = indices.data();
    parallelRange(0, chosen, 256, [&](std::size_t lo, std::size_t hi) {
        for (const GatherPlan& p : perStrand) p.gather(p.source, p.target, chosenIndices, lo, hi);
        std::size_t k = lo;
        while (k < hi) {
            // The points of a run of consecutive source strands are copied as one block.
            const std::size_t first = k;
            while (k + 1 < hi && indices[k + 1] == indices[k] + 1) ++k;
            ++k;
            const std::size_t pointFirst = offsets[indices[first]];
            const std::size_t pointCount = offsets[indices[k - 1] + 1] - pointFirst;
            if (pointCount == 0) continue;
            for (const BlockPlan& p : perPoint) {
                std::memcpy(p.target + targetOffsets[first] * p.elementBytes, p.source + pointFirst * p.elementBytes,
                            pointCount * p.elementBytes);
            }
        }
    });

    target.strandChannels_ = std::move(strandChannels);
    target.pointChannels_ = std::move(pointChannels);
    target.instances_.reset();
    if (instances_) target.instances_ = std::make_shared<InstanceSet>(instances_->forStrands(target.ids()));
}

StrandSet StrandSet::subset(std::span<const std::size_t> indices) const {
    StrandSet target;
    subset(indices, target);
    return target;
}

void StrandSet::thinned(float fraction, StrandSet& target) const {
    const std::size_t strands = strandCount();
    const std::uint64_t* ids = ids_.data();
    std::vector<unsigned char> keep(strands);
    parallelRange(0, strands, 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) keep[i] = fraction > unit(ids[i]) ? 1 : 0;
    });
    std::vector<std::size_t> kept(strands);
    std::size_t count = 0;
    for (std::size_t i = 0; i < strands; ++i) {
        kept[count] = i;  // written always, counted only when kept: no unpredictable branch
        count += keep[i];
    }
    subset(std::span<const std::size_t>(kept.data(), count), target);
}

StrandSet StrandSet::thinned(float fraction) const {
    StrandSet target;
    thinned(fraction, target);
    return target;
}

}  // namespace tressora
