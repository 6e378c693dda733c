// Scale maps baked from hand-made scale meshes over a flat skin of two UDIM tiles: heights,
// the higher scale winning where two overlap, colours in sRGB, normals, padding, the
// background, coverage and the refusals.

#include <gtest/gtest.h>

#include "io/io_test_support.h"
#include "io/scale_maps.h"

namespace tressora {
namespace {

/// A flat skin on y = 0 from x = 0 to 2 and z = 0 to 1, its UVs u = x and v = z, so x from
/// 1 to 2 lies in tile 1002.
ScalpMesh flatSkin() {
    ScalpMesh skin({{0, 0, 0}, {1, 0, 0}, {0, 0, 1}, {1, 0, 1}, {2, 0, 0}, {2, 0, 1}},
                   {{0, 2, 1}, {1, 2, 3}, {1, 3, 4}, {4, 3, 5}});
    std::vector<ScalpMesh::Uv> uvs;
    for (const auto& t : skin.triangles())
        for (int k = 0; k < 3; ++k) {
            const Vec3f p = skin.points()[static_cast<std::size_t>(t[static_cast<std::size_t>(k)])];
            uvs.push_back({p.x, p.z});
        }
    skin.setUvs(uvs);
    return skin;
}

/// A square plate at `height` over x0..x1 and z0..z1, of one colour.
void addPlate(ScaleMesh& mesh, float x0, float x1, float z0, float z1, float height, Vec3f colour) {
    const auto base = static_cast<std::uint32_t>(mesh.points.size());
    for (const Vec3f p : {Vec3f{x0, height, z0}, Vec3f{x1, height, z0}, Vec3f{x0, height, z1}, Vec3f{x1, height, z1}})
        mesh.points.push_back(p);
    mesh.triangles.push_back({base, base + 1, base + 2});
    mesh.triangles.push_back({base + 1, base + 3, base + 2});
    mesh.faceColours.insert(mesh.faceColours.end(), {colour, colour});
    ScaleRecord record;
    record.firstTriangle = mesh.triangles.size() - 2;
    record.triangleCount = 2;
    mesh.records.push_back(record);
}

TEST(ScaleMaps, HeightsColoursNormalsAndPaddingPerTile) {
    ScaleMesh mesh;
    addPlate(mesh, 0.25f, 0.5f, 0.25f, 0.5f, 0.2f, {1, 0, 0});
    addPlate(mesh, 0.375f, 0.625f, 0.375f, 0.625f, 0.1f, {0, 0, 1});  // under the first where they overlap
    addPlate(mesh, 1.25f, 1.5f, 0.5f, 0.75f, 0.05f, {0, 1, 0});
    ScaleMapOptions options;
    options.resolution = 64;
    options.padding = 2;
    options.background = {0, 0, 0};
    const ScaleMaps maps = bakeScaleMaps(mesh, flatSkin(), options);
    ASSERT_EQ(maps.tiles.size(), 2u);
    EXPECT_EQ(maps.tiles[0].udim, 1001);
    EXPECT_EQ(maps.tiles[1].udim, 1002);
    EXPECT_EQ(maps.scales, 3u);
    EXPECT_FLOAT_EQ(maps.maxHeight, 0.2f * 1.01f + 1e-5f);

    // Texel (x, y) of u, v in a tile: y counts down from v = 1.
    const auto texel = [](float u, float v) { return static_cast<std::size_t>((63 - int(v * 64)) * 64 + int(u * 64)); };
    const ScaleTileMaps& first = maps.tiles[0];
    const auto colourAt = [&](const ScaleTileMaps& tile, std::size_t i) {
        return std::array<int, 3>{tile.colour.pixels8[3 * i], tile.colour.pixels8[3 * i + 1], tile.colour.pixels8[3 * i + 2]};
    };
    const std::size_t onTop = texel(0.3f, 0.3f), overlap = texel(0.45f, 0.45f), lower = texel(0.6f, 0.6f);
    EXPECT_EQ(first.height.pixels16[onTop], std::lround(0.2f / maps.maxHeight * 65535.0f));
    EXPECT_EQ(colourAt(first, onTop), (std::array<int, 3>{255, 0, 0}));
    EXPECT_EQ(colourAt(first, overlap), (std::array<int, 3>{255, 0, 0}));  // the higher plate wins
    EXPECT_EQ(colourAt(first, lower), (std::array<int, 3>{0, 0, 255}));
    EXPECT_EQ(first.normal.pixels8[3 * onTop + 2], 255);  // flat on top of a plate
    EXPECT_EQ(first.normal.pixels8[3 * onTop], 128);
    // Two texels of padding around a plate, then the background.
    EXPECT_EQ(colourAt(first, texel(0.22f, 0.3f)), (std::array<int, 3>{255, 0, 0}));
    EXPECT_EQ(colourAt(first, texel(0.1f, 0.3f)), (std::array<int, 3>{0, 0, 0}));
    EXPECT_EQ(first.height.pixels16[texel(0.1f, 0.3f)], 0);
    EXPECT_EQ(colourAt(maps.tiles[1], texel(0.35f, 0.6f)), (std::array<int, 3>{0, 255, 0}));
    // Three plates of 1/16, 1/16 and 1/16 of a tile, overlapping by 1/64, over a skin of two tiles.
    EXPECT_NEAR(maps.covered, (3.0 / 16.0 - 1.0 / 64.0) / 2.0, 0.01);
}

TEST(ScaleMaps, Refusals) {
    ScaleMesh mesh;
    addPlate(mesh, 0.25f, 0.5f, 0.25f, 0.5f, 0.2f, {1, 0, 0});
    ScaleMapOptions options;
    for (int resolution : {15, 8193}) {
        options.resolution = resolution;
        EXPECT_THROW(bakeScaleMaps(mesh, flatSkin(), options), std::invalid_argument) << resolution;
    }
    options.resolution = 16;
    const ScalpMesh bare({{0, 0, 0}, {1, 0, 0}, {0, 0, 1}}, {{0, 2, 1}});
    EXPECT_EQ(tressora::testing::errorText([&] { bakeScaleMaps(mesh, bare, options); }),
              "the skin has no uvs to bake the scales onto");
}

}  // namespace
}  // namespace tressora
