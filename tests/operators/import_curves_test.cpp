// ImportCurves: the sample nearest the frame, the strands it keeps or resamples, and the
// messages when the file has nothing to give.

#include <gtest/gtest.h>

#include <filesystem>

#include "core/errors.h"
#include "core/expect_text.h"
#include "graph/graph_json.h"
#include "graph/operator_registry.h"
#include "io/alembic_writer.h"
#include "operators/alembic/import_curves.h"

namespace tressora {
namespace {

struct Folder {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("tressora-import-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    Folder() { std::filesystem::create_directories(path); }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string file(const char* name) const { return (path / name).string(); }
};

const OperatorRegistry& registry() {
    static OperatorRegistry r;
    static const bool filled = (registerAlembicOperators(r), true);
    (void)filled;
    return r;
}

/// Frames 1 to 3 at 24 fps: a straight strand of 3 points at x = frame, and one of a single point.
std::string writeCurves(const Folder& folder) {
    const std::string path = folder.file("curves.abc");
    AlembicWriter writer(path);
    for (int f = 1; f <= 3; ++f) {
        StrandSet set;
        const float x = static_cast<float>(f);
        set.addStrand(7, {}, std::vector<Vec3f>{{x, 0, 0}, {x, 1, 0}, {x, 2, 0}});
        set.addStrand(8, {}, std::vector<Vec3f>{{x, 0, 1}});
        writer.writeFrame(set);
    }
    writer.close();
    return path;
}

std::shared_ptr<const StrandSet> run(const nlohmann::json& params, double frame, std::string* note = nullptr) {
    const nlohmann::json doc = {{"version", 1},
                                {"nodes", {{{"name", "import"}, {"type", "ImportCurves"}, {"params", params}}}},
                                {"output", "import"}};
    std::unique_ptr<Graph> graph = graphFromJson(doc, registry());
    EvalContext context;
    context.frame = frame;
    const std::vector<Value> out = graph->evaluate(graph->outputNode(), context);
    if (note) *note = graph->nodeNotes().count(graph->outputNode()) ? graph->nodeNotes().at(graph->outputNode()) : "";
    return out.at(0).as<StrandSet>();
}

TEST(ImportCurves, TakesTheSampleNearestTheFrameAndDropsStrandsOfOnePoint) {
    Folder folder;
    const std::string path = writeCurves(folder);
    const auto frame2 = run({{"path", path}, {"samples", 0}}, 2.2);
    ASSERT_EQ(frame2->strandCount(), 1u);
    EXPECT_EQ(frame2->ids()[0], 7u);
    EXPECT_EQ(frame2->points()[0].x, 2.0f);
    EXPECT_EQ(frame2->pointCount(), 3u);
    EXPECT_EQ(run({{"path", path}, {"samples", 0}}, 40.0)->points()[0].x, 3.0f);

    const auto resampled = run({{"path", path}, {"object", "groom"}}, 1.0);
    ASSERT_EQ(resampled->pointCount(), 24u);
    EXPECT_FLOAT_EQ(resampled->points()[23].y, 2.0f);
    EXPECT_FLOAT_EQ(resampled->points()[1].y, 2.0f / 23.0f);
}

TEST(ImportCurves, SaysWhatIsMissing) {
    Folder folder;
    std::string note;
    EXPECT_EQ(run(nlohmann::json::object(), 1.0, &note)->strandCount(), 0u);
    EXPECT_EQ(note, "no Alembic file chosen: set path");
    const std::string path = writeCurves(folder);
    EXPECT_EQ(testing::failureText<GraphError>([&] { run({{"path", path}, {"object", "hair"}}, 1.0); }),
              "ImportCurves: no curves named 'hair'");
}

}  // namespace
}  // namespace tressora
