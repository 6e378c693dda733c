#pragma once
// The running list of the k nearest points that neighbour searches keep: sorted nearest
// first, ties by lower index, so every search that offers the same points answers the same.

#include <cstddef>
#include <cstdint>

namespace tressora {

/// (distance, index) order: nearer first, the lower index first among equals.
constexpr bool nearerThan(float da, std::uint32_t ia, float db, std::uint32_t ib) noexcept {
    return da < db || (da == db && ia < ib);
}

/// Offers point `index` at squared distance d2 to a list of `found` entries with room for k:
/// inserts it in order (dropping the last when full) unless it comes after the last of a
/// full list. Returns the new count.
inline std::size_t offerNearest(float d2, std::uint32_t index, float* distances, std::uint32_t* indices,
                                std::size_t found, std::size_t k) noexcept {
    if (found == k && !nearerThan(d2, index, distances[k - 1], indices[k - 1])) return found;
    std::size_t slot = found < k ? found++ : k - 1;
    while (slot > 0 && nearerThan(d2, index, distances[slot - 1], indices[slot - 1])) {
        distances[slot] = distances[slot - 1];
        indices[slot] = indices[slot - 1];
        --slot;
    }
    distances[slot] = d2;
    indices[slot] = index;
    return found;
}

}  // namespace tressora
