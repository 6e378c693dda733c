// libFuzzer target: guide data (the hierarchy of guide groups, guides, tubes and tube
// shapes). Any bytes either read or are refused with an exception; what reads writes text
// that reads back to the same text. Crashes, hangs and sanitizer reports are bugs.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "core/guide_hierarchy.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using tressora::GuideHierarchy;
    std::string written;
    try {
        written = GuideHierarchy::fromJson(std::string_view(reinterpret_cast<const char*>(data), size)).toJson();
    } catch (const std::exception&) {
        return 0;
    }
    if (GuideHierarchy::fromJson(written).toJson() != written) std::abort();
    return 0;
}
