// The USD writer: layers read back through the independent parser with every attribute,
// sample and metadata the writer promises, and a target that is replaced only when whole.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "core/errors.h"
#include "io/usd_identifiers.h"
#include "io/usd_writer.h"
#include "io_test_support.h"
#include "usda_layer.h"

namespace tressora {
namespace {

using testing::errorText;
using testing::fileContent;
using testing::readUsda;
using testing::smallSet;
using testing::TempFolder;
using testing::usdaFloats;
using testing::usdaSample;
using testing::usdaSampledNames;
using Json = testing::UsdaJson;

// Corner UVs of three scalp triangles: triangle f has corners (f, 0), (f + 1, 0), (f, 1).
const std::vector<std::array<float, 2>> kCornerUvs = {{0, 0}, {1, 0}, {0, 1}, {1, 0}, {2, 0}, {1, 1},
                                                       {2, 0}, {3, 0}, {2, 1}};

class UsdLayer : public testing::UsdaTest {};

std::vector<float> sampleFloats(const Json& prim, const std::string& name, std::size_t frame) {
    return usdaFloats(prim.at("attributes").at(name).at("samples").at(frame).at(1));
}

TEST_F(UsdLayer, ThreeFramesReadBackWithEveryAttributeSampled) {
    TempFolder folder;
    const std::string path = folder.file("out.usda");
    const ScalpUvs scalp{kCornerUvs};
    {
        UsdWriterOptions options;
        options.framesPerSecond = 30;
        options.metersPerUnit = metersPerUnitFor("mm");
        options.upAxis = "Z";
        options.comment = "shot \"12\"\\a\nb";
        UsdWriter writer(path, "my groom", options);
        for (int f = 1; f <= 3; ++f) {
            StrandSet set = smallSet(static_cast<float>(f));
            set.addStrandChannel("colorR", 0.25f);
            set.addStrandChannel("colorG", 0.5f);
            set.addStrandChannel("colorB", 0.75f);
            writer.writeFrame(f * 1.5, set, &scalp);
        }
        writer.close();
    }
    EXPECT_EQ(folder.names(), std::vector<std::string>{"out.usda"});
    const Json layer = readUsda(path);
    const Json expectedMetadata = {{"defaultPrim", "my_groom"},
                                   {"doc", "Tressora " TRESSORA_VERSION ": shot '12' a b"},
                                   {"customLayerData", {{"tressora", {{"layoutVersion", 1}, {"version", TRESSORA_VERSION}}}}},
                                   {"startTimeCode", 1.5},
                                   {"endTimeCode", 4.5},
                                   {"framesPerSecond", 30},
                                   {"timeCodesPerSecond", 30},
                                   {"metersPerUnit", 0.001},
                                   {"upAxis", "Z"}};
    EXPECT_EQ(layer.at("metadata"), expectedMetadata);

    const Json& root = layer.at("prims").at("/my_groom");
    EXPECT_EQ(root.at("type"), "Xform");
    EXPECT_EQ(root.at("metadata").at("kind"), "component");
    const Json& curves = layer.at("prims").at("/my_groom/strands");
    EXPECT_EQ(curves.at("type"), "BasisCurves");
    const Json& attributes = curves.at("attributes");
    EXPECT_EQ(attributes.at("type"), Json::parse(R"({"type":"token","uniform":true,"metadata":{},"value":"linear"})"));
    EXPECT_EQ(attributes.at("wrap").at("value"), "nonperiodic");
    EXPECT_FALSE(attributes.contains("visibility"));

    const std::vector<std::string> expected = {"curveVertexCounts", "points", "extent", "widths",
                                               "primvars:strandId", "primvars:st", "primvars:displayColor",
                                               "primvars:clumpId", "primvars:colorB", "primvars:colorG",
                                               "primvars:colorR", "primvars:curl"};
    EXPECT_EQ(usdaSampledNames(curves), expected);
    // Type and interpolation of each kind of attribute ("" for none).
    const std::vector<std::array<std::string, 3>> kinds = {
        {"points", "point3f[]", ""},           {"widths", "float[]", "vertex"},
        {"primvars:strandId", "int64[]", "uniform"}, {"primvars:st", "texCoord2f[]", "uniform"},
        {"primvars:clumpId", "float[]", "uniform"},  {"primvars:curl", "float[]", "vertex"}};
    for (const auto& [name, type, interpolation] : kinds) {
        EXPECT_EQ(attributes.at(name).at("type"), type) << name;
        EXPECT_EQ(attributes.at(name).at("metadata").value("interpolation", ""), interpolation) << name;
    }
    for (const std::string& name : expected) {
        const Json& samples = attributes.at(name).at("samples");
        ASSERT_EQ(samples.size(), 3u) << name;
        for (int f = 0; f < 3; ++f) EXPECT_EQ(samples[f][0], (f + 1) * 1.5) << name;
    }

    for (int f = 0; f < 3; ++f) {
        const StrandSet set = smallSet(static_cast<float>(f + 1));
        EXPECT_EQ(usdaSample(curves, "curveVertexCounts", f), (std::vector<double>{2, 3, 4}));
        std::vector<float> points;
        for (const Vec3f& p : set.points()) points.insert(points.end(), {p.x, p.y, p.z});
        EXPECT_EQ(sampleFloats(curves, "points", f), points);
        EXPECT_EQ(sampleFloats(curves, "widths", f), std::vector<float>(set.widths().begin(), set.widths().end()));
        EXPECT_EQ(usdaSample(curves, "primvars:strandId", f), (std::vector<double>{10, 11, 12}));
        // Root (face f, u 0.25, v 0.5) on corners (f, 0), (f + 1, 0), (f, 1).
        EXPECT_EQ(usdaSample(curves, "primvars:st", f), (std::vector<double>{0.25, 0.5, 1.25, 0.5, 2.25, 0.5}));
        EXPECT_EQ(usdaSample(curves, "primvars:displayColor", f)[4], 0.5);
        const double shift = f + 1;
        EXPECT_EQ(usdaSample(curves, "primvars:clumpId", f), (std::vector<double>{shift, shift + 1, shift + 2}));
        // The extent: all points widened by half their width (the last point's is 0.9).
        const std::vector<float> extent = sampleFloats(curves, "extent", f);
        ASSERT_EQ(extent.size(), 6u);
        EXPECT_FLOAT_EQ(extent[0], static_cast<float>(shift) - 0.1f);
        EXPECT_FLOAT_EQ(extent[4], 0.75f + 0.45f);
        EXPECT_FLOAT_EQ(extent[5], -1.5f + 0.45f);
    }
}

TEST_F(UsdLayer, OneFrameIsStillTimeSampledAndNoFramesGiveAValidLayer) {
    TempFolder folder;
    const std::string one = folder.file("one.usda"), none = folder.file("none.usda");
    {
        UsdWriter writer(one, "", {});
        writer.writeFrame(7, smallSet());
        EXPECT_EQ(folder.names(), std::vector<std::string>{"one.usda.tmp"});  // one frame touches no spool
    }
    { UsdWriter writer(none, "groom", {}); }
    const Json layer = readUsda(one);
    for (const auto& [name, attribute] : layer.at("prims").at("/groom/strands").at("attributes").items()) {
        if (attribute.contains("samples")) EXPECT_EQ(attribute.at("samples").size(), 1u) << name;
        else EXPECT_TRUE(name == "type" || name == "wrap") << name;
    }
    EXPECT_EQ(layer.at("metadata").at("startTimeCode"), 7);
    EXPECT_EQ(layer.at("metadata").at("doc"), "Tressora " TRESSORA_VERSION);

    const Json empty = readUsda(none);
    EXPECT_FALSE(empty.at("metadata").contains("startTimeCode"));
    EXPECT_FALSE(empty.at("metadata").contains("endTimeCode"));
    EXPECT_EQ(empty.at("metadata").at("metersPerUnit"), 0.01);
    EXPECT_EQ(empty.at("metadata").at("upAxis"), "Y");
    EXPECT_TRUE(usdaSampledNames(empty.at("prims").at("/groom/strands")).empty());
}

TEST_F(UsdLayer, FirstFrameFixesChannelsUvsAndColours) {
    TempFolder folder;
    const std::string path = folder.file("fixed.usda");
    const ScalpUvs scalp{kCornerUvs};
    {
        UsdWriter writer(path, "groom", {});
        StrandSet first = smallSet();
        first.addStrandChannel("gone", 3.0f);
        writer.writeFrame(1, first);  // no scalp: no uvs
        StrandSet second = smallSet();
        for (const char* c : {"colorR", "colorG", "colorB"}) second.addStrandChannel(c);
        second.addStrandChannel("fresh", 5.0f);
        second.removePointChannel("curl");
        writer.writeFrame(2, second, &scalp);
    }
    const Json curves = readUsda(path).at("prims").at("/groom/strands");
    EXPECT_EQ(usdaSampledNames(curves),
              (std::vector<std::string>{"curveVertexCounts", "points", "extent", "widths", "primvars:strandId",
                                        "primvars:clumpId", "primvars:gone", "primvars:curl"}));
    EXPECT_EQ(usdaSample(curves, "primvars:gone", 0), (std::vector<double>{3, 3, 3}));
    EXPECT_EQ(usdaSample(curves, "primvars:gone", 1), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(usdaSample(curves, "primvars:curl", 1), std::vector<double>(9, 0.0));
}

TEST_F(UsdLayer, TopologyMayChangeBetweenFrames) {
    TempFolder folder;
    const std::string path = folder.file("topology.usda");
    {
        UsdWriter writer(path, "groom", {});
        writer.writeFrame(1, smallSet());
        StrandSet more = smallSet();
        more.append(smallSet(4.0f));
        writer.writeFrame(2, more);
        writer.writeFrame(3, StrandSet());
    }
    // The parser's check holds every sample to the counts of its own frame.
    const Json curves = readUsda(path).at("prims").at("/groom/strands");
    EXPECT_EQ(usdaSample(curves, "curveVertexCounts", 1).size(), 6u);
    EXPECT_TRUE(usdaSample(curves, "points", 2).empty());
    EXPECT_EQ(usdaSample(curves, "extent", 2), std::vector<double>(6, 0.0));
}

TEST_F(UsdLayer, EveryNumberFormReadsBackAndNonFiniteValuesAreWrittenAsZero) {
    TempFolder folder;
    const std::string path = folder.file("numbers.usda");
    {
        UsdWriterOptions options;
        options.metersPerUnit = 0.0254;
        UsdWriter writer(path, "groom", options);
        StrandSet set = smallSet();
        set.mutablePoints()[0] = {NAN, INFINITY, -INFINITY};
        set.mutablePoints()[1] = {-0.0f, 1e-45f, -3.4028235e38f};
        set.mutableIds()[1] = ~std::uint64_t{0};
        set.addPointChannel("my-attr", 1.5e-7f);
        writer.writeFrame(1, set);
    }
    const std::string text = fileContent(path);
    EXPECT_NE(text.find("[(0, 0, 0), (-0, 1e-45, -3.4028235e38), "), std::string::npos);
    EXPECT_EQ(text.find("nan"), std::string::npos);
    EXPECT_EQ(text.find("inf"), std::string::npos);
    const Json layer = readUsda(path);
    EXPECT_EQ(layer.at("metadata").at("metersPerUnit"), 0.0254);
    const Json& curves = layer.at("prims").at("/groom/strands");
    const std::vector<float> points = sampleFloats(curves, "points", 0);
    EXPECT_EQ(std::vector<float>(points.begin(), points.begin() + 6), (std::vector<float>{0, 0, 0, 0, 1e-45f, -3.4028235e38f}));
    EXPECT_EQ(usdaSample(curves, "primvars:strandId", 0)[1], -1.0);  // the id's 64 bits, as int64
    EXPECT_EQ(sampleFloats(curves, "primvars:my_attr", 0)[0], 1.5e-7f);
}

TEST_F(UsdLayer, RefusesFramesThatDoNotRiseAndFramesAfterClose) {
    TempFolder folder;
    const std::string path = folder.file("order.usda");
    UsdWriter writer(path, "groom", {});
    writer.writeFrame(2, smallSet());
    writer.writeFrame(3, smallSet());
    for (double t : {3.0, 1.0}) EXPECT_EQ(errorText([&] { writer.writeFrame(t, smallSet()); }), "frames must increase");
    writer.writeFrame(4, smallSet());  // still usable
    EXPECT_EQ(writer.frameCount(), 3u);
    writer.close();
    writer.close();
    EXPECT_EQ(errorText([&] { writer.writeFrame(5, smallSet()); }), "writeFrame after close");
    EXPECT_THROW(writer.writeFrame(5, smallSet()), UsdError);
    const Json curves = readUsda(path).at("prims").at("/groom/strands");
    EXPECT_EQ(curves.at("attributes").at("points").at("samples").size(), 3u);
}

TEST_F(UsdLayer, ChannelNamesBecomeUniqueIdentifiers) {
    TempFolder folder;
    const std::string path = folder.file("names.usda");
    {
        UsdWriter writer(path, "9 lives", {});
        StrandSet set = smallSet();
        set.addStrandChannel("my-attr");
        set.addStrandChannel("widths");
        set.addPointChannel("my_attr");
        set.addPointChannel("st");
        writer.writeFrame(1, set);
    }
    const Json layer = readUsda(path);
    EXPECT_EQ(layer.at("metadata").at("defaultPrim"), "_9_lives");
    const std::vector<std::string> names = usdaSampledNames(layer.at("prims").at("/_9_lives/strands"));
    const std::vector<std::string> primvars(names.begin() + 5, names.end());
    EXPECT_EQ(primvars, (std::vector<std::string>{"primvars:clumpId", "primvars:my_attr", "primvars:widths_2",
                                                  "primvars:curl", "primvars:my_attr_2", "primvars:st_2"}));
}

TEST(UsdIdentifiers, SanitiseMakeUniqueAndMapUnits) {
    for (const auto& [in, out] : std::vector<std::pair<std::string, std::string>>{
             {"", "_"}, {"3d", "_3d"}, {"a.b c", "a_b_c"}, {"h\xC3\xA9llo", "h_llo"}})  // one character, one '_'
        EXPECT_EQ(sanitizeIdentifier(in), out) << in;
    const std::vector<std::string> names = {"a", "a", "a_2", "a", "st", "x y", "x_y"};
    const std::array<std::string_view, 1> reserved = {"st"};
    EXPECT_EQ(uniqueIdentifiers(names, reserved),
              (std::vector<std::string>{"a", "a_2", "a_2_2", "a_3", "st_2", "x_y", "x_y_2"}));
    EXPECT_EQ(cleanQuotedText("say \"hi\"\\\r\n"), "say 'hi'   ");
    for (const auto& [unit, meters] : std::vector<std::pair<std::string, double>>{
             {"m", 1.0}, {"mm", 0.001}, {"in", 0.0254}, {"ft", 0.3048}, {"cm", 0.01}, {"parsec", 0.01}})
        EXPECT_EQ(metersPerUnitFor(unit), meters) << unit;
}

TEST(UsdWriter, FailuresNameTheFileAndLeaveTheOldTarget) {
    TempFolder folder;
    const std::string missing = folder.file("missing/out.usda");
    EXPECT_EQ(errorText([&] { UsdWriter writer(missing, "groom", {}); }), "cannot write '" + missing + "'");

    // A full folder at the target cannot be replaced: the reason follows the name.
    const std::string dir = folder.file("dir.usda");
    std::filesystem::create_directories(dir + "/occupied");
    UsdWriter writer(dir, "groom", {});
    writer.writeFrame(1, smallSet());
    const std::string replace = errorText([&] { writer.close(); });
    EXPECT_EQ(replace.rfind("cannot replace '" + dir + "': ", 0), 0u) << replace;
    EXPECT_GT(replace.size(), dir.size() + 19);  // and a reason
    EXPECT_EQ(folder.names(), std::vector<std::string>{"dir.usda"});
}

TEST(UsdWriter, AnAbandonedOrFailedWriterKeepsTheOldTargetAndLeavesNothingBehind) {
    TempFolder folder;
    const std::string path = folder.file("keep.usda");
    std::ofstream(path) << "old";
    try {
        UsdWriter writer(path, "groom", {});
        for (int f = 1; f <= 3; ++f) writer.writeFrame(f, smallSet());
        EXPECT_EQ(folder.names().size(), 2u + 7u);  // target, .tmp and one spool per channel
        EXPECT_EQ(fileContent(path), "old");
        throw std::runtime_error("evaluation failed");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(folder.names(), std::vector<std::string>{"keep.usda"});

    std::filesystem::create_directory(path + ".spool3");  // the widths spool cannot be opened
    const std::vector<std::string> left = {"keep.usda", "keep.usda.spool3"};
    {
        UsdWriter writer(path, "groom", {});
        writer.writeFrame(1, smallSet());
        EXPECT_EQ(errorText([&] { writer.writeFrame(2, smallSet()); }), "cannot write '" + path + ".spool3'");
        EXPECT_THROW(writer.writeFrame(3, smallSet()), UsdError);
    }
    EXPECT_EQ(folder.names(), left);
    EXPECT_EQ(fileContent(path), "old");
    // close() itself reports the failure and cleans up the same way.
    UsdWriter writer(path, "groom", {});
    writer.writeFrame(1, smallSet());
    EXPECT_THROW(writer.writeFrame(2, smallSet()), UsdError);
    EXPECT_EQ(errorText([&] { writer.close(); }), "cannot write '" + path + "'");
    EXPECT_EQ(folder.names(), left);

    std::filesystem::remove(path + ".spool3");
    {
        UsdWriter whole(path, "groom", {});
        whole.writeFrame(1, smallSet());
        whole.writeFrame(2, smallSet());
    }
    EXPECT_EQ(fileContent(path).substr(0, 9), "#usda 1.0");
}

}  // namespace
}  // namespace tressora
