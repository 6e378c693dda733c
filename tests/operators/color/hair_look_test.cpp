#include <fstream>
#include <sstream>

#include "groom/groom_session.h"
#include "io/io_test_support.h"
#include "io/usd_writer.h"
#include "io/vrscene_writer.h"
#include "operators/color/look_testing.h"

namespace tressora {
namespace {

using namespace looktest;
using nlohmann::json;

GroomScene lookScene(json colorParams, json featherParams) {
    GroomScene scene;
    scene.graph = json{{"version", 1},
                       {"output", "render"},
                       {"nodes", json::array({json{{"name", "color"}, {"type", "HairColor"}, {"params", colorParams}},
                                              json{{"name", "bands"}, {"type", "Bands"}, {"bypass", true}},
                                              json{{"name", "feathers"}, {"type", "FeatherColor"}, {"params", featherParams}},
                                              json{{"name", "render"}, {"type", "RenderData"}, {"params", {{"opacity", 0.5}}}}})},
                       {"connections", json::array({json{{"from", "color"}, {"to", "bands"}, {"input", "strands"}},
                                                    json{{"from", "bands"}, {"to", "feathers"}, {"input", "strands"}},
                                                    json{{"from", "feathers"}, {"to", "render"}, {"input", "strands"}}})}};
    return scene;
}

TEST(HairLook, RecordsTheNearestHairColorAndTheWorkingColourNodes) {
    GroomSession session(lookScene({{"specular", 0.15}, {"roughness", 0.3}, {"tilt", 4.0}},
                                   {{"iridescence", 0.5}, {"iridescenceColor", {0.1, 0.6, 0.3}}}));
    const json j = json::parse(session.hairLookJson());
    EXPECT_EQ(j["colorNodes"], 2);  // the bypassed Bands does not count
    EXPECT_EQ(j["colorBlends"], 0);
    EXPECT_DOUBLE_EQ(j["specular"].get<double>(), 0.15);
    EXPECT_DOUBLE_EQ(j["specularTint"][0].get<double>(), 0.5);
    EXPECT_DOUBLE_EQ(j["shift"].get<double>(), 4.0);
    EXPECT_DOUBLE_EQ(j["azimuthalRoughness"].get<double>(), 0.3);
    EXPECT_EQ(j["lobes"], 2);
    EXPECT_TRUE(j["iridescent"].get<bool>());
    EXPECT_NEAR(j["iridescenceColor"][1].get<double>(), 0.6, 1e-6);
    EXPECT_TRUE(j["colorsByRgb"].get<bool>());  // the feather pattern paints colours
    EXPECT_EQ(j["hairColorParams"]["mode"], "melanin");
    EXPECT_DOUBLE_EQ(j["renderDataParams"]["opacity"].get<double>(), 0.5);
}

TEST(HairLook, PigmentOnlyLookIsReadFromMelanin) {
    GroomScene scene = lookScene({{"melanin", 0.8}}, json::object());
    scene.graph["nodes"][2]["bypass"] = true;
    GroomSession session(scene);
    const HairLook look = session.hairLook();
    EXPECT_FALSE(look.colorsByRgb);
    EXPECT_FALSE(look.iridescent);
    EXPECT_DOUBLE_EQ(look.melanin, 0.8);
    EXPECT_EQ(look.colorNodes, 1u);
}

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(HairLook, WritersCarryTheColourAndOpacityChannels) {
    const StrandSet coloured = *runNode("HairColor", straightStrands(3, 4), {{"tipStrength", 1.0}}).strands;
    const StrandSet look = *runNode("RenderData", coloured, {{"opacity", 0.5}}).strands;
    testing::TempFolder folder;

    UsdWriterOptions usdOptions;
    usdOptions.colouring = lookColouring();
    {
        UsdWriter usd(folder.file("look.usda"), "groom", usdOptions);
        usd.writeFrame(1.0, look);
        usd.close();
    }
    const std::string usda = readText(folder.file("look.usda"));
    for (const char* attribute : {"color3f[] primvars:displayColor", "float[] primvars:colorR", "float[] primvars:melanin",
                                  "float[] primvars:melaninRedness", "float[] primvars:roughness",
                                  "float[] primvars:specular", "float[] primvars:tilt", "float[] primvars:opacity"})
        EXPECT_NE(usda.find(attribute), std::string::npos) << attribute;

    VrsceneWriterOptions vrayOptions;
    applyHairLook(HairLook{}, vrayOptions);
    {
        VrsceneWriter vray(folder.file("look.vrscene"), "groom", vrayOptions);
        vray.writeFrame(1.0, look);
        vray.close();
    }
    const std::string vrscene = readText(folder.file("look.vrscene"));
    EXPECT_NE(vrscene.find("colors="), std::string::npos);
    EXPECT_NE(vrscene.find("transparency="), std::string::npos);
    EXPECT_NE(vrscene.find("glossiness=0.5;"), std::string::npos);
    EXPECT_NE(vrscene.find("highlight_shift=3;"), std::string::npos);
}

TEST(HairLook, MelaninAloneStillGivesWritersAColour) {
    StrandSet pigment = straightStrands(2, 3);
    std::span<float> melanin = pigment.addStrandChannel("melanin");
    melanin[0] = 0.1f;
    melanin[1] = 0.9f;
    const ExportView view = buildExportView(pigment, nullptr, kExportDisplayColours, lookColouring());
    ASSERT_TRUE(view.hasColours);
    EXPECT_GT(luminance(view.colours[0]), luminance(view.colours[1]));
    EXPECT_LE(view.colours[0].x, 1.0f);
}

}  // namespace
}  // namespace tressora
