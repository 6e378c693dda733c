#include "operators/color/look_testing.h"

namespace tressora {
namespace {

using namespace looktest;

/// Two feathers of 40 barbs per side plus their shafts, with Propagate's vane channels.
StrandSet feathers() {
    StrandSet set;
    struct Barb { float feather, shaft, side, u; };
    std::vector<Barb> barbs;
    for (int f = 0; f < 2; ++f) {
        barbs.push_back({float(f), 1, 0, 0});
        for (int side : {-1, 1})
            for (int k = 0; k < 40; ++k) barbs.push_back({float(f), 0, float(side), (k + 0.5f) / 40.0f});
    }
    std::vector<Vec3f> pts(6);
    for (std::size_t i = 0; i < barbs.size(); ++i) {
        for (int k = 0; k < 6; ++k) pts[k] = {barbs[i].side * 0.06f * k, barbs[i].u, float(barbs[i].feather)};
        set.addStrand(i + 1, {}, pts);
    }
    const auto fill = [&](const char* name, auto value) {
        std::span<float> c = set.addStrandChannel(name);
        for (std::size_t i = 0; i < barbs.size(); ++i) c[i] = value(barbs[i]);
    };
    fill("featherId", [](const Barb& b) { return b.feather; });
    fill("isShaft", [](const Barb& b) { return b.shaft; });
    fill("side", [](const Barb& b) { return b.side; });
    fill("vaneU", [](const Barb& b) { return b.u; });
    fill("vaneTipU", [](const Barb& b) { return b.u + 0.05f; });
    fill("vaneTipV", [](const Barb& b) { return b.shaft > 0 ? 0.0f : 0.3f; });
    fill("isDown", [](const Barb& b) { return b.u < 0.1f ? 1.0f : 0.0f; });
    return *runNode("HairColor", set, {{"mode", std::string("color")}}).strands;
}

TEST(FeatherColor, BarsCoverPartOfTheVaneOnlyOnTheChosenSide) {
    const StrandSet in = feathers();
    const NodeRun run = runNode("FeatherColor", in, {{"vanes", std::string("left")}, {"melanin", 1.0}, {"sharpness", 1.0}});
    ASSERT_TRUE(run.notes.empty());
    const StrandSet& s = *run.strands;
    const StrandChannel* side = s.strandChannel("side");
    std::size_t dark = 0, plain = 0;
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        for (std::size_t p = s.pointRange(i).begin; p < s.pointRange(i).end; ++p) {
            const float r = pointColor(s, p).x;
            if (side->values()[i] >= 0.0f) {
                EXPECT_FLOAT_EQ(r, 0.8f);  // right vane and shafts keep the hair's colour
            } else {
                (r < 0.1f ? dark : plain) += 1;
            }
        }
    }
    EXPECT_GT(dark, 60u);   // about 0.4 of each period is bar
    EXPECT_GT(plain, 120u);
}

TEST(FeatherColor, IridescenceChannelFollowsWhereItShows) {
    const NodeRun run = runNode("FeatherColor", feathers(),
                            {{"pattern", std::string("none")}, {"iridescence", 0.6}, {"iridescenceOn", std::string("rightVane")}});
    const StrandSet& s = *run.strands;
    const StrandChannel* sheen = s.pointChannel("iridescence");
    ASSERT_NE(sheen, nullptr);
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const float expected = s.strandChannel("side")->values()[i] > 0 ? 0.6f : 0.0f;
        EXPECT_FLOAT_EQ(sheen->values()[s.pointRange(i).begin + 1], expected);
    }
}

TEST(FeatherColor, DownBarbsLightenByDownStrength) {
    const NodeRun run = runNode("FeatherColor", feathers(), {{"pattern", std::string("none")}, {"downStrength", 1.0}});
    const StrandSet& s = *run.strands;
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const bool down = s.strandChannel("isDown")->values()[i] > 0.5f && s.strandChannel("isShaft")->values()[i] < 0.5f;
        EXPECT_FLOAT_EQ(pointColor(s, s.pointRange(i).begin).x, down ? 0.9f : 0.8f);
    }
}

TEST(FeatherColor, WrongSettingsAndMissingFeathersAreNotes) {
    const StrandSet in = feathers();
    const auto note = [&](std::map<std::string, ParamValue> params) {
        const NodeRun run = runNode("FeatherColor", in, params);
        EXPECT_EQ(run.strands->fingerprint(), in.fingerprint());
        return run.notes.empty() ? std::string() : run.notes[0];
    };
    EXPECT_EQ(note({{"pattern", std::string("stripes")}}),
              "pattern must be one of none, texture, bars, chevrons, spots, fringe, eye");
    EXPECT_EQ(note({{"pattern", std::string("texture")}}), "pattern texture needs a texture image");
    EXPECT_EQ(note({{"vanes", std::string("top")}}), "vanes must be both, left or right");
    EXPECT_EQ(note({{"iridescenceOn", std::string("shaft")}}),
              "iridescenceOn must be all, leftVane, rightVane, pattern or notPattern");
    const NodeRun bare = runNode("FeatherColor", straightStrands(3, 3));
    ASSERT_EQ(bare.notes.size(), 1u);
    EXPECT_NE(bare.notes[0].find("put it after Propagate"), std::string::npos);
}

TEST(FeatherColor, EverySharpPatternCoversSomeButNotAllOfTheVanes) {
    const StrandSet in = feathers();
    for (const char* pattern : {"bars", "chevrons", "spots", "fringe", "eye"}) {
        const NodeRun run = runNode("FeatherColor", in,
                                {{"pattern", std::string(pattern)}, {"melanin", 1.0}, {"sharpness", 1.0}, {"width", 0.5}});
        std::size_t dark = 0;
        for (std::size_t p = 0; p < run.strands->pointCount(); ++p) dark += pointColor(*run.strands, p).x < 0.1f;
        EXPECT_GT(dark, 0u) << pattern;
        EXPECT_LT(dark, run.strands->pointCount() / 2) << pattern;
    }
}

}  // namespace
}  // namespace tressora
