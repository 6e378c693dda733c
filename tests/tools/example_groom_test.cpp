#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "core/guide_hierarchy.h"
#include "core/scalp_mesh.h"
#include "groom/groom_file.h"
#include "support/run_program.h"

namespace tressora {
namespace {

namespace fs = std::filesystem;

const fs::path kSource = fs::path(TRESSORA_SOURCE_DIR);


TEST(ExampleGroom, GeneratorRewritesTheCommittedFileByteForByte) {
    const fs::path folder = fs::temp_directory_path() / ("tressora-example-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    const fs::path fresh = folder / "nika.groom";
    const auto result =
        testing::runProgram(TRESSORA_GROOM_TOOL_PATH, {(kSource / "meshes" / "nika.obj").string(), fresh.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(testing::fileContent(fresh) == testing::fileContent(kSource / "examples" / "nika.groom"))
        << "examples/nika.groom differs from a fresh generation";
    fs::remove_all(folder);
}

TEST(ExampleGroom, LoadsWithCombedGuidesRootedOnTheScalp) {
    const GroomScene scene = readGroom((kSource / "examples" / "nika.groom").string());
    ASSERT_TRUE(scene.scalp.mesh);
    ASSERT_TRUE(scene.hierarchy);
    EXPECT_EQ(scene.graph.value("output", ""), "output");
    const ScalpMesh& scalp = *scene.scalp.mesh;
    EXPECT_GT(scalp.triangleCount(), 1000u);
    EXPECT_TRUE(scalp.hasUvs());
    EXPECT_EQ(scene.hierarchy->scalpTopology(), scalp.topologyHash());

    const auto& guides = scene.hierarchy->guides();
    EXPECT_GE(guides.size(), 30u);
    EXPECT_LE(guides.size(), 50u);
    for (const Guide& g : guides) {
        ASSERT_EQ(g.points.size(), 9u) << g.id;
        ASSERT_GE(g.root.face, 0) << g.id;
        ASSERT_LT(static_cast<std::size_t>(g.root.face), scalp.triangleCount()) << g.id;
        const Vec3f root = scalp.positionAt(g.root.face, g.root.u, g.root.v);
        EXPECT_LT(length(root - g.points.front()), 1e-3f) << g.id;
        // On the skull above the ears, behind the hairline: no guide grows from the face.
        EXPECT_GT(root.y, 13.5f) << g.id;
        if (root.z > 4.0f) {
            EXPECT_GT(root.y, 20.0f) << g.id;
        }
        float len = 0.0f;
        for (std::size_t k = 1; k < g.points.size(); ++k) len += length(g.points[k] - g.points[k - 1]);
        EXPECT_GT(len, 8.0f) << g.id;
        EXPECT_LT(len, 12.0f) << g.id;
        // Combed back and down: no tip stands above its root or in front of it (hair at the
        // hairline is combed back over the crown, which rises a little).
        EXPECT_LT(g.points.back().y, root.y + 0.5f) << g.id;
        EXPECT_LT(g.points.back().z, root.z + 0.5f) << g.id;
    }
}

}  // namespace
}  // namespace tressora
