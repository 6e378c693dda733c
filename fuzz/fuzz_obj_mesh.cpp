// libFuzzer target: Wavefront OBJ text made into a scalp, as `new_groom` and scalp loading
// read mesh files. Any bytes either give a scalp or are refused with MeshFileError (or the
// scalp's own refusal of a mesh it cannot hold). Crashes and sanitizer reports are bugs.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

#include "cli/mesh_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tressora;
    try {
        const cli::MeshFileData mesh = cli::parseObj(std::string_view(reinterpret_cast<const char*>(data), size), "fuzz.obj");
        const ScalpMesh scalp = cli::scalpMeshFromFile(mesh, "fuzz");
        if (scalp.triangleCount() > 0) scalp.closestPoint(Vec3f(0.25f, 0.5f, 0.75f));
    } catch (const std::exception&) {
    }
    return 0;
}
