#pragma once
// ScalpHistory: the scalp's poses at the frames that motion nodes look back at, handed to the
// graph as a scene item. Immutable once made; shared between cached values and threads.

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/scalp_mesh.h"

namespace tressora {

class ScalpHistory {
public:
    /// One known pose of the scalp.
    struct Sample {
        double frame = 0.0;
        std::shared_ptr<const ScalpMesh> scalp;
    };

    ScalpHistory() = default;
    /// Keeps the samples with a scalp, sorted by frame; of two samples at one frame the
    /// first given wins.
    explicit ScalpHistory(std::vector<Sample> samples);

    std::span<const Sample> samples() const { return samples_; }
    std::size_t size() const { return samples_.size(); }
    bool empty() const { return samples_.empty(); }
    /// The scalp at exactly this frame, or null when the history has none there.
    const ScalpMesh* at(double frame) const;
    /// A hash of the frames and each pose's points and topology: equal histories hash equal.
    std::uint64_t fingerprint() const { return fingerprint_; }

private:
    std::vector<Sample> samples_;
    std::uint64_t fingerprint_ = 0;
};

}  // namespace tressora
