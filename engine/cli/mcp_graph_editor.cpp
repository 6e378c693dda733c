#include "cli/mcp_graph_editor.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "core/errors.h"
#include "core/hash.h"
#include "graph/graph.h"
#include "graph/graph_json.h"
#include "graph/operator_registry.h"
#include "graph/node_definition.h"
#include "graph/param_json.h"
#include "library/node_library.h"

namespace tressora::cli {

namespace {

/// The largest side of the scalp the built-in length defaults suit: a head about 25 units
/// tall, like the Nika sample.
constexpr double kBuiltinScalpSize = 25.0;

bool blankText(const std::string& text) { return text.find_first_not_of(" \t\r\n") == std::string::npos; }

/// What a port takes or gives, as messages name it.
std::string portWords(const Port& port, bool input) {
    if (port.type == PortType::Value) return valueKindName(port.valueKind).data();
    if (input && port.type == PortType::Field) return "a Field or a number";
    return std::string(portTypeName(port.type));
}

}  // namespace

GraphEditor::GraphEditor(const std::string& text) {
    if (blankText(text)) {
        doc_ = nlohmann::json::object();
        return;
    }
    doc_ = nlohmann::json::parse(text, nullptr, false, false);
    if (!doc_.is_object()) throw GraphError("the graph is not a JSON object");
}

std::string GraphEditor::text() const { return doc_.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace); }

nlohmann::json& GraphEditor::connections() {
    if (!doc_.contains("connections") || !doc_["connections"].is_array()) doc_["connections"] = nlohmann::json::array();
    return doc_["connections"];
}

bool GraphEditor::has(const std::string& name) const {
    if (!doc_.contains("nodes") || !doc_["nodes"].is_array()) return false;
    return std::any_of(doc_["nodes"].begin(), doc_["nodes"].end(),
                       [&](const nlohmann::json& n) { return n.is_object() && n.value("name", std::string()) == name; });
}

nlohmann::json& GraphEditor::node(const std::string& name) {
    if (doc_.contains("nodes") && doc_["nodes"].is_array())
        for (nlohmann::json& n : doc_["nodes"])
            if (n.is_object() && n.value("name", std::string()) == name) return n;
    throw GraphError("no node named " + name);
}

std::vector<Port> GraphEditor::inputs(const std::string& name) {
    // The node alone as a graph gives its ports as its type and paramInputs make them.
    const nlohmann::json alone = {{"nodes", nlohmann::json::array({node(name)})}, {"output", name}};
    const std::unique_ptr<Graph> graph = graphFromJson(alone, OperatorRegistry::instance());
    return graph->effectiveInputs(graph->nodeByName(name));
}

std::vector<Port> GraphEditor::outputs(const std::string& name) {
    const nlohmann::json alone = {{"nodes", nlohmann::json::array({node(name)})}, {"output", name}};
    const std::unique_ptr<Graph> graph = graphFromJson(alone, OperatorRegistry::instance());
    return graph->node(graph->nodeByName(name)).op->outputs();
}

std::vector<GraphEditor::Link> GraphEditor::links() const {
    std::vector<Link> out;
    if (!doc_.contains("connections") || !doc_["connections"].is_array()) return out;
    for (const nlohmann::json& c : doc_["connections"])
        if (c.is_object())
            out.push_back({c.value("from", std::string()), c.value("output", std::string()), c.value("to", std::string()),
                           c.value("input", std::string())});
    return out;
}

