#pragma once
// The agent tools that read and change a groom's graph.

#include <nlohmann/json.hpp>

namespace tressora::cli {

class McpTools;

/// add_node's placement arguments (after, before, inputs) as schema fields, which
/// add_script_node shares.
nlohmann::json placementFields();

/// get_graph, add_node, remove_node, connect, disconnect and set_params, in that order.
void registerGraphTools(McpTools& tools);

}  // namespace tressora::cli
