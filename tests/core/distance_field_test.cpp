#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "core/distance_field.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

std::shared_ptr<const ScalpMesh> sphere() {
    static const auto mesh = std::make_shared<const ScalpMesh>(testing::icosphere(4, 1.0f));
    return mesh;
}

TEST(MeshDistanceField, SignIsNegativeInsideAndPositiveOutsideAClosedMesh) {
    const MeshDistanceField field(sphere(), 0.0f, 0.2f, 48);
    DrawStream s(1);
    int checked = 0;
    for (int i = 0; i < 4000; ++i) {
        const Vec3f p = testing::drawPoint(s, -1.6f, 1.6f);
        const float r = length(p);
        if (std::fabs(r - 1.0f) < 0.1f) continue;  // leave out the interpolated rim
        ++checked;
        const float d = field.distance(p);
        ASSERT_EQ(d < 0.0f, r < 1.0f) << "at radius " << r;
        ASSERT_EQ(field.exactDistance(p) < 0.0f, r < 1.0f);
    }
    EXPECT_GT(checked, 3000);
    // Far inside and far outside (beyond the grid) read as the band.
    EXPECT_FLOAT_EQ(field.distance({0, 0, 0}), -field.band());
    EXPECT_FLOAT_EQ(field.distance({50, 0, 0}), field.band());
}

TEST(MeshDistanceField, ValuesNearTheSurfaceFollowTheDistanceAndTheGradientPointsOut) {
    const MeshDistanceField field(sphere(), 0.0f, 0.3f, 64);
    DrawStream s(2);
    for (int i = 0; i < 500; ++i) {
        const Vec3f dir = normalized(testing::drawPoint(s, -1.0f, 1.0f));
        const float r = testing::drawIn(s, 0.85f, 1.15f);
        Vec3f g;
        const float d = field.sample(dir * r, &g);
        // The mesh is a faceted sphere; the grid adds up to about a cell of error.
        EXPECT_NEAR(d, r - 1.0f, field.cellSize() * 0.5f + 0.01f);
        EXPECT_NEAR(field.exactDistance(dir * r), r - 1.0f, 0.01f);
        EXPECT_GT(dot(normalized(g), dir), 0.9f);
    }
}

TEST(MeshDistanceField, AnOpenSheetIsPositiveAboveAndNegativeBelow) {
    auto plane = std::make_shared<const ScalpMesh>(testing::grid(8, 2.0f));
    const MeshDistanceField field(plane, 0.0f, 0.5f, 32);
    EXPECT_NEAR(field.distance({1.0f, 1.0f, 0.25f}), 0.25f, 1e-4f);
    EXPECT_NEAR(field.distance({1.0f, 1.0f, -0.25f}), -0.25f, 1e-4f);
    // Off the sheet's edge the nearest point is on its boundary edge: the sign follows the
    // edge's face, so just above stays positive.
    EXPECT_GT(field.exactDistance({2.5f, 1.0f, 0.1f}), 0.0f);
    EXPECT_LT(field.exactDistance({2.5f, 1.0f, -0.1f}), 0.0f);
}

TEST(MeshDistanceField, RefusesBadSettings) {
    EXPECT_THROW(MeshDistanceField(sphere(), 0.0f, 0.1f, 1), std::invalid_argument);
    EXPECT_THROW(MeshDistanceField(sphere(), 0.0f, 0.0f, 16), std::invalid_argument);
    // An empty mesh is legal: everything is out of reach.
    const MeshDistanceField empty(std::make_shared<const ScalpMesh>(), 0.0f, 0.1f, 8);
    EXPECT_FLOAT_EQ(empty.distance({0, 0, 0}), empty.band());
}

TEST(MeshDistanceField, SharedFieldsAreCachedWithinTheEnvironmentLimit) {
    resetDistanceFieldCache();
    const auto a = sharedDistanceField(sphere(), 0.0f, 0.2f, 16);
    const auto b = sharedDistanceField(sphere(), 0.0f, 0.2f, 16);
    const auto c = sharedDistanceField(sphere(), 0.0f, 0.25f, 16);
    EXPECT_EQ(a.get(), b.get());
    EXPECT_NE(a.get(), c.get());
    CacheStats stats = distanceFieldCacheStats();
    EXPECT_EQ(stats.name, "distance fields");
    EXPECT_EQ(stats.entries, 2u);
    EXPECT_EQ(stats.hits, 1u);
    EXPECT_EQ(stats.bytes, a->byteSize() + c->byteSize());

    // With no room nothing is kept, but fields are still handed out.
    ::setenv("TRESSORA_FIELD_CACHE_MB", "0", 1);
    resetDistanceFieldCache();
    const auto d = sharedDistanceField(sphere(), 0.0f, 0.2f, 16);
    const auto e = sharedDistanceField(sphere(), 0.0f, 0.2f, 16);
    EXPECT_NE(d.get(), e.get());
    EXPECT_EQ(distanceFieldCacheStats().entries, 0u);
    EXPECT_EQ(distanceFieldCacheStats().limitBytes, 0u);
    ::unsetenv("TRESSORA_FIELD_CACHE_MB");
    resetDistanceFieldCache();
    EXPECT_EQ(distanceFieldCacheStats().limitBytes, std::size_t{512} << 20);
}

}  // namespace
}  // namespace tressora
