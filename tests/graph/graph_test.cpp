#include <gtest/gtest.h>

#include "core/errors.h"
#include "core/document_version.h"
#include "core/expect_text.h"
#include "graph/graph_json.h"
#include "test_operators.h"

namespace tressora {
namespace {

using testops::testRegistry;

template <class E = GraphError, class Fn>
std::string errorOf(Fn&& fn) {
    return testing::failureText<E>(fn);
}

class GraphWiring : public ::testing::Test {
protected:
    Graph g{testRegistry()};
    NodeId grow = g.addNode("Grow", "grow");
    NodeId shift = g.addNode("Shift", "shift");
    NodeId out = g.addNode("Output", "output");
};

TEST_F(GraphWiring, ConnectRefusesWithEveryMessageAndLeavesTheGraphUnchanged) {
    const NodeId number = g.addNode("Number", "n");
    const NodeId vector = g.addNode("Vector", "v");
    const NodeId constant = g.addNode("Constant", "c");
    g.setParamInputs(shift, {"amount", "mode"});  // a Field slot (mappable) and a Value slot (choice)

    EXPECT_EQ(errorOf([&] { g.connect(grow, 0, shift, 7); }), "Shift has no input slot 7");
    EXPECT_EQ(errorOf([&] { g.connect(grow, 1, shift, 0); }), "Grow has no output 1");
    EXPECT_EQ(errorOf([&] { g.connect(constant, 0, shift, 2); }),
              "type mismatch: Field -> Value: 'mode' takes one value for the whole node, and a field gives one "
              "per strand (drive it with a Value node, or an Expression set to give a value)");
    EXPECT_EQ(errorOf([&] { g.connect(number, 0, shift, 0); }), "type mismatch: Value -> Strands");
    EXPECT_EQ(errorOf([&] { g.connect(vector, 0, shift, 1); }),
              "type mismatch: a vec3 Value cannot feed 'amount', which takes a field or a number");
    EXPECT_EQ(errorOf([&] { g.connect(number, 0, shift, 2); }),
              "type mismatch: a number Value cannot feed 'mode', which takes choice");
    g.connect(number, 0, shift, 1);  // a Value into a Field slot is fine
    g.connect(constant, 0, shift, 1);

    g.connect(grow, 0, shift, 0);
    g.connect(shift, 0, out, 0);
    EXPECT_EQ(errorOf([&] { g.connect(out, 0, shift, 0); }), "connection would create a cycle");
    EXPECT_EQ(errorOf([&] { g.connect(shift, 0, shift, 0); }), "connection would create a cycle");
    EXPECT_EQ(g.node(shift).inputSources[0], grow);  // still the old connection
}

TEST_F(GraphWiring, PolymorphicCurvesResolveUpstream) {
    const NodeId fork = g.addNode("Fork", "fork");
    EXPECT_EQ(g.resolvedOutputType(fork, 0), PortType::Curves);  // nothing connected: Curves
    g.connect(fork, 0, shift, 0);                                 // which a Strands slot accepts
    g.connect(grow, 0, fork, 0);                                  // Strands into a Curves slot
    EXPECT_EQ(g.resolvedOutputType(fork, 0), PortType::Strands);
    const NodeId fork2 = g.addNode("Fork", "fork2");
    g.connect(fork, 1, fork2, 0);
    EXPECT_EQ(g.resolvedOutputType(fork2, 0), PortType::Strands);
}

TEST_F(GraphWiring, NamesAndLookupsFailWithTheirSentences) {
    EXPECT_EQ(errorOf([&] { g.nodeByName("nope"); }), "unknown node 'nope'");
    EXPECT_EQ(errorOf([&] { g.nodeName(99); }), "unknown node 99");
    EXPECT_EQ(errorOf([&] { g.addNode(std::unique_ptr<Operator>()); }), "addNode: null operator");
    EXPECT_EQ(errorOf([&] { g.addNode("Nope"); }), "unknown operator type 'Nope'");
    EXPECT_EQ(errorOf([&] { g.addNode("Grow", "shift"); }), "duplicate node name 'shift'");
    EXPECT_EQ(errorOf([&] { g.inputIndex(shift, "guides"); }), "Shift has no input 'guides'");
    EXPECT_EQ(errorOf([&] { g.outputIndex(shift, "x"); }), "Shift has no output 'x'");
    EXPECT_EQ(g.nodeName(g.addNode("Grow")), "grow2");
    g.removeNode(shift);  // ids are never reused
    EXPECT_GT(g.addNode("Shift"), shift);
}

TEST_F(GraphWiring, ControlsAndExposedParamsAreCheckedWhenSet) {
    EXPECT_EQ(errorOf([&] { g.setParamControls(shift, "nope", {"c"}); }), "Shift has no param 'nope' to key");
    EXPECT_EQ(errorOf([&] { g.setParamControls(shift, "mode", {"c"}); }),
              "Shift param 'mode' cannot be keyed: only numbers, switches and vectors can");
    EXPECT_EQ(errorOf([&] { g.setParamControls(grow, "count", {"c"}); }),
              "Grow param 'count' cannot be keyed: it sets how many strands, points or cards there are, or where "
              "they go, which must stay the same on every frame");
    EXPECT_EQ(errorOf([&] { g.setParamControls(shift, "amount", {""}); }), "Shift param 'amount': a control needs a name");
    EXPECT_EQ(errorOf([&] { g.setParamControls(shift, "amount", {"a", "b", "c"}); }),
              "Shift param 'amount' is keyed by one control");
    EXPECT_EQ(errorOf([&] { g.setParamInputs(shift, {"nope"}); }), "Shift has no param 'nope' to expose");
    EXPECT_EQ(errorOf([&] { g.setParamInputs(shift, {"amount", "amount"}); }), "param 'amount' exposed twice");
    g.setParamControls(shift, "amount", {"wave"});
    EXPECT_EQ(g.controlNames(), std::vector<std::string>{"wave"});
}

TEST(GraphJson, WriteReadWriteGivesIdenticalText) {
    const std::string text = R"({"backdrops":[{"color":[1,0,0],"title":"hair"}],"connections":[)"
                             R"({"from":"fork","input":"strands","output":"b","to":"output"},)"
                             R"({"from":"grow","input":"strands","to":"shift"},)"
                             R"({"from":"n","input":"amount","to":"shift"},)"
                             R"({"from":"shift","input":"curves","to":"fork"}],)"
                             R"("nodes":[{"name":"output","params":{},"type":"Output","version":1},)"
                             R"({"evaluation":"renderOnly","name":"grow","params":{"count":12,"height":0.5,"padding":0.0,"points":3},)"
                             R"("type":"Grow","ui":{"x":10.5,"y":-3.0},"version":1},)"
                             R"({"bypass":true,"name":"shift","paramControls":{"amount":"wave"},"paramInputs":["amount"],)"
                             R"("params":{"affect":0.5,"amount":-0.0,"mode":"y"},"type":"Shift","version":1},)"
                             R"({"name":"n","params":{"value":0.25},"type":"Number","version":1},)"
                             R"({"name":"fork","params":{},"type":"Fork","version":1}],"output":"output","version":1})";
    const auto graph = graphFromJson(nlohmann::json::parse(text), testRegistry());
    const std::string written = graphToJson(*graph).dump();
    EXPECT_EQ(written, text);
    const auto again = graphFromJson(nlohmann::json::parse(written), testRegistry());
    EXPECT_EQ(graphToJson(*again).dump(), written);
}

TEST(GraphJson, VersionCheckSpeaksOfTheDocument) {
    const auto read = [](const std::string& text) {
        return errorOf<SchemaError>([&] { graphFromJson(parseDocument(text, "graph"), testRegistry()); });
    };
    EXPECT_EQ(read(R"({"version":2,"nodes":[],"output":"x"})"),
              "graph version 2 is newer than this Tressora supports (1); update Tressora to open it");
    EXPECT_EQ(read(R"({"version":"1","nodes":[],"output":"x"})"), "graph version \"1\" is not a whole number");
    EXPECT_EQ(read(R"({"version":1.5,"nodes":[],"output":"x"})"), "graph version 1.5 is not a whole number");
    EXPECT_EQ(read(R"({"version":0,"nodes":[],"output":"x"})"), "graph version 0 is not valid");
    const std::string invalid = read("{nodes");
    EXPECT_EQ(invalid.rfind("graph: invalid JSON: parse error at line 1, column 3", 0), 0u) << invalid;
    EXPECT_EQ(errorOf<SchemaError>([] { checkDocumentVersion(nlohmann::json::array(), "guide data", 1); }),
              "guide data must be a JSON object");
}

TEST(GraphJson, ReadingRefusesBadNodesWithTheirMessages) {
    const auto read = [](const std::string& nodes, const std::string& extra = "") {
        return errorOf<std::exception>([&] {
            graphFromJson(nlohmann::json::parse(R"({"nodes":[)" + nodes + "]" + extra + R"(,"output":"a"})"),
                          testRegistry());
        });
    };
    EXPECT_EQ(read(R"({"name":"a","type":"Grow"},{"name":"a","type":"Shift"})"), "duplicate node name 'a'");
    EXPECT_EQ(read(R"({"name":"b","type":"Grow"})"), "graph JSON has no 'output' node");
    EXPECT_EQ(read(R"({"name":"a","type":"Shift","paramControls":["x"]})"),
              "node 'a': paramControls must map params to controls");
    EXPECT_EQ(read(R"({"name":"a","type":"Shift","paramControls":{"amount":["x","y"]}})"),
              "node 'a': param 'amount' must name its control (or three for a vector)");
    EXPECT_EQ(read(R"({"name":"a","type":"Shift","evaluation":3})"),
              "node 'a': evaluation is always, viewportOnly or renderOnly");
    EXPECT_EQ(read(R"({"name":"a","type":"Shift","evaluation":"sometimes"})"),
              "unknown evaluation 'sometimes' (always, viewportOnly or renderOnly)");
    EXPECT_EQ(read(R"({"name":"a","type":"Shift","version":0})"), "node 'a': version 0 is not a whole number from 1");
    EXPECT_EQ(read(R"({"name":"a","type":"Shift","version":3})"),
              "node 'a' is a Shift of version 3, newer than this Tressora's (1); update Tressora to open it");
    EXPECT_EQ(read(R"({"name":"a"})").find("key 'type' not found") != std::string::npos, true);
    EXPECT_EQ(read(R"({"name":"a","type":"Shift"})", R"(,"connections":[{"from":"ghost","to":"a","input":"strands"}])"),
              "unknown node 'ghost'");
    // A connection may name a node that stands later in the file.
    EXPECT_NO_THROW(graphFromJson(nlohmann::json::parse(R"({"nodes":[{"name":"a","type":"Shift"},{"name":"g","type":"Grow"}],)"
                                                        R"("connections":[{"from":"g","to":"a","input":"strands"}],"output":"a"})"),
                                  testRegistry()));
}

TEST(GraphWalks, ActiveUpstreamFollowsStrandInputsAndBypassedFirstInputs) {
    Graph g(testRegistry());
    const NodeId a = g.addNode("Grow", "a");
    const NodeId b = g.addNode("Shift", "b");
    const NodeId n = g.addNode("Number", "n");
    const NodeId out = g.addNode("Output", "out");
    g.setParamInputs(b, {"amount"});
    g.connect(a, 0, b, 0);
    g.connect(n, 0, b, 1);
    g.connect(b, 0, out, 0);
    std::vector<std::string> seen;
    EXPECT_TRUE(g.forEachActiveUpstream(out, [&](const std::string& path, Operator&) {
        seen.push_back(path);
        return true;
    }));
    EXPECT_EQ(seen, (std::vector<std::string>{"out", "b", "a"}));  // the Value input is not a strand input
}

}  // namespace
}  // namespace tressora
