#include <algorithm>
#include <cmath>

#include "../../core/test_meshes.h"
#include "maps/painted_map.h"
#include "operators/color/look_testing.h"
#include "operators/color/pigment.h"

namespace tressora {
namespace {

using namespace looktest;

TEST(HairColor, MelaninModeWritesPigmentColourAndHighlightPerStrand) {
    const NodeRun run = runNode("HairColor", straightStrands(50, 5));
    ASSERT_TRUE(run.strands);
    const StrandSet& s = *run.strands;
    for (const char* name : {"colorR", "colorG", "colorB", "melanin", "melaninRedness", "specular", "roughness", "tilt"})
        EXPECT_NE(s.strandChannel(name), nullptr) << name;
    EXPECT_EQ(s.pointChannel("colorR"), nullptr);  // no tips: one colour per strand
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const float m = s.strandChannel("melanin")->values()[i];
        EXPECT_GE(m, 0.25f - 1e-6f);
        EXPECT_LE(m, 0.45f + 1e-6f);
        const Vec3f c = strandColor(s, i);
        EXPECT_GT(c.x, c.y);  // brown: red above green above blue
        EXPECT_GT(c.y, c.z);
        const Vec3f expected = melaninColor(m, 0.2f, {1, 1, 1});
        EXPECT_NEAR(c.x, expected.x, 1e-6f);
        EXPECT_FLOAT_EQ(s.strandChannel("specular")->values()[i], 0.3f);
        EXPECT_FLOAT_EQ(s.strandChannel("roughness")->values()[i], 0.5f);
        EXPECT_FLOAT_EQ(s.strandChannel("tilt")->values()[i], 3.0f);
    }
}

TEST(HairColor, ColourModeWithoutRandomnessKeepsTheColourExactAndDropsPigmentChannels) {
    const NodeRun melanin = runNode("HairColor", straightStrands(20, 3));
    const NodeRun run = runNode("HairColor", *melanin.strands,
                            {{"mode", std::string("color")}, {"color", Vec3f{0.7f, 0.31f, 0.12f}}});
    const StrandSet& s = *run.strands;
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const Vec3f c = strandColor(s, i);
        EXPECT_EQ(c.x, 0.7f);
        EXPECT_EQ(c.y, 0.31f);
        EXPECT_EQ(c.z, 0.12f);
    }
    EXPECT_EQ(s.strandChannel("melanin"), nullptr);
    EXPECT_EQ(s.strandChannel("melaninRedness"), nullptr);
}

TEST(HairColor, GreysOfOneMakeEveryStrandGrey) {
    const NodeRun run = runNode("HairColor", straightStrands(200, 3), {{"greys", 1.0}, {"melanin", 1.0}});
    const StrandSet& s = *run.strands;
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        EXPECT_LE(s.strandChannel("melanin")->values()[i], 0.011f);
        const Vec3f c = strandColor(s, i);
        EXPECT_GT(c.z, 0.5f);          // pale
        EXPECT_LT(c.x - c.z, 0.15f);   // and nearly neutral
    }
}

TEST(HairColor, TipsMakeTheColourPerPointFromRootColourTowardLighterTips) {
    const NodeRun run = runNode("HairColor", straightStrands(10, 9), {{"tipStrength", 1.0}});
    const StrandSet& s = *run.strands;
    ASSERT_NE(s.pointChannel("colorR"), nullptr);
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const PointRange r = s.pointRange(i);
        const Vec3f root = pointColor(s, r.begin), tip = pointColor(s, r.end - 1);
        EXPECT_NEAR(root.x, strandColor(s, i).x, 1e-6f);
        EXPECT_GT(luminance(tip), luminance(root) * 1.5f);
    }
    // A later HairColor without tips takes the per-point colours away again.
    const NodeRun plain = runNode("HairColor", s);
    EXPECT_EQ(plain.strands->pointChannel("colorR"), nullptr);
}

TEST(HairColor, RandomLookDependsOnTheStrandIdOnly) {
    const std::map<std::string, ParamValue> params{{"mode", std::string("color")},   {"color", Vec3f{0.6f, 0.3f, 0.2f}},
                                                   {"valueRandom", 0.5},            {"hueRandom", 0.4},
                                                   {"saturationRandom", 0.5},       {"specularRandom", 0.5},
                                                   {"roughnessRandom", 0.5},        {"seed", std::int64_t{9}}};
    const StrandSet big = straightStrands(400, 3, 100, 7);
    // A subset in another order: the same ids sit at other indices of a smaller set.
    std::vector<std::size_t> picked;
    for (std::size_t i = 399; i < 400; i -= 3) picked.push_back(i);
    const StrandSet small = big.subset(picked);
    const NodeRun a = runNode("HairColor", big, params), b = runNode("HairColor", small, params);
    for (const char* channel : {"colorR", "colorG", "colorB", "specular", "roughness"}) {
        const auto all = byId(*a.strands, channel), some = byId(*b.strands, channel);
        for (const auto& [id, value] : some) EXPECT_EQ(value, all.at(id)) << channel << " id " << id;
    }
    // The values do vary between strands, and another seed gives others.
    const auto colours = byId(*a.strands, "colorR");
    EXPECT_GT(std::count_if(colours.begin(), colours.end(), [&](const auto& e) { return e.second != colours.begin()->second; }), 300);
    auto reseeded = params;
    reseeded["seed"] = std::int64_t{10};
    EXPECT_NE(byId(*runNode("HairColor", big, reseeded).strands, "colorR"), colours);
}

