#include "cli/mcp_tools.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <new>

#include <unistd.h>

#include "core/file_replace.h"
#include "core/guide_hierarchy.h"
#include "core/guide_set.h"
#include "graph/graph_json.h"
#include "io/spool_file.h"
#include "library/node_library.h"
#include "cli/program_folder.h"

namespace tressora::cli {
namespace fs = std::filesystem;

namespace {

fs::path fromUtf8(const std::string& text) { return fs::path(std::u8string(text.begin(), text.end())); }

std::string toUtf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

std::string dumped(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool fitsType(const nlohmann::json& value, const std::string& type) {
    if (type == "string") return value.is_string();
    if (type == "number") return value.is_number();
    if (type == "integer") {
        if (value.is_number_integer()) return true;
        if (!value.is_number_float()) return false;
        const double d = value.get<double>();
        return std::isfinite(d) && std::trunc(d) == d;
    }
    if (type == "boolean") return value.is_boolean();
    if (type == "array") return value.is_array();
    if (type == "object") return value.is_object();
    return false;
}

/// Blank text, or braces with only blanks between: a groom whose graph is not there yet.
bool emptyGraph(const std::string& text) {
    std::string inner;
    for (const char c : text)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') inner += c;
    return inner.empty() || inner == "{}";
}

}  // namespace

void checkName(const std::string& value, const std::string& what) {
    if (value.empty() || value.size() > 64) throw ToolError(what + " must be 1 to 64 characters");
    for (const unsigned char c : value)
        if (!(std::isalnum(c) || c == '_' || c == '-' || c == '.'))
            throw ToolError(what + " '" + value + "' may hold only letters, digits, _, - and .");
}

nlohmann::json objectSchema(nlohmann::json properties, const std::vector<std::string>& required) {
    nlohmann::json schema = {{"type", "object"}, {"properties", properties.is_null() ? nlohmann::json::object() : properties},
                             {"additionalProperties", false}};
    if (!required.empty()) schema["required"] = required;
    return schema;
}

nlohmann::json field(const std::string& type, const std::string& description) {
    return {{"type", type}, {"description", description}};
}

nlohmann::json groomField() {
    return field("string", "The groom's name (as given to new_groom or open_groom). May be left out while one groom is open.");
}

double rounded(double x) { return std::round(x * 10000.0) / 10000.0; }

double scalpSize(const OpenGroom& groom) {
    const std::shared_ptr<const ScalpMesh>& scalp = groom.session->scalp();
    if (!scalp || scalp->pointCount() == 0) return 0.0;
    Vec3f lo = scalp->points()[0], hi = lo;
    for (const Vec3f& p : scalp->points())
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], p[k]);
            hi[k] = std::max(hi[k], p[k]);
        }
    return std::max({hi.x - lo.x, hi.y - lo.y, hi.z - lo.z});
}

McpTools::McpTools(std::string root, const std::string& exeFolder) : root_(std::move(root)) {
    folders_.presets = resourceFolder(exeFolder, "presets");
    folders_.nodes = resourceFolder(exeFolder, "nodes");
    folders_.meshes = resourceFolder(exeFolder, "meshes");
    folders_.docs = resourceFolder(exeFolder, "docs/pages");
    registerNodeFolder(folders_.nodes);
    registerTools(*this);
}

void McpTools::add(ToolRecord record) { tools_.push_back(std::move(record)); }

bool McpTools::hasTool(const std::string& name) const {
    return std::any_of(tools_.begin(), tools_.end(), [&](const ToolRecord& t) { return t.name == name; });
}

nlohmann::json McpTools::toolList() const {
    nlohmann::json list = nlohmann::json::array();
    for (const ToolRecord& t : tools_)
        list.push_back({{"name", t.name}, {"title", t.title}, {"description", t.description}, {"inputSchema", t.inputSchema}});
    return list;
}

