#pragma once
// The node library: the node files found in the node folders, searched in order (the folders
// of TRESSORA_NODE_PATH, the user's folder, the folder the program registers), and the
// "node:<id>" types graphs name them by.

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "graph/graph_json.h"
#include "library/node_file.h"

namespace tressora {

class OperatorRegistry;

/// One node file found in a folder. A file that fails its checks has only path, text and error.
struct LibraryEntry {
    std::string path;
    std::string text;
    std::string error;
    NodeFile file;
};

struct LibraryScan {
    std::vector<LibraryEntry> nodes;   ///< the files that passed, in folder order, then by name
    std::vector<LibraryEntry> errors;  ///< the files that did not
    std::vector<std::string> dirs;     ///< the folders searched, in order
    std::string userDir;               ///< where a saved node goes; empty when there is none

    /// {"nodes": [...], "errors": [...], "dirs": [...], "userDir": ...}
    nlohmann::ordered_json toJson() const;
};

/// The user's node folder: TRESSORA_USER_NODES when set and not empty, else
/// <home>/Documents/Tressora/nodes; empty when neither can be told.
std::string userNodeFolder();

/// The folder a host (the program) adds after the others: its own nodes folder. Thread-safe.
void registerNodeFolder(const std::string& folder);

/// The node folders in search order; ones that do not exist are listed too (and skipped when
/// scanned).
std::vector<std::string> nodeFolders();

/// Reads every .tsnode file of the node folders.
LibraryScan scanLibrary(const OperatorRegistry* registry = nullptr);

/// The entry of an id: the highest version across folders, the first folder among equals.
const LibraryEntry* findLibraryNode(const LibraryScan& scan, const std::string& id);

/// The records list_nodes shows for the library's nodes.
nlohmann::ordered_json libraryCatalogue(const LibraryScan& scan);

/// Writes a node file into the user folder as <id>.tsnode and gives its path. Throws
/// GraphError "no folder to save the node in (set TRESSORA_USER_NODES)" or "cannot write <path>".
std::string saveUserNodeFile(const NodeFile& file);

/// How a node's definition stands against the library: an update is available (a higher
/// version of its id), it is embedded (its id is not in the library), or neither.
struct NodeUpdateStatus {
    bool updateAvailable = false;
    int latest = 0;
    bool embedded = false;
};
NodeUpdateStatus nodeUpdateStatus(const LibraryScan& scan, const nlohmann::json& definition);

/// Makes "node:<id>" types from the library: the node file's kind with its definition read.
/// The library is scanned at the resolver's first use.
NodeTypeResolver libraryNodeResolver(const OperatorRegistry& registry);

}  // namespace tressora
