// Where roots may stand: near the guides (discs and tube footprints) and on a UV grid.

#include <gtest/gtest.h>

#include <cmath>

#include "core/hash.h"
#include "scatter_fixture.h"

namespace tressora {
namespace {

using namespace scattertest;

GuideTube plainTube() { return GuideTube{{1.0f}, {1.0f}, {0.0f}, "", {0, 1, 0}}; }

TEST(ScatterPlacement, GuideRadiusKeepsRootsNearTheGuidesRoots) {
    const auto scalp = square(20, 4.0f);
    auto guides = std::make_shared<GuideSet>();
    const std::vector<Vec3f> a{{1, 1, 0}, {1, 1, 1}}, b{{3, 3, 0}, {3, 3, 1}};
    guides->addGuide(1, {}, a, plainTube());
    guides->addGuide(2, {}, b, plainTube());
    auto op = makeScatter({{"density", 400.0}, {"guideRadius", 0.5}});
    std::vector<Value> inputs{Value(scalp), Value(std::shared_ptr<const GuideSet>(guides))};
    EvalContext context;
    const auto set = op->evaluate(context, inputs).as<StrandSet>();
    // Two discs of radius 0.5 at density 400: about 2 x 0.785 x 400 roots.
    EXPECT_NEAR(static_cast<double>(set->strandCount()), 2 * 3.14159 * 0.25 * 400, 60.0);
    for (std::size_t i = 0; i < set->strandCount(); ++i) {
        const Vec3f p = set->strandPoints(i)[0];
        const float near = std::min(length(p - a[0]), length(p - b[0]));
        ASSERT_LE(near, 0.5f + 1e-5f);
    }
    // Every one of them is a root of the whole scalp, in the same spot.
    const auto whole = rootsById(*run(*makeScatter({{"density", 400.0}}), scalp));
    for (const auto& [id, root] : rootsById(*set)) EXPECT_EQ(whole.at(id), root);
    // Relaxed, they stay in the discs.
    op->paramValues.set("randomness", 0.0);
    const auto even = op->evaluate(context, inputs).as<StrandSet>();
    for (std::size_t i = 0; i < even->strandCount(); ++i) {
        const Vec3f p = even->strandPoints(i)[0];
        ASSERT_LE(std::min(length(p - a[0]), length(p - b[0])), 0.5f + 1e-5f);
    }
}

TEST(ScatterPlacement, AShapedTubeKeepsRootsOnItsFootprintAndTheMarginWidensIt) {
    const auto scalp = square(20, 4.0f);
    auto guides = std::make_shared<GuideSet>();
    // A ribbon rising from (2, 2): its root section lies flat on the square.
    GuideTube ribbon{{1.0f}, {0.2f}, {0.0f}, "ribbon", {0, 1, 0}};
    const std::vector<Vec3f> points{{2, 2, 0}, {2, 2, 1}, {2, 2, 2}};
    guides->addGuide(1, {}, points, ribbon);
    std::vector<Value> inputs{Value(scalp), Value(std::shared_ptr<const GuideSet>(guides))};
    EvalContext context;
    auto op = makeScatter({{"density", 400.0}, {"guideRadius", 0.1}});
    const auto tight = op->evaluate(context, inputs).as<StrandSet>();
    ASSERT_GT(tight->strandCount(), 20u);
    float spreadX = 0, spreadY = 0;
    for (std::size_t i = 0; i < tight->strandCount(); ++i) {
        const Vec3f p = tight->strandPoints(i)[0];
        spreadX = std::max(spreadX, std::abs(p.x - 2.0f));
        spreadY = std::max(spreadY, std::abs(p.y - 2.0f));
        ASSERT_LE(length(p - points[0]), 1.0f + 1e-4f) << "no further than the half-width";
    }
    // The ribbon is wide one way and thin the other: the footprint is no disc of the radius.
    EXPECT_GT(std::max(spreadX, spreadY), 0.5f);
    EXPECT_LT(std::min(spreadX, spreadY), 0.3f);
    op->paramValues.set("tubeMargin", 0.5);
    const auto wider = op->evaluate(context, inputs).as<StrandSet>();
    EXPECT_GT(wider->strandCount(), tight->strandCount());
}

TEST(ScatterPlacement, AUvGridPutsOneRootInEachCellWithStableIds) {
    const auto scalp = square(6);
    auto op = makeScatter({{"layout", std::string("uvGrid")}, {"gridRows", std::int64_t{10}},
                           {"gridColumns", std::int64_t{20}}, {"density", 0.0}});
    const auto set = run(*op, scalp);
    ASSERT_EQ(set->strandCount(), 200u) << "the grid ignores a constant density";
    const std::uint64_t s = hash64(0);
    for (std::size_t cell = 0; cell < 200; ++cell) {
        EXPECT_EQ(set->ids()[cell], combine(s, cell));
        const Vec3f p = set->strandPoints(cell)[0];
        EXPECT_NEAR(p.x, (static_cast<float>(cell % 20) + 0.5f) / 20.0f, 1e-5f);
        EXPECT_NEAR(p.y, (static_cast<float>(cell / 20) + 0.5f) / 10.0f, 1e-5f);
    }
    op->paramValues.set("gridRandom", 1.0);
    const auto jittered = run(*op, scalp);
    ASSERT_EQ(jittered->strandCount(), 200u);
    float moved = 0.0f;
    for (std::size_t cell = 0; cell < 200; ++cell) {
        const Vec3f p = jittered->strandPoints(cell)[0];
        const float dx = p.x - (static_cast<float>(cell % 20) + 0.5f) / 20.0f;
        const float dy = p.y - (static_cast<float>(cell / 20) + 0.5f) / 10.0f;
        ASSERT_LE(std::abs(dx), 0.5f / 20.0f + 1e-5f);
        ASSERT_LE(std::abs(dy), 0.5f / 10.0f + 1e-5f);
        moved = std::max(moved, std::abs(dx));
    }
    EXPECT_GT(moved, 0.01f);
    // A density map thins the grid by the same draw as the random layout.
    // A map of 1 (its top) on the right half keeps those cells whole and none of the others.
    op->paramValues.set("gridRandom", 0.0);
    const auto map = std::make_shared<const HalfMap>(1.0f, scalp, 0.5f);
    const auto thinned = run(*op, scalp, {}, {Value(std::shared_ptr<const FieldValue>(map))});
    EXPECT_EQ(thinned->strandCount(), 100u);
}

}  // namespace
}  // namespace tressora
