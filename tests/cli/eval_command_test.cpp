// The eval command as a user runs it: every message and exit code of its command line, the
// frames it writes in each format, and files that read back with the values written.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "../groom/sample_groom.h"
#include "core/strand_set.h"
#include "groom/groom_file.h"
#include "io/alembic_curves_reader.h"
#include "io/alembic_writer.h"
#include "support/run_program.h"

namespace tressora::cli {
namespace {

using tressora::testing::ProgramResult;
using tressora::testing::runCli;
using tressora::testing::TempFolder;

/// Strands that differ per frame: strand s has s + 2 points, moved by the frame along x.
StrandSet frameStrands(int frame) {
    StrandSet set;
    for (int s = 0; s < 5; ++s) {
        std::vector<Vec3f> points;
        for (int k = 0; k < s + 2; ++k)
            points.push_back({static_cast<float>(s) + 0.1f * static_cast<float>(frame), 0.25f * static_cast<float>(k), 0.5f});
        set.addStrand(100 + static_cast<std::uint64_t>(s), StrandRoot{}, points);
    }
    return set;
}

/// A folder with "curves.abc" (frames 1 to 10 of frameStrands) and "x.groom", whose graph
/// imports those curves as they are.
class EvalFixture : public ::testing::Test {
protected:
    void SetUp() override {
        AlembicWriter writer(folder.file("curves.abc"));
        for (int f = 1; f <= 10; ++f) writer.writeFrame(frameStrands(f));
        writer.close();
        GroomScene scene;
        scene.graph = {{"version", 1},
                       {"nodes", {{{"name", "import"},
                                   {"type", "ImportCurves"},
                                   {"params", {{"path", folder.file("curves.abc")}, {"samples", 0}}}}}},
                       {"output", "import"}};
        writeGroom(groom(), scene);
    }
    std::string groom() const { return folder.file("x.groom"); }
    ProgramResult eval(std::vector<std::string> args, const std::vector<std::string>& env = {}) const {
        args.insert(args.begin(), "eval");
        return runCli(args, env);
    }

