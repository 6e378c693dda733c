// The program under hostile input, as a user can give it: documents nested far too deep,
// frame ranges that never end, param values of the wrong kind, outputs that cannot be
// written, interruptions, and densities no machine could hold. Each is a clear message and
// an exit code, and nothing on disk is lost or left behind.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "../groom/sample_groom.h"
#include "core/errors.h"
#include "core/guide_hierarchy.h"
#include "groom/groom_file.h"
#include "maps/image_file.h"
#include "support/run_program.h"

namespace tressora::cli {
namespace {

using nlohmann::json;
using tressora::testing::fileText;
using tressora::testing::ProgramResult;
using tressora::testing::runCli;
using tressora::testing::TempFolder;
using tressora::testing::writeText;

const std::string kExampleGroom = std::string(TRESSORA_SOURCE_DIR) + "/examples/nika.groom";

std::string nested(std::size_t depth, const std::string& inner = "0") {
    return std::string(depth, '[') + inner + std::string(depth, ']');
}

/// The example groom with `edit` applied to its parsed document.
std::string exampleWith(const std::function<void(json&)>& edit) {
    json doc = json::parse(fileText(kExampleGroom));
    edit(doc);
    return doc.dump();
}

json& node(json& doc, const std::string& name) {
    for (json& n : doc["graph"]["nodes"])
        if (n["name"] == name) return n;
    throw std::runtime_error("no node " + name);
}

class Hostile : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(kExampleGroom)) GTEST_SKIP() << "examples/nika.groom is not in this tree";
    }
    std::string groom(const std::string& name, const std::string& text) const {
        writeText(folder.file(name), text);
        return folder.file(name);
    }
    TempFolder folder;
};

