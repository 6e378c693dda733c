// Exporting a session over frames: frame counting, reuse of a still groom's first frame, the
// write stage's own checks, progress lines, and the scalp cache read from an Alembic mesh.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <sstream>

#include "core/errors.h"
#include "core/expect_text.h"
#include "groom/groom_export.h"
#include "groom/sample_groom.h"
#include "groom/scene_caches.h"
#include "groom/session_operators.h"
#include "io/alembic/geom_writer.h"
#include "io/alembic_curves_reader.h"

namespace tressora {
namespace {

using sessionops::chain;
using sessionops::registry;
using sessionops::Sprout;

GroomScene sproutScene(const nlohmann::json& graph = chain()) {
    GroomScene scene;
    scene.scalp.mesh = testing::gridMesh(2);
    scene.graph = graph;
    return scene;
}

std::vector<double> sampleTimes(const std::string& path) {
    std::vector<double> times;
    for (const ReadCurvesSample& s : readAlembicCurves(path).samples) times.push_back(s.time);
    return times;
}

TEST(GroomExport, CountsFramesSoThatEvenRangesKeepTheirLastFrame) {
    EXPECT_EQ(exportFrameCount(1, 10, 3), 4u);
    EXPECT_EQ(exportFrameCount(1, 2, 0.1), 11u);
    EXPECT_EQ(exportFrameCount(1, 1, 1), 1u);
    EXPECT_EQ(exportFrameCount(1, 10.5, 1), 10u);
}

TEST(GroomExport, StillGroomsAreEvaluatedOnceAndMovingOnesEveryFrame) {
    testing::TempFolder dir;
    {
        GroomSession session(sproutScene(), registry());
        ExportRequest request;
        request.output = dir.file("still.abc");
        request.start = 1;
        request.end = 10;
        request.step = 3;
        const int before = Sprout::runs;
        const ExportResult result = exportFrames(session, request);
        EXPECT_EQ(result.frames, 4u);
        EXPECT_EQ(result.strands, 4u * 8u);
        EXPECT_EQ(Sprout::runs - before, 1);
        const std::vector<double> times = sampleTimes(request.output);
        ASSERT_EQ(times.size(), 4u);
        for (int i = 0; i < 4; ++i) EXPECT_NEAR(times[i], (1.0 + 3.0 * i) / 24.0, 1e-12);
    }
    {
        GroomSession session(sproutScene(chain({{"Wind", nullptr}})), registry());
        ExportRequest request;
        request.output = dir.file("moving.usda");
        request.start = 1;
        request.end = 2;
        request.step = 0.1;
        std::ostringstream progress;
        request.progress = &progress;
        request.timings = true;
        request.stats = true;
        const ExportResult result = exportFrames(session, request);
        EXPECT_EQ(result.frames, 11u);
        const std::string text = progress.str();
        EXPECT_NE(text.find("frame 1.1: 8 strands\n  note: wind: frame 1"), std::string::npos) << text;
        EXPECT_NE(text.find("frame 2: 8 strands\n"), std::string::npos) << text;
        EXPECT_NE(text.find("\nstats: {"), std::string::npos);
        EXPECT_NE(text.find("\n  sprout: "), std::string::npos);
    }
}

TEST(GroomExport, TheWriteStageChecksTheRequestInItsOwnWords) {
    testing::TempFolder dir;
    GroomSession session(sproutScene(), registry());
    const auto expectRefused = [&](const std::function<void(ExportRequest&)>& change, const std::string& text) {
        ExportRequest request;
        request.output = dir.file("x.abc");
        change(request);
        EXPECT_EQ(testing::failureText<std::invalid_argument>([&] { exportFrames(session, request); }), text);
    };
    expectRefused([](ExportRequest& r) { r.output.clear(); }, "no output file");
    expectRefused([](ExportRequest& r) { r.step = 0; }, "the frame step must be positive");
    expectRefused([](ExportRequest& r) { r.start = 5; }, "the end frame is before the start frame");
    expectRefused([](ExportRequest& r) { r.density = 1.5f; }, "the density must be between 0 and 1");
    expectRefused([&](ExportRequest& r) { r.output = dir.file("x.obj"); },
                  "the output must be .abc, .usda, .usd or .vrscene");
    expectRefused([](ExportRequest& r) { r.scales = "all"; }, "scales must be mesh, instancer, both or none");
    expectRefused([](ExportRequest& r) { r.scales = "both"; }, "an instancer goes to USD");
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

/// A cache of the grid scalp's points, moved up by the frame, at frames 1 to 3.
void writeScalpCache(const std::string& path, std::size_t points) {
    abc::ArchiveWriter archive(path);
    const std::uint32_t ts = archive.addTimeSampling(abc::TimeSampling::uniform(1.0 / 24.0, 1.0 / 24.0));
    auto& xform = archive.top().addChild<abc::XformWriter>("scalp", ts);
    auto& mesh = xform.addChild<abc::PolyMeshWriter>("scalpShape", ts);
    const std::shared_ptr<ScalpMesh> grid = testing::gridMesh(2);
    std::vector<std::int32_t> indices, counts;
    for (const auto& t : grid->triangles()) {
        indices.insert(indices.end(), {t[0], t[2], t[1]});
        counts.push_back(3);
    }
    for (int f = 1; f <= 3; ++f) {
        std::vector<Vec3f> p(grid->points().begin(), grid->points().end());
        p.resize(points);
        for (Vec3f& v : p) v.y += static_cast<float>(f);
        xform.writeIdentity();
        abc::PolyMeshSample sample;
        sample.positions = p;
        sample.faceIndices = points == grid->pointCount() ? std::span<const std::int32_t>(indices) : std::span<const std::int32_t>();
        sample.faceCounts = points == grid->pointCount() ? std::span<const std::int32_t>(counts) : std::span<const std::int32_t>();
        mesh.write(sample);
    }
    archive.close();
}

TEST(SceneCaches, AScalpCacheMovesTheScalpFrameByFrame) {
    testing::TempFolder dir;
    writeScalpCache(dir.file("scalp.abc"), 9);
    GroomScene scene = sproutScene();
    scene.scalpCache.file = dir.file("scalp.abc");
    attachSceneCaches(scene);
    ASSERT_TRUE(scene.scalpFrames);
    EXPECT_EQ(scene.scalpFrames(2.0)->at(0).y, 2.0f);
    EXPECT_EQ(scene.scalpFrames(3.2)->at(0).y, 3.0f);
    EXPECT_FALSE(scene.scalpFrames(7.0));

    GroomSession session(std::move(scene), registry());
    EXPECT_TRUE(session.hasMotion());
    session.setFrame(3.0);
    EXPECT_EQ(session.evaluate(3.0)->strandPoints(0)[0].y, 3.0f);
}

TEST(SceneCaches, ScalpCachesMustFitTheScalp) {
    testing::TempFolder dir;
    writeScalpCache(dir.file("few.abc"), 5);
    GroomScene scene = sproutScene();
    scene.scalpCache.file = dir.file("few.abc");
    EXPECT_EQ(testing::failureText<GroomFileError>([&] { attachSceneCaches(scene); }),
              "scalp cache '" + dir.file("few.abc") + "' has 5 points; the groom's scalp has 9");
    scene.scalp = {};
    EXPECT_EQ(testing::failureText<GroomFileError>([&] { attachSceneCaches(scene); }),
              "the groom file has a scalp cache but no scalp");
    scene = sproutScene();
    scene.scalpCache = {dir.file("few.abc"), "collar", 0.0};
    EXPECT_THROW(attachSceneCaches(scene), AlembicError);
}

}  // namespace
}  // namespace tressora
