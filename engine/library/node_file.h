#pragma once
// Node files (.tsnode): a shareable node, either a script node (a header of params and a
// script) or a compound (a subgraph with named inputs and exposed params). Reading one checks
// it whole and keeps the document; writing one puts its members in a fixed order.

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "graph/param_spec.h"

namespace tressora {

class OperatorRegistry;

/// The newest node file format this build reads.
inline constexpr int kNodeFileFormat = 1;

enum class NodeFileKind { Script, Compound };

/// "script" or "compound".
std::string_view nodeFileKindName(NodeFileKind kind);

/// A node file that passed every check.
struct NodeFile {
    NodeFileKind kind = NodeFileKind::Script;
    nlohmann::json document;  ///< the file's object, with `version`, `inputs`, `output` (and `writes`) filled in
    std::string id;
    int version = 1;
    std::string label;
    std::string category;
    std::string description;
    std::string author;
    std::string license;
};

/// Checks a node file's object. Compound files have their inner nodes' params checked against
/// `registry` when one is given. Throws GraphError with the first fault found.
NodeFile checkNodeFile(const nlohmann::json& document, const OperatorRegistry* registry = nullptr);

/// Parses and checks a node file's text. Throws GraphError.
NodeFile parseNodeFile(std::string_view text, const OperatorRegistry* registry = nullptr);

/// The canonical text of a checked node file: members in a fixed order, indent of 2.
std::string nodeFileText(const NodeFile& file);

/// Checks a node file's text and gives its canonical text. Throws GraphError.
std::string validateNodeFileText(std::string_view text, const OperatorRegistry* registry = nullptr);

/// The script node a new script starts from: pushes strands out from the scalp toward the tip.
const nlohmann::json& defaultScriptNodeFile();

/// A checked script header as the node's params: kind by type, " (mappable)" on a mappable
/// param's description. (The common affect param is added for every node type elsewhere.)
std::vector<ParamSpec> scriptHeaderParams(const nlohmann::json& params);

/// Checks an id: two or more parts of a-z, 0-9, _ and - joined by dots. Throws GraphError.
void checkNodeId(const std::string& id);

}  // namespace tressora
