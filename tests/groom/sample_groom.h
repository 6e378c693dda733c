#pragma once
// Grooms for tests: a small scene that fills every key of the file, flat grid scalps, and a
// temporary folder that removes itself.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <nlohmann/json.hpp>

#include "core/guide_hierarchy.h"
#include "core/hash.h"
#include "groom/groom_scene.h"

namespace tressora::testing {

/// A flat grid of n x n quads (two triangles each) in the plane y = height, one unit apart,
/// with per-corner UVs when asked.
inline std::shared_ptr<ScalpMesh> gridMesh(int n, float height = 0.0f, bool uvs = false) {
    std::vector<Vec3f> points;
    std::vector<ScalpMesh::Triangle> triangles;
    for (int z = 0; z <= n; ++z)
        for (int x = 0; x <= n; ++x) points.push_back({static_cast<float>(x), height, static_cast<float>(z)});
    const auto at = [n](int x, int z) { return z * (n + 1) + x; };
    for (int z = 0; z < n; ++z)
        for (int x = 0; x < n; ++x) {
            triangles.push_back({at(x, z), at(x, z + 1), at(x + 1, z)});
            triangles.push_back({at(x + 1, z), at(x, z + 1), at(x + 1, z + 1)});
        }
    auto mesh = std::make_shared<ScalpMesh>(points, triangles);
    if (uvs) {
        std::vector<ScalpMesh::Uv> corners;
        for (const auto& t : triangles)
            for (int c : t) {
                const Vec3f p = points[static_cast<std::size_t>(c)];
                corners.push_back({p.x / static_cast<float>(n), p.z / static_cast<float>(n)});
            }
        mesh->setUvs(std::move(corners));
    }
    return mesh;
}

/// A scene with every key of the file set, including negative zeros and awkward floats.
inline GroomScene fullScene() {
    GroomScene s;
    s.framesPerSecond = 30.0;
    s.units = "mm";
    s.upAxis = "Z";
    s.source = "heads/ada.obj";
    s.graph = nlohmann::json::parse(
        R"({"version":1,"nodes":[{"name":"grow","type":"Grow"},{"name":"output","type":"Output"}],)"
        R"("connections":[{"from":"grow","to":"output","input":"strands"}],"output":"output"})");
    auto hierarchy = std::make_shared<GuideHierarchy>();
    const std::uint32_t group = hierarchy->addGroup("main");
    Guide guide;
    guide.points = {{0, 0, 0}, {0, 1.5f, 0}, {0.1f, 3, -0.0f}};
    hierarchy->addGuide(group, 7, guide);
    s.hierarchy = hierarchy;
    s.parts = {{"lines", nlohmann::json::array({{{"points", {0, 1, 2}}}})}};
    s.correctives = {{"strokes", 3}};
    s.flow = {{"arrows", nlohmann::json::array({{{"from", {0, 0, 0}}, {"to", {1, 0, 0}}}})}};
    s.sculpts = {{"sculpt1", {{"strokes", nlohmann::json::array({1, 2})}}}};
    s.controls = nlohmann::json::array({{{"name", "wind"}, {"value", 0.5}}});
    s.maps = {{"density", {{"kind", "vertices"}, {"values", {1, 0.5, 0.25}}}}};

    auto scalp = gridMesh(2, 0.0f, true);
    std::vector<Vec3f> points(scalp->points().begin(), scalp->points().end());
    points[0].x = -0.0f;
    points[1].y = 0.1f;
    points[2].z = 1e-7f;
    points[3].x = 3.4028235e38f;
    points[4].y = 1.17549435e-38f;  // the smallest normal float
    points[5].z = 1.4e-45f;         // a subnormal
    auto moved = std::make_shared<ScalpMesh>(scalp->withPoints(points));
    moved->setRestPoints(std::vector<Vec3f>(scalp->points().begin(), scalp->points().end()));
    moved->setColorSet("mask", std::vector<ScalpMesh::Color>(scalp->triangleCount() * 3, {0.25f, 0.5f, -0.0f, 1.0f}));
    moved->setName("ada");
    s.scalp.mesh = moved;
    s.scalp.subdivision = {{"levels", 2}, {"subdivisionFrom", "base"}};

    MeshObject brows;
    brows.mesh = gridMesh(1, 2.0f);
    brows.polygons = {{"counts", {4}}, {"indices", {0, 1, 3, 2}}};
    auto browsMesh = std::make_shared<ScalpMesh>(*brows.mesh);
    browsMesh->setPolygons({2});
    brows.mesh = browsMesh;
    s.scalps["brows"] = brows;

    s.guides = {FlatGuide{1, {0, 0, 0}, {{0, 0, 0}, {0, 1, -0.0f}, {0, 2, 0.5f}}, std::nullopt},
                FlatGuide{2, {1, 0, 0}, {{1, 0, 0}, {1, 1, 0}}, Vec3f{0, 0, 1}}};
    s.scalpCache = {"anim/head.abc", "/head/headShape", 1712.5};
    s.guideCache = {"anim/guides.abc", "", 0.0};
    s.searchPaths = {"textures", "/studio/shared"};
    s.followScalp = true;
    s.scaleSource = "scaleReference";
    s.scaleReference = 4.0;
    s.scaleTransformReference = 1.5;
    s.cardBake = {{"prefix", "cards/ada_"}, {"strands", 1200}};
    s.simCaches["simulate"] = {"sim/simulate.abc", "/guides", 99.0};
    s.prototypes = {{"leaf",
                     {{"points", {0, 0, 0, 1, 0, 0, 0, 1, 0}},
                      {"triangles", {0, 1, 2}},
                      {"normals", {0, 0, 1, 0, 0, 1, 0, 0, 1}},
                      {"uvs", {0, 0, 1, 0, 0, 1}}}}};
    MeshObject body;
    body.mesh = gridMesh(1, -1.0f);
    s.colliders["body"] = body;
    s.transferMarkers = nlohmann::json::array({{{"name", "nose"}, {"position", {0, 1, 2}}}});
    s.referencePhotos = nlohmann::json::array({{{"file", "photos/front.jpg"}, {"view", "front"}}});
    s.guideGroupColors = {{"main", {0.25, 0.85, 0.55}}};
    s.hiddenGuideGroups = {"braids"};
    return s;
}

/// A folder under the system's temporary folder, removed with everything in it.
class TempFolder {
public:
    TempFolder() {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        const std::string name = std::string("tressora-") + (info ? info->test_suite_name() : "test") + "-" +
                                 (info ? info->name() : "x") + "-" + std::to_string(hash64(reinterpret_cast<std::uintptr_t>(this)) % 100000);
        path_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /// A path inside the folder.
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// Writes text to a file.
inline void writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

/// The whole text of a file, or "(missing)".
inline std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "(missing)";
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace tressora::testing