TEST_F(Hostile, DocumentsNestedTooDeepAreRefusedNotACrash) {
    // 150,000 levels: far past what a recursive copy or print of the value survives.
    const std::string deep = nested(150000);
    const std::string deepText = json(deep).dump();  // the same array held as a string
    struct Case {
        std::string name, text, error;
    };
    const std::string base = fileText(kExampleGroom);
    const auto withMember = [&](const std::string& key, const std::string& value) {
        return "{\"format\":\"tressora.groom\",\"version\":1,\"" + key + "\":" + value + "}";
    };
    const std::vector<Case> cases = {
        {"hierarchy", withMember("hierarchy", deep), "groom file: JSON nested deeper than 256 levels"},
        {"graph", withMember("graph", deep), "groom file: JSON nested deeper than 256 levels"},
        {"graphText", withMember("graph", deepText), "groom file: graph: JSON nested deeper than 256 levels"},
        {"hierarchyText", withMember("hierarchy", deepText),
         "groom file: hierarchy: JSON nested deeper than 256 levels"},
        {"params", base.substr(0, base.size() - 1) + ",\"extra\":{\"params\":" + deep + "}}",
         "groom file: JSON nested deeper than 256 levels"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string file = groom(c.name + ".groom", c.text);
        for (const char* command : {"info", "eval"}) {
            const ProgramResult r = command == std::string("info")
                                        ? runCli({"info", file})
                                        : runCli({"eval", file, "-o", folder.file("out.abc")});
            EXPECT_EQ(r.exitCode, 1);
            EXPECT_EQ(r.err, "error: " + c.error + "\n");
        }
    }
    // Deep but within bounds: a kept sub-document 200 levels deep reads.
    const std::string file = groom("fine.groom", exampleWith([](json& d) { d["correctives"] = {{"a", json::parse(nested(200))}}; }));
    EXPECT_EQ(runCli({"info", file}).exitCode, 0);
    EXPECT_THROW(GuideHierarchy::fromJson("{\"guides\":" + nested(100000) + "}"), SchemaError);
}

TEST_F(Hostile, FrameRangesMustBeFiniteAndCountable) {
    const std::string file = groom("x.groom", fileText(kExampleGroom));
    const std::string out = folder.file("out.abc");
    struct Case {
        std::vector<std::string> args;
        std::string error;
    };
    const std::vector<Case> cases = {
        {{"-f", "nan"}, "bad frame range"},
        {{"-f", "nan-nan"}, "bad frame range"},
        {{"-f", "1e309"}, "bad frame range"},
        {{"-f", "1-inf"}, "bad frame range"},
        {{"-f", "-inf-1"}, "bad frame range"},
        {{"-f", "1-2", "--step", "1e-300"}, "bad frame range"},
        {{"-f", "0-3e9"}, "bad frame range"},
        // A step lost in the frames' precision would write one time over and over.
        {{"-f", "10000000000000000-10000000000000010"}, "bad frame range"},
        {{"--step", "inf"}, "--step must be positive"},
        {{"--step", "nan"}, "--step must be positive"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"eval", file, "-o", out};
        args.insert(args.end(), c.args.begin(), c.args.end());
        SCOPED_TRACE(::testing::PrintToString(c.args));
        const ProgramResult r = runCli(args);
        EXPECT_EQ(r.exitCode, 2);
        EXPECT_EQ(r.err, "error: " + c.error + "\n");
    }
    EXPECT_FALSE(std::filesystem::exists(out));
    // A tiny step over a one-frame range is still that one frame.
    const ProgramResult one = runCli({"eval", file, "-o", out, "--step", "1e-300"});
    EXPECT_EQ(one.exitCode, 0) << one.err;
    EXPECT_NE(one.out.find("wrote 1 frame(s)"), std::string::npos);
}

TEST_F(Hostile, ParamsOfTheWrongKindAreRefusedAlikeForEveryNodeType) {
    struct Case {
        std::string node, param;
        json value;
        std::string error;
    };
    const std::vector<Case> cases = {
        {"scatter", "density", "wide", "node 'scatter': param 'density' takes number and cannot take wide"},
        {"scatter", "density", "1/0", "node 'scatter': param 'density' takes number and cannot take 1/0"},
        {"noise", "amplitude", "NaN", "node 'noise': param 'amplitude' takes number and cannot take NaN"},
        {"noise", "mode", "wild", "node 'noise': param 'mode' takes choice: 'wild' is not one of its choices (smooth, kinky)"},
        {"resample", "mode", "fast",
         "node 'resample': param 'mode' takes choice: 'fast' is not one of its choices (even, curvature, length)"},
        {"interpolate", "take", "all",
         "node 'interpolate': param 'take' takes choice: 'all' is not one of its choices (shape, length)"},
        {"resample", "segments", json::array({1, 2, 3}), "node 'resample': param 'segments' takes integer and cannot take [1, 2, 3]"},
        {"width", "profile", 3, "node 'width': param 'profile' takes any and cannot take 3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.node + "." + c.param);
        const std::string file = groom("p.groom", exampleWith([&](json& d) { node(d, c.node)["params"][c.param] = c.value; }));
        const ProgramResult r = runCli({"eval", file, "-o", folder.file("p.abc")});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.err, "error: " + c.error + "\n");
    }
    // Numbers convert to the param's kind; an unknown name is kept, and noted by node and name.
    const std::string file = groom("ok.groom", exampleWith([](json& d) {
        node(d, "resample")["params"] = {{"segments", 6.7}};
        node(d, "noise")["params"] = {{"amplitude", true}, {"frequencyy", 2}};
    }));
    const ProgramResult r = runCli({"eval", file, "-o", folder.file("ok.abc")});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("  note: noise: unknown param 'frequencyy' is kept but does nothing (Noise has no such param)\n"),
              std::string::npos)
        << r.out;
}

TEST_F(Hostile, OutputsThatCannotBeWrittenAreRefusedBeforeTheWorkAndLoseNothing) {
    const std::string file = groom("x.groom", fileText(kExampleGroom));
    for (const char* ext : {".abc", ".usda", ".vrscene"}) {
        SCOPED_TRACE(ext);
        // A directory at the target, empty or not, stays as it was.
        const std::string dir = folder.file(std::string("dir") + ext);
        std::filesystem::create_directory(dir);
        ProgramResult r = runCli({"eval", file, "-o", dir});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.err, "error: cannot write '" + dir + "': Is a directory\n");
        EXPECT_TRUE(std::filesystem::is_directory(dir));
        EXPECT_FALSE(std::filesystem::exists(dir + ".tmp"));

        const std::string nowhere = folder.file(std::string("missing/out") + ext);
        r = runCli({"eval", file, "-o", nowhere});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.err, "error: cannot write '" + nowhere + "': No such file or directory\n");
    }
}

