// The agent tools for nodes of the agent's own: add_script_node writes a script node (or
// changes one in place) after compiling it, so a faulty script comes back with its line and
// column and changes nothing; save_node writes a node as a .tsnode file to share.

#include "cli/mcp_script_tools.h"

#include <algorithm>

#include "cli/mcp_graph_editor.h"
#include "cli/mcp_graph_tools.h"
#include "cli/mcp_tools.h"
#include "expression/script.h"
#include "library/node_file.h"
#include "operators/script/script_node.h"

namespace tressora::cli {
namespace {

constexpr std::size_t kMaxScriptBytes = 65536;

/// A label as a word of a-z, 0-9 and "_": "Soft Wave 2" gives "soft_wave_2".
std::string wordOf(const std::string& label) {
    std::string word;
    for (const unsigned char c : label) {
        if (std::isalnum(c)) word += static_cast<char>(std::tolower(c));
        else if (!word.empty() && word.back() != '_') word += '_';
    }
    while (!word.empty() && word.back() == '_') word.pop_back();
    return word.size() > 48 ? word.substr(0, 48) : word;
}

/// The definition a call gives: a whole node file, or the default script node with the
/// fields the call sets.
nlohmann::json definitionOf(const nlohmann::json& args) {
    if (args.contains("definition")) return args["definition"];
    if (!args.contains("script")) throw ToolError("give the node's \"script\" (or a whole .tsnode \"definition\")");
    nlohmann::json definition = defaultScriptNodeFile();
    const std::string label = args.value("label", std::string("My Script"));
    const std::string word = wordOf(label);
    definition["label"] = label;
    definition["id"] = "mynodes." + (word.empty() ? std::string("my_script") : word);
    for (const char* key : {"script", "params", "writes", "description", "category"})
        if (args.contains(key)) definition[key] = args[key];
    return definition;
}

ToolResult addScriptNode(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const nlohmann::json definition = definitionOf(args);
    if (definition.is_object())
        if (const auto script = definition.find("script"); script != definition.end() && script->is_string() &&
                                                           script->get_ref<const std::string&>().size() > kMaxScriptBytes)
            throw ToolError("the script is longer than 64 KB");
    if (definition.is_object()) tools.checkFileReferences(definition.value("params", nlohmann::json::array()));
    try {
        compileScriptNode(definition);
    } catch (const ScriptError& e) {
        ToolResult refused = McpTools::answer(
            {{"errors", nlohmann::json::array({{{"line", e.line()}, {"column", e.column()}, {"message", e.message()}}})},
             {"message", "The script node has errors (line and column of the script); nothing changed. Fix them and call "
                         "add_script_node again."}});
        refused.isError = true;
        return refused;
    }

    std::string made, placed;
    if (args.contains("node")) {
        made = args["node"].get<std::string>();
        placed = "updated in place";
        tools.edit(groom, "edit " + made, [&](std::string& graph, std::string&) {
            GraphEditor editor(graph);
            if (!editor.has(made)) throw ToolError("no node '" + made + "' in the graph");
            nlohmann::json& node = editor.node(made);
            if (node.value("type", std::string()) != "Script") throw ToolError("'" + made + "' is not a script node");
            node["definition"] = definition;
            // Values of params the new header still declares stay; the rest go with the old header.
            if (const auto params = node.find("params"); params != node.end() && params->is_object()) {
                const std::vector<ParamSpec> specs = scriptHeaderParams(definition.value("params", nlohmann::json::array()));
                nlohmann::json kept = nlohmann::json::object();
                for (const auto& item : params->items())
                    if (item.key() == "affect" ||
                        std::any_of(specs.begin(), specs.end(), [&](const ParamSpec& s) { return s.name == item.key(); }))
                        kept[item.key()] = item.value();
                if (kept.empty()) node.erase("params");
                else *params = std::move(kept);
            }
            graph = editor.text();
        });
    } else {
        const std::string wanted = args.value("name", std::string());
        if (!wanted.empty()) checkName(wanted, "a node's name");
        const std::string label = definition.value("label", std::string("My Script"));
        const std::string word = wordOf(label);
        tools.edit(groom, "add " + label, [&](std::string& graph, std::string&) {
            GraphEditor editor(graph);
            made = editor.addNode({"Script", wanted, word.empty() ? std::string("script") : word, nullptr, definition},
                                  scalpSize(groom));
            placed = placeNode(editor, made, args);
            graph = editor.text();
        });
    }
    return tools.answerWithSummary(groom, {{"node", made}, {"placed", placed}});
}

ToolResult saveNode(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const std::string name = args.at("node").get<std::string>();
    GraphEditor editor(groom.session->graphJson());
    if (!editor.has(name)) throw ToolError("no node '" + name + "' in the graph");
    const nlohmann::json& node = editor.node(name);
    const std::string type = node.value("type", std::string());
    if (type != "Script" && type != "Compound") throw ToolError("only script and compound nodes are saved as .tsnode files");
    // The node holds its whole file as its definition.
    const NodeFile file = checkNodeFile(node.value("definition", nlohmann::json()));
    const std::string given =
        args.contains("path") ? args["path"].get<std::string>() : (file.id.empty() ? "my.node" : file.id) + ".tsnode";
    const std::string path = tools.pathForWriting(given);
    std::string ext = path.size() >= 7 ? path.substr(path.size() - 7) : std::string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ext != ".tsnode") throw ToolError("a node file ends in .tsnode");
    McpTools::writeFile(path, nodeFileText(file));
    return McpTools::answer({{"path", tools.shownPath(path)},
                             {"id", file.id},
                             {"note", "Use it in Tressora with Import Node... (Maya's Graph Editor, the app), or copy it "
                                      "into Documents/Tressora/nodes."}});
}

}  // namespace

