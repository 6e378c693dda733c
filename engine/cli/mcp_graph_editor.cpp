#include "cli/mcp_graph_editor.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "core/errors.h"
#include "core/hash.h"
#include "graph/graph.h"
#include "graph/graph_json.h"
#include "graph/operator_registry.h"
#include "graph/param_json.h"

namespace tressora::cli {

namespace {

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
    return OperatorRegistry::instance().create(node(name).value("type", std::string()))->outputs();
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

std::string GraphEditor::addNode(const std::string& type, const std::string& name, const nlohmann::json& params,
                                 double scale) {
    const OperatorRegistry& registry = OperatorRegistry::instance();
    std::unique_ptr<Operator> op = registry.create(type);
    if (!params.is_null() && !params.is_object()) throw GraphError("a node's params are a JSON object");
    std::string chosen = name;
    if (!chosen.empty()) {
        if (has(chosen)) throw GraphError("a node named " + chosen + " exists");
    } else {
        std::string base = type;
        base[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(base[0])));
        chosen = base;
        for (int n = 2; has(chosen); ++n) chosen = base + std::to_string(n);
    }
    nlohmann::json values = params.is_object() ? params : nlohmann::json::object();
    for (const ParamSpec& spec : allParams(*op)) {
        if (values.contains(spec.name)) continue;
        // Lengths fitted to this scalp; a seed of its own, so that two nodes of one type do
        // not pick the same strands.
        if (spec.unit == "length" && scale != 1.0 && std::holds_alternative<double>(spec.defaultValue))
            values[spec.name] = std::get<double>(spec.defaultValue) * scale;
        if (spec.name == "seed" && std::holds_alternative<std::int64_t>(spec.defaultValue))
            values[spec.name] = static_cast<std::int64_t>(hash64(combineText(0x5EED, chosen)) % 100000);
    }
    nlohmann::json entry = {{"name", chosen}, {"type", type}};
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

}  // namespace tressora::cli
