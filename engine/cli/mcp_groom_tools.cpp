// The agent tools that open grooms and step back through their changes: list_sample_meshes,
// new_groom, open_groom, list_grooms and undo.

#include "cli/mcp_groom_tools.h"

#include <algorithm>
#include <filesystem>

#include "cli/mcp_tools.h"
#include "cli/mesh_file.h"
#include "graph/graph_json.h"
#include "groom/groom_file.h"
#include "groom/scene_caches.h"

namespace tressora::cli {
namespace fs = std::filesystem;

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

struct Sample {
    std::string name, file, path;
};

/// The sample meshes: the .obj files of the meshes folder, by lower-cased stem.
std::vector<Sample> samples(const McpTools& tools) {
    std::vector<Sample> out;
    if (tools.folders().meshes.empty()) return out;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(tools.folders().meshes, error)) {
        if (!entry.is_regular_file(error) || lower(entry.path().extension().string()) != ".obj") continue;
        out.push_back({lower(entry.path().stem().string()), entry.path().filename().string(), entry.path().string()});
    }
    std::sort(out.begin(), out.end(), [](const Sample& a, const Sample& b) { return a.name < b.name; });
    return out;
}

std::string describeSample(const std::string& name) {
    if (name == "nika") return "Nika, a human head (CC BY 4.0), about 25 units tall, Y-up, facing +Z: for hair.";
    if (name == "manny") return "Manny, a human head (CC BY 4.0), about 34 units tall, Y-up, facing +Z: for hair.";
    if (name == "wolf") return "A wolf's body, Y-up: for fur.";
    if (name == "buddy")
        return "Buddy, a cartoon character's body (CC BY 4.0), about 57 units tall, Y-up, facing +Z; the Maya/Blender "
               "samples also ship it rigged.";
    return {};
}

ToolResult listSampleMeshes(McpTools& tools, const nlohmann::json&) {
    nlohmann::json meshes = nlohmann::json::array();
    for (const Sample& s : samples(tools)) {
        nlohmann::json m = {{"name", s.name}, {"file", s.file}};
        if (const std::string d = describeSample(s.name); !d.empty()) m["description"] = d;
        meshes.push_back(std::move(m));
    }
    return McpTools::answer({{"meshes", meshes}, {"hint", "new_groom takes a sample by name as its mesh."}});
}

void checkFree(McpTools& tools, const std::string& name, const std::string& taken) {
    if (tools.grooms().count(name)) throw ToolError(taken);
}

ToolResult newGroom(McpTools& tools, const nlohmann::json& args) {
    const std::string name = args.at("name").get<std::string>();
    checkName(name, "a groom's name");
    checkFree(tools, name, "a groom named '" + name + "' is open already: pick another name");
    const std::string mesh = args.at("mesh").get<std::string>();
    const std::string object = args.value("object", std::string());

    std::string path, shown;
    const bool sample = mesh.find('/') == std::string::npos && mesh.find('\\') == std::string::npos &&
                        fs::path(mesh).extension().empty();
    if (sample) {
        const std::vector<Sample> known = samples(tools);
        const auto it = std::find_if(known.begin(), known.end(), [&](const Sample& s) { return s.name == lower(mesh); });
        if (it == known.end()) {
            std::string names;
            for (const Sample& s : known) names += (names.empty() ? "" : ", ") + s.name;
            throw ToolError("no sample mesh '" + mesh + "' (samples: " + (names.empty() ? "none installed" : names) +
                            "; or give a .obj or .abc file's path)");
        }
        path = it->path;
        shown = mesh + " (sample)";
    } else {
        path = tools.pathForReading(mesh);
        std::error_code error;
        if (!fs::is_regular_file(path, error)) throw ToolError("no mesh file '" + mesh + "'");
        if (fs::file_size(path, error) > (std::uint64_t{512} << 20))
            throw ToolError("'" + mesh + "' is bigger than a scalp this server reads (512 MB)");
        shown = tools.shownPath(path);
    }
    const MeshFileData data = readMeshFile(path, object);
    auto scalp = std::make_shared<ScalpMesh>(scalpMeshFromFile(data, fs::path(path).stem().string()));

    GroomScene scene;
    scene.units = "cm";
    scene.upAxis = "Y";
    scene.graph = nlohmann::json::parse(defaultGraphText());
    scene.scalp.mesh = scalp;
    OpenGroom groom;
    groom.name = name;
    groom.session = std::make_shared<GroomSession>(std::move(scene));
    groom.mesh = shown;
    OpenGroom& stored = tools.grooms().emplace(name, std::move(groom)).first->second;

    Vec3f lo{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(), std::numeric_limits<float>::max()};
    Vec3f hi = lo * -1.0f;
    for (const Vec3f& p : scalp->points())
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], p[k]);
            hi[k] = std::max(hi[k], p[k]);
        }
    const nlohmann::json scalpInfo = {{"points", scalp->pointCount()},
                                      {"triangles", scalp->triangleCount()},
                                      {"min", {rounded(lo.x), rounded(lo.y), rounded(lo.z)}},
                                      {"max", {rounded(hi.x), rounded(hi.y), rounded(hi.z)}},
                                      {"upAxis", "Y"},
                                      {"units", "cm"}};
    return tools.answerWithSummary(stored, {{"mesh", shown}, {"scalp", scalpInfo}});
}