    TempFolder folder;
};

struct Refusal {
    std::vector<std::string> args;  // after "eval"; "G" stands for the groom, "O" for an output
    int code;
    std::string error;
};

TEST_F(EvalFixture, EveryBadCommandLineSaysWhatIsWrongWithItsExitCode) {
    const std::vector<Refusal> cases = {
        {{}, 2, "eval needs a groom file and -o <output>"},
        {{"G"}, 2, "eval needs a groom file and -o <output>"},
        {{"G", "-o"}, 2, "-o needs a value"},
        {{"G", "-o", "O", "--frames"}, 2, "--frames needs a value"},
        {{"G", "-o", "O", "--bogus"}, 2, "unknown option --bogus"},
        {{"G", "other.groom", "-o", "O"}, 2, "unexpected argument other.groom"},
        {{"G", "-o", "O", "-f", "10-1"}, 2, "the end frame is before the start frame"},
        {{"G", "-o", "O", "-f", "1-"}, 2, "bad frame range"},
        {{"G", "-o", "O", "-f", "a"}, 2, "bad frame range"},
        {{"G", "-o", "O", "-f", "1-2x"}, 2, "bad frame range"},
        {{"G", "-o", "O", "--step", "0"}, 2, "--step must be positive"},
        {{"G", "-o", "O", "--step", "fast"}, 2, "invalid stod argument"},
        {{"G", "-o", "O", "--step", "1e999"}, 1, "stod argument out of range"},
        {{"G", "-o", "O", "--density", "1.5"}, 2, "--density must be between 0 and 1"},
        {{"G", "-o", "O", "--density", "x"}, 2, "invalid stof argument"},
        {{"G", "-o", "O", "--density", "1e99"}, 1, "stof argument out of range"},
        {{"G", "-o", "out.obj"}, 2, "the output must be .abc, .usda or .vrscene"},
        {{"G", "-o", "out.ABC"}, 2, "the output must be .abc, .usda or .vrscene"},
        {{"G", "-o", "O", "--scales", "big"}, 2, "--scales must be mesh, instancer, both or none"},
        {{"G", "-o", "O", "--scales", "both"}, 2, "an instancer goes to USD"},
        {{"G", "-o", "O", "--scales", "instancer"}, 2, "an instancer goes to USD"},
        {{"missing.groom", "-o", "O"}, 1, "cannot read 'missing.groom'"},
    };
    for (const Refusal& c : cases) {
        std::vector<std::string> args;
        std::string line;
        for (const std::string& a : c.args) {
            args.push_back(a == "G" ? groom() : a == "O" ? folder.file("out.abc") : a);
            line += " " + a;
        }
        SCOPED_TRACE("eval" + line);
        const ProgramResult r = eval(args);
        EXPECT_EQ(r.exitCode, c.code);
        EXPECT_EQ(r.err, "error: " + c.error + "\n");
        // A bad command line shows the usage after the error; a failed run does not.
        EXPECT_EQ(r.out.rfind("usage: tressora-cli --version\n", 0) == 0, c.code == 2) << r.out;
    }
    EXPECT_FALSE(std::filesystem::exists(folder.file("out.abc")));
}

TEST_F(EvalFixture, FramesOneToTenByThreeWriteFrameOneFourSevenTen) {
    const std::string out = folder.file("steps.abc");
    const ProgramResult r = eval({groom(), "-o", out, "-f", "1-10", "--step", "3"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("frame 1: 5 strands\nframe 4: 5 strands\nframe 7: 5 strands\nframe 10: 5 strands\n"),
              std::string::npos)
        << r.out;
    EXPECT_TRUE(std::regex_search(r.out, std::regex("\nwrote 4 frame\\(s\\), 5 strands per frame on average, to " +
                                                    std::regex_replace(out, std::regex("[.]"), "[.]") + " in [0-9]+ ms\n$")))
        << r.out;

    // The archive reads back with each frame's values at its time.
    const ReadCurves read = readAlembicCurves(out);
    ASSERT_EQ(read.samples.size(), 4u);
    for (int i = 0; i < 4; ++i) {
        const int frame = 1 + 3 * i;
        EXPECT_DOUBLE_EQ(read.samples[i].time, frame / 24.0);
        const StrandSet want = frameStrands(frame);
        const StrandSet& got = read.samples[i].strands;
        EXPECT_TRUE(std::equal(got.points().begin(), got.points().end(), want.points().begin(), want.points().end()));
        EXPECT_TRUE(std::equal(got.ids().begin(), got.ids().end(), want.ids().begin(), want.ids().end()));
    }
    const ProgramResult info = runCli({"abc-info", out});
    EXPECT_EQ(info.out.substr(0, info.out.find('\n', info.out.find('\n') + 1)),
              "4 frame(s)\n  t=0.041666666666666664s strands=5 points=20 bbox=(0.1,0,0.5)-(4.1,1.25,0.5)");
}

TEST_F(EvalFixture, FractionalStepsAndNegativeFramesAreFrames) {
    const std::string out = folder.file("tenths.abc");
    ProgramResult r = eval({groom(), "-o", out, "-f", "1-2", "--step", "0.1"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("wrote 11 frame(s)"), std::string::npos) << r.out;
    EXPECT_EQ(runCli({"abc-info", out}).out.substr(0, 11), "11 frame(s)");
    r = eval({groom(), "-o", folder.file("neg.abc"), "-f", "-5"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.rfind("frame -5: 5 strands\n", 0), 0u) << r.out;
}

TEST_F(EvalFixture, WritesEachFormatByItsExtension) {
    for (const char* name : {"out.abc", "out.usda", "out.usd", "out.vrscene"}) {
        SCOPED_TRACE(name);
        const std::string out = folder.file(name);
        const ProgramResult r = eval({groom(), "-o", out, "-f", "1-3", "--stats", "--timings"});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        EXPECT_NE(r.out.find("frame 2: 5 strands\nstats: {"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("\n  import: "), std::string::npos) << r.out;
        EXPECT_GT(std::filesystem::file_size(out), 0u);
        EXPECT_FALSE(std::filesystem::exists(out + ".tmp"));
    }
    EXPECT_NE(tressora::testing::fileText(folder.file("out.usda")).find("BasisCurves"), std::string::npos);
    EXPECT_NE(tressora::testing::fileText(folder.file("out.vrscene")).find("GeomMayaHair"), std::string::npos);
}

TEST_F(EvalFixture, HashIsTheSameForTwoExportsAndForAnyThreadCount) {
    const std::string a = folder.file("a.abc"), b = folder.file("b.abc");
    ASSERT_EQ(eval({groom(), "-o", a, "-f", "1-5"}).exitCode, 0);
    ASSERT_EQ(eval({groom(), "-o", b, "-f", "1-5"}, {"TRESSORA_THREADS=1"}).exitCode, 0);
    const ProgramResult ha = runCli({"hash", a}), hb = runCli({"hash", b}), again = runCli({"hash", a});
    EXPECT_EQ(ha.exitCode, 0);
    EXPECT_EQ(ha.out, hb.out);
    EXPECT_EQ(ha.out, again.out);
    EXPECT_TRUE(std::regex_match(ha.out, std::regex("(t=[0-9.]+s strands=5 points=20 uvs=0 hash=[0-9a-f]{16}\n){5}"
                                                    "all=[0-9a-f]{16}\n")))
        << ha.out;
    // Another frame range is other content.
    ASSERT_EQ(eval({groom(), "-o", b, "-f", "2-6"}).exitCode, 0);
    EXPECT_NE(runCli({"hash", b}).out, ha.out);
}

TEST(InspectionCommands, AbcInfoAndHashOnReferenceFiles) {
    const char* env = std::getenv("TRESSORA_SHARED_DIR");
    const std::filesystem::path shared = std::filesystem::path(env && *env ? env : TRESSORA_SHARED_DIR) / "fixtures/alembic-reference";
    if (!std::filesystem::is_directory(shared)) GTEST_SKIP() << "shared Alembic fixtures are not present";
    const std::string basic = (shared / "curves_basic.abc").string();
    const ProgramResult info = runCli({"abc-info", basic});
    EXPECT_EQ(info.exitCode, 0);
    EXPECT_EQ(info.out,
              "3 frame(s)\n"
              "  t=0.041666666666666664s strands=4 points=14 bbox=(0,0,0.25)-(3,2,0.25)\n"
              "  t=0.08333333333333333s strands=4 points=14 bbox=(0,0,0.5)-(3,2,0.5)\n"
              "  t=0.125s strands=4 points=14 bbox=(0,0,0.75)-(3,2,0.75)\n");
    EXPECT_EQ(runCli({"abc-info", basic, "groom"}).out, info.out);
    const ProgramResult groomLayout = runCli({"abc-info", (shared / "curves_groom_layout.abc").string(), "guides"});
    EXPECT_EQ(groomLayout.out, "1 frame(s)\n  t=0.041666666666666664s strands=2 points=8 bbox=(0.25,0,-0.0625)-(0.75,0.75,-0.0625)\n");

    const ProgramResult hash = runCli({"hash", basic});
    EXPECT_EQ(hash.exitCode, 0);
    EXPECT_TRUE(std::regex_match(hash.out, std::regex("(t=[0-9.]+s strands=4 points=14 uvs=4 hash=[0-9a-f]{16}\n){3}"
                                                      "all=[0-9a-f]{16}\n")))
        << hash.out;

    // Failures: what was printed so far, the error, and exit code 1.
    const ProgramResult empty = runCli({"hash", (shared / "empty.abc").string()});
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_EQ(empty.err, "error: no curves\n");
    const ProgramResult named = runCli({"abc-info", basic, "hair"});
    EXPECT_EQ(named.exitCode, 1);
    EXPECT_EQ(named.err, "error: no curves named 'hair'\n");
    EXPECT_EQ(runCli({"hash", "/nonexistent/file.abc"}).exitCode, 1);
}

}  // namespace
}  // namespace tressora::cli
