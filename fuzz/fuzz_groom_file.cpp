// libFuzzer target: groom file text. Any bytes either read as a scene or are refused with an
// exception; a scene that reads writes text that reads back to the same text, and its graph
// either builds into a session or is refused. Crashes, hangs and sanitizer reports are bugs.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "groom/groom_file.h"
#include "groom/groom_session.h"
#include "operators/alembic/import_curves.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    tressora::registerAlembicOperators(tressora::OperatorRegistry::instance());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    tressora::GroomScene scene;
    try {
        scene = tressora::groomFromText(text);
    } catch (const std::exception&) {
        return 0;
    }
    // What this program writes, it reads back to the same document.
    const std::string written = tressora::groomText(scene);
    const std::string again = tressora::groomText(tressora::groomFromText(written));
    if (again != written) std::abort();
    try {
        tressora::GroomSession session(std::move(scene));
    } catch (const std::exception&) {
    }
    return 0;
}
