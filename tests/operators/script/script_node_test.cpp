// The Script node on strands: a script does what the built-in node it imitates does, gives the
// same strands on any number of threads, and turns hostile input into notes and finite numbers,
// never a crash or a hang.

#include <gtest/gtest.h>

#include <cmath>

#include "../growth/growth_nodes.h"
#include "core/parallel.h"
#include "graph/node_definition.h"
#include "graph/operator.h"
#include "library/node_file.h"

namespace tressora {
namespace {

using testing::NodeRun;

/// A Script node with the given header params, writes and script.
NodeRun scriptNode(const nlohmann::json& params, const nlohmann::json& writes, const std::string& script) {
    NodeRun node("Script");
    nlohmann::json file = {{"tsnode", 1}, {"id", "test.script"}, {"label", "Test"}, {"params", params},
                           {"writes", writes}, {"script", script}};
    dynamic_cast<NodeDefinition&>(*node.op).readDefinition(checkNodeFile(file).document);
    declareParams(*node.op);
    return node;
}

/// Bent strands of uneven spacing: each point's step grows along the strand, which bends in x.
std::shared_ptr<StrandSet> bentStrands(int count, int n) {
    auto set = std::make_shared<StrandSet>();
    for (int i = 0; i < count; ++i) {
        std::vector<Vec3f> points;
        Vec3f p{float(i), 0, 0};
        for (int k = 0; k < n; ++k) {
            points.push_back(p);
            const float step = 0.2f + 0.05f * float(k) + 0.01f * float(i % 7);
            p = p + Vec3f{0.3f * std::sin(0.4f * float(k) + float(i)), 1.0f, 0.1f * float(k % 3)} * step;
        }
        set->addStrand(std::uint64_t(1000 + i * 7), {}, points);
    }
    return set;
}

void expectNear(std::span<const Vec3f> a, std::span<const Vec3f> b, float tolerance) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t k = 0; k < a.size(); ++k) {
        EXPECT_NEAR(a[k].x, b[k].x, tolerance) << k;
        EXPECT_NEAR(a[k].y, b[k].y, tolerance) << k;
        EXPECT_NEAR(a[k].z, b[k].z, tolerance) << k;
    }
}

TEST(ScriptNode, ATrimScriptGivesTheStrandsOfLength) {
    const auto in = bentStrands(40, 12);
    NodeRun length("Length");
    length.set("keep", 0.65);
    const auto builtIn = length.strands(in);

    NodeRun script = scriptNode({{{"name", "keep"}, {"type", "number"}, {"default", 1.0}}}, {"P"},
                                "per point { P = strandPoint(t * $keep); }");
    script.set("keep", 0.65);
    const auto scripted = script.strands(in);
    ASSERT_TRUE(scripted);
    EXPECT_TRUE(script.context.notes.empty());
    expectNear(scripted->points(), builtIn->points(), 2e-5f);
}

TEST(ScriptNode, AWidthScriptGivesTheWidthsOfWidthAndWritesItsChannel) {
    const auto in = testing::standingStrands(30, 9, 0.5f);
    const Ramp profile{{{0.0, 1.0}, {0.5, 0.6}, {1.0, 0.2}}, true};
    NodeRun width("Width");
    width.set("width", 0.02).set("profile", profile).set("randomness", 0.0);
    const auto builtIn = width.strands(in);

    NodeRun script = scriptNode(
        {{{"name", "size"}, {"type", "length"}, {"default", 0.01}},
         {{"name", "shape"}, {"type", "ramp"}, {"default", {{0, 1}, {1, 1}}}}},
        {"width", "channel.share"},
        "per strand { channel.share = 0.5; }\nper point { width = $size * $shape(t); }");
    script.set("size", 0.02).set("shape", profile);
    const auto scripted = script.strands(in);
    ASSERT_TRUE(scripted && !scripted->widths().empty());
    const auto a = scripted->widths(), b = builtIn->widths();
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t k = 0; k < a.size(); ++k) EXPECT_NEAR(a[k], b[k], 1e-6f) << k;
    ASSERT_TRUE(scripted->strandChannel("share"));
    EXPECT_EQ(scripted->strandChannel("share")->values()[3], 0.5f);
    expectNear(scripted->points(), in->points(), 0.0f);  // P is not in writes: points stay
}

