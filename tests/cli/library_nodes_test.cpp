// The library nodes that ship in nodes/: each one, added to the example groom as "node:<id>",
// evaluates without a note, changes the strands, and gives the same archive on one thread and
// on all cores.

#include <gtest/gtest.h>

#include <filesystem>

#include "../groom/sample_groom.h"
#include "library/node_file.h"
#include "support/run_program.h"

namespace tressora::cli {
namespace {

using tressora::testing::fileText;
using tressora::testing::ProgramResult;
using tressora::testing::runCli;
using tressora::testing::TempFolder;
using tressora::testing::writeText;

const std::filesystem::path kSource = TRESSORA_SOURCE_DIR;

/// The example groom with a node of `type` between the last node and the output.
std::string withNodeBeforeOutput(const std::string& type) {
    nlohmann::json groom = nlohmann::json::parse(fileText((kSource / "examples" / "nika.groom").string()));
    nlohmann::json& graph = groom["graph"];
    const std::string output = graph["output"].get<std::string>();
    for (nlohmann::json& c : graph["connections"])
        if (c["to"] == output) c["to"] = "library";
    graph["connections"].push_back({{"from", "library"}, {"to", output}, {"input", "strands"}});
    graph["nodes"].push_back({{"name", "library"}, {"type", type}});
    return groom.dump();
}

std::string hashOf(const std::string& groom, const std::string& abc, const std::string& threads) {
    const ProgramResult r = runCli({"eval", groom, "-o", abc, "--density", "0.25"},
                                   {"TRESSORA_THREADS=" + threads, "TRESSORA_USER_NODES=" + abc + ".nodes"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.find("note"), std::string::npos) << groom << "\n" << r.out;
    return runCli({"hash", abc}).out;
}

TEST(LibraryNodes, EachShippedNodeShapesTheExampleGroomAlikeOnAnyThreadCount) {
    const std::filesystem::path nodes = kSource / "nodes";
    if (!std::filesystem::is_directory(nodes) || !std::filesystem::exists(kSource / "examples" / "nika.groom"))
        GTEST_SKIP() << "the nodes folder or the example groom is not in this tree";
    TempFolder folder;
    const std::string base = hashOf((kSource / "examples" / "nika.groom").string(), folder.file("base.abc"), "0");

    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(nodes)) {
        if (entry.path().extension() != ".tsnode") continue;
        const NodeFile file = parseNodeFile(fileText(entry.path().string()));
        SCOPED_TRACE(file.id);
        EXPECT_FALSE(file.description.empty());
        // The shipped text is already in the canonical form a save writes.
        EXPECT_EQ(nodeFileText(file), fileText(entry.path().string()));
        const std::string groom = folder.file(file.id + ".groom");
        writeText(groom, withNodeBeforeOutput("node:" + file.id));
        const std::string all = hashOf(groom, folder.file(file.id + ".abc"), "0");
        const std::string one = hashOf(groom, folder.file(file.id + "-1.abc"), "1");
        EXPECT_EQ(all, one);
        EXPECT_NE(all, base);
        ++count;
    }
    EXPECT_GE(count, 6);
}

}  // namespace
}  // namespace tressora::cli
