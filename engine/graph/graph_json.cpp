#include "graph/graph_json.h"

#include "core/errors.h"
#include "core/document_version.h"
#include "graph/node_definition.h"
#include "graph/operator_registry.h"
#include "graph/param_json.h"

namespace tressora {

namespace {

using nlohmann::json;

// The JSON library's own "key not found" failure, for required keys.
const json& required(const json& object, const char* key) { return object.at(key); }

std::unique_ptr<Operator> createNode(const std::string& type, const OperatorRegistry& registry,
                                     const NodeTypeResolver& resolver) {
    if (type.rfind("node:", 0) == 0 && resolver) {
        if (auto op = resolver(type)) {
            declareParams(*op);
            return op;
        }
    }
    return registry.create(type);
}

void readParamControls(Graph& graph, NodeId id, const std::string& name, const json& controls) {
    if (!controls.is_object()) throw GraphError("node '" + name + "': paramControls must map params to controls");
    for (const auto& [param, value] : controls.items()) {
        std::vector<std::string> names;
        if (value.is_string()) {
            names.push_back(value.get<std::string>());
        } else if (value.is_array() && value.size() == 3 && value[0].is_string() && value[1].is_string() &&
                   value[2].is_string()) {
            for (const json& v : value) names.push_back(v.get<std::string>());
        } else {
            throw GraphError("node '" + name + "': param '" + param + "' must name its control (or three for a vector)");
        }
        graph.setParamControls(id, param, std::move(names));
    }
}

void readVersion(Operator& op, const std::string& name, const json& version) {
    const bool whole = version.is_number_integer() && !(version.is_number_unsigned() &&
                                                        version.get<std::uint64_t>() > 0x7fffffffull);
    if (!whole || version.get<std::int64_t>() < 1 || version.get<std::int64_t>() > 0x7fffffff)
        throw GraphError("node '" + name + "': version " + version.dump() + " is not a whole number from 1");
    const int v = static_cast<int>(version.get<std::int64_t>());
    if (v > op.version())
        throw GraphError("node '" + name + "' is a " + op.type() + " of version " + std::to_string(v) +
                         ", newer than this Tressora's (" + std::to_string(op.version()) +
                         "); update Tressora to open it");
    op.savedVersion = v;
}

void readNode(Graph& graph, const json& object, const OperatorRegistry& registry, const NodeTypeResolver& resolver) {
    const std::string name = required(object, "name").get<std::string>();
    const std::string type = required(object, "type").get<std::string>();
    if (graph.findNode(name)) throw GraphError("duplicate node name '" + name + "'");
    std::unique_ptr<Operator> op = createNode(type, registry, resolver);

    if (const auto it = object.find("definition"); it != object.end()) {
        if (auto* holder = dynamic_cast<NodeDefinition*>(op.get())) {
            holder->readDefinition(*it);
            declareParams(*op);
        }
    }
    if (const auto it = object.find("params"); it != object.end()) {
        if (!it->is_object()) throw GraphError("node '" + name + "': params must be an object");
        const std::vector<ParamSpec> specs = allParams(*op);
        for (const auto& [param, value] : it->items()) {
            const ParamSpec* spec = nullptr;
            for (const ParamSpec& s : specs)
                if (s.name == param) spec = &s;
            // Params the type does not declare are kept: a newer file's settings survive a
            // round trip through this version (the evaluation notes them).
            ParamValue read = paramFromJson(value, spec, param);
            if (spec) {
                try {
                    read = checkParam(std::move(read), *spec);
                } catch (const GraphError& e) {
                    throw GraphError("node '" + name + "': " + e.what());
                }
            }
            op->paramValues.set(param, std::move(read));
        }
    }
    if (const auto it = object.find("version"); it != object.end()) readVersion(*op, name, *it);

    const NodeId id = graph.addNode(std::move(op), name);
    if (const auto it = object.find("paramInputs"); it != object.end()) {
        if (!it->is_array()) throw GraphError("node '" + name + "': paramInputs must be a list of params");
        std::vector<std::string> params;
        for (const json& p : *it) {
            if (!p.is_string()) throw GraphError("node '" + name + "': paramInputs must be a list of params");
            params.push_back(p.get<std::string>());
        }
        graph.setParamInputs(id, std::move(params));
    }
    if (const auto it = object.find("paramControls"); it != object.end()) readParamControls(graph, id, name, *it);
    if (const auto it = object.find("bypass"); it != object.end()) {
        if (!it->is_boolean()) throw GraphError("node '" + name + "': bypass must be true or false");
        graph.setBypass(id, it->get<bool>());
    }
    if (const auto it = object.find("evaluation"); it != object.end()) {
        if (!it->is_string()) throw GraphError("node '" + name + "': evaluation is always, viewportOnly or renderOnly");
        graph.setEvaluation(id, parseEvaluation(it->get<std::string>()));
    }
    if (const auto it = object.find("ui"); it != object.end()) {
        if (!it->is_object() || !it->value("x", json()).is_number() || !it->value("y", json()).is_number())
            throw GraphError("node '" + name + "': ui must hold numbers x and y");
        graph.node(id).ui = NodeUi{(*it)["x"].get<double>(), (*it)["y"].get<double>()};
    }
}

void readConnection(Graph& graph, const json& object) {
    const NodeId from = graph.nodeByName(required(object, "from").get<std::string>());
    const NodeId to = graph.nodeByName(required(object, "to").get<std::string>());
    const unsigned input = graph.inputIndex(to, required(object, "input").get<std::string>());
    unsigned output = 0;
    if (const auto it = object.find("output"); it != object.end()) output = graph.outputIndex(from, it->get<std::string>());
    graph.connect(from, output, to, input);
}

}  // namespace

json graphToJson(const Graph& graph) {
    json nodes = json::array();
    json connections = json::array();
    for (const auto& [id, n] : graph.nodes()) {
        json node;
        node["name"] = graph.nodeName(id);
        node["type"] = n.op->type();
        node["version"] = n.op->savedVersion > 0 ? n.op->savedVersion : n.op->version();
        json params = json::object();
        for (const auto& [param, value] : n.op->paramValues.values()) params[param] = paramToJson(value);
        node["params"] = std::move(params);
        if (const auto* holder = dynamic_cast<const NodeDefinition*>(n.op.get()))
            node["definition"] = holder->writeDefinition();
        if (!n.paramInputs.empty()) node["paramInputs"] = n.paramInputs;
        if (!n.paramControls.empty()) {
            json controls = json::object();
            for (const auto& [param, names] : n.paramControls)
                controls[param] = names.size() == 1 ? json(names[0]) : json(names);
            node["paramControls"] = std::move(controls);
        }
        if (n.bypass) node["bypass"] = true;
        if (n.evaluation != Evaluation::Always) node["evaluation"] = evaluationName(n.evaluation);
        if (n.ui) node["ui"] = {{"x", n.ui->x}, {"y", n.ui->y}};
        nodes.push_back(std::move(node));

        const std::vector<Port> slots = graph.effectiveInputs(id);
        for (std::size_t slot = 0; slot < n.inputSources.size() && slot < slots.size(); ++slot) {
            const NodeId from = n.inputSources[slot];
            if (!from) continue;
            json c;
            c["from"] = graph.nodeName(from);
            c["to"] = graph.nodeName(id);
            c["input"] = slots[slot].name;
            const std::vector<Port> outs = graph.op(from).outputs();
            if (outs.size() > 1 && n.inputOutputs[slot] < outs.size()) c["output"] = outs[n.inputOutputs[slot]].name;
            connections.push_back(std::move(c));
        }
    }
    json out;
    out["version"] = kGraphVersion;
    out["nodes"] = std::move(nodes);
    out["connections"] = std::move(connections);
    out["output"] = graph.outputNode() ? json(graph.nodeName(graph.outputNode())) : json("");
    if (graph.backdrops().is_array() && !graph.backdrops().empty()) out["backdrops"] = graph.backdrops();
    return out;
}

std::unique_ptr<Graph> graphFromJson(const json& document, const OperatorRegistry& registry,
                                     const NodeTypeResolver& resolver) {
    if (!document.is_object()) throw GraphError("graph JSON must be an object");
    checkDocumentVersion(document, "graph", kGraphVersion);
    auto graph = std::make_unique<Graph>(registry);
    const json& nodes = required(document, "nodes");
    if (!nodes.is_array()) throw GraphError("graph JSON: nodes must be a list");
    for (const json& node : nodes) {
        if (!node.is_object()) throw GraphError("graph JSON: each node must be an object");
        readNode(*graph, node, registry, resolver);
    }
    if (const auto it = document.find("backdrops"); it != document.end()) graph->setBackdrops(*it);
    if (const auto it = document.find("connections"); it != document.end()) {
        if (!it->is_array()) throw GraphError("graph JSON: connections must be a list");
        for (const json& c : *it) {
            if (!c.is_object()) throw GraphError("graph JSON: each connection must be an object");
            readConnection(*graph, c);
        }
    }
    const auto output = document.find("output");
    const NodeId result = output != document.end() && output->is_string() ? graph->findNode(output->get<std::string>()) : 0;
    if (!result) throw GraphError("graph JSON has no 'output' node");
    graph->setOutputNode(result);
    return graph;
}

const std::string& defaultGraphText() {
    static const std::string text = R"({"version":1,"output":"output","nodes":[
{"name":"scalp","type":"Scalp"},
{"name":"guides","type":"Guides"},
{"name":"scatter","type":"Scatter"},
{"name":"interpolate","type":"Interpolate"},
{"name":"length","type":"Length","params":{"fraction":1.0,"trimMin":0.0,"trimMax":0.2}},
{"name":"noise","type":"Noise"},
{"name":"color","type":"HairColor"},
{"name":"width","type":"Width"},
{"name":"resample","type":"Resample"},
{"name":"output","type":"Output"}],
"connections":[
{"from":"scalp","to":"scatter","input":"scalp"},
{"from":"scatter","to":"interpolate","input":"strands"},
{"from":"guides","to":"interpolate","input":"guides"},
{"from":"scalp","to":"interpolate","input":"scalp"},
{"from":"interpolate","to":"length","input":"strands"},
{"from":"length","to":"noise","input":"strands"},
{"from":"noise","to":"color","input":"strands"},
{"from":"color","to":"width","input":"strands"},
{"from":"width","to":"resample","input":"strands"},
{"from":"resample","to":"output","input":"strands"}]})";
    return text;
}

std::unique_ptr<Graph> defaultGraph(const OperatorRegistry& registry) {
    return graphFromJson(parseDocument(defaultGraphText(), "graph"), registry);
}

}  // namespace tressora
