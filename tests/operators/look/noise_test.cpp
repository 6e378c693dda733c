#include "core/guide_set.h"
#include "../thread_runs.h"
#include "operators/color/look_testing.h"

namespace tressora {
namespace {

using namespace looktest;

/// Each strand's points by id.
std::map<std::uint64_t, std::vector<Vec3f>> pointsById(const StrandSet& s) {
    std::map<std::uint64_t, std::vector<Vec3f>> out;
    for (std::size_t i = 0; i < s.strandCount(); ++i) {
        const auto pts = s.strandPoints(i);
        out[s.ids()[i]].assign(pts.begin(), pts.end());
    }
    return out;
}

TEST(Noise, DisplacementOfAStrandDependsOnItsIdNotOnTheOtherStrands) {
    const StrandSet all = straightStrands(300, 9, 50, 13, 10.0f);
    std::vector<std::size_t> every5th;
    for (std::size_t i = 0; i < all.strandCount(); i += 5) every5th.push_back(i);
    for (const char* space : {"strand", "world"})
        for (const char* mode : {"smooth", "kinky"}) {
            const std::map<std::string, ParamValue> params{{"space", std::string(space)}, {"mode", std::string(mode)},
                                                           {"fraction", 0.7}, {"frequency", 0.5}};
            const auto dense = pointsById(*runNode("Noise", all, params).strands);
            const auto sparse = pointsById(*runNode("Noise", all.subset(every5th), params).strands);
            for (const auto& [id, pts] : sparse) EXPECT_EQ(pts, dense.at(id)) << space << " " << mode << " id " << id;
        }
}

TEST(Noise, ResultIsTheSameOnOneThreadAsOnAll) {
    const StrandSet in = straightStrands(20000, 9, 1, 1, 5.0f);
    const auto fingerprints = testing::oneThreadThenAll(
        [&] { return runNode("Noise", in, {{"octaves", std::int64_t{4}}}).strands->fingerprint(); });
    EXPECT_EQ(fingerprints.first, fingerprints.second);
    EXPECT_NE(fingerprints.first, in.fingerprint());
}

TEST(Noise, RootsStayAndAFractionPicksStrandsById) {
    const StrandSet in = straightStrands(400, 9, 1, 1, 4.0f);
    const looktest::NodeRun run = runNode("Noise", in, {{"fraction", 0.25}});
    std::size_t moved = 0;
    for (std::size_t i = 0; i < in.strandCount(); ++i) {
        EXPECT_EQ(run.strands->strandPoints(i)[0], in.strandPoints(i)[0]);
        moved += run.strands->strandPoints(i)[8] != in.strandPoints(i)[8];
    }
    EXPECT_GT(moved, 60u);
    EXPECT_LT(moved, 140u);
}

TEST(Noise, WorldSpaceMovesNeighboursAlikeAndStrandSpaceDoesNot) {
    StrandSet twins = straightStrands(1, 9, 1);
    twins.append(straightStrands(1, 9, 2));  // same points, another id
    const looktest::NodeRun world = runNode("Noise", twins, {{"space", std::string("world")}});
    EXPECT_EQ(world.strands->strandPoints(0)[5], world.strands->strandPoints(1)[5]);
    const looktest::NodeRun strand = runNode("Noise", twins);
    EXPECT_NE(strand.strands->strandPoints(0)[5], strand.strands->strandPoints(1)[5]);
}

TEST(Noise, FinerThanThePointsIsANoteAndFadesOut) {
    const StrandSet in = straightStrands(10, 5);
    const looktest::NodeRun fine = runNode("Noise", in, {{"frequency", 40.0}}, "noise");
    EXPECT_EQ(fine.notes, std::vector<std::string>{"noise is finer than the strands' 4 segments draw: the noise fades "
                                                   "out; raise Resample's segments or lower the frequency"});
    EXPECT_EQ(fine.strands->fingerprint(), in.fingerprint());  // all octaves faded away
    const looktest::NodeRun coarse = runNode("Noise", in, {{"frequency", 2.0}}, "noise");
    EXPECT_TRUE(coarse.notes.empty());
    EXPECT_NE(coarse.strands->fingerprint(), in.fingerprint());
    const looktest::NodeRun between = runNode("Noise", in, {{"frequency", 6.0}, {"octaves", std::int64_t{1}}}, "noise");
    EXPECT_EQ(between.notes.size(), 1u);  // weaker, not gone
    EXPECT_NE(between.strands->fingerprint(), in.fingerprint());
}

TEST(Noise, DisplacesGuidesAndKeepsTheirData) {
    GuideSet guides;
    const std::vector<Vec3f> pts{{0, 0, 0}, {0, 1, 0}, {0, 2, 0}, {0, 3, 0}, {0, 4, 0}};
    guides.addGuide(11, {}, pts, GuideTube{}, {{"group", 2.0f}}, {{"layer", {1, 2, 3, 4, 5}}});
    guides.addGuide(12, {}, pts, GuideTube{}, {{"group", 3.0f}});
    auto op = OperatorRegistry::instance().create("Noise");
    EvalContext context;
    const auto out = op->evaluate(context, {Value(std::make_shared<const GuideSet>(guides))}).as<GuideSet>();
    ASSERT_TRUE(out);
    EXPECT_EQ(std::vector<std::uint64_t>(out->ids().begin(), out->ids().end()), (std::vector<std::uint64_t>{11, 12}));
    EXPECT_EQ(*out->attribute("group"), (std::vector<float>{2, 3}));
    EXPECT_EQ((*out->pointAttribute("layer"))[3], 4.0f);
    EXPECT_NE(out->guidePoints(0)[4], pts[4]);
    EXPECT_EQ(op->output().type, PortType::Curves);
}

}  // namespace
}  // namespace tressora
