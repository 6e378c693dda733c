// Node files: every fault the checker reports, in the order it looks for them, the headers it
// lets through, and the canonical text a checked file is written back as.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "expression/script.h"
#include "graph/operator_registry.h"
#include "library/node_file.h"

namespace tressora {
namespace {

using nlohmann::json;

const char* const kScript = R"({"tsnode": 1, "id": "me.bend", "label": "Bend",
    "script": "per point { P += N * t; }"})";
const char* const kCompound = R"({"tsnode": 1, "id": "me.fuzz", "label": "Fuzz",
    "graph": {"nodes": [{"name": "n", "type": "Noise"}, {"name": "s", "type": "Script"}], "output": "s"},
    "params": [{"name": "amp", "target": "n.amplitude"}]})";

struct Case {
    std::string patch;  // merged into the base file; a null member removes it
    std::string expected;
};

/// A patch giving the file one param with these members.
std::string param(const std::string& members) { return R"({"params": [{"name": "a", )" + members + "}]}"; }

void expectVerdicts(const char* base, const std::vector<Case>& cases, const OperatorRegistry* registry = nullptr) {
    for (const Case& c : cases) {
        json doc = json::parse(base);
        doc.merge_patch(json::parse(c.patch));
        std::string verdict = "passes";
        try {
            (void)checkNodeFile(doc, registry);
        } catch (const GraphError& e) {
            verdict = e.what();
        }
        EXPECT_EQ(verdict, c.expected) << c.patch;
    }
}

TEST(NodeFileCheck, TextThatIsNoJsonObject) {
    for (const auto& [text, message] : {std::pair{"{\"tsnode\": 1,", "the node file is not valid JSON"},
                                        std::pair{"", "the node file is not valid JSON"},
                                        std::pair{"[1, 2]", "the node file is not a JSON object"}}) {
        try {
            (void)parseNodeFile(text);
            ADD_FAILURE() << "passed: " << text;
        } catch (const GraphError& e) {
            EXPECT_STREQ(e.what(), message) << text;
        }
    }
}

TEST(NodeFileCheck, HeaderFaultsFirstOneWins) {
    const std::string whole = "must be a whole number from 1", newer =
        "the node file is of format 2, newer than this Tressora reads (1): update Tressora to use it";
    const std::string emptyPart = "' has an empty part between dots", chars =
        "' may hold only a-z, 0-9, _ and - between dots";
    const std::string label = R"(the node file needs a "label" (the name the menus show))";
    expectVerdicts(kScript, {
        {R"({"tsnode": null})", R"(not a node file: it has no "tsnode" format number)"},
        {R"({"tsnode": 0})", "\"tsnode\" " + whole},
        {R"({"tsnode": 1.5})", "\"tsnode\" " + whole},
        {R"({"tsnode": "1"})", "\"tsnode\" " + whole},
        {R"({"tsnode": 2})", newer},
        {R"({"tsnode": 2, "id": ""})", newer},
        {R"({"id": null})", R"(the node file needs an "id" (text))"},
        {R"({"id": ""})", R"(a node needs an id (like "yourname.soft_frizz"))"},
        {R"({"id": ".a"})", "the id '.a" + emptyPart},
        {R"({"id": "a."})", "the id 'a." + emptyPart},
        {R"({"id": "a..b"})", "the id 'a..b" + emptyPart},
        {R"({"id": "Me.x"})", "the id 'Me.x" + chars},
        {R"({"id": "a.b c"})", "the id 'a.b c" + chars},
        {R"({"id": "solo", "version": 0})",
         R"(the id 'solo' needs two parts or more joined by dots (like "yourname.soft_frizz"))"},
        {R"({"id": "my-name.soft_frizz2.v2"})", "passes"},
        {R"({"version": 0})", "\"version\" " + whole},
        {R"({"version": 1.5, "label": ""})", "\"version\" " + whole},
        {R"({"label": null})", label},
        {R"({"label": "", "size": 0})", label},
        {R"({"size": 0})", R"("size" must be above 0)"},
        {R"({"size": -1, "graph": {"nodes": []}})", R"("size" must be above 0)"},
        {R"({"graph": {"nodes": []}})",
         R"(a node file holds a "graph" (a compound node) or a "script" (a script node), not both)"},
        {R"({"script": null})", R"(the node file needs a "graph" (an object))"},
    });
}

