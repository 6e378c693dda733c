#include "library/node_library.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "core/errors.h"
#include "core/file_replace.h"
#include "graph/node_definition.h"
#include "graph/operator.h"
#include "graph/operator_registry.h"

namespace tressora {
namespace {

namespace fs = std::filesystem;

/// Node files past this size are not node files anyone wrote by hand; they are skipped as faults.
constexpr std::uintmax_t kMaxNodeFileBytes = 4u << 20;

std::mutex& folderMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& registeredFolder() {
    static std::string folder;
    return folder;
}

std::string envText(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

bool readText(const fs::path& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) return false;
    text = std::move(buffer).str();
    return true;
}

nlohmann::ordered_json entryJson(const LibraryEntry& e) {
    nlohmann::ordered_json j;
    j["path"] = e.path;
    if (!e.error.empty()) {
        j["error"] = e.error;
        return j;
    }
    j["id"] = e.file.id;
    j["version"] = e.file.version;
    j["kind"] = nodeFileKindName(e.file.kind);
    j["label"] = e.file.label;
    j["category"] = e.file.category;
    j["description"] = e.file.description;
    j["author"] = e.file.author;
    j["license"] = e.file.license;
    return j;
}

}  // namespace

nlohmann::ordered_json LibraryScan::toJson() const {
    nlohmann::ordered_json j;
    j["nodes"] = nlohmann::ordered_json::array();
    for (const LibraryEntry& e : nodes) j["nodes"].push_back(entryJson(e));
    j["errors"] = nlohmann::ordered_json::array();
    for (const LibraryEntry& e : errors) j["errors"].push_back(entryJson(e));
    j["dirs"] = dirs;
    j["userDir"] = userDir;
    return j;
}

std::string userNodeFolder() {
    const std::string set = envText("TRESSORA_USER_NODES");
    if (!set.empty()) return set;
    std::string home = envText("HOME");
    if (home.empty()) home = envText("USERPROFILE");
    if (home.empty()) return {};
    return (fs::path(home) / "Documents" / "Tressora" / "nodes").string();
}

void registerNodeFolder(const std::string& folder) {
    std::lock_guard lock(folderMutex());
    registeredFolder() = folder;
}

std::vector<std::string> nodeFolders() {
    std::vector<std::string> folders;
    const auto add = [&](const std::string& f) {
        if (!f.empty() && std::find(folders.begin(), folders.end(), f) == folders.end()) folders.push_back(f);
    };
    const std::string path = envText("TRESSORA_NODE_PATH");
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t end = std::min(path.find(';', start), path.size());
        add(path.substr(start, end - start));
        start = end + 1;
    }
    add(userNodeFolder());
    std::lock_guard lock(folderMutex());
    add(registeredFolder());
    return folders;
}

LibraryScan scanLibrary(const OperatorRegistry* registry) {
    LibraryScan scan;
    scan.dirs = nodeFolders();
    scan.userDir = userNodeFolder();
    for (const std::string& dir : scan.dirs) {
        std::error_code error;
        std::vector<fs::path> files;
        for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error)) {
            std::error_code kindError;
            if (it->path().extension() == ".tsnode" && it->is_regular_file(kindError)) files.push_back(it->path());
        }
        std::sort(files.begin(), files.end());
        for (const fs::path& path : files) {
            LibraryEntry entry;
            entry.path = path.string();
            std::error_code sizeError;
            const std::uintmax_t size = fs::file_size(path, sizeError);
            if (sizeError || size > kMaxNodeFileBytes || !readText(path, entry.text)) {
                entry.text.clear();
                entry.error = sizeError || size <= kMaxNodeFileBytes ? "cannot read " + entry.path
                                                                      : "the node file is larger than 4 MB";
                scan.errors.push_back(std::move(entry));
                continue;
            }
            try {
                entry.file = parseNodeFile(entry.text, registry);
                scan.nodes.push_back(std::move(entry));
            } catch (const std::exception& e) {
                entry.error = e.what();
                scan.errors.push_back(std::move(entry));
            }
        }
    }
    return scan;
}

const LibraryEntry* findLibraryNode(const LibraryScan& scan, const std::string& id) {
    const LibraryEntry* best = nullptr;
    for (const LibraryEntry& e : scan.nodes)
        if (e.file.id == id && (!best || e.file.version > best->file.version)) best = &e;
    return best;
}