TEST(ScriptNode, StrandsAreTheSameOnOneThreadAndAll) {
    const auto in = bentStrands(3000, 9);
    const auto run = [&](const char* threads) {
        setenv("TRESSORA_THREADS", threads, 1);
        std::uint64_t fp = 0;
        runWithThreads([&] {
            NodeRun script = scriptNode(
                {{{"name", "amount"}, {"type", "length"}, {"default", 0.3}}}, {"P", "channel.kink"},
                "per strand { $r = hash(id, 3); $s = 0; for $i in 0 .. 8 { $s += noise(id * 0.01 + $i); } }\n"
                "per point { P += vnoise(P * 2 + [$r, 0, 0]) * ($amount * t) + (prev.P - P) * 0.1;\n"
                "            channel.kink = $s * rand; }");
            fp = script.strands(in)->fingerprint();
        });
        return fp;
    };
    const std::uint64_t one = run("1"), all = run("0");
    unsetenv("TRESSORA_THREADS");
    EXPECT_EQ(one, all);
}

TEST(ScriptNode, HostileScriptsEndInNotesOrFiniteStrands) {
    const auto in = bentStrands(64, 6);
    struct Case {
        const char* script;
        const char* note;  // a part of the node's note; empty: no note, finite strands
    };
    const Case cases[] = {
        // A loop that would take 10^10 steps per point stops at the budget; the strands go on.
        {"per point { $s = 0; for $i in 0 .. 100000 { for $j in 0 .. 100000 { $s += 1; } } P.x = $s; }",
         "the per point block ran past its budget of 4194304 steps for one point: a loop runs too long"},
        {"per point { P = P / 0 + [log(0), sqrt(-1), pow(-8, 0.5)]; width = 1 / 0; }", ""},
        {"per point { P.y = 1e38 * 1e38 - 1e38 * 1e38; channel.x = acos(7) + asin(9) % 0; }", ""},
        {"per strand { $a = prev.P; }", "prev.P is per point"},  // a compile fault makes a pass-through node
        {"per point { $a = channel.nosuch + map(\"nomap\"); }", "no map named 'nomap'"},
    };
    for (const Case& c : cases) {
        NodeRun script = scriptNode(nlohmann::json::array(), {"P", "width", "channel.x"}, c.script);
        const auto out = script.strands(in);
        ASSERT_TRUE(out) << c.script;
        const std::string note = script.op->note(script.context);
        if (*c.note) {
            EXPECT_NE(note.find(c.note), std::string::npos) << c.script << "\n" << note;
            EXPECT_EQ(out->fingerprint(), in->fingerprint()) << c.script;
        } else {
            for (const Vec3f& p : out->points()) ASSERT_TRUE(std::isfinite(p.x + p.y + p.z)) << c.script;
            for (const float w : out->widths()) ASSERT_TRUE(std::isfinite(w)) << c.script;
        }
    }
}

TEST(ScriptNode, AReadOfAnUnknownNameReadsZeroWithANote) {
    const auto in = testing::standingStrands(4, 5);
    NodeRun unknown = scriptNode(nlohmann::json::array(), {"P"}, "per point { P.x = channel.ghost; }");
    const auto out = unknown.strands(in);
    EXPECT_NE(unknown.op->note(unknown.context).find("reads 'ghost', which is no input, param or channel"),
              std::string::npos)
        << unknown.op->note(unknown.context);
    EXPECT_EQ(out->points()[1].x, 0.0f);
}

}  // namespace
}  // namespace tressora