void registerScriptTools(McpTools& tools) {
    nlohmann::json paramsField = field("array", "Header params: {\"name\", \"type\": number|length|int|bool|enum|color|ramp, "
                                                "\"default\", \"min\", \"max\", \"label\", \"description\", \"mappable\"}.");
    paramsField["items"] = {{"type", "object"}};
    nlohmann::json writesField = field("array", "What the script writes: \"P\", \"width\", \"color\", \"channel.<name>\" "
                                                "(default [\"P\"]).");
    writesField["items"] = {{"type", "string"}};
    const nlohmann::json placement = placementFields();
    tools.add({"add_script_node", "Add a script node",
               "Writes a node of your own as a short script and adds it to the graph (placed like add_node), or changes a "
               "script node in place (node). The script is checked first: errors come back with their line and column and "
               "nothing changes, so fix and call again.",
               objectSchema({{"groom", groomField()},
                             {"label", field("string", "The node's label (\"Wave\"); its id and name come from it.")},
                             {"script", field("string", "The script: per strand { ... } and/or per point { ... } blocks in "
                                                        "Tressora's expression language. Assign P (point), width, color or "
                                                        "channel.<name> (each listed in writes); read params as $name; t is 0 "
                                                        "at the root, 1 at the tip; rand is per strand. get_docs "
                                                        "\"custom-nodes\" has the language.")},
                             {"params", paramsField},
                             {"writes", writesField},
                             {"description", field("string", "A line on what it does.")},
                             {"category", field("string", "Its Add Node menu category.")},
                             {"definition", field("object", "A whole .tsnode script node file instead of the fields above.")},
                             {"name", field("string", "The node's name in the graph.")},
                             {"node", field("string", "An existing script node to change in place instead of adding one.")},
                             {"after", placement["after"]},
                             {"before", placement["before"]},
                             {"inputs", placement["inputs"]}}),
               addScriptNode});
    tools.add({"save_node", "Save a node file",
               "Saves a script or compound node of the groom as a .tsnode file inside the server's folder, to share or "
               "import into Tressora's node library.",
               objectSchema({{"groom", groomField()},
                             {"node", field("string", "The node's name.")},
                             {"path", field("string", "The file (default <id>.tsnode).")}},
                            {"node"}),
               saveNode});
}

}  // namespace tressora::cli
