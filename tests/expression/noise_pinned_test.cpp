// Noise values pinned bit for bit: a table of single values and digests over many points,
// for every width of the basis, the four-dimensional and periodic variants and the fractal
// sum. Any rewrite of the noise for speed must reproduce these exactly.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "core/hash.h"
#include "expression/noise.h"

namespace tressora {
namespace {

using namespace exprlib;

/// Points spread over several magnitudes and both signs, plus lattice points, cell faces,
/// huge and non-finite coordinates.
std::vector<std::array<float, 4>> samplePoints() {
    std::vector<std::array<float, 4>> points;
    DrawStream s(77);
    const float scales[] = {0.01f, 1.0f, 7.5f, 300.0f, 1.0e5f, 3.0e7f};
    for (float scale : scales)
        for (int i = 0; i < 2000; ++i) {
            std::array<float, 4> p;
            for (float& v : p) v = (s.nextUnit() * 2.0f - 1.0f) * scale;
            points.push_back(p);
        }
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float special[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f, -0.5f, 1e-30f, -1e-30f, 0.99999994f, -0.99999994f,
                             8388607.5f, -8388608.0f, 16777217.0f, 5e18f, -5e18f, 1e30f, inf, -inf, nan};
    for (float a : special)
        for (float b : special) points.push_back({a, b, 0.25f, a});
    return points;
}

std::uint64_t fold(std::uint64_t h, const float* v, int n) {
    for (int k = 0; k < n; ++k) h = combine(h, floatBits(v[k]));
    return h;
}

TEST(NoisePinned, SingleValuesAreUnchanged) {
    struct Case {
        float x, y, z;
        std::uint32_t bits;
    };
    const Case cases[] = {
        {0.3f, 0.6f, 0.9f, 3191809240u},      {1.25f, -2.5f, 3.75f, 3194348192u}, {-7.1f, 4.4f, -0.2f, 1040410832u},
        {123.456f, 78.9f, -5.5f, 3181064532u}, {-0.01f, -0.02f, -0.03f, 1008772928u}, {1000.5f, -2000.25f, 0.125f, 3188743838u},
        {2.0f, 3.0f, 4.0f, 0u},       {0.5f, 0.5f, 0.5f, 3187671040u},
    };
    for (const Case& c : cases) {
        const float p[3] = {c.x, c.y, c.z};
        float v = 0.0f;
        perlin3(p, kSnoiseSeed, 1, &v);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(v), c.bits) << c.x << ", " << c.y << ", " << c.z << ": " << v;
    }
}

TEST(NoisePinned, BasisDigestsAreUnchanged) {
    const auto points = samplePoints();
    std::uint64_t h[3] = {1, 2, 3};
    std::uint64_t h4 = 4, periodic = 5;
    for (const auto& p : points) {
        for (int width = 1; width <= 3; ++width) {
            float v[3];
            perlin3(p.data(), width == 3 ? kVnoiseSeed : kSnoiseSeed + static_cast<std::uint64_t>(width), width, v);
            h[width - 1] = fold(h[width - 1], v, width);
        }
        float v[3];
        perlin4(p.data(), p[3], kVnoiseSeed, 3, v);
        h4 = fold(h4, v, 3);
        const float period[3] = {3.0f, 5.7f, std::fabs(p[3])};
        periodicPerlin3(p.data(), period, kSnoiseSeed, 2, v);
        periodic = fold(periodic, v, 2);
    }
    EXPECT_EQ(h[0], 14460513701021991145ull);
    EXPECT_EQ(h[1], 17330350288799241341ull);
    EXPECT_EQ(h[2], 2988442053968644715ull);
    EXPECT_EQ(h4, 2824804586607385824ull);
    EXPECT_EQ(periodic, 3811860120965318158ull);
}

TEST(NoisePinned, PointBatchesGiveTheOnePointValues) {
    const auto points = samplePoints();
    std::vector<float> x, y, z;
    for (const auto& p : points) {
        x.push_back(p[0]);
        y.push_back(p[1]);
        z.push_back(p[2]);
    }
    // Every length, so that runs of four and the remainder both show.
    for (std::size_t count : {points.size(), points.size() - 1, std::size_t{3}, std::size_t{0}}) {
        std::vector<float> batch(count + 1, 7.0f);
        perlin3Points(x.data(), y.data(), z.data(), count, kSnoiseSeed, batch.data());
        for (std::size_t i = 0; i < count; ++i) {
            float one = 0.0f;
            perlin3(points[i].data(), kSnoiseSeed, 1, &one);
            ASSERT_EQ(std::bit_cast<std::uint32_t>(batch[i]), std::bit_cast<std::uint32_t>(one)) << "point " << i;
        }
        EXPECT_EQ(batch[count], 7.0f) << "wrote past the end";
    }
}

TEST(NoisePinned, FractalDigestsAreUnchanged) {
    const auto points = samplePoints();
    const FractalSettings settings = fractalSettings(5.0f, 2.1f, 0.45f);
    std::uint64_t plain = 6, absolute = 7;
    for (const auto& p : points) {
        float v[3];
        fractal3(p.data(), kSnoiseSeed, 3, settings, false, v);
        plain = fold(plain, v, 3);
        fractal4(p.data(), p[3], kVnoiseSeed, 1, settings, true, v);
        absolute = fold(absolute, v, 1);
    }
    EXPECT_EQ(plain, 5960042781721076869ull);
    EXPECT_EQ(absolute, 12708851439911527484ull);
}

}  // namespace
}  // namespace tressora