void McpTools::checkArguments(const ToolRecord& tool, nlohmann::json& arguments) const {
    // A null argument is the same as a missing one.
    nlohmann::json kept = nlohmann::json::object();
    for (const auto& [key, value] : arguments.items())
        if (!value.is_null()) kept[key] = value;
    arguments = std::move(kept);
    const nlohmann::json& properties = tool.inputSchema["properties"];
    for (const auto& [key, value] : arguments.items()) {
        if (properties.contains(key)) continue;
        std::string list;
        for (const auto& [name, spec] : properties.items()) list += (list.empty() ? "" : ", ") + name;
        throw ToolError("unknown argument '" + key + "' (this tool takes: " + (list.empty() ? "nothing" : list) + ")");
    }
    if (const auto it = tool.inputSchema.find("required"); it != tool.inputSchema.end())
        for (const auto& name : *it)
            if (!arguments.contains(name.get<std::string>()))
                throw ToolError("missing argument '" + name.get<std::string>() + "'");
    for (const auto& [key, value] : arguments.items()) {
        const nlohmann::json& spec = properties[key];
        if (const auto type = spec.find("type"); type != spec.end()) {
            bool fits = false;
            if (type->is_array()) {
                for (const auto& t : *type) fits = fits || fitsType(value, t.get<std::string>());
            } else {
                fits = fitsType(value, type->get<std::string>());
            }
            if (!fits)
                throw ToolError("'" + key + "' must be a " + (type->is_string() ? type->get<std::string>() : dumped(*type)) +
                                ", not " + dumped(value));
        }
        if (const auto allowed = spec.find("enum"); allowed != spec.end())
            if (std::find(allowed->begin(), allowed->end(), value) == allowed->end())
                throw ToolError("'" + key + "' must be one of " + dumped(*allowed) + ", not " + dumped(value));
    }
}

ToolResult McpTools::call(const std::string& name, const nlohmann::json& arguments) {
    const auto tool = std::find_if(tools_.begin(), tools_.end(), [&](const ToolRecord& t) { return t.name == name; });
    if (tool == tools_.end()) return errorResult("unknown tool '" + name + "'");
    try {
        nlohmann::json checked = arguments.is_object() ? arguments : nlohmann::json::object();
        checkArguments(*tool, checked);
        return tool->handler(*this, checked);
    } catch (const ToolError& e) {
        return errorResult(e.what());
    } catch (const GraphError& e) {
        return errorResult(std::string("graph: ") + e.what());
    } catch (const AlembicError& e) {
        return errorResult(std::string("alembic: ") + e.what());
    } catch (const nlohmann::json::exception& e) {
        return errorResult(std::string("bad JSON: ") + e.what());
    } catch (const std::bad_alloc&) {
        return errorResult("out of memory");
    } catch (const std::exception& e) {
        return errorResult(e.what());
    }
}

OpenGroom& McpTools::findGroom(const nlohmann::json& arguments) {
    const auto it = arguments.find("groom");
    if (it != arguments.end() && it->is_string() && !it->get<std::string>().empty()) {
        const std::string name = it->get<std::string>();
        if (const auto found = grooms_.find(name); found != grooms_.end()) return found->second;
        std::string open;
        for (const auto& [key, groom] : grooms_) open += (open.empty() ? "" : ", ") + key;
        throw ToolError("no groom named '" + name + "'" + (open.empty() ? " (none is open)" : " (open: " + open + ")"));
    }
    if (grooms_.empty()) throw ToolError("no groom is open: make one with new_groom or open one with open_groom");
    if (grooms_.size() == 1) return grooms_.begin()->second;
    std::string names;
    for (const auto& [key, groom] : grooms_) names += (names.empty() ? "" : ", ") + key;
    throw ToolError("several grooms are open (" + names + "): say which with \"groom\"");
}

bool McpTools::inside(const std::string& path, std::string& canonical) const {
    const fs::path root = fromUtf8(root_);
    fs::path full = fromUtf8(path);
    if (full.is_relative()) full = root / full;
    std::error_code error;
    fs::path resolved = fs::weakly_canonical(full, error);
    if (error) resolved = full.lexically_normal();
    const fs::path relative = resolved.lexically_relative(root);
    canonical = toUtf8(resolved);
    return !(relative.empty() || relative.is_absolute() || *relative.begin() == "..");
}

