#pragma once
// McpTools: what stands behind the agent server's "tools/list" and "tools/call". It owns the
// table of tools, the grooms open in this server with their undo history, and the one folder
// the server may touch. Tools share its services: arguments checked against each tool's own
// schema, finding the groom, confining paths to the root, and the edit step that changes a
// groom's graph or guides as JSON text, proves that the change loads, and keeps it undoable.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "groom/groom_session.h"

namespace tressora::cli {

/// What a tool's caller can put right, in plain words: the engine's error class of the tools.
using ToolError = tressora::ToolError;

struct ToolResult {
    nlohmann::json content = nlohmann::json::array();
    bool isError = false;
};

/// One undone change: what it was and the texts before it.
struct UndoRecord {
    std::string label;
    std::string graph;
    std::string guides;
};

struct OpenGroom {
    std::string name;
    std::shared_ptr<GroomSession> session;
    std::vector<UndoRecord> undo;  ///< oldest first, at most kUndoSteps
    std::string path;              ///< the .groom file it came from or was saved to; may be empty
    std::string mesh;              ///< a mesh file's path, or "<sample> (sample)"; may be empty
    double frame = 1.0;
};

inline constexpr std::size_t kUndoSteps = 64;

class McpTools;
using ToolHandler = std::function<ToolResult(McpTools& tools, const nlohmann::json& arguments)>;

struct ToolRecord {
    std::string name;
    std::string title;
    std::string description;
    nlohmann::json inputSchema;
    ToolHandler handler;
};

/// The resource folders found beside the program (or in the source tree); each may be empty.
struct ResourceFolders {
    std::string presets, nodes, meshes, docs;
};

class McpTools {
public:
    /// `root` is the canonical folder the server may use; `exeFolder` the program's folder,
    /// where the resource folders are looked for first.
    McpTools(std::string root, const std::string& exeFolder);

    // ---- the protocol's side ----
    bool hasTool(const std::string& name) const;
    /// Every tool's record for "tools/list", in registration order.
    nlohmann::json toolList() const;
    /// Runs a tool: arguments checked, the handler run, every failure an error result.
    ToolResult call(const std::string& name, const nlohmann::json& arguments);

    // ---- services for the tools ----
    void add(ToolRecord record);
    const std::string& root() const { return root_; }
    const ResourceFolders& folders() const { return folders_; }
    std::map<std::string, OpenGroom>& grooms() { return grooms_; }

    /// The groom the `groom` argument names, or the only one open. ToolError otherwise.
    OpenGroom& findGroom(const nlohmann::json& arguments);
    /// A path inside the root for reading or writing, canonical, UTF-8. ToolError when it is
    /// empty, holds a NUL, lies outside the root, or (writing) is a folder or a file that may not
    /// be written; writing creates the parent folders.
    std::string pathForReading(const std::string& path) const;
    std::string pathForWriting(const std::string& path) const;
    /// A canonical path as results show it: relative to the root with forward slashes.
    std::string shownPath(const std::string& path) const;
    /// Throws ToolError for a string in `value` (recursively) that names a file outside the root.
    void checkFileReferences(const nlohmann::json& value) const;
    /// A whole file, refused past `limit` bytes.
    static std::string readFile(const std::string& path, std::uint64_t limit, const std::string& tooBig = {});
    /// Writes bytes to "<path>.tmp" and renames that over `path` when whole, so a failed
    /// write leaves an old file as it was. ToolError "cannot write '<path>'".
    static void writeFile(const std::string& path, std::string_view bytes);

    /// The edit step: `change` gets copies of the groom's graph and guides texts and changes
    /// them (or throws: nothing changes). A change that loads is recorded for undo as `label`.
    void edit(OpenGroom& groom, const std::string& label,
              const std::function<void(std::string& graph, std::string& guides)>& change);
    /// The summary of the groom evaluated at its frame.
    nlohmann::json summary(OpenGroom& groom, float density = 1.0f, const std::string& node = {},
                           bool timings = false) const;
    /// A result value with `groom` and `summary` added.
    ToolResult answerWithSummary(OpenGroom& groom, nlohmann::json result) const;
    static ToolResult answer(const nlohmann::json& result);
    static ToolResult errorResult(const std::string& message);

private:
    void checkArguments(const ToolRecord& tool, nlohmann::json& arguments) const;
    bool inside(const std::string& path, std::string& canonical) const;

    std::string root_;
    ResourceFolders folders_;
    std::map<std::string, OpenGroom> grooms_;
    std::vector<ToolRecord> tools_;
};

/// The name rule of grooms and nodes: 1 to 64 bytes of letters, digits, "_", "-" and ".".
/// `what` is "a groom's name" or "a node's name".
void checkName(const std::string& value, const std::string& what);

/// Schema pieces the tools build their inputSchema from.
nlohmann::json objectSchema(nlohmann::json properties, const std::vector<std::string>& required = {});
nlohmann::json field(const std::string& type, const std::string& description);
/// The shared `groom` argument.
nlohmann::json groomField();

/// The largest side of the groom's scalp's bounding box; 0 without a scalp.
double scalpSize(const OpenGroom& groom);

/// Coordinates in results: round(x * 10000) / 10000.
double rounded(double x);

/// Registers the tools of this build in their order.
void registerTools(McpTools& tools);

}  // namespace tressora::cli