TEST_F(Hostile, AnInterruptedExportLeavesTheOldTargetAndNoTemporaryFiles) {
    // Every frame re-evaluates (the length follows the frame), so the export runs for seconds.
    const std::string file = groom("anim.groom", exampleWith([](json& d) {
        node(d, "length")["params"]["fraction"] = {{"expression", "0.6 + 0.3 * sin(frame)"}};
    }));
    for (const char* ext : {".abc", ".usda"}) {
        SCOPED_TRACE(ext);
        const std::string out = folder.file(std::string("anim") + ext);
        writeText(out, "the previous export");
        for (const bool duringWrite : {false, true}) {
            // Killed while the first frame evaluates (no temporary file yet), or once writing began.
            const auto started = std::chrono::steady_clock::now();
            const auto when = [&] {
                if (duringWrite) return std::filesystem::exists(out + ".tmp");
                return std::chrono::steady_clock::now() - started > std::chrono::milliseconds(30);
            };
            const ProgramResult r =
                tressora::testing::runProgramUntil(TRESSORA_CLI_PATH, {"eval", file, "-o", out, "-f", "1-400"}, SIGTERM, when);
            EXPECT_EQ(r.exitCode, 128 + SIGTERM) << r.out << r.err;
            EXPECT_EQ(fileText(out), "the previous export");
            for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
                EXPECT_EQ(entry.path().string().find(out + "."), std::string::npos) << entry.path();
        }
    }
}

// Inputs the fuzz targets found, each once a crash or a silent infinity.
TEST(HostileReaders, NumbersBeyondTheirTypeAndImagesBeyondMemoryAreRefused) {
    const auto errorOf = [](const std::function<void()>& read) -> std::string {
        try {
            read();
        } catch (const std::exception& e) {
            return e.what();
        }
        return "(read)";
    };
    // A float beyond single precision: read as infinity, then written as null.
    EXPECT_EQ(errorOf([] {
                  GuideHierarchy::fromJson(R"({"groups":[{"id":1,"name":"main","parent":0}],"guides":[{"id":1,"group":1,)"
                                           R"("points":[0,0,0,0,1,0],"root":[0,0.25,0.25],"tube":{"aspect":[7e75]}}]})");
              }),
              "invalid guide data: guides[0].tube.aspect[0]: a number");
    // A guide id that is no whole number: the conversion was undefined.
    EXPECT_EQ(errorOf([] {
                  groomFromText(R"({"format":"tressora.groom","version":1,"guides":[{"id":2.2e97,"root":[0,0,0],"points":[0,0,0]}]})");
              }),
              "groom file: 'guides.id' must be a whole number");
    // A bitmap header claiming 60000 x 60000 pixels from 60 bytes.
    std::vector<unsigned char> bmp = {'B', 'M', 62, 0, 0, 0, 0, 0, 0, 0, 54, 0, 0, 0, 40, 0, 0, 0, 0x60, 0xEA, 0, 0,
                                      0x60, 0xEA, 0, 0, 1, 0, 24, 0, 0, 0, 0, 0, 8, 0, 0, 0};
    bmp.resize(62, 0);
    EXPECT_EQ(errorOf([&] { decodeImage(bmp, "huge.bmp"); }),
              "cannot read 'huge.bmp': the image is too large to decode (60000 x 60000 pixels; at most 256M values)");
    // A PNG whose empty chunk made the decoder copy nothing from a null buffer (undefined).
    const std::vector<unsigned char> emptyChunk = {137, 80, 78, 71, 13, 10, 26, 10, 0, 0, 0, 13, 73, 72, 68, 82, 0, 0, 0, 2, 0, 0, 0, 2, 8, 6, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 73, 68, 65, 84, 120, 156, 99, 248, 207, 192, 240, 31, 8, 244, 224, 127, 27, 24, 46, 32, 0, 0, 59, 73, 5, 165, 145, 253, 79, 220, 0, 0, 0, 0, 72, 68, 82, 0, 0, 0, 145, 253};
    EXPECT_NE(errorOf([&] { decodeImage(emptyChunk, "empty.png"); }), "");
}

#if !defined(TRESSORA_TESTS_SANITIZED)
TEST_F(Hostile, ADensityBeyondMemoryIsRefusedWithTheCountAndWhatToLower) {
    const std::string file = groom("dense.groom", exampleWith([](json& d) { node(d, "scatter")["params"]["density"] = 40000.0; }));
    // With 2 GB of address space the strands cannot fit; the refusal comes before any of them.
    const ProgramResult r = tressora::testing::runProgram(
        "/bin/sh", {"-c", "ulimit -v 2000000 && exec \"$0\" eval \"$1\" -o \"$2\"", TRESSORA_CLI_PATH, file, folder.file("d.abc")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err.rfind("error: Scatter: 16.9M strands asked for would need about", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("GB this process can use: lower the density or the Resample's segments\n"), std::string::npos)
        << r.err;
}
#endif

}  // namespace
}  // namespace tressora::cli
