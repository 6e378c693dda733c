#include "groom/instance_count.h"

#include "core/instances.h"
#include "core/strand_set.h"

namespace tressora {

std::uint64_t instanceCount(const StrandSet& strands) {
    return strands.instances() ? strands.instances()->instances.size() : 0;
}

}  // namespace tressora
