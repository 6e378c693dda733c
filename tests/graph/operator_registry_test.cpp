#include <gtest/gtest.h>

#include "core/errors.h"
#include "graph/operator_registry.h"

namespace tressora {
namespace {

// Test-only node types: a strand deformer, a guide maker and a multi-output splitter.
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
    std::vector<Port> outputs() const override {
        return {{"a", PortType::Curves}, {"b", PortType::Curves}};
    }
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

TEST_F(Registry, NamesAreInByteOrderAndUnknownTypesAreRefused) {
    EXPECT_EQ(registry.names(), (std::vector<std::string>{"BendNeighbors", "Resample", "Split", "ToGuides", "Zany"}));
    EXPECT_TRUE(registry.contains("Split"));
    EXPECT_FALSE(registry.contains("split"));
    EXPECT_EQ(registry.info("Nope"), nullptr);
    try {
        registry.create("Nope");
        FAIL();
    } catch (const GraphError& e) {
        EXPECT_STREQ(e.what(), "unknown operator type 'Nope'");
    }
    EXPECT_THROW(registry.add("Split", {}, [] { return std::make_unique<Splitter>(); }), std::logic_error);
}

TEST_F(Registry, CreatedNodesReadEveryParamAtItsDefault) {
    const auto node = registry.create("BendNeighbors");
    EXPECT_DOUBLE_EQ(node->paramValues.getFloat("amount", -1), 0.5);
    EXPECT_DOUBLE_EQ(node->paramValues.getFloat("affect", -1), 1.0);
    EXPECT_EQ(node->paramValues.getString("writeTo", ""), "bendAmount");
}

TEST_F(Registry, AffectOnlyOnStrandToStrandNodesOfOneOutput) {
    EXPECT_TRUE(hasAffect(*registry.create("BendNeighbors")));
    EXPECT_FALSE(hasAffect(*registry.create("ToGuides")));   // output type differs from the input's
    EXPECT_FALSE(hasAffect(*registry.create("Split")));      // excluded, and several outputs
    EXPECT_FALSE(hasAffect(*registry.create("Resample")));   // excluded by name
    EXPECT_TRUE(hasAffect(*registry.create("Zany")));
    const auto params = allParams(*registry.create("BendNeighbors"));
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

TEST_F(Registry, CatalogueRecordCarriesTablesLabelsAndPorts) {
    const auto record = registry.catalogueRecord("BendNeighbors");
    std::vector<std::string> keys;
    for (const auto& item : record.items()) keys.push_back(item.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"type", "fixedChannels", "version", "category", "categoryTitle",
                                              "categoryOrder", "order", "role", "label", "keywords", "hidden",
                                              "description", "inputs", "output", "outputs", "params"}));
    EXPECT_EQ(record["label"], "Bend Neighbors");
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
    EXPECT_EQ(zany["label"], "Zany Label");
    EXPECT_EQ(zany["category"], "");  // no registered category and no role
    EXPECT_EQ(zany["categoryOrder"], 13);
    EXPECT_EQ(registry.catalogue().size(), 5u);
}

TEST(OperatorTables, FixedOrderAndCategories) {
    EXPECT_EQ(operatorOrder("Scalp"), 0);
    EXPECT_EQ(operatorOrder("ImportCurves"), operatorOrder("ColliderMesh") + 1);
    EXPECT_EQ(operatorOrder("Cards"), 69);
    EXPECT_EQ(operatorOrder("Unlisted"), 70);
    EXPECT_EQ(categoryOrder("games"), 12);
    EXPECT_EQ(categoryTitle("field"), "Fields & Curves");
    OperatorInfo none;
    EXPECT_EQ(operatorLabel("HairColor", none), "Hair Color");
    EXPECT_EQ(operatorLabel("Scalp", none), "Scalp");
}

TEST(PortTypes, NamesAndParsing) {
    EXPECT_EQ(portTypeName(PortType::Curves), "Curves");
    EXPECT_EQ(portTypeName(static_cast<PortType>(9)), "Unknown");
    EXPECT_EQ(parsePortType("Mesh"), PortType::Mesh);
    try {
        parsePortType("mesh");
        FAIL();
    } catch (const GraphError& e) {
        EXPECT_STREQ(e.what(), "unknown port type 'mesh' (Strands, Guides, Mesh, Field, Curve, Curves or Value)");
    }
}

}  // namespace
}  // namespace tressora
