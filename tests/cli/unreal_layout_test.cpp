// `eval --layout unreal`: the attribute layout of Unreal's groom importer from the command
// line. Strands and guides read back with every groom attribute, grouped by the strands'
// groupId or not, in the importer's axes and centimetres; internal marks never leave the
// program in any format.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include <nlohmann/json.hpp>

#include "../groom/sample_groom.h"
#include "groom/groom_file.h"
#include "io/alembic_curves_reader.h"
#include "io/alembic_writer.h"
#include "support/run_program.h"

namespace tressora::cli {
namespace {

using tressora::testing::fileText;
using tressora::testing::ProgramResult;
using tressora::testing::runCli;
using tressora::testing::TempFolder;

const std::string kNika = std::string(TRESSORA_SOURCE_DIR) + "/examples/nika.groom";

std::set<std::string> paramNames(const ReadCurvesSample& sample) {
    std::set<std::string> names;
    for (const abc::GeomParamSample& p : sample.params) names.insert(p.name);
    return names;
}

const abc::GeomParamSample& param(const ReadCurvesSample& sample, const std::string& name) {
    for (const abc::GeomParamSample& p : sample.params)
        if (p.name == name) return p;
    throw std::runtime_error("no param " + name);
}

/// Four strands of two points at x = 0..3, the first two in group 3, the others in group 8,
/// imported by a groom of the given up axis and units that also holds two guides.
class UnrealLayout : public ::testing::Test {
protected:
    std::string groom(const std::string& upAxis, const std::string& units, bool groups) {
        StrandSet set;
        for (int s = 0; s < 4; ++s) {
            const std::vector<Vec3f> points = {{float(s), 1.0f, 2.0f}, {float(s), 1.5f, 2.0f}};
            set.addStrand(50 + s, StrandRoot{}, points);
        }
        if (groups) {
            const std::span<float> group = set.addStrandChannel("groupId");
            for (int s = 0; s < 4; ++s) group[s] = s < 2 ? 3.0f : 8.0f;
        }
        set.addStrandChannel("_preview", 1.0f);
        const std::string curves = folder.file("curves.abc");
        AlembicWriter writer(curves);
        writer.writeFrame(set);
        writer.close();

        GroomScene scene;
        scene.upAxis = upAxis;
        scene.units = units;
        scene.graph = {{"version", 1},
                       {"nodes", {{{"name", "import"}, {"type", "ImportCurves"}, {"params", {{"path", curves}, {"samples", 0}}}}}},
                       {"output", "import"}};
        // Guides by the first strand of each group (rooted near x = 0 and x = 3).
        scene.guides = {FlatGuide{1, {0.1f, 1, 2}, {{0.1f, 1, 2}, {0.1f, 2, 2}}, std::nullopt},
                        FlatGuide{2, {2.9f, 1, 2}, {{2.9f, 1, 2}, {2.9f, 2, 2}}, std::nullopt}};
        const std::string path = folder.file(upAxis + units + (groups ? "g" : "") + ".groom");
        writeGroom(path, scene);
        return path;
    }
    TempFolder folder;
};

TEST_F(UnrealLayout, GroupsFollowTheStrandsGroupIdAndGuidesJoinTheGroupAroundThem) {
    const std::string out = folder.file("grouped.abc");
    const ProgramResult r = runCli({"eval", groom("Y", "cm", true), "-o", out, "--layout", "unreal"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    struct Want {
        std::string object;
        std::size_t strands;
        std::int32_t group;
        bool guide;
    };
    for (const Want& w : std::vector<Want>{{"strands_group3", 2, 3, false},
                                           {"strands_group8", 2, 8, false},
                                           {"guides_group3", 1, 3, true},
                                           {"guides_group8", 1, 8, true}}) {
        SCOPED_TRACE(w.object);
        const ReadCurves read = readAlembicCurves(out, w.object);
        ASSERT_EQ(read.samples.size(), 1u);
        const ReadCurvesSample& sample = read.samples[0];
        EXPECT_EQ(sample.strands.strandCount(), w.strands);
        EXPECT_EQ(param(sample, "groom_group_id").as<std::int32_t>(), std::vector<std::int32_t>(w.strands, w.group));
        EXPECT_EQ(param(sample, "groom_group_name").strings, std::vector<std::string>{"group" + std::to_string(w.group)});
        EXPECT_EQ(paramNames(sample).count("groom_guide"), w.guide ? 1u : 0u);
    }
    // Strand ids survive whole through their two halves.
    const ReadCurves second = readAlembicCurves(out, "strands_group8");
    EXPECT_EQ(std::vector<std::uint64_t>(second.samples[0].strands.ids().begin(), second.samples[0].strands.ids().end()),
              (std::vector<std::uint64_t>{52, 53}));
}

TEST_F(UnrealLayout, PointsGoToTheImportersAxesInCentimetres) {
    struct Case {
        std::string up, units;
        Vec3f first;  // the point (0, 1, 2) as the importer gets it
    };
    for (const Case& c : std::vector<Case>{{"Y", "cm", {0, 2, 1}}, {"Z", "cm", {0, -1, 2}}, {"Z", "m", {0, -100, 200}}}) {
        SCOPED_TRACE(c.up + c.units);
        const std::string out = folder.file(c.up + c.units + ".abc");
        const ProgramResult r = runCli({"eval", groom(c.up, c.units, false), "-o", out, "--layout", "unreal"});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const ReadCurvesSample sample = readAlembicCurves(out, "strands").samples.at(0);
        EXPECT_EQ(sample.strands.points()[0], c.first);
        EXPECT_EQ(sample.strands.ids()[3], 53u);  // from tressora_strand_id_low/high
        EXPECT_EQ(readAlembicCurves(out, "guides").samples.at(0).strands.strandCount(), 2u);
    }
}

TEST_F(UnrealLayout, TheExampleGroomExportsWithItsGuidesAndLook) {
    if (!std::filesystem::exists(kNika)) GTEST_SKIP() << "examples/nika.groom is not in this tree";
    const std::string out = folder.file("nika.abc");
    const ProgramResult r = runCli({"eval", kNika, "-o", out, "--layout", "unreal"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const ReadCurvesSample strands = readAlembicCurves(out, "strands").samples.at(0);
    EXPECT_NE(r.out.find("frame 1: " + std::to_string(strands.strands.strandCount()) + " strands"), std::string::npos);
    EXPECT_EQ(paramNames(strands).count("groom_color"), 1u);
    EXPECT_EQ(strands.rootUvs.size(), strands.strands.strandCount());  // from groom_root_uv
    EXPECT_EQ(readAlembicCurves(out, "guides").samples.at(0).strands.strandCount(), 42u);
}

TEST_F(UnrealLayout, RefusalsNameTheChoices) {
    const std::string file = groom("Y", "cm", false);
    const ProgramResult bad = runCli({"eval", file, "-o", folder.file("x.abc"), "--layout", "ue5"});
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_EQ(bad.err, "error: --layout must be neutral or unreal\n");
    for (const char* out : {"x.usda", "x.vrscene"}) {
        const ProgramResult r = runCli({"eval", file, "-o", folder.file(out), "--layout", "unreal"});
        EXPECT_EQ(r.exitCode, 2);
        EXPECT_EQ(r.err, "error: --layout unreal writes Alembic: the output must be .abc\n");
    }
}

TEST_F(UnrealLayout, NamesBeginningWithAnUnderscoreAreNeverWritten) {
    const std::string file = groom("Y", "cm", true);
    for (const char* name : {"n.abc", "n.usda", "n.vrscene"}) {
        SCOPED_TRACE(name);
        const std::string out = folder.file(name);
        ASSERT_EQ(runCli({"eval", file, "-o", out}).exitCode, 0);
        EXPECT_EQ(fileText(out).find("_preview"), std::string::npos);
    }
    EXPECT_EQ(paramNames(readAlembicCurves(folder.file("n.abc")).samples.at(0)).count("groupId"), 1u);
}

}  // namespace
}  // namespace tressora::cli
