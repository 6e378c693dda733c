#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/run_program.h"

namespace tressora {
namespace {

namespace fs = std::filesystem;

struct Obj {
    std::vector<std::array<float, 3>> points;
    std::vector<std::array<int, 3>> triangles;
    std::size_t uvs = 0;
};

Obj readObj(const fs::path& path) {
    Obj obj;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream s(line);
        std::string tag;
        s >> tag;
        if (tag == "v") {
            std::array<float, 3> p{};
            s >> p[0] >> p[1] >> p[2];
            obj.points.push_back(p);
        } else if (tag == "vt") {
            ++obj.uvs;
        } else if (tag == "f") {
            std::array<int, 3> t{};
            for (int& index : t) {
                std::string corner;
                s >> corner;
                index = std::stoi(corner.substr(0, corner.find('/'))) - 1;
            }
            obj.triangles.push_back(t);
        }
    }
    return obj;
}

const fs::path kMeshes = fs::path(TRESSORA_SOURCE_DIR) / "meshes";

TEST(SampleMeshes, AreClosedConsistentlyOrientedAndOfTheirSizes) {
    const std::map<std::string, std::pair<float, float>> heights = {
        {"nika", {23.0f, 27.0f}}, {"manny", {31.0f, 37.0f}}, {"wolf", {35.0f, 60.0f}}, {"buddy", {54.0f, 60.0f}}};
    for (const auto& [name, range] : heights) {
        const Obj obj = readObj(kMeshes / (name + ".obj"));
        ASSERT_GT(obj.triangles.size(), 10000u) << name;
        EXPECT_GT(obj.uvs, 0u) << name;
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
        for (const auto& p : obj.points) {
            lo = std::min(lo, p[1]);
            hi = std::max(hi, p[1]);
            front = std::max(front, p[2]);
            back = std::min(back, p[2]);
        }
        for (const auto& t : obj.triangles) {
            const auto& a = obj.points[t[0]];
            const auto& b = obj.points[t[1]];
            const auto& c = obj.points[t[2]];
            signedVolume += (a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) +
                             a[2] * (b[0] * c[1] - b[1] * c[0])) / 6.0;
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
        std::ifstream a(kMeshes / (std::string(name) + ".obj"), std::ios::binary);
        std::ifstream b(folder / (std::string(name) + ".obj"), std::ios::binary);
        std::stringstream sa, sb;
        sa << a.rdbuf();
        sb << b.rdbuf();
        EXPECT_TRUE(sa.str() == sb.str()) << name << " differs from a fresh generation";
    }
    fs::remove_all(folder);
}

}  // namespace
}  // namespace tressora
