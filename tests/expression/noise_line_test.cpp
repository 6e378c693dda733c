// Gradient noise read along a line: the per-node terms give perlin3's values at every point
// of the line, up to rounding, for all three components, negative cells and far-off lines.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/hash.h"
#include "expression/noise.h"

namespace tressora::exprlib {
namespace {

TEST(NoiseLine, TermsGiveThePointValuesOfPerlin3) {
    const float origins[][3] = {{0.25f, 0.5f, 0.75f}, {-7.3f, 3.1f, -2.2f}, {200.5f, 97.25f, 31.0f}, {-0.0f, -0.5f, 12.0f}};
    for (const auto& o : origins) {
        for (const float span : {1.0f, 3.0f, -6.0f, 40.0f}) {
            const float from = std::min(o[0], o[0] + span), to = std::max(o[0], o[0] + span);
            const std::int64_t first = latticeFloor(from);
            const std::size_t count = static_cast<std::size_t>(latticeFloor(to) - first) + 2;
            std::vector<float> a(count * 3), b(count * 3);
            perlinLineTerms(first, count, o[1], o[2], 0x5EED, 3, a.data(), b.data());
            for (int i = 0; i <= 64; ++i) {
                const float x = from + (to - from) * static_cast<float>(i) / 64.0f;
                float line[3], point[3];
                perlinLineAt(x, first, 3, a.data(), b.data(), line);
                const float p[3] = {x, o[1], o[2]};
                perlin3(p, 0x5EED, 3, point);
                for (int k = 0; k < 3; ++k) EXPECT_NEAR(line[k], point[k], 2e-6f) << x << " " << k;
            }
        }
    }
}

}  // namespace
}  // namespace tressora::exprlib
