// Evaluating several points per instruction dispatch must give, bit for bit, what evaluating
// each point alone gives: for every kind of instruction, for number and vector programs, for
// calls that read their point's environment and for point channels.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "core/hash.h"
#include "expression/interpreter.h"
#include "expression_test_util.h"

namespace tressora {
namespace {

using testing::compileEither;

struct Points {
    std::vector<float> px, py, pz, t, u;
    std::vector<std::size_t> index;
};

Points drawPoints(std::size_t count, std::uint64_t seed) {
    DrawStream s(seed);
    Points p;
    for (std::size_t i = 0; i < count; ++i) {
        const float scale = (i % 5 == 4) ? 3.0e4f : 6.0f;
        p.px.push_back((s.nextUnit() * 2.0f - 1.0f) * scale);
        p.py.push_back((s.nextUnit() * 2.0f - 1.0f) * scale);
        p.pz.push_back((s.nextUnit() * 2.0f - 1.0f) * scale);
        p.t.push_back(i % 7 == 3 ? 0.0f : s.nextUnit());
        p.u.push_back(s.nextUnit());
        p.index.push_back(static_cast<std::size_t>(s.next() % 12));
    }
    // Values that test the edges of the fast paths: -0, a lattice point, a huge and a
    // non-finite coordinate.
    if (count > 3) {
        p.px[1] = -0.0f;
        p.py[2] = 8388608.0f;
        p.pz[3] = std::numeric_limits<float>::infinity();
        p.px[count - 1] = std::numeric_limits<float>::quiet_NaN();
    }
    return p;
}

/// Compares evaluateBatch with evaluate for every point, in batches of `count`.
void expectBatchMatches(const std::string& text, std::size_t count) {
    SCOPED_TRACE(text + ", " + std::to_string(count) + " points");
    const auto e = compileEither(text);
    const Points p = drawPoints(count, std::hash<std::string>{}(text));
    // One point-channel table (a channel read by name resolves to entry 0 of the lists).
    std::vector<float> density(12);
    for (std::size_t i = 0; i < density.size(); ++i) density[i] = 0.25f * static_cast<float>(i) - 1.0f;
    const std::span<const float> tables[] = {density, density};
    ExpressionEnvironment env;
    env[kSlotRand] = 0.375f;
    env[kSlotLength] = 3.5f;
    env[kSlotId] = 17.0f;
    env.pointChannels = tables;
    env.strandChannels = tables;

    const ExpressionSlot slots[] = {kSlotPx, kSlotPy, kSlotPz, kSlotT, kSlotU};
    const float* values[] = {p.px.data(), p.py.data(), p.pz.data(), p.t.data(), p.u.data()};
    std::vector<float> batch(count + 1, 99.0f);
    evaluateBatch(*e, env, ExpressionPoints{slots, values, p.index.data(), count}, batch.data());
    for (std::size_t i = 0; i < count; ++i) {
        ExpressionEnvironment one = env;
        one[kSlotPx] = p.px[i];
        one[kSlotPy] = p.py[i];
        one[kSlotPz] = p.pz[i];
        one[kSlotT] = p.t[i];
        one[kSlotU] = p.u[i];
        one.point = p.index[i];
        const float alone = e->evaluate(one);
        ASSERT_EQ(std::bit_cast<std::uint32_t>(batch[i]), std::bit_cast<std::uint32_t>(alone))
            << "point " << i << ": " << batch[i] << " against " << alone;
    }
    EXPECT_EQ(batch[count], 99.0f) << "wrote past the last point";
}

const char* const kPrograms[] = {
    "noise(pointP * 4) * (1 - t)",
    "snoise(pointP) + noise(px, py) + noise(px, py, pz) + noise(px, py, pz, t)",
    "(px * 2 + py) * (1 - t) + pz",
    "-px / (py - 0.5) + px % 3 - py ^ 2 + (px < py) + (px >= t) + (t == 0) + (t != 0)",
    "t > 0.5 ? px : py",
    "([px, py, pz] * 2 - [1, t, 3]).y + length(-pointP) + (t < 0.3 ? [1, 2, 3] : pointP).z",
    "vnoise(pointP * 0.5) * t + cnoise(pointP)",
    "fbm(pointP * 3) * curve(t, 0, 1, 4, 1, 0, 4) + rand(2) + rand + hash(px, t)",
    "turbulence(pointP, 3) + voronoi(pointP, 2) + cellnoise(pointP) + pnoise(pointP, [4, 4, 4])",
    "clamp(px, -1, 1) + smoothstep(t, 0.2, 0.8) + mix(px, py, t) + fit(t, 0, 1, px, py) + sin(px) + pow(t, py)",
    "density * t + length * id + u",
    "$a = pointP * t; $b = $a.x + u; $a.z * $b",
    "map(\"mask\") + cmap(\"mask\").y",
    "[px, py, pz]",
    "rotate(pointP, [0, 1, 0], t) * noise(pointP)",
    "2",
};

TEST(ExpressionBatch, EveryProgramMatchesPointByPointEvaluation) {
    for (const char* text : kPrograms)
        for (std::size_t count : {std::size_t{1}, std::size_t{5}, kExpressionBatch, std::size_t{37}})
            expectBatchMatches(text, count);
}

TEST(ExpressionBatch, SharedSlotsComeFromTheEnvironment) {
    // Only t varies; the position comes from the environment for every point.
    const auto e = compileEither("noise(pointP) * t + px");
    ExpressionEnvironment env;
    env[kSlotPx] = 1.25f;
    env[kSlotPy] = -3.5f;
    env[kSlotPz] = 0.75f;
    const float t[] = {0.0f, 0.5f, 1.0f};
    const ExpressionSlot slots[] = {kSlotT};
    const float* values[] = {t};
    float out[3];
    evaluateBatch(*e, env, ExpressionPoints{slots, values, nullptr, 3}, out);
    for (int i = 0; i < 3; ++i) {
        ExpressionEnvironment one = env;
        one[kSlotT] = t[i];
        EXPECT_EQ(out[i], e->evaluate(one));
    }
    EXPECT_EQ(out[0], 1.25f);
}

}  // namespace
}  // namespace tressora
