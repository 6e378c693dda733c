#pragma once
// The `mcp` command: a Model Context Protocol server for AI agents, JSON-RPC 2.0 with one
// message a line on standard input and output, for as long as standard input stays open.
// Standard output is taken for the protocol alone: anything a library prints goes to standard
// error instead. Tools and open grooms live in McpTools; the loop here frames, parses and
// dispatches messages and maps every fault to its JSON-RPC error.

#include <iosfwd>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "cli/mcp_tools.h"

namespace tressora::cli {

inline constexpr const char* kMcpProtocolPreferred = "2025-06-18";
/// The longest line read: a tool's call or result may carry a whole graph or guide list.
inline constexpr std::size_t kMcpLineLimit = std::size_t{64} << 20;

class McpServer {
public:
    explicit McpServer(McpTools& tools, std::ostream* log = nullptr) : tools_(tools), log_(log) {}

    /// The answer to one line of input (without its line feed), or nothing for a blank line,
    /// a notification or a batch of them.
    std::optional<std::string> handleLine(std::string line);

private:
    nlohmann::json handleMessage(const nlohmann::json& message);
    nlohmann::json dispatch(const std::string& method, const nlohmann::json& params, const nlohmann::json& id);

    McpTools& tools_;
    std::ostream* log_;
};

/// `tressora-cli mcp [--root <dir>]`. Returns 0 at the end of standard input, 1 when standard
/// output cannot be taken, 2 for a bad command line or a root that is no folder.
int mcpCommand(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace tressora::cli
