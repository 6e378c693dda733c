#include "cli/info_command.h"

#include <charconv>
#include <ostream>

#include "groom/groom_file.h"

namespace tressora::cli {

namespace {

std::string numberText(double value) {
    char buffer[32];
    return std::string(buffer, std::to_chars(buffer, buffer + sizeof(buffer), value).ptr);
}

std::string cacheText(const CacheReference& cache) {
    return cache.object.empty() ? cache.file : cache.file + " (" + cache.object + ")";
}

void writeScalp(const MeshObject& scalp, std::ostream& out) {
    if (!scalp) {
        out << "scalp:       none\n";
        return;
    }
    const ScalpMesh& mesh = *scalp.mesh;
    out << "scalp:       " << mesh.pointCount() << " points, " << mesh.triangleCount() << " triangles";
    if (mesh.hasRest()) out << ", rest pose";
    if (mesh.hasUvs()) out << ", UVs";
    for (const std::string& name : mesh.colorSetNames()) out << ", color set " << name;
    out << '\n';
}

void writeGraph(const nlohmann::json& graph, std::ostream& out) {
    if (!graph.is_object()) return;
    const auto nodes = graph.find("nodes");
    const auto output = graph.find("output");
    out << "graph:       " << (nodes != graph.end() && nodes->is_array() ? nodes->size() : 0) << " nodes, output "
        << (output != graph.end() && output->is_string() ? output->get<std::string>() : std::string("-")) << '\n';
}

}  // namespace

void writeGroomInfo(const GroomScene& scene, std::ostream& out) {
    out << "source:       " << (scene.source.empty() ? "-" : scene.source) << '\n';
    out << "fps:          " << numberText(scene.framesPerSecond) << '\n';
    out << "units:        " << scene.units << ", " << scene.upAxis << " up\n";
    writeScalp(scene.scalp, out);
    if (scene.hierarchy)
        out << "hierarchy:   " << scene.hierarchy->guides().size() << " guides in " << scene.hierarchy->groups().size()
            << " groups\n";
    out << "flat guides: " << scene.guides.size() << '\n';
    if (scene.followScalp) out << "follow scalp: on (evaluated at rest, carried by each root)\n";
    writeGraph(scene.graph, out);
    if (!scene.scalpCache.empty()) out << "scalp cache: " << cacheText(scene.scalpCache) << '\n';
    if (!scene.guideCache.empty()) out << "guide cache: " << cacheText(scene.guideCache) << '\n';
    if (scene.cardBake.is_object()) {
        const auto prefix = scene.cardBake.find("prefix");
        if (prefix != scene.cardBake.end() && prefix->is_string() && !prefix->get_ref<const std::string&>().empty())
            out << "card bake:   " << prefix->get<std::string>() << "*\n";
    }
}

int infoCommand(const char* file, const char* /*object*/, std::ostream& out, std::ostream& /*err*/) {
    writeGroomInfo(readGroom(file), out);
    return 0;
}

}  // namespace tressora::cli
