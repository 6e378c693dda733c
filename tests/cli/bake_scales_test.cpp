// The bake-scales command line: every refusal with its exit code, and a groom without scales.

#include <gtest/gtest.h>

#include <filesystem>

#include "support/run_program.h"

namespace tressora::cli {
namespace {

using tressora::testing::runCli;

TEST(BakeScales, CommandLineRefusalsAndAGroomWithoutScales) {
    const std::string example = std::string(TRESSORA_SOURCE_DIR) + "/examples/nika.groom";
    if (!std::filesystem::exists(example)) GTEST_SKIP() << "examples/nika.groom is not in this tree";
    const std::string prefix = (std::filesystem::temp_directory_path() / "tressora-bake-").string();
    struct Case {
        std::vector<std::string> args;
        int code;
        std::string error;
    };
    const std::vector<Case> cases = {
        {{}, 2, "bake-scales needs a groom file and -o <prefix>"},
        {{"G"}, 2, "bake-scales needs a groom file and -o <prefix>"},
        {{"G", "-o"}, 2, "-o needs a value"},
        {{"G", "-o", "P", "--resolution", "15"}, 2, "the scale maps' resolution must be 16 to 8192"},
        {{"G", "-o", "P", "--resolution", "8193"}, 2, "the scale maps' resolution must be 16 to 8192"},
        {{"G", "-o", "P", "--resolution", "big"}, 2, "invalid stoi argument"},
        {{"G", "-o", "P", "--background", "1,2"}, 2, "--background needs r,g,b"},
        {{"G", "-o", "P", "--background", "1,2,3,4"}, 2, "--background needs r,g,b"},
        {{"G", "-o", "P", "--glossy"}, 2, "unknown option --glossy"},
        {{"G", "-o", "P", "-f", "3"}, 1, "the groom has no scales at frame 3"},
        {{"G", "-o", "P"}, 1, "the groom has no scales at frame 1"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"bake-scales"};
        for (const std::string& a : c.args) args.push_back(a == "G" ? example : a == "P" ? prefix : a);
        SCOPED_TRACE(::testing::PrintToString(c.args));
        const auto r = runCli(args);
        EXPECT_EQ(r.exitCode, c.code);
        EXPECT_EQ(r.err, "error: " + c.error + "\n");
    }
    EXPECT_FALSE(std::filesystem::exists(prefix + "ScaleHeight.1001.png"));
}

}  // namespace
}  // namespace tressora::cli
