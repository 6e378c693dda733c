#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "../core/expect_text.h"
#include "core/errors.h"
#include "core/hash.h"
#include "groom/groom_file.h"
#include "groom/number_arrays.h"
#include "sample_groom.h"

namespace tressora {
namespace {

using nlohmann::json;
using testing::failureText;
using testing::fileText;
using testing::fullScene;
using testing::TempFolder;

std::uint32_t bits(float f) { return std::bit_cast<std::uint32_t>(f); }

// A minimal document with the given members added.
std::string document(const std::string& members) {
    return R"({"format":"tressora.groom","version":1)" + (members.empty() ? "" : "," + members) + "}";
}

std::string readFailure(const std::string& text) {
    try {
        groomFromText(text);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "no failure";
}

TEST(GroomFile, WrittenSceneReadsBackEqualBitForBitAndKeepsItsCanonicalText) {
    const GroomScene scene = fullScene();
    const std::string text = groomText(scene);
    const GroomScene back = groomFromText(text);
    EXPECT_EQ(groomText(back), text);  // every key read back into its place
    const ScalpMesh& a = *scene.scalp.mesh;
    const ScalpMesh& b = *back.scalp.mesh;
    ASSERT_EQ(a.pointCount(), b.pointCount());
    for (std::size_t i = 0; i < a.pointCount(); ++i)
        for (int c = 0; c < 3; ++c) EXPECT_EQ(bits(a.points()[i][c]), bits(b.points()[i][c])) << i << " " << c;
    EXPECT_EQ(bits(back.guides[0].points[1].z), bits(-0.0f));
    EXPECT_EQ(a.contentHash(), b.contentHash());
    EXPECT_EQ(a.colorHashes(), b.colorHashes());
    EXPECT_EQ(back.hierarchy->toJson(), scene.hierarchy->toJson());

    EXPECT_EQ(text.rfind("{\"format\":\"tressora.groom\",\"version\":1,\"framesPerSecond\":30.0,", 0), 0u);
    EXPECT_EQ(text.find("@tressora.floats"), std::string::npos);
    EXPECT_EQ(text.find(' '), std::string::npos);  // compact, and the names hold no blanks
    EXPECT_EQ(groomText(GroomScene{}), R"({"format":"tressora.groom","version":1,"framesPerSecond":24.0,"units":"cm","upAxis":"Y"})");
}

TEST(GroomFile, FloatsAreShortestDecimalsThatReadBackThroughDouble) {
    const auto text = [](float f) {
        char buffer[40];
        return std::string(buffer, writeFloatText(buffer, f));
    };
    EXPECT_EQ(text(0.1f), "0.1");
    EXPECT_EQ(text(-0.0f), "-0.0");
    EXPECT_EQ(text(0.0f), "0");
    EXPECT_EQ(text(1.0f), "1");
    EXPECT_EQ(text(1e-7f), "1e-07");
    EXPECT_EQ(text(16777216.0f), "16777216");
    EXPECT_EQ(text(-2.5f), "-2.5");
    // Any float's text, read as a double and rounded to float, gives the float back.
    DrawStream draws(42);
    for (int i = 0; i < 200000; ++i) {
        float f = std::bit_cast<float>(static_cast<std::uint32_t>(draws.next()));
        if (!std::isfinite(f)) continue;
        const std::string t = text(f);
        EXPECT_EQ(bits(static_cast<float>(std::strtod(t.c_str(), nullptr))), bits(f)) << t;
    }
    EXPECT_EQ(floatArrayText(std::vector<float>{1.5f, -0.0f, 2.0f}, "x"), "[1.5,-0.0,2]");
    EXPECT_EQ(floatArrayText(std::vector<float>{}, "x"), "[]");
    // A long list is formatted in chunks and joined in order.
    std::vector<float> many(100000);
    for (std::size_t i = 0; i < many.size(); ++i) many[i] = static_cast<float>(i) * 0.5f;
    const json parsed = json::parse(floatArrayText(many, "x"));
    ASSERT_EQ(parsed.size(), many.size());
    for (std::size_t i = 0; i < many.size(); i += 997) EXPECT_EQ(parsed[i].get<float>(), many[i]);
}

TEST(GroomFile, NonFiniteValueRefusesTheWriteAndLeavesTheTargetAsItWas) {
    TempFolder folder;
    const std::string target = folder.file("ada.groom");
    testing::writeText(target, "the old groom");

    GroomScene scene = fullScene();
    scene.guides[1].points[1].y = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(failureText<GroomFileError>([&] { writeGroom(target, scene); }),
              "groom file: 'guides.points' holds a non-finite value at index 4");
    EXPECT_EQ(fileText(target), "the old groom");
    EXPECT_FALSE(std::filesystem::exists(target + ".tmp"));

    scene = fullScene();
    auto brows = std::make_shared<ScalpMesh>(*scene.scalps.at("brows").mesh);
    std::vector<Vec3f> points(brows->points().begin(), brows->points().end());
    points[3].z = std::numeric_limits<float>::infinity();
    scene.scalps["brows"].mesh = std::make_shared<ScalpMesh>(brows->withPoints(points));
    EXPECT_EQ(failureText<GroomFileError>([&] { groomText(scene); }),
              "groom file: 'scalps.brows.points' holds a non-finite value at index 11");

    scene = fullScene();
    scene.prototypes["leaf"]["normals"][2] = -std::numeric_limits<double>::infinity();
    EXPECT_EQ(failureText<GroomFileError>([&] { groomText(scene); }),
              "groom file: 'prototypes.normals' holds a non-finite value at index 2");
    const std::string fresh = folder.file("fresh.groom");
    EXPECT_THROW(writeGroom(fresh, scene), GroomFileError);
    EXPECT_FALSE(std::filesystem::exists(fresh));
    EXPECT_FALSE(std::filesystem::exists(fresh + ".tmp"));
}

TEST(GroomFile, TheFirstFaultyGuideIsReportedWhateverTheThreads) {
    GroomScene scene;
    for (std::uint64_t i = 0; i < 2000; ++i) scene.guides.push_back({i + 1, {}, {{0, 0, 0}, {0, 1, 0}}, std::nullopt});
    scene.guides[1500].points[0].x = std::numeric_limits<float>::quiet_NaN();
    scene.guides[700].frameUp = Vec3f{0, std::numeric_limits<float>::infinity(), 0};
    EXPECT_EQ(failureText<GroomFileError>([&] { groomText(scene); }),
              "groom file: 'guides.frameUp' holds a non-finite value at index 1");
}

TEST(GroomFile, FormatAndVersionAreCheckedFirst) {
    EXPECT_EQ(readFailure(R"({"format":"other","version":99,"upAxis":"q"})"), "not a Tressora groom file");
    EXPECT_EQ(readFailure(R"({"version":1})"), "not a Tressora groom file");
    EXPECT_EQ(readFailure("[1,2]"), "not a Tressora groom file");
    EXPECT_EQ(readFailure(R"({"format":"tressora.groom","version":2,"upAxis":"q"})"),
              "groom file version 2 is newer than this Tressora supports (1); update Tressora to open it");
    EXPECT_EQ(readFailure(R"({"format":"tressora.groom","version":0})"), "groom file version 0 is not valid");
    EXPECT_EQ(readFailure(R"({"format":"tressora.groom","version":1.5})"),
              "groom file version 1.5 is not a whole number");
    EXPECT_EQ(failureText<SchemaError>([] { groomFromText(R"({"format":"tressora.groom","version":3})"); }),
              "groom file version 3 is newer than this Tressora supports (1); update Tressora to open it");
    EXPECT_EQ(readFailure("{\"format\":").rfind("groom file: invalid JSON: ", 0), 0u);

    const GroomScene plain = groomFromText(R"({"format":"tressora.groom"})");  // no version: version 1
    EXPECT_EQ(plain.framesPerSecond, 24.0);
    EXPECT_EQ(plain.units, "cm");
    EXPECT_EQ(plain.upAxis, "Y");
    EXPECT_FALSE(plain.scalp);
    EXPECT_TRUE(plain.graph.is_null());
}

TEST(GroomFile, ReaderRefusesMalformedKeysWithTheirPath) {
    const std::string grid = R"("points":[0,0,0,1,0,0,0,0,1],"triangles":[0,2,1])";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"("upAxis":"y")", R"(groom file: upAxis is "Y" or "Z", not "y")"},
        {R"("upAxis":3)", R"(groom file: upAxis is "Y" or "Z", not "3")"},
        {R"("scalp":{"points":[0,0,0,1,0,0,0]})", "groom file: 'scalp.points' must be an array of 3-tuples"},
        {R"("scalp":{"points":"many"})", "groom file: 'scalp.points' must be an array of 3-tuples"},
        {R"("scalp":{"points":[0,0,"x"]})", "groom file: 'scalp.points' must hold numbers"},
        {R"("scalp":{"points":[0,0,1e39]})",
         "groom file: 'scalp.points' holds a number beyond single precision at index 2"},
        {R"("scalp":{"points":[0,0,0,1,0,0,0,0,1],"triangles":[0,2,3]})", "groom file: bad scalp.triangles"},
        {R"("scalp":{"points":[0,0,0,1,0,0,0,0,1],"triangles":[0,2]})", "groom file: bad scalp.triangles"},
        {R"("scalp":{"points":[0,0,0,1,0,0,0,0,1],"triangles":[0,2,-1]})", "groom file: bad scalp.triangles"},
        {R"("scalps":{"head":{)" + grid + R"(,"uvs":[0,0,1]}})", "groom file: 'scalps.head.uvs' must be an array of 2-tuples"},
        {R"("scalps":{"head":{)" + grid + R"(,"uvs":[0,0,1,1]}})",
         "groom file: 'scalps.head.uvs' must hold one UV per triangle corner (3), not 2"},
        {R"("scalps":{"head":{)" + grid + R"(,"restPoints":[0,0,0]}})",
         "groom file: 'scalps.head.restPoints' must hold one point per point of the mesh (3), not 1"},
        {R"("scalps":{"head":{)" + grid + R"(,"colorSets":{"mask":[1,1,1,1]}}})",
         "groom file: 'scalps.head.colorSets.mask' must hold one color per triangle corner (3), not 1"},
        {R"("scalps":{"head":{)" + grid + R"(,"polygons":{"counts":[4,3]}}})",
         "groom file: 'scalps.head.polygons' triangulates into 3 triangles, but the mesh has 1"},
        {R"("scalps":{"":{)" + grid + "}}", "groom file: bad scalps name ''"},
        {R"("scalps":{"scalp":{)" + grid + "}}", "groom file: bad scalps name 'scalp'"},
        {R"("colliders":{"body":{"points":[0,0,0],"triangles":[0,0,1]}})", "groom file: bad colliders.body.triangles"},
        {R"("guides":[{"id":1,"root":[0,0,0],"points":[0,0,0,0,1]}])", "groom file: 'guides.points' must be an array of 3-tuples"},
        {R"("guides":[{"id":1,"root":[0,0,0,1,1,1],"points":[]}])", "groom file: 'guides.root' must be one 3-tuple"},
        {R"("guides":{"id":1})", "groom file: 'guides' must be an array of guide objects"},
        {R"("graph":"{not json")", "groom file: invalid graph JSON"},
        {R"("graph":42)", "groom file: invalid graph JSON"},
        {R"("hierarchy":"{\"groups\":")", "groom file: invalid hierarchy JSON: parse error at line 1, column 11: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal"},
        {R"("simCaches":"{nope")", "simCaches: parse error at line 1, column 3: syntax error while parsing object key - invalid literal; last read: '{no'; expected string literal"},
        {R"("simCaches":[1])", "simCaches: not an object of Simulate nodes' bakes"},
        {R"("simCaches":{"sim":3})", "simCaches: the bake of 'sim' must be a file name or an object with file, object and stamp"},
        {R"("scalpCache":3)", "groom file: 'scalpCache' must be a cache reference (a file name, or an object with file, object and stamp)"},
        {R"("prototypes":{"leaf":{"points":[0,0,0],"triangles":[0,0]}})", "groom file: bad prototypes.triangles"},
        {R"("prototypes":{"leaf":{"points":[0,0,0],"triangles":[0,0,1]}})",
         "groom file: a prototype's triangle names a point it does not have"},
        {R"("prototypes":{"leaf":{"points":[0,0,0,1],"triangles":[]}})", "groom file: 'prototypes.points' must be an array of 3-tuples"},
        {R"("maps":{"density":{"values":[]}})", "groom file: 'maps.density' must be an object with a kind (texture or vertices)"},
        {R"("followScalp":"yes")", "groom file: 'followScalp' must be true or false"},
        {R"("framesPerSecond":0)", "groom file: 'framesPerSecond' must be a positive number"},
        {R"("searchPaths":["a",1])", "groom file: 'searchPaths' must be an array of strings"},
        {R"("parts":[])", "groom file: 'parts' must be an object"},
        {R"("controls":{})", "groom file: 'controls' must be an array"},
    };
    for (const auto& [members, message] : cases) EXPECT_EQ(readFailure(document(members)), message) << members;

    // The JSON library's own words for a missing key or a wrong type pass through.
    EXPECT_NE(readFailure(document(R"("scalp":{"triangles":[]})")).find("key 'points' not found"), std::string::npos);
    EXPECT_NE(readFailure(document(R"("scalpCache":{"file":3})")).find("type must be string, but is number"),
              std::string::npos);
}

TEST(GroomFile, AlternativeFormsOfKeysAreAccepted) {
    const GroomScene scene = groomFromText(document(
        R"("graph":"{\"nodes\":[],\"output\":\"x\"}","scalpCache":"head.abc",)"
        R"("simCaches":"{\"sim\":\"sim.abc\",\"other\":{\"file\":\"o.abc\",\"object\":\"/g\",\"stamp\":5}}",)"
        R"("unknownKey":{"anything":1},"scalp":{"points":[0,0,0,1,0,0,0,0,1],"triangles":[0,2,1],)"
        R"("polygons":{"triangleCounts":[1]}})"));
    EXPECT_EQ(scene.graph["output"], "x");
    EXPECT_EQ(scene.scalpCache.file, "head.abc");
    EXPECT_EQ(scene.scalpCache.object, "");
    EXPECT_EQ(scene.simCaches.at("sim").file, "sim.abc");
    EXPECT_EQ(scene.simCaches.at("other").stamp, 5.0);
    EXPECT_EQ(scene.scalp.mesh->polygons().size(), 1u);
    // Written back, the texts become objects and the unknown key is gone.
    const json written = json::parse(groomText(scene));
    EXPECT_TRUE(written["graph"].is_object());
    EXPECT_EQ(written["scalpCache"], json({{"file", "head.abc"}}));
    EXPECT_FALSE(written.contains("unknownKey"));
}

TEST(GroomFile, DocumentStringsThatLookLikeMarkersSurvive) {
    GroomScene scene = fullScene();
    scene.source = "@tressora.floats:0";
    scene.units = "@tressora.floats:";
    const GroomScene back = groomFromText(groomText(scene));
    EXPECT_EQ(back.source, "@tressora.floats:0");
    EXPECT_EQ(back.units, "@tressora.floats:");
    EXPECT_EQ(bits(back.scalp.mesh->points()[0].x), bits(-0.0f));
    EXPECT_EQ(back.guides, scene.guides);
}

TEST(GroomFile, WriteReplacesTheTargetAndReadRemembersThePath) {
    TempFolder folder;
    const std::string target = folder.file("ada.groom");
    testing::writeText(target, "old");
    writeGroom(target, fullScene());
    EXPECT_FALSE(std::filesystem::exists(target + ".tmp"));
    const GroomScene back = readGroom(target);
    EXPECT_EQ(back.filePath, target);
    EXPECT_EQ(groomText(back), groomText(fullScene()));

    EXPECT_EQ(failureText<GroomFileError>([&] { readGroom(folder.file("none.groom")); }),
              "cannot read '" + folder.file("none.groom") + "'");
    EXPECT_EQ(failureText<GroomFileError>([&] { readGroom(folder.path().string()); }),
              "cannot read '" + folder.path().string() + "'");
    const std::string nowhere = folder.file("no/such/folder/x.groom");
    EXPECT_EQ(failureText<GroomFileError>([&] { writeGroom(nowhere, fullScene()); }), "cannot write '" + nowhere + "'");

    // A target that cannot be replaced (a folder with something in it) keeps its content.
    const std::string blocked = folder.file("blocked.groom");
    std::filesystem::create_directories(blocked + "/inside");
    const std::string message = failureText<GroomFileError>([&] { writeGroom(blocked, fullScene()); });
    EXPECT_EQ(message.rfind("cannot replace '" + blocked + "': ", 0), 0u) << message;
    EXPECT_GT(message.size(), ("cannot replace '" + blocked + "': ").size());
    EXPECT_TRUE(std::filesystem::exists(blocked + "/inside"));
    EXPECT_FALSE(std::filesystem::exists(blocked + ".tmp"));
}

TEST(GroomFile, PathsResolveThroughTheFilesFolderThenTheSearchPaths) {
    TempFolder folder;
    std::filesystem::create_directories(folder.path() / "textures");
    std::filesystem::create_directories(folder.path() / "elsewhere");
    testing::writeText(folder.file("textures/skin.png"), "x");
    testing::writeText(folder.file("elsewhere/skin.png"), "x");
    testing::writeText(folder.file("elsewhere/only.png"), "x");
    testing::writeText(folder.file("near.png"), "x");

    GroomScene scene;
    scene.filePath = folder.file("ada.groom");
    scene.searchPaths = {"textures", (folder.path() / "elsewhere").string()};
    EXPECT_EQ(groomPath(scene, "near.png"), folder.file("near.png"));
    EXPECT_EQ(groomPath(scene, "skin.png"), folder.file("textures/skin.png"));  // search paths in order
    EXPECT_EQ(groomPath(scene, "only.png"), folder.file("elsewhere/only.png"));
    EXPECT_EQ(groomPath(scene, "missing.png"), folder.file("missing.png"));
    EXPECT_EQ(groomPath(scene, "/abs/file.png"), "/abs/file.png");
    EXPECT_EQ(groomPath(GroomScene{}, "rel/file.png"), "rel/file.png");
}

}  // namespace
}  // namespace tressora
