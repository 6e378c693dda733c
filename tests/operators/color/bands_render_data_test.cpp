#include <cmath>

#include "operators/color/look_testing.h"

namespace tressora {
namespace {

using namespace looktest;

StrandSet colouredStrands(std::size_t count, std::size_t points) {
    return *runNode("HairColor", straightStrands(count, points), {{"melaninRandom", 0.0}}).strands;
}

TEST(Bands, GuardHairsTakeBandsAlongTheStrandAndUndercoatKeepsThePlainColour) {
    const StrandSet in = colouredStrands(200, 21);
    const NodeRun run = runNode("Bands", in, {{"guards", 0.5}, {"count", std::int64_t{3}}, {"randomness", 0.0}});
    const StrandSet& s = *run.strands;
    ASSERT_NE(s.pointChannel("colorR"), nullptr);
    std::size_t guards = 0;
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const PointRange r = s.pointRange(i);
        float lo = 1e9f, hi = -1e9f;
        for (std::size_t p = r.begin; p < r.end; ++p) {
            lo = std::min(lo, pointColor(s, p).x);
            hi = std::max(hi, pointColor(s, p).x);
        }
        if (hi - lo > 0.05f) ++guards;
        else EXPECT_FLOAT_EQ(pointColor(s, r.begin).x, strandColor(in, i).x);
    }
    EXPECT_GT(guards, 70u);
    EXPECT_LT(guards, 130u);
}

TEST(Bands, LongestStrandsAreTheGuardsAndAWrongChoiceIsANote) {
    StrandSet in = colouredStrands(10, 11);
    for (std::size_t i = 0; i < 10; ++i)  // strand i is i + 1 long
        for (std::size_t p = in.pointRange(i).begin; p < in.pointRange(i).end; ++p) in.mutablePoints()[p].y *= float(i + 1);
    const NodeRun run = runNode("Bands", in, {{"guards", 0.3}, {"guardsBy", std::string("longest")}, {"count", std::int64_t{2}}});
    for (std::size_t i = 0; i < 10; ++i) {
        const PointRange r = run.strands->pointRange(i);
        bool varies = false;
        for (std::size_t p = r.begin; p < r.end; ++p) varies |= pointColor(*run.strands, p).x != pointColor(*run.strands, r.begin).x;
        EXPECT_EQ(varies, i >= 7) << i;
    }
    const NodeRun bad = runNode("Bands", in, {{"guardsBy", std::string("shortest")}});
    EXPECT_EQ(bad.notes, std::vector<std::string>{"guardsBy must be random or longest"});
}

TEST(RenderData, OpacityPerPointIsOpacityTimesProfileTimesTheStrandsDraw) {
    const StrandSet in = straightStrands(100, 5, 1, 3);
    const Ramp fade{{{0.0, 1.0}, {1.0, 0.0}}, true};
    const NodeRun run = runNode("RenderData", in, {{"opacity", 0.8}, {"opacityProfile", fade}, {"opacityRandom", 0.5}});
    const StrandSet& s = *run.strands;
    const StrandChannel* opacity = s.pointChannel("opacity");
    ASSERT_NE(opacity, nullptr);
    const NodeRun again = runNode("RenderData", in.subset(std::vector<std::size_t>{7}),
                              {{"opacity", 0.8}, {"opacityProfile", fade}, {"opacityRandom", 0.5}});
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const PointRange r = s.pointRange(i);
        const float root = opacity->values()[r.begin];
        EXPECT_LE(root, 0.8f + 1e-6f);
        EXPECT_GE(root, 0.4f - 1e-6f);
        EXPECT_NEAR(opacity->values()[r.begin + 2], root * 0.5f, 1e-6f);
        EXPECT_EQ(opacity->values()[r.end - 1], 0.0f);
    }
    EXPECT_EQ(again.strands->pointChannel("opacity")->values()[0], opacity->values()[s.pointRange(7).begin]);
}

}  // namespace
}  // namespace tressora
