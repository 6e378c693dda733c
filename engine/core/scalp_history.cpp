#include "core/scalp_history.h"

#include <algorithm>

#include "core/hash.h"

namespace tressora {

ScalpHistory::ScalpHistory(std::vector<Sample> samples) {
    std::erase_if(samples, [](const Sample& s) { return !s.scalp; });
    std::stable_sort(samples.begin(), samples.end(), [](const Sample& a, const Sample& b) { return a.frame < b.frame; });
    samples.erase(std::unique(samples.begin(), samples.end(),
                              [](const Sample& a, const Sample& b) { return a.frame == b.frame; }),
                  samples.end());
    samples_ = std::move(samples);
    std::uint64_t h = hash64(samples_.size() + 0x5CA1B0);
    for (const Sample& s : samples_) {
        h = combine(h, doubleBits(s.frame));
        h = combine(h, s.scalp->contentHash());
    }
    fingerprint_ = h;
}

const ScalpMesh* ScalpHistory::at(double frame) const {
    const auto it = std::lower_bound(samples_.begin(), samples_.end(), frame,
                                     [](const Sample& s, double f) { return s.frame < f; });
    return it != samples_.end() && it->frame == frame ? it->scalp.get() : nullptr;
}

}  // namespace tressora