std::string McpTools::pathForReading(const std::string& path) const {
    if (path.empty()) throw ToolError("no path given");
    if (path.find('\0') != std::string::npos) throw ToolError("the path holds a NUL character");
    std::string canonical;
    if (!inside(path, canonical) || canonical == root_)
        throw ToolError("'" + path + "' is outside the folder this server may read and write (" + root_ +
                        "): use a path inside it, relative to it");
    return canonical;
}

std::string McpTools::pathForWriting(const std::string& path) const {
    const std::string canonical = pathForReading(path);
    std::error_code error;
    if (fs::is_directory(fromUtf8(canonical), error)) throw ToolError("'" + path + "' is a folder: give a file name");
    // A rename would replace a read-only file all the same: refuse it, as its owner protected
    // it. The mode is read too, since access() grants everything to the superuser.
    const fs::file_status status = fs::status(fromUtf8(canonical), error);
    if (fs::exists(status) && (::access(canonical.c_str(), W_OK) != 0 ||
                               (status.permissions() & fs::perms::owner_write) == fs::perms::none))
        throw ToolError("cannot write '" + path + "': the file is read-only");
    fs::create_directories(fromUtf8(canonical).parent_path(), error);
    return canonical;
}

std::string McpTools::shownPath(const std::string& path) const {
    std::string canonical;
    if (!inside(path, canonical)) return path;
    return fs::path(fromUtf8(canonical)).lexically_relative(fromUtf8(root_)).generic_string();
}

void McpTools::checkFileReferences(const nlohmann::json& value) const {
    if (value.is_array() || value.is_object()) {
        for (const auto& item : value) checkFileReferences(item);
        return;
    }
    if (!value.is_string()) return;
    const std::string& text = value.get_ref<const std::string&>();
    if (text.empty() || text.size() > 1024) return;
    static const char* const kExtensions[] = {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".exr", ".tx", ".tga", ".hdr",
                                              ".abc", ".usd", ".usda", ".usdc", ".vrscene", ".obj", ".json", ".groom", ".ptx"};
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const bool reference = text.find('/') != std::string::npos || text.find('\\') != std::string::npos ||
                           std::any_of(std::begin(kExtensions), std::end(kExtensions), [&](const char* e) {
                               return lower.size() > std::strlen(e) && lower.ends_with(e);
                           });
    std::string canonical;
    if (reference && (text.find('\0') != std::string::npos || !inside(text, canonical)))
        throw ToolError("the file '" + text + "' is outside the folder this server may use (" + root_ +
                        "): copy it into that folder, or start the server with a --root that holds it");
}

std::string McpTools::readFile(const std::string& path, std::uint64_t limit, const std::string& tooBig) {
    std::error_code error;
    const fs::path file = fromUtf8(path);
    if (!fs::is_regular_file(file, error)) throw ToolError("cannot read '" + path + "': no such file");
    const std::uintmax_t size = fs::file_size(file, error);
    if (error) throw ToolError("cannot read '" + path + "'");
    if (size > limit)
        throw ToolError(!tooBig.empty() ? tooBig
                                        : "'" + path + "' is bigger than this tool reads (" + std::to_string(limit >> 20) + " MB)");
    std::ifstream in(file, std::ios::binary);
    std::string text(static_cast<std::size_t>(size), '\0');
    if (!in.read(text.data(), static_cast<std::streamsize>(size))) throw ToolError("cannot read '" + path + "'");
    return text;
}

void McpTools::writeFile(const std::string& path, std::string_view bytes) {
    const std::string temporary = path + ".tmp";
    bool written = false;
    {
        std::ofstream out(fromUtf8(temporary), std::ios::binary | std::ios::trunc);
        written = out && out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())) && out.flush();
    }
    if (!written || !replaceFile(temporary, path).empty()) {
        std::error_code ignored;
        fs::remove(fromUtf8(temporary), ignored);
        throw ToolError("cannot write '" + path + "'");
    }
}

