#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "cli/mesh_file.h"
#include "support/run_program.h"

namespace tressora {
namespace {

namespace fs = std::filesystem;


const fs::path kMeshes = fs::path(TRESSORA_SOURCE_DIR) / "meshes";

TEST(SampleMeshes, AreClosedConsistentlyOrientedAndOfTheirSizes) {
    const std::map<std::string, std::pair<float, float>> heights = {
        {"nika", {23.0f, 27.0f}}, {"manny", {31.0f, 37.0f}}, {"wolf", {35.0f, 60.0f}}, {"buddy", {54.0f, 60.0f}}};
    for (const auto& [name, range] : heights) {
        const cli::MeshFileData obj = cli::readObjFile((kMeshes / (name + ".obj")).string());
        ASSERT_GT(obj.triangles.size(), 10000u) << name;
        EXPECT_FALSE(obj.uvs.empty()) << name;
        // Every directed edge appears once and its reverse once: closed and outward-consistent.
        std::map<std::pair<int, int>, int> edges;
        for (const auto& t : obj.triangles)
            for (int e = 0; e < 3; ++e) ++edges[{t[e], t[(e + 1) % 3]}];
        std::size_t open = 0;
        for (const auto& [edge, count] : edges)
            if (count != 1 || !edges.count({edge.second, edge.first})) ++open;
        EXPECT_EQ(open, 0u) << name;

        float lo = 1e30f, hi = -1e30f, front = -1e30f, back = 1e30f;
        double signedVolume = 0;
        for (const Vec3f& p : obj.points) {
            lo = std::min(lo, p.y);
            hi = std::max(hi, p.y);
            front = std::max(front, p.z);
            back = std::min(back, p.z);
        }
        for (const auto& t : obj.triangles) {
            const Vec3f a = obj.points[t[0]], b = obj.points[t[1]], c = obj.points[t[2]];
            signedVolume += dot(a, cross(b, c)) / 6.0;
        }
        EXPECT_GT(signedVolume, 0.0) << name << ": normals point inward";
        EXPECT_NEAR(lo, 0.0f, 0.5f) << name << " stands on y = 0";
        EXPECT_GE(hi - lo, range.first) << name;
        EXPECT_LE(hi - lo, range.second) << name;
        EXPECT_GT(front, -back) << name << " faces +Z";
    }
}

TEST(SampleMeshes, GeneratorRewritesTheCommittedFilesByteForByte) {
    const fs::path folder = fs::temp_directory_path() / ("tressora-meshes-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    const auto result = testing::runProgram(TRESSORA_MESH_TOOL_PATH, {folder.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char* name : {"nika", "manny", "wolf", "buddy"}) {
        const std::string file = std::string(name) + ".obj";
        EXPECT_TRUE(testing::fileContent(kMeshes / file) == testing::fileContent(folder / file))
            << name << " differs from a fresh generation";
    }
    fs::remove_all(folder);
}

}  // namespace
}  // namespace tressora