std::string GraphEditor::addNode(const NewNode& wanted, double scalpSize) {
    const OperatorRegistry& registry = OperatorRegistry::instance();
    if (!wanted.params.is_null() && !wanted.params.is_object()) throw GraphError("a node's params are a JSON object");
    std::unique_ptr<Operator> op;
    std::string type = wanted.type, base = wanted.base;
    nlohmann::json definition = wanted.definition;
    double scale = scalpSize > 0.0 ? scalpSize / kBuiltinScalpSize : 1.0;
    if (type.starts_with("node:")) {
        // A library node travels in the graph as a copy of its file, under the type of its kind.
        op = libraryNodeResolver(registry)(type);
        definition = dynamic_cast<const NodeDefinition&>(*op).writeDefinition();
        type = definition.contains("script") ? "Script" : "Compound";
        const std::string id = wanted.type.substr(5);
        if (base.empty()) base = id.substr(id.rfind('.') + 1);
    } else {
        op = registry.create(type);
        if (!definition.is_null()) {
            auto* holder = dynamic_cast<NodeDefinition*>(op.get());
            if (!holder) throw GraphError("a node of type " + type + " takes no definition");
            holder->readDefinition(definition);
        }
    }
    // A node file says which scalp size its length defaults were written for.
    if (definition.is_object())
        if (const auto size = definition.find("size"); size != definition.end() && size->is_number())
            if (const double written = size->get<double>(); written > 0.0 && scalpSize > 0.0) scale = scalpSize / written;
    std::string chosen = wanted.name;
    if (!chosen.empty()) {
        if (has(chosen)) throw GraphError("a node named " + chosen + " exists");
    } else {
        if (base.empty()) {
            base = type;
            base[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(base[0])));
        }
        chosen = base;
        for (int n = 2; has(chosen); ++n) chosen = base + std::to_string(n);
    }
    nlohmann::json values = wanted.params.is_object() ? wanted.params : nlohmann::json::object();
    for (const ParamSpec& spec : allParams(*op)) {
        if (values.contains(spec.name)) continue;
        if (spec.unit == "length" && scale != 1.0 && std::holds_alternative<double>(spec.defaultValue))
            values[spec.name] = std::get<double>(spec.defaultValue) * scale;
        if (spec.name == "seed" && std::holds_alternative<std::int64_t>(spec.defaultValue))
            values[spec.name] = static_cast<std::int64_t>(hash64(combineText(0x5EED, chosen)) % 100000);
    }
    nlohmann::json entry = {{"name", chosen}, {"type", type}};
    if (!definition.is_null()) entry["definition"] = std::move(definition);
    if (!values.empty()) entry["params"] = std::move(values);
    if (!doc_.contains("nodes") || !doc_["nodes"].is_array()) doc_["nodes"] = nlohmann::json::array();
    doc_["nodes"].push_back(std::move(entry));
    return chosen;
}

void GraphEditor::removeNode(const std::string& name) {
    node(name);
    nlohmann::json& nodes = doc_["nodes"];
    nodes.erase(std::remove_if(nodes.begin(), nodes.end(),
                               [&](const nlohmann::json& n) { return n.is_object() && n.value("name", std::string()) == name; }),
                nodes.end());
    nlohmann::json& links = connections();
    links.erase(std::remove_if(links.begin(), links.end(),
                               [&](const nlohmann::json& c) {
                                   return c.is_object() && (c.value("from", std::string()) == name || c.value("to", std::string()) == name);
                               }),
                links.end());
    if (output() == name) doc_.erase("output");
}

bool GraphEditor::reaches(const std::string& from, const std::string& to) const {
    // Whether `to` feeds `from` already (following connections backwards from `from`).
    std::set<std::string> seen;
    std::vector<std::string> stack{from};
    const std::vector<Link> all = links();
    while (!stack.empty()) {
        const std::string at = stack.back();
        stack.pop_back();
        if (at == to) return true;
        if (!seen.insert(at).second) continue;
        for (const Link& l : all)
            if (l.to == at) stack.push_back(l.from);
    }
    return false;
}

void GraphEditor::connect(const std::string& from, const std::string& output, const std::string& to,
                          const std::string& input) {
    node(from);
    node(to);
    const std::vector<Port> ins = inputs(to), outs = outputs(from);
    const auto in = std::find_if(ins.begin(), ins.end(), [&](const Port& p) { return p.name == input; });
    if (in == ins.end()) throw GraphError(to + " has no input " + input);
    const auto out = output.empty() ? outs.begin()
                                    : std::find_if(outs.begin(), outs.end(), [&](const Port& p) { return p.name == output; });
    if (out == outs.end()) throw GraphError(from + " has no output " + (output.empty() ? std::string("(none)") : output));
    if (out->type == PortType::Field && in->type == PortType::Value)
        throw GraphError("cannot connect " + from + " to " + to + ": it gives a value per strand (a Field), and " + to +
                         " takes one value for the whole node (drive it with a Value node, or an Expression set to give a "
                         "value)");
    const bool curves = [](PortType a, PortType b) {
        return (a == PortType::Curves && (b == PortType::Strands || b == PortType::Guides || b == PortType::Curves)) ||
               (b == PortType::Curves && (a == PortType::Strands || a == PortType::Guides));
    }(out->type, in->type);
    bool fits = out->type == in->type || curves || (out->type == PortType::Value && in->type == PortType::Field);
    if (fits && out->type == PortType::Value) {
        const ValueKind target = in->type == PortType::Field && in->valueKind == ValueKind::Any ? ValueKind::Number : in->valueKind;
        fits = valueKindsCompatible(out->valueKind, target);
    }
    if (!fits)
        throw GraphError("cannot connect " + from + " (it gives " + portWords(*out, false) + ") to " + to + " (it takes " +
                         portWords(*in, true) + ")");
    if (from == to || reaches(from, to)) throw GraphError("connecting " + from + " to " + to + " would create a cycle");
    disconnect(to, input);
    nlohmann::json link = {{"from", from}, {"to", to}, {"input", input}};
    if (!output.empty() && out != outs.begin()) link["output"] = output;
    connections().push_back(std::move(link));
    // Centers connected to a Clump say where its clumps are.
    if (input == "centers" && node(to).value("type", std::string()) == "Clump") {
        nlohmann::json& target = node(to);
        const nlohmann::json params = target.value("params", nlohmann::json::object());
        if (params.value("centersFrom", std::string("pick")) == "pick") target["params"]["centersFrom"] = "inputPoints";
    }
}

