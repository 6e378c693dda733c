#pragma once
// The number of instances a strand set carries, apart from the instance records' header.

#include <cstdint>

namespace tressora {

class StrandSet;

/// How many instances `strands` carries (0 without an instance set).
std::uint64_t instanceCount(const StrandSet& strands);

}  // namespace tressora