TEST(HairColor, ClumpShareGivesOneClumpOneLookAndNotesAMissingChannel) {
    StrandSet set = straightStrands(60, 3);
    const std::map<std::string, ParamValue> params{{"melaninRandom", 0.5}, {"clumpShare", 1.0}};
    const NodeRun missing = runNode("HairColor", set, params);
    ASSERT_EQ(missing.notes.size(), 1u);
    EXPECT_EQ(missing.notes[0], "clumpShare: no clumpId channel reaches HairColor (put it after a Clump), so each "
                                "strand varies on its own");
    std::span<float> clumps = set.addStrandChannel("clumpId");
    for (std::size_t i = 0; i < clumps.size(); ++i) clumps[i] = static_cast<float>(i % 3);
    const NodeRun run = runNode("HairColor", set, params);
    EXPECT_TRUE(run.notes.empty());
    for (std::size_t i = 3; i < set.strandCount(); ++i)
        EXPECT_EQ(run.strands->strandChannel("melanin")->values()[i], run.strands->strandChannel("melanin")->values()[i % 3]);
    EXPECT_NE(run.strands->strandChannel("melanin")->values()[0], run.strands->strandChannel("melanin")->values()[1]);
}

TEST(HairColor, ProblemsAreNotesAndTheStrandsPassUnchanged) {
    const StrandSet set = straightStrands(4, 3);
    const NodeRun badMode = runNode("HairColor", set, {{"mode", std::string("paint")}});
    EXPECT_EQ(badMode.notes, std::vector<std::string>{"mode must be melanin or color"});
    EXPECT_EQ(badMode.strands->strandChannel("colorR"), nullptr);
    const NodeRun badMap = runNode("HairColor", set, {{"map", std::string("freckles")}});
    EXPECT_EQ(badMap.notes, std::vector<std::string>{"map 'freckles': no map, color set or image of that name (Groom "
                                                     "Tools > Paint > New... makes a map)"});
    EXPECT_EQ(badMap.strands->fingerprint(), set.fingerprint());
}

TEST(HairColor, MapColourIsReadAtTheRootFromAColourSetAndAGuideLayerIsANote) {
    ScalpMesh scalp = testing::grid(2);
    scalp.setColorSet("freckles", std::vector<ScalpMesh::Color>(scalp.triangleCount() * 3, {0.5f, 0.25f, 1.0f, 1.0f}));
    SceneCatalog scene;
    scene.set("scalp", Value(std::make_shared<const ScalpMesh>(std::move(scalp))), 1);
    StrandSet set;
    set.addStrand(5, {0, 0.2f, 0.2f}, std::vector<Vec3f>{{0, 0, 0}, {0, 0, 1}});
    const NodeRun run = runNode("HairColor", set, {{"mode", std::string("color")}, {"map", std::string("freckles")}, {"clumpShare", 0.0}},
                                "color", &scene);
    ASSERT_TRUE(run.notes.empty()) << run.notes[0];
    const Vec3f c = strandColor(*run.strands, 0);
    EXPECT_FLOAT_EQ(c.x, 0.4f);
    EXPECT_FLOAT_EQ(c.y, 0.2f);
    EXPECT_FLOAT_EQ(c.z, 0.8f);

    PaintedMap layer;
    layer.kind = PaintedMapKind::Guides;
    scene.set("maps", Value(std::make_shared<const MapCatalogValue>(std::map<std::string, PaintedMap>{{"freckles", layer}})), 2);
    const NodeRun guided = runNode("HairColor", set, {{"map", std::string("freckles")}}, "color", &scene);
    EXPECT_EQ(guided.notes, std::vector<std::string>{"map 'freckles': a guide layer reaches the strands through "
                                                     "Interpolate (put HairColor after it); for painted color, convert "
                                                     "the layer"});
}

TEST(Pigment, ColourAndAbsorptionRoundTripAndDyeDarkens) {
    const Vec3f c{0.6f, 0.35f, 0.1f};
    const Vec3f back = colorFromAbsorption(absorptionFromColor(c));
    EXPECT_NEAR(back.x, c.x, 1e-5f);
    EXPECT_NEAR(back.z, c.z, 1e-5f);
    const Vec3f plain = melaninColor(0.2f, 0.5f, {1, 1, 1});
    const Vec3f dyed = melaninColor(0.2f, 0.5f, {0.3f, 0.9f, 0.9f});
    EXPECT_LT(dyed.x, plain.x * 0.8f);
    EXPECT_LE(dyed.y, plain.y);
    const Vec3f white = melaninColor(0.0f, 0.0f, {1, 1, 1});
    EXPECT_EQ(white, (Vec3f{1, 1, 1}));
    EXPECT_LT(luminance(melaninColor(1.0f, 0.0f, {1, 1, 1})), 0.01f);
}

}  // namespace
}  // namespace tressora