bool GraphEditor::disconnect(const std::string& to, const std::string& input) {
    nlohmann::json& links = connections();
    const auto before = links.size();
    links.erase(std::remove_if(links.begin(), links.end(),
                               [&](const nlohmann::json& c) {
                                   return c.is_object() && c.value("to", std::string()) == to && c.value("input", std::string()) == input;
                               }),
                links.end());
    return links.size() != before;
}

std::pair<std::string, std::string> splitSource(const std::string& text) {
    const std::size_t dot = text.find('.');
    if (dot == std::string::npos) return {text, std::string()};
    return {text.substr(0, dot), text.substr(dot + 1)};
}

std::string placeNode(GraphEditor& editor, const std::string& made, const nlohmann::json& args) {
    std::string placed;
    const auto insertAfter = [&](const std::string& a) {
        if (!editor.has(a)) throw ToolError("no node '" + a + "' to insert after");
        const std::vector<Port> from = editor.outputs(a), into = editor.inputs(made);
        const auto in = from.empty() ? into.end()
                                     : std::find_if(into.begin(), into.end(), [&](const Port& p) {
                                           return p.type == from.front().type ||
                                                  (p.type == PortType::Curves && (from.front().type == PortType::Strands ||
                                                                                  from.front().type == PortType::Guides)) ||
                                                  (from.front().type == PortType::Curves &&
                                                   (p.type == PortType::Strands || p.type == PortType::Guides));
                                       });
        if (in == into.end())
            throw ToolError("'" + made + "' has no input that takes what '" + a + "' gives (" +
                            (from.empty() ? std::string("nothing") : std::string(portTypeName(from.front().type))) + ")");
        const std::string firstOutput = from.front().name;
        for (const GraphEditor::Link& l : editor.links())
            if (l.from == a && (l.output.empty() || l.output == firstOutput)) {
                editor.disconnect(l.to, l.input);
                editor.connect(made, {}, l.to, l.input);
            }
        editor.connect(a, {}, made, in->name);
    };
    const auto insertBefore = [&](const std::string& b) {
        if (!editor.has(b)) throw ToolError("no node '" + b + "' to insert before");
        const std::vector<Port> into = editor.inputs(b);
        if (into.empty()) throw ToolError("'" + b + "' has no input to insert before");
        const std::vector<Port> own = editor.inputs(made);
        if (own.empty()) throw ToolError("'" + made + "' has no input");
        for (const GraphEditor::Link& l : editor.links())
            if (l.to == b && l.input == into.front().name) editor.connect(l.from, l.output, made, own.front().name);
        editor.connect(made, {}, b, into.front().name);
    };
    if (args.contains("after")) {
        insertAfter(args["after"].get<std::string>());
        placed = "after " + args["after"].get<std::string>();
    } else if (args.contains("before")) {
        insertBefore(args["before"].get<std::string>());
        placed = "before " + args["before"].get<std::string>();
    } else if (args.contains("inputs")) {
        for (const auto& [input, source] : args["inputs"].items()) {
            if (!source.is_string()) throw ToolError("inputs map an input name to \"node\" or \"node.output\"");
            const auto [from, output] = splitSource(source.get<std::string>());
            editor.connect(from, output, made, input);
        }
        placed = "inputs connected";
    } else {
        const std::string out = editor.output();
        placed = "not connected (connect it with connect)";
        if (!out.empty() && out != made) {
            GraphEditor trial = editor;
            try {
                insertBefore(out);
                placed = "before " + out + " (the end of the chain)";
            } catch (const std::exception&) {
                editor = std::move(trial);
            }
        }
    }
    return placed;
}

}  // namespace tressora::cli
