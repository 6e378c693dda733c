#include <gtest/gtest.h>

#include <sstream>

#include "../groom/sample_groom.h"
#include "cli/info_command.h"
#include "groom/groom_file.h"
#include "support/run_program.h"

namespace tressora::cli {
namespace {

using tressora::testing::runCli;
using tressora::testing::TempFolder;

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

const std::vector<std::string> kFullSceneReport = {
    "source:       heads/ada.obj",
    "fps:          30",
    "units:        mm, Z up",
    "scalp:       9 points, 8 triangles, rest pose, UVs, color set mask",
    "hierarchy:   1 guides in 1 groups",
    "flat guides: 2",
    "follow scalp: on (evaluated at rest, carried by each root)",
    "graph:       2 nodes, output output",
    "scalp cache: anim/head.abc (/head/headShape)",
    "guide cache: anim/guides.abc",
    "card bake:   cards/ada_*",
};

TEST(InfoCommand, BareGroomShowsOnlyWhatIsAlwaysThere) {
    GroomScene scene;
    scene.framesPerSecond = 23.976;
    std::ostringstream out;
    writeGroomInfo(scene, out);
    EXPECT_EQ(out.str(),
              "source:       -\n"
              "fps:          23.976\n"
              "units:        cm, Y up\n"
              "scalp:       none\n"
              "flat guides: 0\n");

    scene.scalp.mesh = tressora::testing::gridMesh(1);
    scene.cardBake = {{"prefix", ""}, {"strands", 3}};  // a bake without prefix is not shown
    std::ostringstream plain;
    writeGroomInfo(scene, plain);
    EXPECT_EQ(lines(plain.str())[3], "scalp:       4 points, 2 triangles");
    EXPECT_EQ(lines(plain.str()).size(), 5u);
}

TEST(InfoProgram, ReportsEveryPartOfAGroomFileOrWhyItCannot) {
    TempFolder folder;
    const std::string path = folder.file("ada.groom");
    writeGroom(path, tressora::testing::fullScene());
    const auto r = runCli({"info", path});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(lines(r.out), kFullSceneReport);
    EXPECT_EQ(r.out.back(), '\n');
    EXPECT_EQ(r.err, "");

    const std::string missing = folder.file("missing.groom");
    const std::vector<std::pair<std::string, std::string>> failures = {
        {"", "cannot read '" + missing + "'"},
        {R"({"format":"something.else","version":1})", "not a Tressora groom file"},
        {R"({"format":"tressora.groom","version":2})",
         "groom file version 2 is newer than this Tressora supports (1); update Tressora to open it"},
        {R"({"format":"tressora.groom","upAxis":"y"})", "groom file: upAxis is \"Y\" or \"Z\", not \"y\""},
    };
    for (const auto& [text, error] : failures) {
        const std::string file = text.empty() ? missing : folder.file("bad.groom");
        if (!text.empty()) tressora::testing::writeText(file, text);
        const auto bad = runCli({"info", file});
        EXPECT_EQ(bad.exitCode, 1) << error;
        EXPECT_EQ(bad.out, "");
        EXPECT_EQ(bad.err, "error: " + error + "\n");
    }
}

}  // namespace
}  // namespace tressora::cli
