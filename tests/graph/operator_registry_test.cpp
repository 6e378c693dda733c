#include <gtest/gtest.h>

#include "core/errors.h"
#include "core/expect_text.h"
#include "graph/operator_registry.h"

namespace tressora {
namespace {

// Test-only node types: a strand deformer with a channel-writing param, a guide maker, a
// splitter of two outputs, and a pass-through of any name.
class BendLike : public Operator {
public:
    std::string type() const override { return "BendNeighbors"; }
    std::vector<Port> inputs() const override { return {{"in", PortType::Strands}, {"mask", PortType::Field, true}}; }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override { return in.at(0); }
    std::vector<ParamSpec> params() const override {
        ParamSpec amount;
        amount.name = "amount";
        amount.defaultValue = 0.5;
        amount.description = "How far (mappable)";
        ParamSpec channel;
        channel.name = "writeTo";
        channel.defaultValue = std::string("bendAmount");
        channel.channel = ChannelMode::Writes;
        channel.port = ParamPort::None;
        ParamSpec hidden = channel;
        hidden.name = "scratch";
        hidden.defaultValue = std::string("_tmp");
        return {amount, channel, hidden};
    }
    std::string role() const override { return "deform"; }
};

class MakeGuides : public Operator {
public:
    std::string type() const override { return "ToGuides"; }
    std::vector<Port> inputs() const override { return {{"in", PortType::Strands}}; }
    Port output() const override { return {"guides", PortType::Guides}; }
    Value evaluate(EvalContext&, const std::vector<Value>&) override { return {}; }
    std::vector<ChannelInfo> channels() const override {
        auto out = Operator::channels();
        out.push_back({"guideId", ChannelMode::Writes, ""});
        return out;
    }
};

class Splitter : public Operator {
public:
    std::string type() const override { return "Split"; }
    std::vector<Port> inputs() const override { return {{"in", PortType::Curves}}; }
    std::vector<Port> outputs() const override { return {{"a", PortType::Curves}, {"b", PortType::Curves}}; }
    Value evaluate(EvalContext&, const std::vector<Value>&) override { return {}; }
};

class Passthrough : public Operator {
public:
    explicit Passthrough(std::string type) : type_(std::move(type)) {}
    std::string type() const override { return type_; }
    std::vector<Port> inputs() const override { return {{"in", PortType::Strands}}; }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override { return in.at(0); }

private:
    std::string type_;
};

class Registry : public ::testing::Test {
protected:
    void SetUp() override {
        registry.add("BendNeighbors", {"deform", "Bends toward neighbours.", "bend comb", "", false},
                     [] { return std::make_unique<BendLike>(); });
        registry.add("ToGuides", {"convert", "Strands become guides.", "strands to guides", "", false},
                     [] { return std::make_unique<MakeGuides>(); });
        registry.add("Split", {"feathers", "Four outputs.", "outputs", "", true},
                     [] { return std::make_unique<Splitter>(); });
        registry.add("Zany", {"", "Not in any table.", "", "Zany Label", false},
                     [] { return std::make_unique<Passthrough>("Zany"); });
        registry.add("Resample", {"shape", "Evens points.", "points", "", false},
                     [] { return std::make_unique<Passthrough>("Resample"); });
    }
    OperatorRegistry registry;
};

TEST_F(Registry, NamesAreInByteOrderAndUnknownOrRepeatedTypesAreRefused) {
    EXPECT_EQ(registry.names(), (std::vector<std::string>{"BendNeighbors", "Resample", "Split", "ToGuides", "Zany"}));
    EXPECT_FALSE(registry.contains("split"));
    EXPECT_EQ(registry.info("Nope"), nullptr);
    EXPECT_EQ(testing::failureText<GraphError>([&] { registry.create("Nope"); }), "unknown operator type 'Nope'");
    EXPECT_THROW(registry.add("Split", {}, [] { return std::make_unique<Splitter>(); }), std::logic_error);
    EXPECT_EQ(testing::failureText<GraphError>([&] { parsePortType("mesh"); }),
              "unknown port type 'mesh' (Strands, Guides, Mesh, Field, Curve, Curves or Value)");
}

TEST_F(Registry, AffectOnlyOnStrandToStrandNodesOfOneOutput) {
    EXPECT_TRUE(hasAffect(*registry.create("BendNeighbors")));
    EXPECT_FALSE(hasAffect(*registry.create("ToGuides")));  // output type differs from the input's
    EXPECT_FALSE(hasAffect(*registry.create("Split")));     // excluded, and several outputs
    EXPECT_FALSE(hasAffect(*registry.create("Resample")));  // excluded by name
    EXPECT_TRUE(hasAffect(*registry.create("Zany")));
    const auto node = registry.create("BendNeighbors");
    EXPECT_DOUBLE_EQ(node->paramValues.getFloat("affect", -1), 1.0);
    const auto params = allParams(*node);
    ASSERT_EQ(params.size(), 4u);
    EXPECT_EQ(params.back().name, "affect");
    EXPECT_EQ(params.back().group, "Common");
    EXPECT_EQ(paramPort(params.back())->type, PortType::Field);
}

TEST_F(Registry, ChannelsComeFromWritingParamsUnlessEmptyOrPrivate) {
    auto node = registry.create("BendNeighbors");
    EXPECT_EQ(node->channels(), (std::vector<ChannelInfo>{{"bendAmount", ChannelMode::Writes, "writeTo"}}));
    node->paramValues.set("writeTo", std::string());
    EXPECT_TRUE(node->channels().empty());
}

TEST_F(Registry, CatalogueRecordsDeriveLabelsCategoriesAndOrderFromTheType) {
    const auto record = registry.catalogueRecord("BendNeighbors");
    EXPECT_EQ(record["label"], "Bend Neighbors");  // the type's words, split
    EXPECT_EQ(record["categoryTitle"], "Deform");
    EXPECT_EQ(record["categoryOrder"], 3);
    EXPECT_EQ(record["order"], 70);  // not in the fixed sequence
    EXPECT_EQ(record["inputs"].dump(),
              R"([{"name":"in","type":"Strands","optional":false},{"name":"mask","type":"Field","optional":true}])");
    EXPECT_EQ(record["output"].dump(), R"({"name":"out","type":"Strands"})");
    EXPECT_EQ(record["params"].size(), 4u);

    const auto guides = registry.catalogueRecord("ToGuides");
    EXPECT_EQ(guides["label"], "To Guides");
    EXPECT_EQ(guides["fixedChannels"].dump(), R"(["guideId"])");
    EXPECT_EQ(guides["order"], operatorOrder("ToGuides"));

    const auto zany = registry.catalogueRecord("Zany");
    EXPECT_EQ(zany["label"], "Zany Label");  // a label given wins
    EXPECT_EQ(zany["category"], "");         // no registered category and no role
    EXPECT_EQ(zany["categoryOrder"], 13);
    EXPECT_EQ(registry.catalogue().size(), 5u);
    EXPECT_EQ(operatorLabel("HairColor", OperatorInfo{}), "Hair Color");
}

}  // namespace
}  // namespace tressora
