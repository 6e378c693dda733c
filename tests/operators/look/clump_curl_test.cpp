// Clump and Curl on hand-made strands: clumps that keep their numbers whatever else changes,
// strands that converge as the strength rises, curls whose radius and frequency can be
// measured back, the points Curl adds, and every message of both nodes.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <set>

#include "core/errors.h"
#include "core/expect_text.h"
#include "core/guide_set.h"
#include "../thread_runs.h"
#include "operators/color/look_testing.h"

namespace tressora {
namespace {

using namespace looktest;

/// A 30 x 30 patch of straight strands 0.1 apart, standing 2 units along y, ids 100 + i.
StrandSet patch(std::size_t side = 30, std::size_t points = 9) {
    StrandSet set;
    std::vector<Vec3f> pts(points);
    for (std::size_t i = 0; i < side * side; ++i) {
        const float x = 0.1f * static_cast<float>(i % side), z = 0.1f * static_cast<float>(i / side);
        for (std::size_t k = 0; k < points; ++k) pts[k] = {x, 2.0f * static_cast<float>(k) / float(points - 1), z};
        set.addStrand(100 + i, StrandRoot{0, x, z}, pts);
    }
    return set;
}

std::map<std::string, ParamValue> clumps(std::int64_t count, double strength) {
    return {{"count", count}, {"strength", strength}, {"profile", Ramp{{{0.0, 1.0}, {1.0, 1.0}}, true}}};
}

/// Mean distance, over strands, of each strand's tip from its clump center's tip.
float meanSpread(const StrandSet& s) {
    std::map<float, std::vector<Vec3f>> tips;
    const StrandChannel* number = s.strandChannel("clumpId");
    for (std::size_t i = 0; i < s.strandCount(); ++i) tips[number->values()[i]].push_back(s.strandPoints(i).back());
    double sum = 0.0;
    for (const auto& [id, list] : tips) {
        Vec3f mean{};
        for (const Vec3f& p : list) mean = mean + p;
        mean = mean / static_cast<float>(list.size());
        for (const Vec3f& p : list) sum += length(p - mean);
    }
    return static_cast<float>(sum / static_cast<double>(s.strandCount()));
}

TEST(Clump, StrandsConvergeAsTheStrengthRises) {
    const StrandSet in = patch();
    float last = std::numeric_limits<float>::infinity();
    for (double strength : {0.0, 0.3, 0.6, 1.0}) {
        const auto run = runNode("Clump", in, clumps(20, strength));
        const float spread = meanSpread(*run.strands);
        EXPECT_LT(spread, last) << strength;
        last = spread;
        // A strength of 0 moves nothing but still numbers the clumps.
        if (strength == 0.0) {
            EXPECT_TRUE(std::ranges::equal(run.strands->points(), in.points()));
        }
    }
    EXPECT_LT(last, 1e-5f);  // at full strength every strand lies on its center
    // About the count asked for, each strand in one.
    std::set<float> numbers;
    const auto full = runNode("Clump", in, clumps(20, 1.0));
    for (float v : full.strands->strandChannel("clumpId")->values()) numbers.insert(v);
    EXPECT_EQ(numbers.size(), 20u);
}

TEST(Clump, NumbersFollowTheCenterWhateverElseChanges) {
    const StrandSet in = patch();
    // Frame after frame on a moving scalp: the strands move, their roots on the scalp stay,
    // and the node keeps its plan.
    auto op = OperatorRegistry::instance().create("Clump");
    for (const auto& [name, value] : clumps(25, 0.7)) op->paramValues.set(name, value);
    const auto frame = [&](Vec3f shift, float bend) {
        StrandSet moved = in;
        const std::span<Vec3f> points = moved.mutablePoints();
        for (std::size_t k = 0; k < points.size(); ++k) points[k] = points[k] + shift + Vec3f{bend * points[k].y, 0, 0};
        EvalContext context;
        return byId(*op->evaluate(context, {Value(std::make_shared<const StrandSet>(moved))}).as<StrandSet>(), "clumpId");
    };
    const auto numbers = frame({}, 0.0f);
    for (int f = 2; f <= 5; ++f) EXPECT_EQ(frame({0.3f * float(f), -0.1f, 0.05f}, 0.2f * float(f)), numbers) << f;

    // A preview holds a share of the strands; the centers come from what every preview holds.
    StrandSet marked = in;
    const std::span<float> marks = marked.addStrandChannel("_preview");
    std::vector<std::size_t> shown;
    for (std::size_t i = 0; i < marked.strandCount(); ++i) {
        const float u = unit(marked.ids()[i]);
        marks[i] = u < 0.3f ? 1.0f : 0.0f;
        if (u < 0.6f) shown.push_back(i);
    }
    const auto full = byId(*runNode("Clump", marked, clumps(25, 0.7)).strands, "clumpId");
    const auto preview = byId(*runNode("Clump", marked.subset(shown), clumps(25, 0.7)).strands, "clumpId");
    for (const auto& [id, number] : preview) EXPECT_EQ(number, full.at(id)) << id;

    // Any number of threads.
    const auto fingerprints =
        testing::oneThreadThenAll([&] { return runNode("Clump", in, clumps(25, 0.7)).strands->fingerprint(); });
    EXPECT_EQ(fingerprints.first, fingerprints.second);
}

TEST(Clump, LocksAreRoundRingsAndCurvesCanBeTheAxes) {
    const StrandSet in = patch(10, 5);
    auto params = clumps(4, 1.0);
    params["lockRadius"] = 0.05;
    const auto locks = runNode("Clump", in, params);
    // Every strand not a center ends up on a ring of the lock radius round its center's curve.
    const auto numbers = byId(*locks.strands, "clumpId");
    std::map<float, std::size_t> centerOf;
    for (std::size_t i = 0; i < in.strandCount(); ++i)
        if (locks.strands->strandPoints(i)[2] == in.strandPoints(i)[2]) centerOf[numbers.at(in.ids()[i])] = i;
    ASSERT_EQ(centerOf.size(), 4u);
    for (std::size_t i = 0; i < in.strandCount(); ++i) {
        const std::size_t c = centerOf.at(numbers.at(in.ids()[i]));
        if (c == i) continue;
        const Vec3f off = locks.strands->strandPoints(i)[3] - locks.strands->strandPoints(c)[3];
        EXPECT_NEAR(length(off), 0.05f, 1e-4f);
    }

    // inputCurves: every strand takes the curve of its nearest center root, point for point.
    auto op = OperatorRegistry::instance().create("Clump");
    for (const auto& [name, value] : clumps(0, 1.0)) op->paramValues.set(name, value);
    op->paramValues.set("centersFrom", std::string("inputCurves"));
    StrandSet curves;
    const std::vector<Vec3f> bent = {{0.2f, 0, 0.2f}, {0.4f, 0.5f, 0.2f}, {0.8f, 1.0f, 0.2f}, {1.2f, 1.5f, 0.2f}, {1.6f, 2.0f, 0.2f}};
    curves.addStrand(7, {}, bent);
    EvalContext context;
    const auto out = op->evaluate(context, {Value(std::make_shared<const StrandSet>(in)), Value(std::make_shared<const StrandSet>(curves))})
                         .as<StrandSet>();
    ASSERT_TRUE(out);
    const StrandChannel* number = out->strandChannel("clumpId");
    for (std::size_t i = 0; i < out->strandCount(); ++i) EXPECT_EQ(number->values()[i], number->values()[0]);
    // A strand of length 2 on a longer axis: its tip lands 2 along the curve.
    float left = 2.0f;
    Vec3f along = bent[0];
    for (std::size_t k = 1; k < bent.size() && left > 0.0f; ++k) {
        const float step = length(bent[k] - bent[k - 1]);
        along = bent[k - 1] + (bent[k] - bent[k - 1]) * std::min(left / step, 1.0f);
        left -= step;
    }
    const Vec3f tip = out->strandPoints(0).back();
    EXPECT_NEAR(length(tip - along), 0.0f, 1e-5f);
}

TEST(Clump, EveryMessage) {
    const StrandSet in = patch(5, 3);
    struct Case {
        std::map<std::string, ParamValue> params;
        bool centers;
        std::string note;
    };
    const std::vector<Case> cases = {
        {{{"count", std::int64_t{0}}}, false,
         "no clumps: set a count or size above 0 (or centersFrom inputPoints with centers connected); the strands pass "
         "through"},
        {{{"clumpBy", std::string("size")}, {"size", 0.0}}, false,
         "no clumps: set a count or size above 0 (or centersFrom inputPoints with centers connected); the strands pass "
         "through"},
        {{{"centersFrom", std::string("inputPoints")}}, false,
         "no clumps: connect centers (guides or strands) or set centersFrom to pick; the strands pass through"},
        {{{"count", std::int64_t{3}}}, true,
         "centers are connected but centersFrom is pick (it picks its own): set centersFrom to inputPoints or "
         "inputCurves to clump by them"},
    };
    for (const Case& c : cases) {
        auto op = OperatorRegistry::instance().create("Clump");
        for (const auto& [name, value] : c.params) op->paramValues.set(name, value);
        EvalContext context;
        std::vector<Value> inputs{Value(std::make_shared<const StrandSet>(in))};
        if (c.centers) inputs.push_back(Value(std::make_shared<const StrandSet>(patch(2, 2))));
        op->evaluate(context, inputs);
        ASSERT_FALSE(context.notes.empty());
        EXPECT_EQ(context.notes.front(), c.note);
    }
    const auto negative = runNode("Clump", in, {{"count", std::int64_t{3}}, {"strength", -0.5}});
    ASSERT_EQ(negative.notes.size(), 1u);
    EXPECT_EQ(negative.notes[0].rfind("a negative strength parts the strands around the strands nearest its centers", 0), 0u);
    // Chained Clumps writing one channel.
    const auto chained = runNode("Clump", *runNode("Clump", in, clumps(3, 0.5)).strands, clumps(2, 0.5));
    ASSERT_EQ(chained.notes.size(), 1u);
    EXPECT_NE(chained.notes[0].find("give each Clump its own clumpChannel"), std::string::npos);
    EXPECT_EQ(testing::failureText<GraphError>([&] { runNode("Clump", in, {{"centersFrom", std::string("grid")}}); }),
              "Clump: unknown centersFrom 'grid' (pick, inputPoints or inputCurves)");
}

// ---- Curl -------------------------------------------------------------------------------

/// One straight strand of `points` points, `height` long along y.
StrandSet rod(std::size_t points, float height = 10.0f) { return straightStrands(1, points, 5, 1, height); }

/// Turns about the y axis from point a to point b, each step's angle taken the short way round.
double turnsBetween(std::span<const Vec3f> p, std::size_t a, std::size_t b) {
    double turns = 0.0;
    for (std::size_t k = a + 1; k <= b; ++k) {
        double step = std::atan2(p[k].z, p[k].x) - std::atan2(p[k - 1].z, p[k - 1].x);
        step -= 2 * std::numbers::pi * std::round(step / (2 * std::numbers::pi));
        turns += std::abs(step) / (2 * std::numbers::pi);
    }
    return turns;
}

std::map<std::string, ParamValue> plainCurl(const std::string& shape, double radius, double frequency) {
    return {{"shape", shape}, {"radius", radius}, {"frequency", frequency}, {"randomness", 0.0}, {"phaseRandom", 0.0}};
}

TEST(Curl, AHelixHasTheRadiusAndFrequencyAsked) {
    const auto run = runNode("Curl", rod(201), plainCurl("helix", 0.5, 0.4));
    const auto pts = run.strands->strandPoints(0);
    ASSERT_EQ(pts.size(), 201u);  // 4 turns need 12 segments: none added
    // Past the quarter turn it eases in over, each point is the radius off the line.
    std::size_t first = 0;
    for (std::size_t k = 0; k < pts.size(); ++k) {
        if (pts[k].y <= 0.7f) continue;
        first = first ? first : k;
        EXPECT_NEAR(std::hypot(pts[k].x, pts[k].z), 0.5f, 2e-3f) << k;
    }
    // 0.4 turns a unit over the 9.3 units past y = 0.7.
    EXPECT_NEAR(turnsBetween(pts, first - 1, pts.size() - 1), 0.4 * 9.3, 0.05);
    EXPECT_EQ(pts.front(), Vec3f(0, 0, 0));  // the root stays
}

TEST(Curl, PointsAreAddedWhereTheCurlNeedsThem) {
    struct Case {
        double tolerance;
        std::int64_t maxSegments;
        std::size_t points;
    };
    // 0.4 turns a unit over 10 units: 4 turns.
    for (const Case& c : std::vector<Case>{{0.5, 256, 13}, {0.3, 256, 17}, {0.1, 256, 29}, {0.03, 256, 53}, {0.1, 20, 21}, {0.0, 256, 9}}) {
        auto params = plainCurl("helix", 0.5, 0.4);
        params["tolerance"] = c.tolerance;
        params["maxSegments"] = c.maxSegments;
        const auto run = runNode("Curl", rod(9), params);
        EXPECT_EQ(run.strands->pointCount(), c.points) << c.tolerance;
        EXPECT_TRUE(run.strands->validate());
    }
    // Too few points a turn, with no points added: the note says so.
    auto op = OperatorRegistry::instance().create("Curl");
    for (const auto& [name, value] : plainCurl("helix", 0.5, 0.4)) op->paramValues.set(name, value);
    op->paramValues.set("tolerance", 0.0);
    EvalContext context;
    op->evaluate(context, {Value(std::make_shared<const StrandSet>(rod(9)))});
    EXPECT_EQ(op->note(context).rfind("Curl winds some strands with 2 points a turn or fewer", 0), 0u) << op->note(context);
}

TEST(Curl, ShapesWavesZigzagsAndCoils) {
    const StrandSet in = rod(401);
    const auto offsets = [&](const std::map<std::string, ParamValue>& params) {
        std::vector<Vec3f> out;
        const auto run = runNode("Curl", in, params);
        for (const Vec3f& p : run.strands->strandPoints(0)) out.push_back({p.x, 0.0f, p.z});
        return out;
    };
    // A wave lies in one plane through the line; a zigzag too, with kinks of the full radius.
    for (const char* shape : {"wave", "zigzag"}) {
        const std::vector<Vec3f> off = offsets(plainCurl(shape, 0.5, 0.4));
        const Vec3f plane = normalized(*std::ranges::max_element(off, {}, [](Vec3f o) { return length(o); }));
        float biggest = 0.0f;
        for (const Vec3f& o : off) {
            EXPECT_NEAR(length(o - plane * dot(o, plane)), 0.0f, 1e-4f) << shape;
            biggest = std::max(biggest, length(o));
        }
        EXPECT_NEAR(biggest, 0.5f, 0.01f) << shape;
    }
    // A coil's radius is coilWidths strand widths.
    StrandSet wide = in;
    for (float& w : wide.mutableWidths()) w = 0.02f;
    auto coil = plainCurl("coil", 0.5, 0.4);
    coil["coilWidths"] = 3.0;
    const auto coiled = runNode("Curl", wide, coil).strands;
    const Vec3f at = coiled->strandPoints(0)[300];
    EXPECT_NEAR(std::hypot(at.x, at.z), 0.06f, 1e-4f);
}

TEST(Curl, StrandsOfAClumpCurlTogether) {
    StrandSet in = straightStrands(4, 41, 1, 1, 10.0f);
    const auto coherent = std::map<std::string, ParamValue>{{"coherence", std::string("clump")}, {"randomness", 0.6}};
    EXPECT_EQ(testing::failureText<GraphError>([&] { runNode("Curl", in, coherent); }),
              "Curl: coherence clump needs a Clump before it (no 'clumpId' channel)");
    const std::span<float> clump = in.addStrandChannel("clumpId");
    clump[0] = clump[1] = 7.0f;
    clump[2] = clump[3] = 9.0f;
    const auto out = runNode("Curl", in, coherent).strands;
    const auto offset = [&](std::size_t s, std::size_t k) { return out->strandPoints(s)[k] - in.strandPoints(s)[k]; };
    for (std::size_t k = 0; k < 41; ++k) {
        EXPECT_LT(length(offset(0, k) - offset(1, k)), 1e-6f);
        EXPECT_LT(length(offset(2, k) - offset(3, k)), 1e-6f);
    }
    EXPECT_NE(offset(0, 30), offset(2, 30));
}

TEST(Curl, WeightOpensTheTurnsThatHangAboveTheMost) {
    // A strand hanging down: with weight its turns spread near the root, keeping their length.
    StrandSet hanging;
    std::vector<Vec3f> pts;
    for (int k = 0; k <= 400; ++k) pts.push_back({0, -10.0f * float(k) / 400.0f, 0});
    hanging.addStrand(1, {}, pts);
    auto params = plainCurl("helix", 0.3, 1.0);
    params["weight"] = 1.0;
    const auto run = runNode("Curl", hanging, params).strands;
    const auto weighted = run->strandPoints(0);
    // Spacing opens by 1 + turns below / 10: 9 turns hang below y = -1, one below y = -9.
    EXPECT_NEAR(turnsBetween(weighted, 20, 60), 1.0 / 1.9, 0.05);
    EXPECT_NEAR(turnsBetween(weighted, 340, 380), 1.0 / 1.1, 0.05);
    EXPECT_LT(std::hypot(weighted[40].x, weighted[40].z), 0.3f);  // the radius narrows where it stretches
}

}  // namespace
}  // namespace tressora
