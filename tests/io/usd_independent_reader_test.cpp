// Reads a written layer back with an independent USD text parser (an npm package, installed by
// scripts/install-usda-check.sh). Skips when node or that install is missing.

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "io/usd_writer.h"
#include "io_test_support.h"
#include "support/run_program.h"

namespace tressora {
namespace {

std::string findOnPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::stringstream dirs(path ? path : "");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        const std::filesystem::path candidate = std::filesystem::path(dir) / program;
        if (!dir.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate.string();
    }
    return {};
}

TEST(UsdIndependentReader, ParsesAWrittenLayerWithEveryNumberForm) {
    const std::string node = findOnPath("node");
    const std::filesystem::path checkDir = std::filesystem::path(TRESSORA_SOURCE_DIR) / "tests/io/usda_check";
    if (node.empty()) GTEST_SKIP() << "node is not installed";
    if (!std::filesystem::exists(checkDir / "node_modules/@kroxilon/usda-parser")) {
        GTEST_SKIP() << "run scripts/install-usda-check.sh to install the USD text parser";
    }
    testing::TempFolder folder;
    const std::string path = folder.file("check.usda");
    {
        UsdWriterOptions options;
        options.upAxis = "Z";
        options.metersPerUnit = 0.0254;
        UsdWriter writer(path, "groom", options);
        for (int f = 0; f < 3; ++f) {
            StrandSet set = testing::smallSet(static_cast<float>(f));
            set.mutablePoints()[0] = {-0.0f, 1e-45f, -3.4028235e38f};
            set.mutableIds()[1] = ~std::uint64_t{0};
            set.addPointChannel("my-attr", 1.5e-7f);
            writer.writeFrame(1 + 0.5 * f, set);
        }
    }
    const testing::ProgramResult result = testing::runProgram(node, {(checkDir / "check_usda.mjs").string(), path});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("\"times\":[1,1.5,2]"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\"upAxis\":\"Z\""), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\"metersPerUnit\":0.0254"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\"primvars:my_attr\""), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\"firstPoint\":[0,1e-45,-3.4028235e+38]"), std::string::npos) << result.out;
}

}  // namespace
}  // namespace tressora