nlohmann::ordered_json libraryCatalogue(const LibraryScan& scan) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    int order = 0;
    for (const LibraryEntry& e : scan.nodes) {
        if (findLibraryNode(scan, e.file.id) != &e) continue;  // a lower version, or a later folder's copy
        const nlohmann::json& doc = e.file.document;
        const bool known = !categoryTitle(e.file.category).empty();
        const std::string category = known ? e.file.category : "mynodes";
        nlohmann::ordered_json j;
        j["type"] = "node:" + e.file.id;
        j["label"] = e.file.label;
        j["category"] = category;
        j["categoryTitle"] = known ? std::string(categoryTitle(category)) : std::string("My Nodes");
        j["categoryOrder"] = categoryOrder(category);
        j["order"] = order++;
        j["description"] = e.file.description;
        j["keywords"] = "library " + e.file.id + " " + std::string(nodeFileKindName(e.file.kind));
        j["version"] = e.file.version;
        j["inputs"] = nlohmann::ordered_json::parse(doc["inputs"].dump());
        j["output"] = nlohmann::ordered_json::parse(doc["output"].dump());
        j["path"] = e.path;
        list.push_back(std::move(j));
    }
    return list;
}

std::string saveUserNodeFile(const NodeFile& file) {
    const std::string dir = userNodeFolder();
    if (dir.empty()) throw GraphError("no folder to save the node in (set TRESSORA_USER_NODES)");
    const std::string path = (fs::path(dir) / (file.id + ".tsnode")).string();
    std::error_code error;
    fs::create_directories(dir, error);
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        const std::string text = nodeFileText(file);
        out << text;
        out.flush();
        if (!out) {
            fs::remove(tmp, error);
            throw GraphError("cannot write " + path);
        }
    }
    if (!replaceFile(tmp, path).empty()) {
        fs::remove(tmp, error);
        throw GraphError("cannot write " + path);
    }
    return path;
}

NodeUpdateStatus nodeUpdateStatus(const LibraryScan& scan, const nlohmann::json& definition) {
    NodeUpdateStatus status;
    if (!definition.is_object() || !definition.contains("id") || !definition["id"].is_string()) return status;
    const LibraryEntry* entry = findLibraryNode(scan, definition["id"].get<std::string>());
    if (!entry) {
        status.embedded = true;
        return status;
    }
    int version = 1;
    if (const auto v = definition.find("version"); v != definition.end() && v->is_number()) {
        const double d = v->get<double>();
        if (d >= 1.0 && d <= 2147483647.0 && std::floor(d) == d) version = static_cast<int>(d);
    }
    if (entry->file.version > version) {
        status.updateAvailable = true;
        status.latest = entry->file.version;
    }
    return status;
}

NodeTypeResolver libraryNodeResolver(const OperatorRegistry& registry) {
    // The scan is shared by the resolver's copies and made once, when a graph first names a
    // library node.
    struct Shared {
        std::once_flag once;
        LibraryScan scan;
    };
    auto shared = std::make_shared<Shared>();
    const OperatorRegistry* reg = &registry;
    return [shared, reg](const std::string& type) -> std::unique_ptr<Operator> {
        std::call_once(shared->once, [&] { shared->scan = scanLibrary(reg); });
        const std::string id = type.substr(type.find(':') + 1);
        const LibraryEntry* entry = findLibraryNode(shared->scan, id);
        if (!entry) {
            for (const LibraryEntry& bad : shared->scan.errors)
                if (const std::string stem = fs::path(bad.path).stem().string();
                    stem == id || (id.size() > stem.size() + 1 && id.ends_with("." + stem)))
                    throw GraphError("the library's node '" + id + "' cannot be used: " + bad.error);
            throw GraphError("the library has no node '" + id + "' (the node folders: TRESSORA_NODE_PATH, " +
                             "TRESSORA_USER_NODES and the program's nodes folder)");
        }
        const std::string kindType = entry->file.kind == NodeFileKind::Script ? "Script" : "Compound";
        std::unique_ptr<Operator> op = reg->create(kindType);
        auto* holder = dynamic_cast<NodeDefinition*>(op.get());
        if (!holder) throw GraphError("the " + kindType + " node type cannot hold a library node");
        holder->readDefinition(entry->file.document);
        return op;
    };
}

}  // namespace tressora
