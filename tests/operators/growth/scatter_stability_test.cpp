// A root's id and spot depend on the seed and its place alone: not on the density, the
// preview share, the frame, the randomness or the number of threads.

#include <gtest/gtest.h>

#include "core/hash.h"
#include "scatter_fixture.h"
#include "../thread_runs.h"

namespace tressora {
namespace {

using namespace scattertest;

TEST(ScatterStability, RaisingDensityOnlyAddsRoots) {
    const auto scalp = sphere(1.0f);
    for (const double randomness : {1.0, 0.0}) {
        const auto low = run(*makeScatter({{"density", 80.0}, {"randomness", randomness}}), scalp);
        const auto high = run(*makeScatter({{"density", 160.0}, {"randomness", randomness}}), scalp);
        ASSERT_GT(low->strandCount(), 500u);
        ASSERT_GT(high->strandCount(), low->strandCount());
        const auto higher = rootsById(*high);
        for (const auto& [id, root] : rootsById(*low)) {
            const auto it = higher.find(id);
            ASSERT_NE(it, higher.end()) << "id " << id << " lost at the higher density";
            // Random spots are the same whatever the density; relaxed ones spread with it.
            if (randomness == 1.0) {
                EXPECT_EQ(it->second, root);
            }
        }
    }
}

TEST(ScatterStability, PreviewShowsASubsetWithTheSameSpotsAndAgreesWithThinned) {
    const auto scalp = sphere(2.0f);
    auto op = makeScatter({{"density", 400.0}});
    const auto full = run(*op, scalp);
    const auto all = rootsById(*full);
    std::size_t previous = 0;
    for (const float fraction : {0.1f, 0.3f, 0.6f}) {
        EvalContext context;
        context.previewFraction = fraction;
        const auto preview = run(*op, scalp, context);
        ASSERT_NE(preview->strandChannel("_preview"), nullptr);
        EXPECT_GT(preview->strandCount(), previous);
        previous = preview->strandCount();
        for (const auto& [id, root] : rootsById(*preview)) {
            ASSERT_TRUE(all.count(id));
            EXPECT_EQ(all.at(id), root);
        }
        // The share this preview shows (marks 0 and 1) is what thinning the full set keeps.
        const StrandSet thinned = full->thinned(fraction);
        const auto marks = preview->strandChannel("_preview")->values();
        std::size_t shown = 0;
        for (std::size_t i = 0; i < preview->strandCount(); ++i) shown += marks[i] < 1.5f;
        EXPECT_EQ(shown, thinned.strandCount());
        for (std::size_t i = 0; i < preview->strandCount(); ++i)
            ASSERT_EQ(marks[i] < 1.5f, unit(preview->ids()[i]) < fraction);
    }
}

TEST(ScatterStability, FramesAndADeformingScalpKeepEveryRoot) {
    ScalpMesh rest = testing::icosphere(3, 1.0f);
    rest.setRestPoints(std::vector<Vec3f>(rest.points().begin(), rest.points().end()));
    const auto still = std::make_shared<const ScalpMesh>(rest);
    auto op = makeScatter({{"density", 200.0}, {"randomness", 0.5}});
    EvalContext one;
    EvalContext five;
    five.frame = 5.0;
    const auto a = run(*op, still, one);
    EXPECT_EQ(a->fingerprint(), run(*op, still, five)->fingerprint());

    // The scalp moves and stretches: roots keep their faces and barycentrics.
    std::vector<Vec3f> moved(rest.points().begin(), rest.points().end());
    for (Vec3f& p : moved) p = Vec3f{p.x * 1.2f + 3.0f, p.y, p.z - 1.0f};
    const auto deformed = std::make_shared<const ScalpMesh>(rest.withPoints(moved));
    const auto b = run(*op, deformed, five);
    ASSERT_EQ(a->strandCount(), b->strandCount());
    for (std::size_t i = 0; i < a->strandCount(); ++i) {
        EXPECT_EQ(a->ids()[i], b->ids()[i]);
        EXPECT_EQ(a->roots()[i], b->roots()[i]);
    }
    EXPECT_NEAR(b->strandPoints(0)[0].x, a->strandPoints(0)[0].x * 1.2f + 3.0f, 1e-4f);
}

TEST(ScatterStability, OneThreadAndAllCoresGiveTheSameStrands) {
    const auto scalp = std::make_shared<const ScalpMesh>(testing::head(24, 48, 3.0f));
    const auto grid = square(20);
    struct Case {
        std::map<std::string, ParamValue> params;
        std::shared_ptr<const ScalpMesh> scalp;
    };
    const std::vector<Case> cases = {
        {{{"density", 60.0}}, scalp},
        {{{"density", 60.0}, {"randomness", 0.0}}, scalp},
        {{{"density", 60.0}, {"randomness", 0.7}}, scalp},
        {{{"density", 60.0}, {"randomness", 1.6}}, scalp},
        {{{"layout", std::string("uvGrid")}, {"gridRows", std::int64_t{90}}, {"gridRandom", 0.5}}, grid},
    };
    for (const Case& c : cases) {
        const auto fingerprints = testing::oneThreadThenAll([&] { return run(*makeScatter(c.params), c.scalp)->fingerprint(); });
        EXPECT_EQ(fingerprints.first, fingerprints.second);
    }
}

TEST(ScatterStability, IdenticalInputsGiveBitIdenticalStrandsAndTheSeedChangesThem) {
    const auto scalp = sphere(1.5f);
    const std::map<std::string, ParamValue> params{{"density", 150.0}, {"randomness", 0.3}, {"seed", std::int64_t{7}}};
    const auto a = run(*makeScatter(params), scalp);
    const auto b = run(*makeScatter(params), sphere(1.5f));
    EXPECT_EQ(a->fingerprint(), b->fingerprint());
    auto other = params;
    other["seed"] = std::int64_t{8};
    EXPECT_NE(a->fingerprint(), run(*makeScatter(other), scalp)->fingerprint());
}

TEST(ScatterStability, RandomnessMovesRootsButKeepsTheSameStrands) {
    const auto scalp = sphere(1.0f);
    auto op = makeScatter({{"density", 300.0}});
    const auto random = run(*op, scalp);
    for (const double t : {0.0, 0.25, 0.5, 1.5, 2.0}) {
        op->paramValues.set("randomness", t);
        const auto moved = run(*op, scalp);
        ASSERT_EQ(moved->strandCount(), random->strandCount());
        EXPECT_TRUE(std::equal(moved->ids().begin(), moved->ids().end(), random->ids().begin()));
        for (std::size_t i = 0; i < moved->strandCount(); ++i) ASSERT_GE(moved->roots()[i].face, 0);
    }
    // Back to 1: the random spots, exactly.
    op->paramValues.set("randomness", 1.0);
    EXPECT_EQ(run(*op, scalp)->fingerprint(), random->fingerprint());
}

TEST(ScatterStability, ARebuiltNodeTakesOverTheCacheAndTheAreaFlag) {
    const auto scalp = sphere(1.0f);
    auto first = makeScatter({{"density", 300.0}, {"randomness", 0.0}});
    EXPECT_FALSE(first->usesScalpArea());
    const auto a = run(*first, scalp);
    EXPECT_TRUE(first->usesScalpArea());
    auto second = makeScatter({{"density", 300.0}, {"randomness", 0.0}});
    second->adoptState(*first);
    EXPECT_TRUE(second->usesScalpArea());
    EXPECT_EQ(run(*second, scalp)->fingerprint(), a->fingerprint());
    second->adoptState(*second);  // itself: nothing happens
    EXPECT_TRUE(second->usesScalpArea());

    auto grid = makeScatter({{"layout", std::string("uvGrid")}});
    run(*grid, square(4));
    EXPECT_FALSE(grid->usesScalpArea());
}

}  // namespace
}  // namespace tressora
