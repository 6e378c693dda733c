// Cellular noise: distances against a brute-force search, the nearest point, types
// and the edge mask.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "expression_test_util.h"

namespace tressora {
namespace {

using testing::compileEither;

ExpressionEnvironment at(float x, float y, float z) {
    ExpressionEnvironment env;
    env[kSlotX] = x;
    env[kSlotY] = y;
    env[kSlotZ] = z;
    return env;
}

TEST(ExpressionVoronoi, CentredCellsGiveDistancesToCellCentres) {
    // With no jitter every feature point is its cell's centre; search 5x5x5 centres by brute force.
    const auto f1 = compileEither("voronoi(P, 2, 0)");
    const auto f2 = compileEither("voronoi(P, 3, 0)");
    const auto gap = compileEither("voronoi(P, 4, 0)");
    const auto nearest = compileEither("pvoronoi(P, 0)");
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> coord(-20, 20);
    for (int n = 0; n < 200; ++n) {
        const ExpressionEnvironment env = at(coord(rng), coord(rng), coord(rng));
        std::vector<double> d;
        for (int dx = -2; dx <= 2; ++dx) {
            for (int dy = -2; dy <= 2; ++dy) {
                for (int dz = -2; dz <= 2; ++dz) {
                    const double cx = std::floor(env[kSlotX]) + dx + 0.5, cy = std::floor(env[kSlotY]) + dy + 0.5,
                                 cz = std::floor(env[kSlotZ]) + dz + 0.5;
                    d.push_back(std::hypot(cx - env[kSlotX], cy - env[kSlotY], cz - env[kSlotZ]));
                }
            }
        }
        std::sort(d.begin(), d.end());
        EXPECT_NEAR(f1->evaluate(env), d[0], 1e-5);
        EXPECT_NEAR(f2->evaluate(env), d[1], 1e-5);
        EXPECT_NEAR(gap->evaluate(env), d[1] - d[0], 1e-5);
        const Vec3f p = nearest->evaluateVector(env);
        EXPECT_EQ(p, (Vec3f{std::floor(env[kSlotX]) + 0.5f, std::floor(env[kSlotY]) + 0.5f,
                            std::floor(env[kSlotZ]) + 0.5f}));
    }
}

TEST(ExpressionVoronoi, JitteredPointsAreFeaturePointsAndDistancesOrdered) {
    const auto f1 = compileEither("voronoi(P, 2, 1)");
    const auto f2 = compileEither("voronoi(P, 3, 1)");
    const auto nearest = compileEither("pvoronoi(P, 1)");
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> coord(-20, 20);
    for (int n = 0; n < 200; ++n) {
        const ExpressionEnvironment env = at(coord(rng), coord(rng), coord(rng));
        const float d1 = f1->evaluate(env);
        EXPECT_LE(d1, f2->evaluate(env));
        EXPECT_LE(d1, std::sqrt(3.0f));
        const Vec3f p = nearest->evaluateVector(env);
        EXPECT_NEAR(length(p - Vec3f{env[kSlotX], env[kSlotY], env[kSlotZ]}), d1, 1e-4);
        // The nearest point, asked for its own nearest point, is itself.
        const ExpressionEnvironment onPoint = at(p.x, p.y, p.z);
        EXPECT_NEAR(f1->evaluate(onPoint), 0, 1e-4);
        EXPECT_EQ(nearest->evaluateVector(onPoint), p);
    }
}

TEST(ExpressionVoronoi, TypesCellValuesAndEdges) {
    // Type 1 with centred points is the cell's own value, as cellnoise; the colour form likewise.
    for (const ExpressionEnvironment& env : {at(0.2f, 0.3f, 0.4f), at(-3.7f, 8.1f, 2.2f)}) {
        EXPECT_EQ(compileEither("voronoi(P, 1, 0)")->evaluate(env), compileEither("cellnoise(P)")->evaluate(env));
        EXPECT_EQ(compileEither("cvoronoi(P, 1, 0)")->evaluateVector(env),
                  compileEither("ccellnoise(P)")->evaluateVector(env));
    }
    // The type is clamped to 1..5.
    const ExpressionEnvironment env = at(1.3f, 2.7f, -0.4f);
    EXPECT_EQ(compileEither("voronoi(P, 9)")->evaluate(env), compileEither("voronoi(P, 5)")->evaluate(env));
    EXPECT_EQ(compileEither("voronoi(P, -3)")->evaluate(env), compileEither("voronoi(P, 1)")->evaluate(env));
    // The edge mask is 1 on the border between two cells and 0 deep inside one.
    EXPECT_NEAR(compileEither("voronoi(P, 5, 0)")->evaluate(at(1.0001f, 0.5f, 0.5f)), 1.0f, 1e-3);
    EXPECT_EQ(compileEither("voronoi(P, 5, 0)")->evaluate(at(0.5f, 0.5f, 0.5f)), 0.0f);
    // Colours of other types are scaled by the type's value.
    const Vec3f colour = compileEither("cvoronoi(P, 1, 0)")->evaluateVector(at(0.6f, 0.5f, 0.5f));
    const Vec3f scaled = compileEither("cvoronoi(P, 2, 0)")->evaluateVector(at(0.6f, 0.5f, 0.5f));
    EXPECT_NEAR(scaled.x, colour.x * 0.1f, 1e-6);
    // Displacement by fractal noise moves the cells: the values change, and stay finite.
    const float plain = compileEither("voronoi(P, 2)")->evaluate(env);
    const float displaced = compileEither("voronoi(P, 2, 0.5, 0.8)")->evaluate(env);
    EXPECT_NE(plain, displaced);
}

}  // namespace
}  // namespace tressora
