// resampleStrands spaces a strand's points evenly by length and carries its widths and point
// channels to the new points; JSON readers stop exactly past the nesting limit.

#include <gtest/gtest.h>

#include <string>

#include "core/json_depth.h"
#include "core/strand_resample.h"
#include "core/strand_set.h"

namespace tressora {
namespace {

TEST(StrandResample, PointsWidthsAndChannelsFollowTheLength) {
    StrandSet set;
    // Uneven segments (1, then 2): even stations land at y = 0, 1, 2, 3.
    const std::vector<Vec3f> points{{0, 0, 0}, {0, 1, 0}, {0, 3, 0}};
    const std::vector<float> widths{1.0f, 2.0f, 4.0f};
    set.addStrand(7, {}, points, widths);
    std::span<float> along = set.addPointChannel("along");
    for (std::size_t k = 0; k < 3; ++k) along[k] = points[k].y;

    const StrandSet out = resampleStrands(set, 4);
    ASSERT_EQ(out.pointCount(), 4u);
    const std::vector<float> expectedWidths{1.0f, 2.0f, 3.0f, 4.0f};
    for (std::size_t k = 0; k < 4; ++k) {
        SCOPED_TRACE(k);
        EXPECT_NEAR(out.points()[k].y, float(k), 1e-6f);
        EXPECT_NEAR(out.widths()[k], expectedWidths[k], 1e-6f);
        EXPECT_NEAR(out.pointChannel("along")->values()[k], float(k), 1e-6f);
    }
    EXPECT_EQ(out.ids()[0], 7u);
}

TEST(JsonDepth, TheLimitItselfPassesAndOneLevelMoreFails) {
    const auto nested = [](int depth) { return std::string(std::size_t(depth), '[') + std::string(std::size_t(depth), ']'); };
    EXPECT_TRUE(jsonDepthWithin(nested(kMaxJsonDepth)));
    EXPECT_FALSE(jsonDepthWithin(nested(kMaxJsonDepth + 1)));
    // Brackets inside strings are text, not nesting.
    EXPECT_TRUE(jsonDepthWithin("[\"" + std::string(1000, '[') + "\"]"));
}

}  // namespace
}  // namespace tressora
