#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "cli/driver.h"
#include "cli/usage.h"
#include "core/errors.h"
#include "graph/operator_registry.h"
#include "support/run_program.h"

namespace tressora::cli {
namespace {

using tressora::testing::runCli;

TEST(DriverProgram, VersionLineIgnoresExtraArguments) {
    for (const auto& args : {std::vector<std::string>{"--version"}, std::vector<std::string>{"--version", "extra"}}) {
        const auto r = runCli(args);
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_EQ(r.out, "tressora-cli 0.28.0 (TBB on, Alembic on)\n");
        EXPECT_EQ(r.err, "");
    }
}

TEST(DriverProgram, UnknownOrIncompleteCommandsPrintUsageAndExitOne) {
    const std::vector<std::vector<std::string>> cases = {
        {}, {"Eval"}, {"--Version"}, {"info"}, {"abc-info"}, {"hash"}, {"help"}, {"--list"}};
    for (const auto& args : cases) {
        const auto r = runCli(args);
        EXPECT_EQ(r.exitCode, 1) << (args.empty() ? "(none)" : args[0]);
        EXPECT_EQ(r.out, kUsage);
        EXPECT_EQ(r.err, "");
    }
}

TEST(DriverProgram, ListOperatorsPrintsTheRegistryInNameOrder) {
    const auto r = runCli({"--list-operators"});
    EXPECT_EQ(r.exitCode, 0);
    // The program's main adds the Alembic family to the built-ins.
    std::vector<std::string> names = OperatorRegistry::instance().names();
    names.push_back("ImportCurves");
    std::sort(names.begin(), names.end());
    std::string expected;
    for (const std::string& name : names) expected += name + "\n";
    EXPECT_EQ(r.out, expected);
}

TEST(DriverProgram, SameOutputWithOneThreadAndAllCores) {
    const auto one = runCli({"--list-operators"}, {"TRESSORA_THREADS=1"});
    const auto all = runCli({"--list-operators"}, {"TRESSORA_THREADS=notanumber"});
    EXPECT_EQ(one.out, all.out);
    EXPECT_EQ(one.exitCode, all.exitCode);
}

// The failure paths are driven in-process with a table of stand-in commands, so that every
// branch of the guard is exercised before the real commands exist.
struct DriveResult {
    int code;
    std::string out;
    std::string err;
};

DriveResult drive(std::vector<std::string> args, const CommandTable& table) {
    args.insert(args.begin(), "tressora-cli");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    std::ostringstream out, err;
    const int code = runDriver(static_cast<int>(argv.size()), argv.data(), out, err, table);
    return {code, out.str(), err.str()};
}

int throwsBadCommandLine(int, char**, std::ostream& out, std::ostream&) {
    out << "partial\n";
    throw std::invalid_argument("eval needs a groom file and -o <output>");
}
int throwsFailure(int, char**, std::ostream&, std::ostream&) { throw GroomFileError("cannot read 'x.groom'"); }
int succeeds(int argc, char**, std::ostream& out, std::ostream&) {
    out << "ran with " << argc << "\n";
    return 0;
}
int infoFails(const char* file, const char*, std::ostream& out, std::ostream&) {
    out << "source:       -\n";
    throw std::runtime_error(std::string("cannot open '") + file + "'");
}
int hashEchoes(const char* file, const char* object, std::ostream& out, std::ostream&) {
    out << file << "|" << (object ? object : "(all)") << "\n";
    return 0;
}
int hashFails(const char*, const char*, std::ostream&, std::ostream&) { throw AlembicError("'a.abc' is truncated"); }

TEST(Driver, BadCommandLineExitsTwoWithErrorThenUsage) {
    CommandTable table;
    table.eval = throwsBadCommandLine;
    const DriveResult r = drive({"eval"}, table);
    EXPECT_EQ(r.code, 2);
    EXPECT_EQ(r.err, "error: eval needs a groom file and -o <output>\n");
    std::string expected = "partial\n";
    expected += kUsage;
    EXPECT_EQ(r.out, expected);
}

TEST(Driver, OtherFailuresExitOneWithoutUsage) {
    CommandTable table;
    table.bakeScales = throwsFailure;
    table.info = infoFails;
    table.hash = hashFails;
    DriveResult r = drive({"bake-scales", "x.groom"}, table);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "error: cannot read 'x.groom'\n");
    EXPECT_EQ(r.out, "");

    r = drive({"info", "head.groom", "ignored"}, table);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "error: cannot open 'head.groom'\n");
    EXPECT_EQ(r.out, "source:       -\n");  // what the report printed so far stays

    r = drive({"hash", "a.abc"}, table);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "error: 'a.abc' is truncated\n");
}

TEST(Driver, DispatchPassesFilesObjectsAndWholeCommandLines) {
    CommandTable table;
    table.eval = succeeds;
    table.mcp = succeeds;
    table.abcInfo = hashEchoes;
    table.hash = hashEchoes;
    EXPECT_EQ(drive({"eval", "a", "-o", "b"}, table).out, "ran with 5\n");
    EXPECT_EQ(drive({"mcp"}, table).out, "ran with 2\n");
    EXPECT_EQ(drive({"hash", "f.abc"}, table).out, "f.abc|(all)\n");
    EXPECT_EQ(drive({"abc-info", "f.abc", "groom"}, table).out, "f.abc|groom\n");
    // A command whose handler is not in the table is an unknown command.
    const DriveResult missing = drive({"bake-scales"}, table);
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.out, kUsage);
}

}  // namespace
}  // namespace tressora::cli
