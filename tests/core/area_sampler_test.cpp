#include <gtest/gtest.h>

#include "core/area_sampler.h"
#include "core/test_meshes.h"

namespace tressora {
namespace {

TEST(AreaSampler, FacesAreDrawnInProportionToTheirArea) {
    // Faces of area 0.5, 0 and 1.5.
    const ScalpMesh mesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {2, 0, 0}, {0, 3, 0}, {5, 5, 5}},
                         {{0, 1, 2}, {5, 5, 5}, {0, 3, 4}});
    const AreaSampler sampler(mesh);
    EXPECT_DOUBLE_EQ(sampler.totalArea(), 3.5);
    int counts[3] = {0, 0, 0};
    DrawStream s(1);
    for (int i = 0; i < 40000; ++i) ++counts[sampler.pickFace(s.nextUnit())];
    EXPECT_EQ(counts[1], 0);
    EXPECT_NEAR(counts[0] / 40000.0, 0.5 / 3.5, 0.01);
    EXPECT_NEAR(counts[2] / 40000.0, 3.0 / 3.5, 0.01);
    // The ends: 0 skips a leading empty face, 1 lands on the last face with area.
    EXPECT_EQ(sampler.pickFace(0.0), 0);
    EXPECT_EQ(sampler.pickFace(1.0), 2);
    EXPECT_EQ(AreaSampler(ScalpMesh()).pickFace(0.5), -1);
}

TEST(AreaSampler, PointsAreUniformInsideTheFace) {
    const ScalpMesh mesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
    const AreaSampler sampler(mesh);
    DrawStream s(2);
    int nearCorner0 = 0;
    const int n = 40000;
    for (int i = 0; i < n; ++i) {
        const StrandRoot r = sampler.sample(s.nextUnit(), s.nextUnit(), s.nextUnit());
        ASSERT_EQ(r.face, 0);
        ASSERT_GE(r.u, 0.0f);
        ASSERT_GE(r.v, 0.0f);
        ASSERT_LE(r.u + r.v, 1.0f + 1e-6f);
        // The region b1 + b2 < 0.5 is a quarter of the triangle.
        nearCorner0 += r.u + r.v < 0.5f;
    }
    EXPECT_NEAR(nearCorner0 / double(n), 0.25, 0.01);
}

}  // namespace
}  // namespace tressora
