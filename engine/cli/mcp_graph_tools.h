#pragma once
// The agent tools that read and change a groom's graph.

namespace tressora::cli {

class McpTools;

/// get_graph, add_node, remove_node, connect, disconnect and set_params, in that order.
void registerGraphTools(McpTools& tools);

}  // namespace tressora::cli
