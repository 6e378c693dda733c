// Mappable params through the graph: the evaluator asks the context's MapFields for the
// field of a map reference on `affect`, and mixes the node's result by it per strand.

#include <gtest/gtest.h>

#include "graph/graph.h"
#include "graph/test_operators.h"
#include "maps/map_fields.h"
#include "map_scene.h"

namespace tressora {
namespace {

/// The strands of the map scene, on its scalp; no inputs.
class Plant : public Operator {
public:
    std::string type() const override { return "Plant"; }
    std::vector<Port> inputs() const override { return {}; }
    Value evaluate(EvalContext& context, const std::vector<Value>&) override {
        const auto scalp = context.sceneItem(kScalpItem)->value.as<ScalpMesh>();
        return Value(std::make_shared<const StrandSet>(testing::mapStrands(*scalp)));
    }
};

class AffectMaps : public ::testing::Test {
protected:
    AffectMaps() {
        testops::registerTestOperators(registry);
        registry.add("Plant", {"source", "", "", "", false}, [] { return std::make_unique<Plant>(); });
        plant = graph.addNode("Plant", "plant");
        shift = graph.addNode("Shift", "shift");
        graph.connect(plant, 0, shift, 0);
        graph.setOutputNode(shift);
        s.context.maps = &fields;
    }
    /// The x each strand's root moved by.
    std::vector<float> moved(const MapRef& affect) {
        graph.setParam(shift, "affect", affect);
        EvalContext context = s.context;
        const auto out = graph.evaluateOutput(shift, 0, context).as<StrandSet>();
        std::vector<float> result;
        for (std::size_t i = 0; i < out->strandCount(); ++i)
            result.push_back(out->strandPoints(i)[0].x - s.strands.strandPoints(i)[0].x);
        return result;
    }
    OperatorRegistry registry;
    Graph graph{registry};
    NodeId plant = 0, shift = 0;
    testing::MapScene s;
    MapFields fields{s.context};
};

TEST_F(AffectMaps, EverySourceDrivesAffectPerStrand) {
    const auto expectEach = [&](const MapRef& affect, auto expected) {
        const std::vector<float> got = moved(affect);
        ASSERT_EQ(got.size(), s.strands.strandCount());
        for (std::size_t i = 0; i < got.size(); ++i)
            EXPECT_NEAR(got[i], expected(i, s.strands.strandPoints(i)[0]), 1e-5f) << mapSourceKey(affect.source) << i;
    };
    using testing::mapRef;
    expectEach(mapRef(MapSource::ColorSet, "tint", MapComponent::Red), [](std::size_t, Vec3f root) { return root.x; });
    expectEach(mapRef(MapSource::Expression, "index / 5"), [](std::size_t i, Vec3f) { return float(i) / 5; });
    expectEach(mapRef(MapSource::Attribute, "group", MapComponent::Auto, 0, 0.2),
               [](std::size_t i, Vec3f) { return 0.2f * float(i); });

    s.setGuides(testing::mapGuides());
    expectEach(mapRef(MapSource::Guide, "curly"), [](std::size_t, Vec3f root) {
        const float d0 = lengthSquared(root), d1 = lengthSquared(root - Vec3f{1, 1, 0});
        return (1.0f / d1) / (1.0f / d0 + 1.0f / d1);
    });
}

TEST_F(AffectMaps, WithoutMapFieldsAMapAffectsEverything) {
    s.context.maps = nullptr;
    for (float dx : moved(testing::mapRef(MapSource::ColorSet, "tint"))) EXPECT_FLOAT_EQ(dx, 1.0f);
}

TEST(ParamTime, OnlyExpressionsOnTheFrameReadTime) {
    EXPECT_FALSE(paramReadsTime(testing::mapRef(MapSource::Expression, "u * 2")));
    EXPECT_FALSE(paramReadsTime(testing::mapRef(MapSource::ColorSet, "frame")));
    EXPECT_TRUE(paramReadsTime(testing::mapRef(MapSource::Expression, "clamp(time, 0, 1)")));
    EXPECT_TRUE(paramReadsTime(testing::mapRef(MapSource::Expression, "$F > 10")));
    EXPECT_FALSE(paramReadsTime(testing::mapRef(MapSource::Expression, "frame +")));  // no program, no frame
    EXPECT_TRUE(paramReadsTime(testing::mapRef(MapSource::Expression, "[frame, 0, 0]")));
    EXPECT_FALSE(paramReadsTime(ParamValue(2.0)));
}

}  // namespace
}  // namespace tressora
