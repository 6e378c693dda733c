#include "library/node_file.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "core/errors.h"
#include "core/json_depth.h"
#include "expression/script.h"
#include "expression/script_names.h"
#include "graph/operator.h"
#include "graph/operator_registry.h"
#include "graph/param_json.h"
#include "graph/port.h"

namespace tressora {
namespace {

using nlohmann::json;

[[noreturn]] void fail(const std::string& message) { throw GraphError(message); }

bool isWholeFrom1(const json& v) {
    if (v.is_number_unsigned()) return v.get<std::uint64_t>() >= 1 && v.get<std::uint64_t>() <= 0x7fffffffu;
    if (v.is_number_integer()) return v.get<std::int64_t>() >= 1 && v.get<std::int64_t>() <= 0x7fffffff;
    if (v.is_number_float()) {
        const double d = v.get<double>();
        return std::isfinite(d) && d >= 1.0 && d <= 2147483647.0 && std::floor(d) == d;
    }
    return false;
}

bool isWord(const std::string& s) {
    if (s.empty()) return false;
    return std::all_of(s.begin(), s.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    });
}

bool isFiniteNumber(const json& v) { return v.is_number() && std::isfinite(v.get<double>()); }

std::string text(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

/// Optional text members of the header: when present they must be text.
void checkTextMember(const json& doc, const char* key) {
    const auto it = doc.find(key);
    if (it != doc.end() && !it->is_string()) fail(std::string("\"") + key + "\" must be text");
}

struct PortDecl {
    std::string name;
    std::string type;
};

std::vector<PortDecl> readInputs(json& doc) {
    if (!doc.contains("inputs")) doc["inputs"] = json::array({{{"name", "strands"}, {"type", "Strands"}}});
    const json& list = doc["inputs"];
    if (!list.is_array()) fail("\"inputs\" must be a list of {\"name\", \"type\", \"optional\"}");
    std::vector<PortDecl> ports;
    for (const json& in : list) {
        if (!in.is_object() || !in.contains("name") || !in["name"].is_string())
            fail("\"inputs\" must be a list of {\"name\", \"type\", \"optional\"}");
        PortDecl p{in["name"].get<std::string>(), text(in, "type")};
        if (p.type.empty()) p.type = "Strands";
        if (!isWord(p.name)) fail("inputs: '" + p.name + "' must be a word of letters, digits and _");
        for (const PortDecl& q : ports)
            if (q.name == p.name) fail("inputs: two are named '" + p.name + "'");
        if (const auto opt = in.find("optional"); opt != in.end() && !opt->is_boolean())
            fail("inputs: '" + p.name + "': \"optional\" must be true or false");
        ports.push_back(std::move(p));
    }
    return ports;
}

/// The output object; fills in the default. Returns its type.
PortDecl readOutput(json& doc) {
    if (!doc.contains("output")) doc["output"] = {{"name", "strands"}, {"type", "Strands"}};
    const json& out = doc["output"];
    if (!out.is_object()) fail("\"output\" must be an object ({\"name\", \"type\"})");
    PortDecl p{text(out, "name"), text(out, "type")};
    if (p.name.empty()) p.name = "strands";
    if (p.type.empty()) p.type = "Strands";
    return p;
}

std::string fitWhat(const std::string& type) {
    if (type == "int") return "a whole number";
    if (type == "bool") return "true or false";
    if (type == "enum") return "one of the choices";
    if (type == "color") return "a color [r, g, b]";
    if (type == "ramp") return "a ramp ([[position, value], ...])";
    return "a number";
}

bool defaultFits(const std::string& type, const json& value, const json& param) {
    if (type == "number" || type == "length") return isFiniteNumber(value);
    if (type == "int") return isFiniteNumber(value) && std::floor(value.get<double>()) == value.get<double>() &&
                              std::fabs(value.get<double>()) <= 9.0e15;
    if (type == "bool") return value.is_boolean();
    if (type == "enum") {
        if (!value.is_string()) return false;
        const json& choices = param["choices"];
        return std::find(choices.begin(), choices.end(), value) != choices.end();
    }
    if (type == "color")
        return value.is_array() && value.size() == 3 && std::all_of(value.begin(), value.end(), isFiniteNumber);
    if (type == "ramp") {
        ParamSpec spec;
        spec.defaultValue = Ramp{};
        try {
            (void)paramFromJson(value, &spec, param.value("name", ""));
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }
    return false;
}

json typeDefault(const std::string& type, const json& param) {
    if (type == "int") return 0;
    if (type == "bool") return false;
    if (type == "enum") return param["choices"].empty() ? json("") : param["choices"][0];
    if (type == "color") return json::array({1.0, 1.0, 1.0});
    if (type == "ramp") return json::array({json::array({0.0, 0.0}), json::array({1.0, 1.0})});
    return 0.0;
}

/// The rules every header shares: a list of objects, each named by a free word, once.
void checkSharedParams(const json& params, const std::vector<PortDecl>& inputs) {
    if (!params.is_array()) fail("\"params\" must be a list");
    std::set<std::string> seen;
    for (std::size_t i = 0; i < params.size(); ++i) {
        const json& p = params[i];
        const std::string at = "params[" + std::to_string(i) + "]";
        if (!p.is_object()) fail(at + " must be an object");
        const std::string name = text(p, "name");
        if (!isWord(name)) {
            const std::string shown = p.contains("name") ? (p["name"].is_string() ? name : p["name"].dump()) : "";
            fail(at + ": \"name\" must be a word of letters, digits and _ ('" + shown + "')");
        }
        if (!seen.insert(name).second) fail("two params are named '" + name + "'");
        if (const auto m = p.find("mappable"); m != p.end() && !m->is_boolean())
            fail("\"mappable\" must be true or false");
        const bool taken = name == "affect" || std::any_of(inputs.begin(), inputs.end(),
                                                           [&](const PortDecl& in) { return in.name == name; });
        if (taken) fail("the name '" + name + "' is taken (by the node itself or an input)");
        for (const char* key : {"label", "description", "unit"}) {
            if (const auto it = p.find(key); it != p.end() && !it->is_string())
                fail(at + ": \"" + key + "\" must be text");
        }
    }
}

void checkScriptParam(json& p, std::size_t i) {
    const std::string at = "params[" + std::to_string(i) + "]";
    const std::string name = p["name"].get<std::string>();
    if (isScriptInputName(name))
        fail(at + ": '" + name + "' is a name scripts read already (a built-in input): name the param otherwise");
    if (isScriptFunctionName(name))
        fail(at + ": '" + name + "' is a script function's name: name the param otherwise");
    if (!p.contains("type")) p["type"] = "number";
    const std::string type = p["type"].is_string() ? p["type"].get<std::string>() : p["type"].dump();
    if (!scriptParamType(type))
        fail(at + ": \"type\" '" + type + "' is none of number, length, int, bool, enum, color, ramp");
    const bool ranged = type == "number" || type == "length" || type == "int";
    for (const char* key : {"min", "max", "softMin", "softMax"}) {
        if (!p.contains(key)) continue;
        if (!ranged) fail("only number, length and int params have ranges");
        if (!isFiniteNumber(p[key])) fail(at + ": \"" + key + "\" must be a number");
    }
    if (p.contains("min") && p.contains("max") && p["min"].get<double>() > p["max"].get<double>())
        fail(at + ": \"min\" is above \"max\"");
    if (p.value("mappable", false) && type != "number" && type != "length")
        fail("only number and length params are mappable");
    if (p.contains("unit") && type != "number") fail("only a number param takes a \"unit\" (a length's is length)");
    if (type == "enum") {
        const auto c = p.find("choices");
        if (c == p.end() || !c->is_array() || c->empty()) fail("an enum param needs \"choices\" (a list of text)");
        std::set<std::string> seen;
        for (const json& choice : *c) {
            if (!choice.is_string()) fail("\"choices\" are text");
            if (!seen.insert(choice.get<std::string>()).second)
                fail("\"choices\" lists '" + choice.get<std::string>() + "' twice");
        }
    } else if (p.contains("choices")) {
        fail(at + ": only an enum param has \"choices\"");
    }
    if (!p.contains("default")) p["default"] = typeDefault(type, p);
    if (!defaultFits(type, p["default"], p))
        fail(at + ": \"default\" " + p["default"].dump() + " does not fit " + fitWhat(type));
}

void checkScriptFile(json& doc) {
    const std::vector<PortDecl> inputs = readInputs(doc);
    if (inputs.empty() || inputs[0].type != "Strands")
        fail("inputs: a script node takes strands first ({\"name\": \"strands\", \"type\": \"Strands\"})");
    for (std::size_t i = 1; i < inputs.size(); ++i) {
        if (i > 1 || inputs[i].type != "Guides")
            fail("inputs: '" + inputs[i].name + "': a script node takes strands, then guides (for guidePoint) at most");
    }
    const PortDecl output = readOutput(doc);
    if (output.type != "Strands") fail("\"output\": a script node gives Strands, not " + output.type);

    if (!doc.contains("writes")) doc["writes"] = json::array({"P"});
    const json& writes = doc["writes"];
    if (!writes.is_array()) fail("\"writes\" must be a list: \"P\", \"width\", \"color\", \"channel.name\"");
    std::set<std::string> written;
    for (const json& w : writes) {
        const std::string x = w.is_string() ? w.get<std::string>() : w.dump();
        const bool ok = w.is_string() && (x == "P" || x == "width" || x == "color" ||
                                          (x.rfind("channel.", 0) == 0 && isWord(x.substr(8))));
        if (!ok)
            fail("writes: '" + x +
                 "' is none of \"P\", \"width\", \"color\", \"channel.name\" (a channel's name: letters, digits and _)");
        if (!written.insert(x).second) fail("writes: '" + x + "' is listed twice");
    }
    if (!doc.contains("script") || !doc["script"].is_string())
        fail("the node file needs a \"script\" (text): per point { ... }");

    if (!doc.contains("params")) doc["params"] = json::array();
    checkSharedParams(doc["params"], inputs);
    json& params = doc["params"];
    for (std::size_t i = 0; i < params.size(); ++i) checkScriptParam(params[i], i);
}

/// The inner node a compound's param drives, or a fault.
const json* innerNode(const json& nodes, const std::string& name) {
    for (const json& n : nodes)
        if (n.is_object() && text(n, "name") == name) return &n;
    return nullptr;
}

std::string kindWhat(ParamKind kind) {
    switch (kind) {
    case ParamKind::Bool: return "true or false";
    case ParamKind::Int: return "a whole number";
    case ParamKind::Float: return "a number";
    case ParamKind::String: return "text";
    case ParamKind::Vec3: return "a color [r, g, b]";
    case ParamKind::Ramp: return "a ramp ([[position, value], ...])";
    case ParamKind::Map: return "a map";
    }
    return "a number";
}

void checkCompoundFile(json& doc, const OperatorRegistry* registry) {
    const std::vector<PortDecl> inputs = readInputs(doc);
    const PortDecl output = readOutput(doc);
    (void)parsePortType(output.type);
    const json& graph = doc["graph"];
    if (!graph.is_object()) fail("the node file needs a \"graph\" (an object)");
    const auto nodesIt = graph.find("nodes");
    if (nodesIt == graph.end() || !nodesIt->is_array()) fail("graph: needs \"nodes\" (a list)");
    const json& nodes = *nodesIt;
    for (const json& n : nodes) {
        if (!n.is_object() || text(n, "type") != "Input") continue;
        const json params = n.value("params", json::object());
        std::string stands = params.is_object() ? text(params, "input") : "";
        if (stands.empty()) stands = text(n, "name");
        if (std::none_of(inputs.begin(), inputs.end(), [&](const PortDecl& in) { return in.name == stands; }))
            fail("graph: Input node '" + text(n, "name") + "' stands for input '" + stands +
                 "', which \"inputs\" does not list");
    }
    if (!doc.contains("params")) doc["params"] = json::array();
    checkSharedParams(doc["params"], inputs);
    const json& params = doc["params"];
    for (std::size_t i = 0; i < params.size(); ++i) {
        const json& p = params[i];
        const std::string at = "params[" + std::to_string(i) + "]";
        const std::string target = text(p, "target");
        const std::size_t dot = target.find('.');
        if (p.contains("repeat") && !p.contains("target")) continue;  // a repeat names its own targets
        if (dot == std::string::npos || dot == 0 || dot + 1 == target.size())
            fail("\"target\" must name an inner node's param as node.param ('" + target + "')");
        const std::string nodeName = target.substr(0, dot);
        const std::string paramName = target.substr(dot + 1);
        const json* node = innerNode(nodes, nodeName);
        if (!node) fail("the graph has no node '" + nodeName + "'");
        if (!registry) continue;
        std::unique_ptr<Operator> op;
        try {
            op = registry->create(text(*node, "type"));
        } catch (const std::exception&) {
            continue;  // a type this build lacks: evaluating the compound reports it
        }
        if (!op) continue;
        const std::optional<ParamSpec> spec = findParam(*op, paramName);
        if (!spec) fail(at + ": node '" + nodeName + "' has no param '" + paramName + "'");
        if (p.contains("default")) {
            try {
                (void)paramFromJson(p["default"], &*spec, paramName);
            } catch (const std::exception&) {
                fail(at + ": \"default\" " + p["default"].dump() + " does not fit " + kindWhat(spec->kind()));
            }
        }
    }
    if (registry) {
        const std::string outName = text(graph, "output");
        const json* outNode = outName.empty() ? nullptr : innerNode(nodes, outName);
        std::unique_ptr<Operator> op;
        if (outNode) {
            try {
                op = registry->create(text(*outNode, "type"));
            } catch (const std::exception&) {
                op.reset();  // a type this build lacks
            }
        }
        if (op) {
            // A node whose output is Curves gives whichever kind of curves it takes in.
            const PortType gives = op->output().type;
            const PortType declared = parsePortType(output.type);
            const bool fits = gives == declared || (gives == PortType::Curves && (declared == PortType::Strands ||
                                                                                   declared == PortType::Guides));
            if (!fits)
                fail("\"output\" says " + output.type + " but the graph's output node gives " +
                     std::string(portTypeName(gives)));
        }
    }
}

/// Writes an object's members in the given order, then any others in the order they come.
nlohmann::ordered_json ordered(const json& object, std::initializer_list<const char*> order) {
    nlohmann::ordered_json out = nlohmann::ordered_json::object();
    for (const char* key : order)
        if (const auto it = object.find(key); it != object.end()) out[key] = nlohmann::ordered_json::parse(it->dump());
    for (const auto& [key, value] : object.items())
        if (!out.contains(key)) out[key] = nlohmann::ordered_json::parse(value.dump());
    return out;
}

}  // namespace

std::string_view nodeFileKindName(NodeFileKind kind) { return kind == NodeFileKind::Script ? "script" : "compound"; }

void checkNodeId(const std::string& id) {
    if (id.empty()) fail("a node needs an id (like \"yourname.soft_frizz\")");
    if (id.front() == '.' || id.back() == '.' || id.find("..") != std::string::npos)
        fail("the id '" + id + "' has an empty part between dots");
    for (char c : id) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
        if (!ok) fail("the id '" + id + "' may hold only a-z, 0-9, _ and - between dots");
    }
    if (id.find('.') == std::string::npos)
        fail("the id '" + id + "' needs two parts or more joined by dots (like \"yourname.soft_frizz\")");
}

NodeFile checkNodeFile(const json& document, const OperatorRegistry* registry) {
    if (!document.is_object()) fail("the node file is not a JSON object");
    json doc = document;
    const auto format = doc.find("tsnode");
    if (format == doc.end()) fail("not a node file: it has no \"tsnode\" format number");
    if (!isWholeFrom1(*format)) fail("\"tsnode\" must be a whole number from 1");
    const int n = static_cast<int>(format->get<double>());
    if (n > kNodeFileFormat)
        fail("the node file is of format " + std::to_string(n) + ", newer than this Tressora reads (" +
             std::to_string(kNodeFileFormat) + "): update Tressora to use it");
    doc["tsnode"] = n;
    if (!doc.contains("id") || !doc["id"].is_string()) fail("the node file needs an \"id\" (text)");
    NodeFile file;
    file.id = doc["id"].get<std::string>();
    checkNodeId(file.id);
    if (doc.contains("version")) {
        if (!isWholeFrom1(doc["version"])) fail("\"version\" must be a whole number from 1");
        file.version = static_cast<int>(doc["version"].get<double>());
    }
    doc["version"] = file.version;
    file.label = text(doc, "label");
    if (file.label.empty()) fail("the node file needs a \"label\" (the name the menus show)");
    for (const char* key : {"category", "description", "author", "license", "icon"}) checkTextMember(doc, key);
    if (doc.contains("size") && !(isFiniteNumber(doc["size"]) && doc["size"].get<double>() > 0.0))
        fail("\"size\" must be above 0");
    const bool hasGraph = doc.contains("graph");
    const bool hasScript = doc.contains("script");
    if (hasGraph && hasScript)
        fail("a node file holds a \"graph\" (a compound node) or a \"script\" (a script node), not both");
    if (!hasGraph && !hasScript) fail("the node file needs a \"graph\" (an object)");
    file.category = text(doc, "category");
    file.description = text(doc, "description");
    file.author = text(doc, "author");
    file.license = text(doc, "license");
    if (hasScript) {
        file.kind = NodeFileKind::Script;
        checkScriptFile(doc);
    } else {
        file.kind = NodeFileKind::Compound;
        checkCompoundFile(doc, registry);
    }
    file.document = std::move(doc);
    return file;
}

NodeFile parseNodeFile(std::string_view textIn, const OperatorRegistry* registry) {
    if (!jsonDepthWithin(textIn)) fail(jsonTooDeepText("node file"));
    json doc = json::parse(textIn, nullptr, false);
    if (doc.is_discarded()) fail("the node file is not valid JSON");
    return checkNodeFile(doc, registry);
}

std::string nodeFileText(const NodeFile& file) {
    const json& doc = file.document;
    nlohmann::ordered_json out = ordered(doc, {"tsnode", "id", "version", "label", "category", "description", "author",
                                               "license", "icon", "size", "inputs", "output", "params", "writes",
                                               "script", "graph"});
    if (doc.contains("params") && doc["params"].is_array()) {
        nlohmann::ordered_json params = nlohmann::ordered_json::array();
        for (const json& p : doc["params"])
            params.push_back(ordered(p, {"name", "type", "label", "description", "default", "min", "max", "softMin",
                                         "softMax", "unit", "mappable", "choices", "target", "repeat"}));
        out["params"] = std::move(params);
    }
    return out.dump(2) + "\n";
}

std::string validateNodeFileText(std::string_view textIn, const OperatorRegistry* registry) {
    return nodeFileText(parseNodeFile(textIn, registry));
}

const json& defaultScriptNodeFile() {
    static const json file = {
        {"tsnode", 1},
        {"id", "mynodes.my_script"},
        {"version", 1},
        {"label", "My Script"},
        {"category", "shape"},
        {"description", "Pushes each strand out from the scalp, more toward the tip."},
        {"size", 20.0},
        {"inputs", json::array({{{"name", "strands"}, {"type", "Strands"}}})},
        {"output", {{"name", "strands"}, {"type", "Strands"}}},
        {"params", json::array({{{"name", "amount"},
                                 {"type", "length"},
                                 {"label", "Amount"},
                                 {"default", 0.5},
                                 {"softMax", 2.0},
                                 {"mappable", true},
                                 {"description", "How far the tips move out"}}})},
        {"writes", json::array({"P"})},
        {"script",
         "# Runs for every point of every strand, root to tip.\n"
         "# P is the point, t goes 0 (root) to 1 (tip), N is the scalp's normal at the root,\n"
         "# $amount is the node's param. Only what \"writes\" lists may be assigned.\n"
         "per point {\n"
         "    P += N * $amount * t * t;\n"
         "}\n"},
    };
    return file;
}

std::vector<ParamSpec> scriptHeaderParams(const json& params) {
    std::vector<ParamSpec> specs;
    if (!params.is_array()) return specs;
    for (const json& p : params) {
        ParamSpec s;
        s.name = text(p, "name");
        const std::string type = p.value("type", "number");
        const json def = p.contains("default") ? p["default"] : typeDefault(type, p);
        s.description = text(p, "description");
        if (s.description.empty()) s.description = text(p, "label");
        if (type == "int") {
            s.defaultValue = static_cast<std::int64_t>(def.get<double>());
        } else if (type == "bool") {
            s.defaultValue = def.get<bool>();
        } else if (type == "enum") {
            s.defaultValue = def.get<std::string>();
            for (const json& c : p["choices"]) s.choices.push_back(c.get<std::string>());
        } else if (type == "color") {
            s.defaultValue = Vec3f{def[0].get<float>(), def[1].get<float>(), def[2].get<float>()};
            s.unit = "color";
        } else if (type == "ramp") {
            ParamSpec rampSpec;
            rampSpec.defaultValue = Ramp{};
            s.defaultValue = paramFromJson(def, &rampSpec, s.name);
        } else {
            s.defaultValue = def.get<double>();
            s.unit = type == "length" ? "length" : text(p, "unit");
            if (p.value("mappable", false)) s.description += " (mappable)";
        }
        const auto number = [&](const char* key) -> std::optional<double> {
            const auto it = p.find(key);
            return it != p.end() && it->is_number() ? std::optional<double>(it->get<double>()) : std::nullopt;
        };
        s.softMin = number("softMin") ? number("softMin") : number("min");
        s.softMax = number("softMax") ? number("softMax") : number("max");
        specs.push_back(std::move(s));
    }
    return specs;
}

}  // namespace tressora