TEST(NodeFileCheck, ScriptHeaderFaultsAndWellFormedHeaders) {
    const std::string second = "': a script node takes strands, then guides (for guidePoint) at most";
    const std::string writes = R"(' is none of "P", "width", "color", "channel.name" (a channel's name: letters, )"
                               "digits and _)";
    expectVerdicts(kScript, {
        {R"({"params": {"a": 1}})", R"("params" must be a list)"},
        {R"({"params": [3]})", "params[0] must be an object"},
        {R"({"params": [{"name": "2 x"}]})", R"(params[0]: "name" must be a word of letters, digits and _ ('2 x'))"},
        {R"({"params": [{"name": "a"}, {"name": ""}]})",
         R"(params[1]: "name" must be a word of letters, digits and _ (''))"},
        {R"({"params": [{"name": "a"}, {"name": "a"}]})", "two params are named 'a'"},
        {param(R"("mappable": "yes")"), R"("mappable" must be true or false)"},
        {R"({"params": [{"name": "strands"}]})", "the name 'strands' is taken (by the node itself or an input)"},
        {R"({"inputs": [{"name": "strands"}, {"name": "strands", "type": "Guides"}]})",
         "inputs: two are named 'strands'"},
        {R"({"inputs": [{"name": "g", "type": "Guides"}]})",
         R"(inputs: a script node takes strands first ({"name": "strands", "type": "Strands"}))"},
        {R"({"inputs": [{"name": "strands"}, {"name": "more", "type": "Strands"}]})", "inputs: 'more" + second},
        {R"({"inputs": [{"name": "strands"}, {"name": "g", "type": "Guides"}, {"name": "h", "type": "Guides"}]})",
         "inputs: 'h" + second},
        {R"({"output": 3})", R"("output" must be an object ({"name", "type"}))"},
        {R"({"output": {"name": "g", "type": "Guides"}})", R"("output": a script node gives Strands, not Guides)"},
        {R"({"writes": "P"})", R"("writes" must be a list: "P", "width", "color", "channel.name")"},
        {R"({"writes": ["N"]})", "writes: 'N" + writes},
        {R"({"writes": ["channel.a b"]})", "writes: 'channel.a b" + writes},
        {R"({"writes": ["P", "P"]})", "writes: 'P' is listed twice"},
        {R"({"script": 5})", R"(the node file needs a "script" (text): per point { ... })"},
        {R"({"inputs": [{"name": "strands", "type": "Strands"}, {"name": "guides", "type": "Guides"}]})", "passes"},
        {R"({"writes": ["width", "color", "channel.mass", "P"]})", "passes"},
    });
}

TEST(NodeFileCheck, ScriptParamFaultsAndWellFormedParams) {
    const std::string at = "params[0]: ", fit = R"(params[0]: "default" )";
    expectVerdicts(kScript, {
        {R"({"params": [{"name": "t"}]})",
         at + "'t' is a name scripts read already (a built-in input): name the param otherwise"},
        {R"({"params": [{"name": "strandPoint"}]})",
         at + "'strandPoint' is a script function's name: name the param otherwise"},
        {param(R"("min": 2, "max": 1)"), at + R"("min" is above "max")"},
        {param(R"("type": "int", "mappable": true)"), "only number and length params are mappable"},
        {param(R"("type": "bool", "min": 0)"), "only number, length and int params have ranges"},
        {param(R"("type": "length", "unit": "cm")"), R"(only a number param takes a "unit" (a length's is length))"},
        {param(R"("type": "enum")"), R"(an enum param needs "choices" (a list of text))"},
        {param(R"("type": "enum", "choices": [1])"), R"("choices" are text)"},
        {param(R"("type": "enum", "choices": ["a", "a"])"), R"("choices" lists 'a' twice)"},
        {param(R"("type": "vector")"),
         at + R"("type" 'vector' is none of number, length, int, bool, enum, color, ramp)"},
        {param(R"("default": "x")"), fit + R"("x" does not fit a number)"},
        {param(R"("type": "length", "default": true)"), fit + "true does not fit a number"},
        {param(R"("type": "int", "default": 1.5)"), fit + "1.5 does not fit a whole number"},
        {param(R"("type": "bool", "default": 1)"), fit + "1 does not fit true or false"},
        {param(R"("type": "enum", "choices": ["p"], "default": "z")"), fit + R"("z" does not fit one of the choices)"},
        {param(R"("type": "color", "default": [1, 2])"), fit + "[1,2] does not fit a color [r, g, b]"},
        {param(R"("type": "int", "default": 2, "min": 0, "max": 4)"), "passes"},
        {param(R"("min": 1, "max": 1, "unit": "angle", "mappable": true)"), "passes"},
        {param(R"("type": "length", "softMax": 2, "mappable": true)"), "passes"},
        {param(R"("type": "enum", "choices": ["p", "q"], "default": "q")"), "passes"},
        {param(R"("type": "color", "default": [1, 0.5, 0])"), "passes"},
        {param(R"("type": "ramp", "default": [[0, 0], [1, 1]])"), "passes"},
    });
}

