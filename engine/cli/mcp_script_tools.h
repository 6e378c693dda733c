#pragma once
// The agent tools that write script nodes and save nodes as files.

namespace tressora::cli {

class McpTools;

/// add_script_node and save_node, in that order.
void registerScriptTools(McpTools& tools);

}  // namespace tressora::cli
