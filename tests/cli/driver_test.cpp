// The program's own lines: the version, the usage for unknown or incomplete commands, and the
// operator list. The commands' refusals and exit codes are tested with each command.

#include <gtest/gtest.h>

#include <algorithm>

#include "cli/usage.h"
#include "graph/operator_registry.h"
#include "support/run_program.h"

namespace tressora::cli {
namespace {

using tressora::testing::runCli;

TEST(DriverProgram, VersionAndUsageLines) {
    for (const auto& args : {std::vector<std::string>{"--version"}, std::vector<std::string>{"--version", "extra"}}) {
        const auto r = runCli(args);
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_EQ(r.out, "tressora-cli 0.28.0 (TBB on, Alembic on)\n");
        EXPECT_EQ(r.err, "");
    }
    const std::vector<std::vector<std::string>> unknown = {
        {}, {"Eval"}, {"--Version"}, {"info"}, {"abc-info"}, {"hash"}, {"help"}, {"--list"}};
    for (const auto& args : unknown) {
        const auto r = runCli(args);
        EXPECT_EQ(r.exitCode, 1) << (args.empty() ? "(none)" : args[0]);
        EXPECT_EQ(r.out, kUsage);
        EXPECT_EQ(r.err, "");
    }
}

TEST(DriverProgram, ListOperatorsPrintsTheRegistryInNameOrderOnAnyThreadCount) {
    const auto r = runCli({"--list-operators"}, {"TRESSORA_THREADS=1"});
    EXPECT_EQ(r.exitCode, 0);
    // The program's main adds the Alembic family to the built-ins.
    std::vector<std::string> names = OperatorRegistry::instance().names();
    names.push_back("ImportCurves");
    std::sort(names.begin(), names.end());
    std::string expected;
    for (const std::string& name : names) expected += name + "\n";
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(runCli({"--list-operators"}, {"TRESSORA_THREADS=notanumber"}).out, r.out);
}

}  // namespace
}  // namespace tressora::cli
