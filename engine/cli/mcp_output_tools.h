#pragma once
// The agent tools that evaluate a groom, draw it, save it and export its curves.

namespace tressora::cli {

class McpTools;

/// evaluate, render_preview, save_groom and export, in that order.
void registerOutputTools(McpTools& tools);

}  // namespace tressora::cli
