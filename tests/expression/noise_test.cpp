// Gradient noise, fractal sums and cell noise against a reference written from the
// definition (corner hash, twelve edge gradients, improved fade), plus continuity,
// range, periodicity and determinism.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>

#include "expression/noise.h"
#include "expression_test_util.h"
#include "reference_formulas.h"

namespace tressora {
namespace {

using testing::compileEither;

using testing::referenceHashCombine;

double refFade(double f) { return f * f * f * (f * (6 * f - 15) + 10); }

/// Component k of the gradient noise at p, from the definition, in double precision.
double refPerlin(const double p[3], std::uint64_t seed, int k) {
    static const int grad[12][3] = {{1, 1, 0}, {-1, 1, 0}, {1, -1, 0}, {-1, -1, 0}, {1, 0, 1}, {-1, 0, 1},
                                    {1, 0, -1}, {-1, 0, -1}, {0, 1, 1}, {0, -1, 1}, {0, 1, -1}, {0, -1, -1}};
    std::int64_t i[3];
    double f[3];
    for (int a = 0; a < 3; ++a) {
        i[a] = static_cast<std::int64_t>(std::floor(p[a]));
        f[a] = p[a] - std::floor(p[a]);
    }
    double corner[2][2][2];
    for (int cx = 0; cx < 2; ++cx) {
        for (int cy = 0; cy < 2; ++cy) {
            for (int cz = 0; cz < 2; ++cz) {
                std::uint64_t h = static_cast<std::uint64_t>(i[0] + cx) * 0x9E3779B185EBCA87ull ^
                                  static_cast<std::uint64_t>(i[1] + cy) * 0xC2B2AE3D27D4EB4Full ^
                                  static_cast<std::uint64_t>(i[2] + cz) * 0x165667B19E3779F9ull ^ seed;
                h = (h ^ (h >> 29)) * 0xBF58476D1CE4E5B9ull;
                h = h ^ (h >> 32);
                const int* g = grad[((h >> (16 * k)) & 0xFFFF) % 12];
                corner[cx][cy][cz] = g[0] * (f[0] - cx) + g[1] * (f[1] - cy) + g[2] * (f[2] - cz);
            }
        }
    }
    const double u = refFade(f[0]), v = refFade(f[1]), w = refFade(f[2]);
    const auto lerp = [](double a, double b, double t) { return a + (b - a) * t; };
    double yz[2][2];
    for (int cy = 0; cy < 2; ++cy) {
        for (int cz = 0; cz < 2; ++cz) yz[cy][cz] = lerp(corner[0][cy][cz], corner[1][cy][cz], u);
    }
    return lerp(lerp(yz[0][0], yz[1][0], v), lerp(yz[0][1], yz[1][1], v), w);
}

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

void pointOf(const ExpressionEnvironment& env, double p[3]) {
    p[0] = env[kSlotX];
    p[1] = env[kSlotY];
    p[2] = env[kSlotZ];
}

TEST(ExpressionNoise, GradientNoiseMatchesItsDefinition) {
    const auto snoise = compileEither("snoise(P)");
    const auto noise = compileEither("noise(P)");
    const auto vnoise = compileEither("vnoise(P)");
    const auto cnoise = compileEither("cnoise(P)");
    Sampler s;
    for (int n = 0; n < 300; ++n) {
        const ExpressionEnvironment env = s.next();
        double p[3];
        pointOf(env, p);
        const double ref = refPerlin(p, 28161, 0);
        EXPECT_NEAR(snoise->evaluate(env), ref, 1e-5);
        EXPECT_NEAR(noise->evaluate(env), ref * 0.5 + 0.5, 1e-5);
        const Vec3f v = vnoise->evaluateVector(env);
        const Vec3f c = cnoise->evaluateVector(env);
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(v[k], refPerlin(p, 28162, k), 1e-5);
            EXPECT_NEAR(c[k], refPerlin(p, 28162, k) * 0.5 + 0.5, 1e-5);
        }
    }
    // noise of 2 or 3 numbers is noise of that point with zeros.
    EXPECT_EQ(testing::eval("noise(0.3, 1.7)"), testing::eval("noise([0.3, 1.7, 0])"));
    EXPECT_EQ(testing::eval("noise(0.3, 1.7, 2.2)"), testing::eval("noise([0.3, 1.7, 2.2])"));
    EXPECT_EQ(testing::eval("noise(0.4)"), testing::eval("noise([0.4, 0.4, 0.4])"));
}

TEST(ExpressionNoise, LatticePointsAreZeroAndCellFacesAreContinuous) {
    EXPECT_EQ(testing::eval("noise([3, -2, 7])"), 0.5f);
    EXPECT_EQ(testing::eval("snoise([3, -2, 7])"), 0.0f);
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

TEST(ExpressionNoise, NoiseStaysInItsRange) {
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
    EXPECT_LT(lo, 0.15f);  // and it uses most of it
    EXPECT_GT(hi, 0.85f);
    EXPECT_LE(extreme, 1.0f);
}

TEST(ExpressionNoise, HashedNoiseIsFixedBySeedAlone) {
    float a[3], b[3], c[3];
    const float p[3] = {1.25f, -7.5f, 3.125f};
    exprlib::perlin3(p, 99, 3, a);
    exprlib::perlin3(p, 99, 3, b);
    exprlib::perlin3(p, 100, 3, c);
    EXPECT_EQ(a[0], b[0]);
    EXPECT_EQ(a[2], b[2]);
    EXPECT_NE(a[0], c[0]);
    // Asking for fewer components leaves the first ones as they are.
    float one;
    exprlib::perlin3(p, 99, 1, &one);
    EXPECT_EQ(one, a[0]);
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
    EXPECT_EQ(testing::eval("snoise4([1, 2, 3], 0.37)"), 0.0f);
    EXPECT_NE(testing::eval("snoise4([1.5, 2.2, 3.1], 0.37)"), testing::eval("snoise4([1.5, 2.2, 3.1], 1.37)"));
    EXPECT_NEAR(testing::eval("noise(1.5, 2.2, 3.1, 0.4)"),
                testing::eval("snoise4([1.5, 2.2, 3.1], 0.4)") * 0.5f + 0.5f, 1e-6);
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
    // Within one period it is ordinary gradient noise of the wrapped lattice.
    EXPECT_EQ(testing::eval("pnoise([2, 1, 0], [4, 4, 4])"), 0.0f);
}

TEST(ExpressionNoise, FractalSumsAreNormalisedOctaves) {
    Sampler s;
    const std::uint64_t s0 = referenceHashCombine(28161, 0), s1 = referenceHashCombine(28161, 1);
    const std::uint64_t v0 = referenceHashCombine(28162, 0), v1 = referenceHashCombine(28162, 1);
    const auto fbm1 = compileEither("fbm(P, 1)");
    const auto fbm0 = compileEither("fbm(P, 0)");
    const auto fbm2 = compileEither("fbm(P, 2, 3, 0.5)");
    const auto turbulence2 = compileEither("turbulence(P, 2, 3, 0.5)");
    const auto vfbm2 = compileEither("vfbm(P, 2, 3, 0.5)");
    const auto cturbulence2 = compileEither("cturbulence(P, 2, 3, 0.5)");
    for (int n = 0; n < 100; ++n) {
        const ExpressionEnvironment env = s.next();
        double p[3], p3[3];
        pointOf(env, p);
        for (int a = 0; a < 3; ++a) p3[a] = static_cast<float>(p[a] * 3.0f);
        EXPECT_EQ(fbm0->evaluate(env), fbm1->evaluate(env));
        EXPECT_NEAR(fbm1->evaluate(env), refPerlin(p, s0, 0) * 0.5 + 0.5, 1e-5);
        const double sum = (refPerlin(p, s0, 0) + 0.5 * refPerlin(p3, s1, 0)) / 1.5;
        EXPECT_NEAR(fbm2->evaluate(env), sum * 0.5 + 0.5, 1e-5);
        const double creased = (std::fabs(refPerlin(p, s0, 0)) + 0.5 * std::fabs(refPerlin(p3, s1, 0))) / 1.5;
        EXPECT_NEAR(turbulence2->evaluate(env), creased + 0.5, 1e-5);
        const Vec3f v = vfbm2->evaluateVector(env), c = cturbulence2->evaluateVector(env);
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(v[k], (refPerlin(p, v0, k) + 0.5 * refPerlin(p3, v1, k)) / 1.5, 1e-5);
            EXPECT_NEAR(c[k], (std::fabs(refPerlin(p, v0, k)) + 0.5 * std::fabs(refPerlin(p3, v1, k))) / 1.5 + 0.5,
                        1e-5);
        }
    }
    // Any count of octaves stays in range; absurd counts are capped, not run.
    EXPECT_EQ(testing::eval("fbm([0.3, 0.7, 0.1], 1e9)"), testing::eval("fbm([0.3, 0.7, 0.1], 32)"));
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
        std::uint64_t h = referenceHashCombine(exprlib::kCellSeed, static_cast<std::uint64_t>(a));
        h = referenceHashCombine(h, static_cast<std::uint64_t>(b));
        h = referenceHashCombine(h, static_cast<std::uint64_t>(c));
        return static_cast<float>(h >> 40) * 5.9604645e-8f;
    };
    EXPECT_EQ(testing::eval("cellnoise([0.1, 0.2, 0.3])"), cell(0, 0, 0));
    EXPECT_EQ(testing::eval("cellnoise([0.9, 0.8, 0.7])"), cell(0, 0, 0));
    EXPECT_EQ(testing::eval("cellnoise([-0.5, 2.5, 7])"), cell(-1, 2, 7));
    EXPECT_NE(testing::eval("cellnoise([1.5, 0, 0])"), testing::eval("cellnoise([0.5, 0, 0])"));
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
