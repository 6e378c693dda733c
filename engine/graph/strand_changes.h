#pragma once
// Change records for incremental evaluation: which strands of a node's value changed since
// its last value, and per input slot of a node what its inputs' records say.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tressora {

/// What changed between two values of one output. Shared and immutable once published.
struct StrandChanges {
    bool all = false;                    ///< everything may have changed
    std::vector<std::uint32_t> strands;  ///< sorted indices of changed strands; only when `all` is false
    bool layoutChanged = false;          ///< strand or point counts differ: old and new indices don't match
};

/// For each input slot of a node, its input's changes since the last run; null where unknown.
struct InputChanges {
    std::vector<std::shared_ptr<const StrandChanges>> inputs;

    /// The record of a slot, or null when the slot has none.
    const StrandChanges* slot(std::size_t index) const {
        return index < inputs.size() ? inputs[index].get() : nullptr;
    }
};

}  // namespace tressora