ToolResult openGroom(McpTools& tools, const nlohmann::json& args) {
    const std::string given = args.at("path").get<std::string>();
    const std::string path = tools.pathForReading(given);
    if (!lower(path).ends_with(".groom")) throw ToolError("open_groom reads .groom files");
    const std::string name = args.contains("name") ? args["name"].get<std::string>() : fs::path(path).stem().string();
    checkName(name, "a groom's name");
    checkFree(tools, name, "a groom named '" + name + "' is open already: give another \"name\"");
    const std::string text = McpTools::readFile(path, std::uint64_t{1} << 30);
    GroomScene scene;
    try {
        scene = groomFromText(text);
        scene.filePath = path;
    } catch (const std::exception& e) {
        throw ToolError(std::string("cannot read the groom: ") + e.what());
    }
    if (!scene.scalp) throw ToolError("the groom file has no scalp");
    for (const std::string& file : {scene.scalpCache.file, scene.guideCache.file}) {
        if (file.empty()) continue;
        const fs::path resolved = fs::path(file).is_absolute() ? fs::path(file) : fs::path(path).parent_path() / file;
        try {
            tools.pathForReading(resolved.string());
        } catch (const ToolError&) {
            throw ToolError("the groom reads '" + file + "', outside the folder this server may use");
        }
    }
    if (scene.graph.is_object())
        for (const auto& node : scene.graph.value("nodes", nlohmann::json::array()))
            if (node.is_object() && node.contains("params")) tools.checkFileReferences(node["params"]);
    const std::size_t nodes = scene.graph.is_object() ? scene.graph.value("nodes", nlohmann::json::array()).size() : 0;
    const std::string upAxis = scene.upAxis, units = scene.units;
    try {
        attachSceneCaches(scene);
    } catch (const std::exception& e) {
        throw ToolError(std::string("cannot read the groom: ") + e.what());
    }
    OpenGroom groom;
    groom.name = name;
    groom.session = std::make_shared<GroomSession>(std::move(scene));
    groom.path = path;
    OpenGroom& stored = tools.grooms().emplace(name, std::move(groom)).first->second;
    return tools.answerWithSummary(stored, {{"path", tools.shownPath(path)}, {"upAxis", upAxis}, {"units", units}, {"nodes", nodes}});
}

ToolResult listGrooms(McpTools& tools, const nlohmann::json&) {
    nlohmann::json grooms = nlohmann::json::array();
    for (const auto& [name, groom] : tools.grooms()) {
        nlohmann::json g = {{"name", name}, {"undoSteps", groom.undo.size()}, {"frame", groom.frame}};
        if (!groom.path.empty()) g["path"] = tools.shownPath(groom.path);
        if (!groom.mesh.empty()) g["mesh"] = groom.mesh;
        grooms.push_back(std::move(g));
    }
    return McpTools::answer({{"grooms", grooms}});
}

ToolResult undo(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const double steps = args.contains("steps") ? args["steps"].get<double>() : 1.0;
    if (!(steps >= 1.0 && steps <= 64.0)) throw ToolError("steps must be 1 to 64");
    if (groom.undo.empty()) throw ToolError("nothing to undo");
    nlohmann::json undone = nlohmann::json::array();
    for (int i = 0; i < static_cast<int>(steps) && !groom.undo.empty(); ++i) {
        const UndoRecord record = std::move(groom.undo.back());
        groom.undo.pop_back();
        groom.session->setGraphJson(record.graph);
        groom.session->setGuidesJson(record.guides);
        undone.push_back(record.label);
    }
    return tools.answerWithSummary(groom, {{"undone", undone}, {"undoStepsLeft", groom.undo.size()}});
}

}  // namespace

void registerSampleMeshTool(McpTools& tools) {
    tools.add({"list_sample_meshes", "List sample meshes",
               "Lists the meshes that ship with Tressora to groom on (Nika and Manny, human heads; a wolf for fur; Buddy, "
               "a cartoon character's body). new_groom takes them by name.",
               objectSchema(nullptr), listSampleMeshes});
}

void registerGroomTools(McpTools& tools) {
    tools.add({"new_groom", "New groom",
               "Makes a new groom on a mesh and opens it by name: the default hair graph (Scalp, Scatter, Interpolate, "
               "Length, Noise, HairColor, Width, Resample, Output), or a preset's. The mesh is a sample's name "
               "(list_sample_meshes) or an .obj or .abc file inside the server's folder. Answers with the scalp's bounds "
               "and a summary of the groom.",
               objectSchema({{"name", field("string", "A name for the groom (letters, digits, _ - .), used by every other tool.")},
                             {"mesh", field("string", "A sample mesh's name (\"nika\", \"manny\", \"wolf\", \"buddy\") or a "
                                                      "mesh file's path (.obj, .abc).")},
                             {"object", field("string", "The mesh's name inside an Alembic file (default: its first mesh).")}},
                            {"name", "mesh"}),
               newGroom});
    tools.add({"open_groom", "Open a groom file",
               "Opens a .groom file (from Maya, the app, Blender or save_groom) by name, to change, preview or export it.",
               objectSchema({{"path", field("string", "The .groom file, relative to the server's folder.")},
                             {"name", field("string", "The name to open it under (default: the file's name).")}},
                            {"path"}),
               openGroom});
    tools.add({"list_grooms", "List open grooms", "Lists the grooms open in this session.", objectSchema(nullptr), listGrooms});
}

void registerUndoTool(McpTools& tools) {
    tools.add({"undo", "Undo", "Undoes the last changes to a groom's graph or guides (64 steps are kept).",
               objectSchema({{"groom", groomField()}, {"steps", field("integer", "How many changes to undo (default 1).")}}),
               undo});
}

}  // namespace tressora::cli
