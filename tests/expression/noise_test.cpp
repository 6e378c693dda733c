// The noise functions of the language: which basis and seed each reads and how it remaps it,
// fractal sums of octaves, continuity, range, periodicity and cell values. The basis itself is
// pinned bit for bit in noise_pinned_test.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>

#include "core/hash.h"
#include "expression/noise.h"
#include "expression_test_util.h"

namespace tressora {
namespace {

using testing::compileEither;
using testing::eval;

struct Sampler {
    std::mt19937 rng{12345};
    std::uniform_real_distribution<float> coord{-40.0f, 40.0f};
    ExpressionEnvironment next() {
        ExpressionEnvironment env;
        env[kSlotX] = coord(rng);
        env[kSlotY] = coord(rng);
        env[kSlotZ] = coord(rng);
        return env;
    }
};

/// The engine's gradient basis at p * scale, `width` components.
Vec3f basis(const ExpressionEnvironment& env, float scale, std::uint64_t seed, int width) {
    const float q[3] = {env[kSlotX] * scale, env[kSlotY] * scale, env[kSlotZ] * scale};
    float out[3] = {0, 0, 0};
    exprlib::perlin3(q, seed, width, out);
    return {out[0], out[1], out[2]};
}

TEST(ExpressionNoise, EachFunctionReadsItsBasisSeedAndRemap) {
    const auto snoise = compileEither("snoise(P)"), noise = compileEither("noise(P)");
    const auto vnoise = compileEither("vnoise(P)"), cnoise = compileEither("cnoise(P)");
    Sampler s;
    for (int n = 0; n < 300; ++n) {
        const ExpressionEnvironment env = s.next();
        const float signedValue = basis(env, 1, exprlib::kSnoiseSeed, 1).x;
        EXPECT_NEAR(snoise->evaluate(env), signedValue, 1e-6);
        EXPECT_NEAR(noise->evaluate(env), signedValue * 0.5f + 0.5f, 1e-6);
        const Vec3f ref = basis(env, 1, exprlib::kVnoiseSeed, 3);
        const Vec3f v = vnoise->evaluateVector(env), c = cnoise->evaluateVector(env);
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(v[k], ref[k], 1e-6);
            EXPECT_NEAR(c[k], ref[k] * 0.5f + 0.5f, 1e-6);
        }
        // Asking for fewer components leaves the first ones as they are.
        EXPECT_EQ(basis(env, 1, exprlib::kVnoiseSeed, 1).x, ref.x);
    }
    // noise of 1, 2 or 3 numbers is noise of that point, zeros filling in.
    EXPECT_EQ(eval("noise(0.3, 1.7)"), eval("noise([0.3, 1.7, 0])"));
    EXPECT_EQ(eval("noise(0.3, 1.7, 2.2)"), eval("noise([0.3, 1.7, 2.2])"));
    EXPECT_EQ(eval("noise(0.4)"), eval("noise([0.4, 0.4, 0.4])"));
}

TEST(ExpressionNoise, LatticePointsAreZeroAndCellFacesAreContinuous) {
    EXPECT_EQ(eval("noise([3, -2, 7])"), 0.5f);
    EXPECT_EQ(eval("snoise([3, -2, 7])"), 0.0f);
    EXPECT_EQ(testing::evalVector("vnoise([-5, 0, 1])"), (Vec3f{0, 0, 0}));
    const auto snoise = compileEither("snoise(P)");
    Sampler s;
    for (int n = 0; n < 200; ++n) {
        ExpressionEnvironment a = s.next();
        const int axis = n % 3;
        a.slots[kSlotX + axis] = std::round(a.slots[kSlotX + axis]);
        ExpressionEnvironment below = a, above = a;
        below.slots[kSlotX + axis] -= 1e-4f;
        above.slots[kSlotX + axis] += 1e-4f;
        // The slope is bounded by a few units, so a step of 2e-4 moves the value very little.
        EXPECT_NEAR(snoise->evaluate(below), snoise->evaluate(above), 2e-3);
        EXPECT_NEAR(snoise->evaluate(a), snoise->evaluate(above), 1e-3);
    }
}

TEST(ExpressionNoise, NoiseStaysInItsRangeAndUsesMostOfIt) {
    const auto noise = compileEither("noise(P * 0.37)");
    const auto snoise = compileEither("snoise(P)");
    Sampler s;
    float lo = 1, hi = 0, extreme = 0;
    for (int n = 0; n < 100000; ++n) {
        const ExpressionEnvironment env = s.next();
        const float v = noise->evaluate(env);
        lo = std::min(lo, v);
        hi = std::max(hi, v);
        extreme = std::max(extreme, std::fabs(snoise->evaluate(env)));
    }
    EXPECT_GE(lo, 0.0f);
    EXPECT_LE(hi, 1.0f);
    EXPECT_LT(lo, 0.15f);
    EXPECT_GT(hi, 0.85f);
    EXPECT_LE(extreme, 1.0f);
}

TEST(ExpressionNoise, FourDimensionalNoiseIsContinuousInEveryAxis) {
    const auto snoise4 = compileEither("snoise4(P, t)");
    const auto cnoise4 = compileEither("cnoise4(P, t)");
    const auto vnoise4 = compileEither("vnoise4(P, t)");
    Sampler s;
    for (int n = 0; n < 100; ++n) {
        ExpressionEnvironment env = s.next();
        env[kSlotT] = std::round(env[kSlotX]);
        ExpressionEnvironment near = env;
        near[kSlotT] += 1e-4f;
        EXPECT_NEAR(snoise4->evaluate(env), snoise4->evaluate(near), 1e-3);
        EXPECT_LE(std::fabs(snoise4->evaluate(env)), 1.0f);
        const Vec3f v = vnoise4->evaluateVector(env), c = cnoise4->evaluateVector(env);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(c[k], v[k] * 0.5f + 0.5f, 1e-6);
    }
    EXPECT_EQ(eval("snoise4([1, 2, 3], 0.37)"), 0.0f);
    EXPECT_NE(eval("snoise4([1.5, 2.2, 3.1], 0.37)"), eval("snoise4([1.5, 2.2, 3.1], 1.37)"));
    EXPECT_NEAR(eval("noise(1.5, 2.2, 3.1, 0.4)"), eval("snoise4([1.5, 2.2, 3.1], 0.4)") * 0.5f + 0.5f, 1e-6);
}

TEST(ExpressionNoise, PeriodicNoiseRepeatsEveryPeriod) {
    const auto pnoise = compileEither("pnoise(P, [4, 3, 1])");
    const auto shifted = compileEither("pnoise(P + [8, -3, 5], [4, 3, 1])");
    const auto unit = compileEither("pnoise(P, 0)");
    const auto unitShifted = compileEither("pnoise(P + 1, 0)");
    Sampler s;
    for (int n = 0; n < 100; ++n) {
        ExpressionEnvironment env = s.next();
        for (int a = 0; a < 3; ++a) env.slots[kSlotX + a] *= 0.1f;  // keep the shift exact in float
        EXPECT_NEAR(pnoise->evaluate(env), shifted->evaluate(env), 1e-5);
        EXPECT_NEAR(unit->evaluate(env), unitShifted->evaluate(env), 1e-5);
    }
    EXPECT_EQ(eval("pnoise([2, 1, 0], [4, 4, 4])"), 0.0f);
}

TEST(ExpressionNoise, FractalSumsAreNormalisedOctaves) {
    // Octave k reads the basis at p * lacunarity^k with the seed combine(seed, k), weighed
    // gain^k, and the sum is divided by the weights' total; turbulence sums magnitudes.
    const auto fbm1 = compileEither("fbm(P, 1)");
    const auto fbm0 = compileEither("fbm(P, 0)");
    const auto fbm2 = compileEither("fbm(P, 2, 3, 0.5)");
    const auto turbulence2 = compileEither("turbulence(P, 2, 3, 0.5)");
    const auto vfbm2 = compileEither("vfbm(P, 2, 3, 0.5)");
    const auto cturbulence2 = compileEither("cturbulence(P, 2, 3, 0.5)");
    Sampler s;
    for (int n = 0; n < 100; ++n) {
        const ExpressionEnvironment env = s.next();
        const float a = basis(env, 1, combine(exprlib::kSnoiseSeed, 0), 1).x;
        const float b = basis(env, 3, combine(exprlib::kSnoiseSeed, 1), 1).x;
        EXPECT_EQ(fbm0->evaluate(env), fbm1->evaluate(env));
        EXPECT_NEAR(fbm1->evaluate(env), a * 0.5 + 0.5, 1e-5);
        EXPECT_NEAR(fbm2->evaluate(env), (a + 0.5 * b) / 1.5 * 0.5 + 0.5, 1e-5);
        EXPECT_NEAR(turbulence2->evaluate(env), (std::fabs(a) + 0.5 * std::fabs(b)) / 1.5 + 0.5, 1e-5);
        const Vec3f va = basis(env, 1, combine(exprlib::kVnoiseSeed, 0), 3);
        const Vec3f vb = basis(env, 3, combine(exprlib::kVnoiseSeed, 1), 3);
        const Vec3f v = vfbm2->evaluateVector(env), c = cturbulence2->evaluateVector(env);
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(v[k], (va[k] + 0.5 * vb[k]) / 1.5, 1e-5);
            EXPECT_NEAR(c[k], (std::fabs(va[k]) + 0.5 * std::fabs(vb[k])) / 1.5 + 0.5, 1e-5);
        }
    }
    // Any count of octaves stays in range; absurd counts are capped, not run.
    EXPECT_EQ(eval("fbm([0.3, 0.7, 0.1], 1e9)"), eval("fbm([0.3, 0.7, 0.1], 32)"));
    for (const char* text : {"fbm(P, 12, 2, 1)", "fbm4(P, t, 8)", "cfbm4(P, t).y"}) {
        const auto e = compileEither(text);
        for (int n = 0; n < 200; ++n) {
            const float v = e->evaluate(s.next());
            EXPECT_GE(v, 0.0f) << text;
            EXPECT_LE(v, 1.0f) << text;
        }
    }
}

TEST(ExpressionNoise, CellNoiseIsOneValuePerUnitCell) {
    const auto cell = [](std::int64_t a, std::int64_t b, std::int64_t c) {
        const std::uint64_t h = combine(combine(combine(exprlib::kCellSeed, static_cast<std::uint64_t>(a)),
                                                static_cast<std::uint64_t>(b)),
                                        static_cast<std::uint64_t>(c));
        return unitFromBits(h);
    };
    EXPECT_EQ(eval("cellnoise([0.1, 0.2, 0.3])"), cell(0, 0, 0));
    EXPECT_EQ(eval("cellnoise([0.9, 0.8, 0.7])"), cell(0, 0, 0));
    EXPECT_EQ(eval("cellnoise([-0.5, 2.5, 7])"), cell(-1, 2, 7));
    const Vec3f c = testing::evalVector("ccellnoise([3.5, -1.5, 2])");
    EXPECT_EQ(testing::evalVector("ccellnoise([3.1, -1.9, 2.9])"), c);
    for (int k = 0; k < 3; ++k) {
        EXPECT_GE(c[k], 0.0f);
        EXPECT_LT(c[k], 1.0f);
    }
    EXPECT_NE(c.x, c.y);
}

}  // namespace
}  // namespace tressora
