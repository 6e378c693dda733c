#pragma once
// The agent tools that list the sample meshes, open grooms and undo their changes.

namespace tressora::cli {

class McpTools;

void registerSampleMeshTool(McpTools& tools);
/// new_groom, open_groom and list_grooms, in that order.
void registerGroomTools(McpTools& tools);
void registerUndoTool(McpTools& tools);

}  // namespace tressora::cli
