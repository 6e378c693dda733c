// The agent tools that read and change a groom's graph: get_graph, add_node, remove_node,
// connect, disconnect and set_params. Each change is one edit step over the graph's JSON text
// through GraphEditor, so a refused change leaves no trace.

#include "cli/mcp_graph_tools.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "cli/mcp_graph_editor.h"
#include "cli/mcp_tools.h"
#include "graph/operator_registry.h"
#include "graph/param_json.h"

namespace tressora::cli {
namespace {

std::string dumped(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

ToolResult getGraph(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const GraphEditor editor(groom.session->graphJson());
    if (args.value("full", false)) return McpTools::answer({{"groom", groom.name}, {"graph", editor.document()}});
    std::map<std::string, nlohmann::json> inputs;
    for (const GraphEditor::Link& l : editor.links())
        inputs[l.to][l.input] = l.output.empty() ? l.from : l.from + "." + l.output;
    nlohmann::json nodes = nlohmann::json::array();
    for (const nlohmann::json& n : editor.document().value("nodes", nlohmann::json::array())) {
        if (!n.is_object()) continue;
        const std::string name = n.value("name", std::string()), type = n.value("type", std::string());
        nlohmann::json entry = {{"name", name}, {"type", type}};
        const nlohmann::json params = n.value("params", nlohmann::json::object());
        if (type != "Script" && type != "Compound" && params.is_object() && !params.empty()) {
            nlohmann::json changed = nlohmann::json::object();
            std::unique_ptr<Operator> op;
            try {
                op = OperatorRegistry::instance().create(type);
            } catch (const std::exception&) {
            }
            for (const auto& [key, value] : params.items()) {
                const std::optional<ParamSpec> spec = op ? findParam(*op, key) : std::nullopt;
                if (!spec || paramToJson(spec->defaultValue) != value) changed[key] = value;
            }
            if (!changed.empty()) entry["params"] = changed;
        }
        if (const auto it = inputs.find(name); it != inputs.end()) entry["inputs"] = it->second;
        for (const char* key : {"bypass", "paramInputs", "paramControls"})
            if (n.contains(key)) entry[key] = n[key];
        nodes.push_back(std::move(entry));
    }
    nlohmann::json result = {{"groom", groom.name}, {"nodes", nodes},
                             {"note", "params lists only values that differ from the node's defaults (describe_node shows them all)."}};
    if (!editor.output().empty()) result["output"] = editor.output();
    return McpTools::answer(result);
}

ToolResult addNode(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const std::string type = args.at("type").get<std::string>();
    if (type == "Script") throw ToolError("add a script node with add_script_node");
    const nlohmann::json params = args.value("params", nlohmann::json::object());
    tools.checkFileReferences(params);
    const std::string wanted = args.value("name", std::string());
    if (!wanted.empty()) checkName(wanted, "a node's name");
    std::string made, placed;
    tools.edit(groom, "add " + type, [&](std::string& graph, std::string&) {
        GraphEditor editor(graph);
        made = editor.addNode({type, wanted, {}, params, nullptr}, scalpSize(groom));
        placed = placeNode(editor, made, args);
        graph = editor.text();
    });
    return tools.answerWithSummary(groom, {{"node", made}, {"placed", placed}});
}

ToolResult removeNode(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const std::string name = args.at("node").get<std::string>();
    const bool reconnect = args.value("reconnect", true);
    nlohmann::json reconnected = nlohmann::json::array();
    tools.edit(groom, "remove " + name, [&](std::string& graph, std::string&) {
        GraphEditor editor(graph);
        if (!editor.has(name)) throw ToolError("no node '" + name + "' in the graph");
        if (editor.output() == name) throw ToolError("'" + name + "' is the graph's output: it cannot be removed");
        std::optional<GraphEditor::Link> feeder;
        const std::vector<Port> ins = editor.inputs(name);
        std::vector<GraphEditor::Link> fed;
        for (const GraphEditor::Link& l : editor.links()) {
            if (!ins.empty() && l.to == name && l.input == ins.front().name) feeder = l;
            if (l.from == name) fed.push_back(l);
        }
        editor.removeNode(name);
        if (reconnect && feeder)
            for (const GraphEditor::Link& l : fed) {
                try {
                    editor.connect(feeder->from, feeder->output, l.to, l.input);
                    reconnected.push_back(feeder->from + " -> " + l.to + "." + l.input);
                } catch (const GraphError&) {
                    // A destination whose type does not fit stays unfed.
                }
            }
        graph = editor.text();
    });
    return tools.answerWithSummary(groom, {{"removed", name}, {"reconnected", reconnected}});
}

ToolResult connectNodes(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const auto split = splitSource(args.at("from").get<std::string>());
    const std::string from = split.first;
    const std::string output = args.contains("output") ? args["output"].get<std::string>() : split.second;
    const std::string to = args.at("to").get<std::string>(), input = args.at("input").get<std::string>();
    const std::string source = output.empty() ? from : from + "." + output;
    const std::string text = source + " -> " + to + "." + input;
    tools.edit(groom, "connect " + text, [&](std::string& graph, std::string&) {
        GraphEditor editor(graph);
        editor.connect(from, output, to, input);
        graph = editor.text();
    });
    return tools.answerWithSummary(groom, {{"connected", text}});
}

ToolResult disconnectInput(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const std::string to = args.at("to").get<std::string>(), input = args.at("input").get<std::string>();
    tools.edit(groom, "disconnect " + to + "." + input, [&](std::string& graph, std::string&) {
        GraphEditor editor(graph);
        if (!editor.disconnect(to, input)) throw ToolError("nothing feeds " + to + "." + input);
        graph = editor.text();
    });
    return tools.answerWithSummary(groom, {{"disconnected", to + "." + input}});
}

/// A bound as the shortest decimal that reads back to it ("0", "0.5").
std::string boundText(std::optional<double> bound, const char* infinite) {
    if (!bound) return infinite;
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, *bound).ptr;
    return std::string(text, end);
}

ToolResult setParams(McpTools& tools, const nlohmann::json& args) {
    OpenGroom& groom = tools.findGroom(args);
    const std::string name = args.at("node").get<std::string>();
    const nlohmann::json& params = args.at("params");
    if (params.empty()) throw ToolError("no params given");
    tools.checkFileReferences(params);
    nlohmann::json set = nlohmann::json::array();
    tools.edit(groom, "set " + name, [&](std::string& graph, std::string&) {
        GraphEditor editor(graph);
        if (!editor.has(name)) throw ToolError("no node '" + name + "' in the graph (get_graph lists them)");
        nlohmann::json& node = editor.node(name);
        const std::unique_ptr<Operator> op = OperatorRegistry::instance().create(node.value("type", std::string()));
        const std::vector<ParamSpec> specs = allParams(*op);
        for (const auto& item : params.items()) {
            const std::string key = item.key();
            const nlohmann::json& value = item.value();
            if (key == "definition") throw ToolError("change a script node's script with add_script_node and \"node\"");
            const auto spec = std::find_if(specs.begin(), specs.end(), [&](const ParamSpec& s) { return s.name == key; });
            if (spec == specs.end()) {
                std::string names;
                for (const ParamSpec& s : specs) names += (names.empty() ? "" : ", ") + s.name;
                throw ToolError("'" + name + "' has no param '" + key + "' (its params: " + names + ")");
            }
            const std::string where = name + "." + key;
            const std::string kind(paramKindName(spec->kind()));
            const bool mappable = spec->mappable();
            bool fits = true;
            switch (spec->kind()) {
                case ParamKind::Bool: fits = value.is_boolean(); break;
                case ParamKind::Int: fits = value.is_number_integer() || (mappable && value.is_object()); break;
                case ParamKind::Float: fits = value.is_number() || (mappable && value.is_object()); break;
                case ParamKind::String: fits = value.is_string(); break;
                case ParamKind::Vec3: fits = (value.is_array() && value.size() == 3) || value.is_object(); break;
                default: break;
            }
            if (!fits)
                throw ToolError(where + " takes a " + kind + (mappable ? " (or a map object)" : "") + ", not " + dumped(value));
            if (spec->kind() == ParamKind::String && !spec->choices.empty() &&
                std::find(spec->choices.begin(), spec->choices.end(), value.get<std::string>()) == spec->choices.end())
                throw ToolError(where + " is one of " + dumped(nlohmann::json(spec->choices)) + ", not " + dumped(value));
            if (value.is_number()) {
                const ParamSet::Limits limits = op->paramValues.limits(key);
                const double v = value.get<double>();
                if ((limits.min && v < *limits.min) || (limits.max && v > *limits.max))
                    throw ToolError(where + " must be within [" + boundText(limits.min, "-inf") + ", " +
                                    boundText(limits.max, "inf") + "], not " + dumped(value));
            }
            node["params"][key] = value;
            set.push_back(key);
        }
        graph = editor.text();
    });
    return tools.answerWithSummary(groom, {{"node", name}, {"set", set}});
}

}  // namespace

nlohmann::json placementFields() {
    return {{"after", field("string", "Insert the new node after this node: it takes that node's output and feeds what it fed.")},
            {"before", field("string", "Insert the new node before this node, into its first input.")},
            {"inputs", {{"type", "object"},
                        {"additionalProperties", {{"type", "string"}}},
                        {"description", "Connect inputs explicitly instead: {\"input\": \"node\" or \"node.output\"}."}}}};
}

void registerGraphTools(McpTools& tools) {
    tools.add({"get_graph", "Get the graph",
               "Gives the groom's node graph: each node's name, type, the params it sets away from their defaults and "
               "what feeds its inputs (\"input\": \"node\" or \"node.output\"), and the output node. full: the whole graph "
               "JSON as stored.",
               objectSchema({{"groom", groomField()}, {"full", field("boolean", "The whole graph JSON, every param written.")}}),
               getGraph});
    tools.add({"add_node", "Add a node",
               "Adds a node to the groom's graph. Place it with after (the usual way: \"after\": \"noise\" puts it in the "
               "chain after noise), before, or explicit inputs; with none of them it goes just before the output when it "
               "fits there. Defaults that are lengths are fitted to the scalp's size.",
               objectSchema({{"groom", groomField()},
                             {"type", field("string", "The node type (list_nodes), e.g. \"Curl\", or a library node \"node:<id>\".")},
                             {"name", field("string", "The new node's name (default: from its type, made unique).")},
                             {"params", field("object", "Params to set on it: {\"param\": value}. Lengths are scene units of this scalp.")},
                             {"after", placementFields()["after"]},
                             {"before", placementFields()["before"]},
                             {"inputs", placementFields()["inputs"]}},
                            {"type"}),
               addNode});
    tools.add({"remove_node", "Remove a node",
               "Removes a node from the graph. By default what fed it is connected to what it fed, so the chain stays whole.",
               objectSchema({{"groom", groomField()},
                             {"node", field("string", "The node's name.")},
                             {"reconnect", field("boolean", "Join what fed the node to what it fed (default true).")}},
                            {"node"}),
               removeNode});
    tools.add({"connect", "Connect nodes",
               "Connects a node's output to another node's input, replacing what fed that input. Types must fit (Strands, "
               "Guides, Mesh, Field...): describe_node lists a node's inputs.",
               objectSchema({{"groom", groomField()},
                             {"from", field("string", "The source node (\"node\" or \"node.output\").")},
                             {"to", field("string", "The node to feed.")},
                             {"input", field("string", "Its input's name.")},
                             {"output", field("string", "The source's output by name (default: its first).")}},
                            {"from", "to", "input"}),
               connectNodes});
    tools.add({"disconnect", "Disconnect an input", "Removes what feeds a node's input.",
               objectSchema({{"groom", groomField()}, {"to", field("string", "The node.")}, {"input", field("string", "Its input's name.")}},
                            {"to", "input"}),
               disconnectInput});
    tools.add({"set_params", "Set params",
               "Sets several params of one node at once, checked against its spec (kind, range, choices). Numbers, "
               "booleans, strings, [x, y, z] vectors and colors, ramps as [[position, value], ...]; a mappable param also "
               "takes a map object such as {\"vertexMap\": \"density\"}. Answers with the groom's summary after the change.",
               objectSchema({{"groom", groomField()},
                             {"node", field("string", "The node's name (get_graph).")},
                             {"params", field("object", "{\"param\": value, ...}")}},
                            {"node", "params"}),
               setParams});
}

}  // namespace tressora::cli