void McpTools::edit(OpenGroom& groom, const std::string& label,
                    const std::function<void(std::string& graph, std::string& guides)>& change) {
    GroomSession& session = *groom.session;
    std::string oldGraph = session.graphJson();
    if (emptyGraph(oldGraph)) oldGraph = defaultGraphText();
    const std::string oldGuides = session.guidesJson();
    std::string graph = oldGraph, guides = oldGuides;
    change(graph, guides);
    if (graph == oldGraph && guides == oldGuides) return;
    try {
        if (graph != oldGraph) session.setGraphJson(graph);
        if (guides != oldGuides) session.setGuidesJson(guides);
    } catch (const std::exception& e) {
        // The graph may have loaded before the guides failed: put it back as it was.
        if (graph != oldGraph) {
            try {
                session.setGraphJson(oldGraph);
            } catch (const std::exception&) {
            }
        }
        throw ToolError(std::string("the graph would not load after this edit, so nothing changed: ") + e.what());
    }
    groom.undo.push_back({label, oldGraph, oldGuides});
    if (groom.undo.size() > kUndoSteps) groom.undo.erase(groom.undo.begin());
}

nlohmann::json McpTools::summary(OpenGroom& groom, float density, const std::string& node, bool timings) const {
    GroomSession& session = *groom.session;
    nlohmann::json s;
    nlohmann::json errors = nlohmann::json::array();
    EvalRequest request;
    request.frame = groom.frame;
    request.density = density;
    request.node = node;
    const auto started = std::chrono::steady_clock::now();
    std::shared_ptr<const StrandSet> strands;
    try {
        session.setFrame(groom.frame);
        strands = session.evaluate(request);
    } catch (const std::exception& e) {
        errors.push_back(e.what());
    }
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started).count();
    s["strands"] = strands ? strands->strandCount() : 0;
    s["points"] = strands ? strands->pointCount() : 0;
    std::size_t guides = 0;
    if (const SceneItem* item = session.catalog().find("hierarchy"))
        if (const auto hierarchy = item->value.as<GuideHierarchy>()) guides = hierarchy->guides().size();
    if (guides == 0)
        if (const SceneItem* item = session.catalog().find("guides"))
            if (const auto flat = item->value.as<GuideSet>()) guides = flat->guideCount();
    s["guides"] = guides;
    if (density < 1.0f) s["density"] = density;
    if (!node.empty()) s["node"] = node;
    if (strands && strands->pointCount() > 0) {
        const StrandSet::Extent box = strands->extent();
        s["bounds"] = {{"min", {rounded(box.min.x), rounded(box.min.y), rounded(box.min.z)}},
                       {"max", {rounded(box.max.x), rounded(box.max.y), rounded(box.max.z)}}};
    }
    s["errors"] = errors;
    nlohmann::json notes = nlohmann::json::object();
    for (const auto& [name, text] : session.notes()) notes[name] = text;
    if (!notes.empty()) s["notes"] = notes;
    s["ms"] = static_cast<std::int64_t>(static_cast<double>(micros) / 1000.0 + 0.5);
    if (timings) {
        std::vector<std::pair<std::string, double>> times = session.timings();
        std::stable_sort(times.begin(), times.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
        nlohmann::json nodeMs = nlohmann::json::object();
        for (std::size_t i = 0; i < times.size() && i < 12; ++i) nodeMs[times[i].first] = std::round(times[i].second * 10.0) / 10.0;
        s["nodeMs"] = nodeMs;
    }
    return s;
}

ToolResult McpTools::answer(const nlohmann::json& result) {
    ToolResult r;
    r.content.push_back({{"type", "text"}, {"text", dumped(result)}});
    return r;
}

ToolResult McpTools::errorResult(const std::string& message) {
    ToolResult r = answer(nlohmann::json{{"error", message}});
    r.isError = true;
    return r;
}

ToolResult McpTools::answerWithSummary(OpenGroom& groom, nlohmann::json result) const {
    result["groom"] = groom.name;
    result["summary"] = summary(groom);
    return answer(result);
}

}  // namespace tressora::cli
