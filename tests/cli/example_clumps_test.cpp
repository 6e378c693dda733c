// The example groom's clumps through the program: eval writes the clump numbers, and a
// strand keeps its clump at a preview density as in the full groom.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "../groom/sample_groom.h"
#include "io/alembic_curves_reader.h"
#include "support/run_program.h"

namespace tressora::cli {
namespace {

using tressora::testing::runCli;
using tressora::testing::TempFolder;

std::map<std::uint64_t, float> clumpsById(const std::string& path) {
    const ReadCurves read = readAlembicCurves(path);
    std::map<std::uint64_t, float> out;
    if (read.samples.empty()) return out;
    const StrandSet& s = read.samples[0].strands;
    const StrandChannel* clump = s.strandChannel("clumpId");
    if (!clump) return out;
    for (std::size_t i = 0; i < s.strandCount(); ++i) out[s.ids()[i]] = clump->values()[i];
    return out;
}

TEST(ExampleClumps, AStrandKeepsItsClumpAtAnyDensity) {
    const std::string example = std::string(TRESSORA_SOURCE_DIR) + "/examples/nika.groom";
    if (!std::filesystem::exists(example)) GTEST_SKIP() << "examples/nika.groom is not in this tree";
    TempFolder folder;
    const std::string full = folder.file("full.abc"), preview = folder.file("preview.abc");
    ASSERT_EQ(runCli({"eval", example, "-o", full}).exitCode, 0);
    ASSERT_EQ(runCli({"eval", example, "-o", preview, "--density", "0.25"}, {"TRESSORA_THREADS=1"}).exitCode, 0);
    const auto all = clumpsById(full), some = clumpsById(preview);
    ASSERT_GT(all.size(), 10000u);
    ASSERT_GT(some.size(), all.size() / 8);
    ASSERT_LT(some.size(), all.size() / 2);
    for (const auto& [id, clump] : some) EXPECT_EQ(clump, all.at(id)) << id;
    std::set<float> clumps;
    for (const auto& [id, clump] : all) clumps.insert(clump);
    EXPECT_GT(clumps.size(), 90u);  // about the 140 the example asks for
    EXPECT_LT(clumps.size(), 190u);
}

}  // namespace
}  // namespace tressora::cli
