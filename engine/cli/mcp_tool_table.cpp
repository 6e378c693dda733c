// The agent server's tools in their registration order; the catalogue's come first. Tools of
// this order that the build does not have yet are left out, and later ones keep their places.

#include "cli/mcp_graph_tools.h"
#include "cli/mcp_groom_tools.h"
#include "cli/mcp_output_tools.h"
#include "cli/mcp_script_tools.h"
#include "cli/mcp_tools.h"

namespace tressora::cli {

void registerTools(McpTools& tools) {
    registerSampleMeshTool(tools);  // after list_nodes, describe_node and list_presets
    registerGroomTools(tools);      // new_groom, open_groom, list_grooms
    registerGraphTools(tools);      // after apply_preset: get_graph ... set_params
    registerScriptTools(tools);     // after the guide tools: add_script_node, save_node
    registerUndoTool(tools);
    registerOutputTools(tools);     // evaluate, render_preview, save_groom, export
}

}  // namespace tressora::cli
