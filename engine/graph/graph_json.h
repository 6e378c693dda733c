#pragma once
// The JSON form of a graph, and the built-in default graph of a new groom.

#include <functional>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "graph/graph.h"

namespace tressora {

/// The graph document version this build reads and writes.
inline constexpr int kGraphVersion = 1;

/// Creates the operator of a node type that is not a registered one: a text beginning
/// "node:" names a shared node file. Returns null when it cannot resolve the type.
using NodeTypeResolver = std::function<std::unique_ptr<Operator>(const std::string& type)>;

/// Writes the graph: version, nodes in id order, connections in node then slot order, the
/// output's name, and backdrops when there are any. Keys are sorted (the JSON library's order).
nlohmann::json graphToJson(const Graph& graph);

/// Reads a graph: the version check, every node, backdrops, connections (which may name
/// nodes later in the file), then the output. Throws SchemaError or GraphError; nothing of
/// a failed read survives.
std::unique_ptr<Graph> graphFromJson(const nlohmann::json& json, const OperatorRegistry& registry,
                                     const NodeTypeResolver& resolver = {});

/// The text of the built-in default graph.
const std::string& defaultGraphText();
/// The default graph, built through the registry.
std::unique_ptr<Graph> defaultGraph(const OperatorRegistry& registry);

}  // namespace tressora
