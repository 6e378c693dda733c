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

// One array to copy strand by strand: source and target of the same element size.
struct CopyPlan {
    const unsigned char* source;
    unsigned char* target;
    std::size_t elementBytes;
};

void copyElements(const CopyPlan& plan, std::size_t sourceFirst, std::size_t targetFirst, std::size_t count) {
    std::memcpy(plan.target + targetFirst * plan.elementBytes, plan.source + sourceFirst * plan.elementBytes,
                count * plan.elementBytes);
}

template <class T>
CopyPlan plan(const T* source, T* target) {
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
    std::vector<CopyPlan> perStrand = {
        plan(ids_.data(), target.ids_.overwrite(chosen, target.mutex_).data()),
        plan(roots_.data(), target.roots_.overwrite(chosen, target.mutex_).data()),
    };
    std::vector<CopyPlan> perPoint = {
        plan(points_.data(), target.points_.overwrite(points, target.mutex_).data()),
        plan(widths_.data(), target.widths_.overwrite(points, target.mutex_).data()),
    };
    const auto copyChannels = [&](const ChannelMap& source, std::size_t size, std::vector<CopyPlan>& plans) {
        ChannelMap copied;
        for (const auto& [name, channel] : source) {
            StrandChannel& c = copied[name];
            c.default_ = channel.default_;
            plans.push_back(plan(channel.values_.data(), c.values_.overwrite(size, target.mutex_).data()));
        }
        return copied;
    };
    ChannelMap strandChannels = copyChannels(strandChannels_, chosen, perStrand);
    ChannelMap pointChannels = copyChannels(pointChannels_, points, perPoint);

    parallelRange(0, chosen, 256, [&](std::size_t lo, std::size_t hi) {
        std::size_t k = lo;
        while (k < hi) {
            // A run of consecutive source strands is copied as one block.
            const std::size_t first = k;
            const std::size_t source = indices[k];
            while (k + 1 < hi && indices[k + 1] == indices[k] + 1) ++k;
            ++k;
            const std::size_t count = k - first;
            for (const CopyPlan& p : perStrand) copyElements(p, source, first, count);
            const std::size_t pointFirst = offsets[source];
            const std::size_t pointCount = offsets[source + count] - pointFirst;
            if (pointCount == 0) continue;
            for (const CopyPlan& p : perPoint) copyElements(p, pointFirst, targetOffsets[first], pointCount);
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
    std::vector<std::size_t> kept;
    kept.reserve(strands);
    for (std::size_t i = 0; i < strands; ++i) {
        if (keep[i]) kept.push_back(i);
    }
    subset(kept, target);
}

StrandSet StrandSet::thinned(float fraction) const {
    StrandSet target;
    thinned(fraction, target);
    return target;
}

}  // namespace tressora
