// libFuzzer target: graph documents with their params, and ramps held as text. Any bytes
// either build a graph or are refused with an exception; a graph that builds writes JSON that
// builds the same graph again. Crashes, hangs and sanitizer reports are bugs.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "core/document_version.h"
#include "graph/graph_json.h"
#include "graph/operator_registry.h"
#include "graph/param_json.h"
#include "operators/alembic/import_curves.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    tressora::registerAlembicOperators(tressora::OperatorRegistry::instance());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tressora;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        rampFromText(text);
    } catch (const std::exception&) {
    }
    const OperatorRegistry& registry = OperatorRegistry::instance();
    std::string written;
    try {
        written = graphToJson(*graphFromJson(parseDocument(text, "graph"), registry)).dump();
    } catch (const std::exception&) {
        return 0;
    }
    const std::string again = graphToJson(*graphFromJson(parseDocument(written, "graph"), registry)).dump();
    if (again != written) std::abort();
    return 0;
}