TEST(NodeFileCheck, CompoundFaults) {
    const OperatorRegistry& registry = OperatorRegistry::instance();
    const std::string target = R"("target" must name an inner node's param as node.param ()";
    expectVerdicts(kCompound, {
        {"{}", "passes"},
        {R"({"graph": 5})", R"(the node file needs a "graph" (an object))"},
        {R"({"graph": {"nodes": null}})", R"(graph: needs "nodes" (a list))"},
        {R"({"params": [{"name": "amp", "target": "noise"}]})", target + "'noise')"},
        {R"({"params": [{"name": "amp", "target": "n."}]})", target + "'n.')"},
        {R"({"params": [{"name": "amp", "target": "x.amplitude"}]})", "the graph has no node 'x'"},
        {R"({"params": [{"name": "amp", "target": "n.nosuch"}]})", "params[0]: node 'n' has no param 'nosuch'"},
        {R"({"output": {"name": "g", "type": "Guides"}})",
         R"("output" says Guides but the graph's output node gives Strands)"},
    }, &registry);
    // Without a registry the inner params cannot be looked up, but the graph's shape still is.
    expectVerdicts(kCompound, {
        {R"({"params": [{"name": "amp", "target": "n.nosuch"}]})", "passes"},
        {R"({"params": [{"name": "amp", "target": "x.amplitude"}]})", "the graph has no node 'x'"},
    });
    EXPECT_EQ(checkNodeFile(json::parse(kCompound), &registry).kind, NodeFileKind::Compound);
}

// Noise gives whatever kind of curves comes in, so a compound ending in it gives strands (the
// type filled in when "output" is left out) or guides, as its file declares.
TEST(NodeFileCheck, CompoundEndingInACurvesNodeGivesWhatItDeclares) {
    const OperatorRegistry& registry = OperatorRegistry::instance();
    expectVerdicts(kCompound, {
        {R"({"graph": {"output": "n"}})", "passes"},
        {R"({"graph": {"output": "n"}, "inputs": [{"name": "guides", "type": "Guides"}],
             "output": {"name": "guides", "type": "Guides"}})", "passes"},
    }, &registry);
}

std::vector<std::string> keysOf(const nlohmann::ordered_json& object) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : object.items()) keys.push_back(key);
    return keys;
}

TEST(NodeFileText, MembersComeInOneOrderAndTheTextRoundTrips) {
    const char* const shuffled = R"({"script": "per point { P += N * $amount * t; }", "writes": ["P"],
        "params": [{"mappable": true, "default": 0.5, "type": "length", "name": "amount"}],
        "output": {"name": "strands", "type": "Strands"}, "inputs": [{"name": "strands", "type": "Strands"}],
        "size": 12, "icon": "bend", "license": "MIT", "author": "me", "description": "Bends",
        "category": "shape", "label": "Bend", "version": 3, "id": "me.bend", "tsnode": 1})";
    const std::string text = validateNodeFileText(shuffled);
    const auto doc = nlohmann::ordered_json::parse(text);
    EXPECT_EQ(keysOf(doc), (std::vector<std::string>{"tsnode", "id", "version", "label", "category", "description",
                                                     "author", "license", "icon", "size", "inputs", "output", "params",
                                                     "writes", "script"}));
    EXPECT_EQ(keysOf(doc["params"][0]), (std::vector<std::string>{"name", "type", "default", "mappable"}));
    EXPECT_EQ(text.rfind("{\n  \"tsnode\": 1,\n  \"id\": \"me.bend\",\n", 0), 0u) << text;
    EXPECT_EQ(validateNodeFileText(text), text);

    const OperatorRegistry& registry = OperatorRegistry::instance();
    const std::string compound = validateNodeFileText(kCompound, &registry);
    EXPECT_EQ(keysOf(nlohmann::ordered_json::parse(compound)).back(), "graph");
    EXPECT_EQ(validateNodeFileText(compound, &registry), compound);
}

TEST(NodeFileText, MissingMembersAreFilledIn) {
    const json doc = json::parse(nodeFileText(parseNodeFile(kScript)));
    EXPECT_EQ(doc["version"], 1);
    EXPECT_EQ(doc["inputs"], json::parse(R"([{"name": "strands", "type": "Strands"}])"));
    EXPECT_EQ(doc["output"], json::parse(R"({"name": "strands", "type": "Strands"})"));
    EXPECT_EQ(doc["writes"], json::parse(R"(["P"])"));
}

TEST(DefaultScriptNodeFile, PassesItsChecksAndCompiles) {
    const NodeFile file = checkNodeFile(defaultScriptNodeFile());
    EXPECT_EQ(file.kind, NodeFileKind::Script);
    EXPECT_EQ(file.label, "My Script");
    EXPECT_EQ(file.category, "shape");

    const json& doc = file.document;
    std::vector<ScriptParamDecl> decls;
    for (const json& p : doc["params"]) {
        const ScriptParamType type = scriptParamType(p["type"].get<std::string>()).value();
        decls.push_back({p["name"].get<std::string>(), type, std::nullopt, std::nullopt});
    }
    const auto writes = doc["writes"].get<std::vector<std::string>>();
    EXPECT_NO_THROW((void)compileScript(doc["script"].get<std::string>(), decls, writes));

    const std::vector<ParamSpec> specs = scriptHeaderParams(doc["params"]);
    ASSERT_EQ(specs.size(), 1u);
    EXPECT_EQ(specs[0].name, "amount");
    EXPECT_EQ(specs[0].unit, "length");
    EXPECT_TRUE(specs[0].description.ends_with(" (mappable)")) << specs[0].description;
}

}  // namespace
}  // namespace tressora
