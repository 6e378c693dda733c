#pragma once
// How much memory this process can hope to use, for refusing work that could never fit
// before it starts rather than failing with an allocation error after minutes.

#include <cstdint>

namespace tressora {

/// The smaller of the machine's physical memory and the process's address-space and data
/// limits, in bytes; 0 when none can be found.
std::uint64_t usableMemoryBytes();

}  // namespace tressora
