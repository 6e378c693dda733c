#include "core/system_memory.h"

#include <algorithm>

#include <sys/resource.h>
#include <unistd.h>

namespace tressora {

std::uint64_t usableMemoryBytes() {
    std::uint64_t bytes = 0;
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages > 0 && pageSize > 0) bytes = static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
    for (int resource : {RLIMIT_AS, RLIMIT_DATA}) {
        struct rlimit limit {};
        if (::getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
            const auto cap = static_cast<std::uint64_t>(limit.rlim_cur);
            bytes = bytes == 0 ? cap : std::min(bytes, cap);
        }
    }
    return bytes;
}

}  // namespace tressora
