#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "core/errors.h"
#include "io/usd_identifiers.h"
#include "io/usd_writer.h"
#include "io_test_support.h"
#include "usda_text.h"

namespace tressora {
namespace {

using testing::parseUsda;
using testing::readTextFile;
using testing::smallSet;
using testing::TempFolder;
using testing::UsdaLayer;
using testing::UsdaPrim;
using testing::UsdaValue;

// Corner UVs of three scalp triangles: triangle f has corners (f, 0), (f + 1, 0), (f, 1).
const std::vector<std::array<float, 2>> kCornerUvs = {{0, 0}, {1, 0}, {0, 1}, {1, 0}, {2, 0}, {1, 1},
                                                       {2, 0}, {3, 0}, {2, 1}};

std::string interpolationOf(const UsdaPrim& prim, const std::string& name) {
    const auto meta = prim.attributeMetadata(name);
    const auto it = meta.find("interpolation");
    return it == meta.end() ? std::string() : it->second.text;
}

/// Checks every sample of every primvar-like attribute against the element count its
/// interpolation asks for on linear, nonperiodic curves (varying and vertex both one per point).
void expectCountsMatchInterpolation(const UsdaPrim& curves) {
    const auto& counts = curves.samples("curveVertexCounts").value.samples;
    for (const std::string& name : curves.sampledNames()) {
        if (name == "curveVertexCounts" || name == "extent") continue;
        const std::string interpolation = name == "points" ? "vertex" : interpolationOf(curves, name);
        const auto& samples = curves.samples(name).value.samples;
        ASSERT_EQ(samples.size(), counts.size()) << name;
        for (std::size_t f = 0; f < samples.size(); ++f) {
            std::size_t curvesCount = counts[f].second.items.size(), pointsCount = 0;
            for (const UsdaValue& c : counts[f].second.items) pointsCount += static_cast<std::size_t>(c.number);
            const std::size_t expected = interpolation == "uniform" ? curvesCount : pointsCount;
            EXPECT_EQ(samples[f].second.items.size(), expected) << name << " at " << samples[f].first;
        }
    }
}

std::vector<double> sampleNumbers(const UsdaPrim& prim, const std::string& name, std::size_t frame) {
    return prim.samples(name).value.samples.at(frame).second.numbers();
}

std::vector<float> sampleFloats(const UsdaPrim& prim, const std::string& name, std::size_t frame) {
    return prim.samples(name).value.samples.at(frame).second.floats();
}

TEST(UsdWriter, ThreeFramesReadBackWithEveryAttributeSampled) {
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
    const UsdaLayer layer = parseUsda(readTextFile(path));

    EXPECT_EQ(layer.metadata.at("defaultPrim").text, "my_groom");
    EXPECT_EQ(layer.metadata.at("doc").text, "Tressora " TRESSORA_VERSION ": shot '12' a b");
    EXPECT_EQ(layer.metadata.at("startTimeCode").number, 1.5);
    EXPECT_EQ(layer.metadata.at("endTimeCode").number, 4.5);
    EXPECT_EQ(layer.metadata.at("framesPerSecond").number, 30);
    EXPECT_EQ(layer.metadata.at("timeCodesPerSecond").number, 30);
    EXPECT_EQ(layer.metadata.at("metersPerUnit").text, "0.001");
    EXPECT_EQ(layer.metadata.at("upAxis").text, "Z");
    EXPECT_EQ(layer.metadata.at("customLayerData").at("tressora").at("version").text, TRESSORA_VERSION);

    const UsdaPrim& root = layer.prim("/my_groom");
    EXPECT_EQ(root.type, "Xform");
    EXPECT_EQ(root.metadata.at("kind").text, "component");
    const UsdaPrim& curves = layer.prim("/my_groom/strands");
    EXPECT_EQ(curves.type, "BasisCurves");
    EXPECT_EQ(curves.attribute("type").value.text, "linear");
    EXPECT_EQ(curves.attribute("type").qualifiers.front(), "uniform");
    EXPECT_EQ(curves.attribute("wrap").value.text, "nonperiodic");
    for (const auto& attribute : curves.attributes) EXPECT_NE(attribute.name, "visibility");

    const std::vector<std::string> expected = {"curveVertexCounts", "points", "extent", "widths",
                                               "primvars:strandId", "primvars:st", "primvars:displayColor",
                                               "primvars:clumpId", "primvars:colorB", "primvars:colorG",
                                               "primvars:colorR", "primvars:curl"};
    EXPECT_EQ(curves.sampledNames(), expected);
    EXPECT_EQ(curves.samples("points").type(), "point3f[]");
    EXPECT_EQ(curves.samples("primvars:strandId").type(), "int64[]");
    EXPECT_EQ(curves.samples("primvars:st").type(), "texCoord2f[]");
    EXPECT_EQ(interpolationOf(curves, "widths"), "vertex");
    EXPECT_EQ(interpolationOf(curves, "primvars:st"), "uniform");
    EXPECT_EQ(interpolationOf(curves, "primvars:clumpId"), "uniform");
    EXPECT_EQ(interpolationOf(curves, "primvars:curl"), "vertex");
    EXPECT_EQ(interpolationOf(curves, "points"), "");
    for (const std::string& name : expected) {
        const auto& samples = curves.samples(name).value.samples;
        ASSERT_EQ(samples.size(), 3u) << name;
        for (int f = 0; f < 3; ++f) EXPECT_EQ(samples[f].first, (f + 1) * 1.5) << name;
    }
    expectCountsMatchInterpolation(curves);

    for (int f = 0; f < 3; ++f) {
        const StrandSet set = smallSet(static_cast<float>(f + 1));
        EXPECT_EQ(sampleNumbers(curves, "curveVertexCounts", f), (std::vector<double>{2, 3, 4}));
        std::vector<float> points;
        for (const Vec3f& p : set.points()) points.insert(points.end(), {p.x, p.y, p.z});
        EXPECT_EQ(sampleFloats(curves, "points", f), points);
        const std::vector<float> widths(set.widths().begin(), set.widths().end());
        EXPECT_EQ(sampleFloats(curves, "widths", f), widths);
        EXPECT_EQ(sampleNumbers(curves, "primvars:strandId", f), (std::vector<double>{10, 11, 12}));
        // Root (face f, u 0.25, v 0.5) on corners (f, 0), (f + 1, 0), (f, 1).
        EXPECT_EQ(sampleNumbers(curves, "primvars:st", f), (std::vector<double>{0.25, 0.5, 1.25, 0.5, 2.25, 0.5}));
        EXPECT_EQ(sampleNumbers(curves, "primvars:displayColor", f)[4], 0.5);
        const double shift = f + 1;
        EXPECT_EQ(sampleNumbers(curves, "primvars:clumpId", f), (std::vector<double>{shift, shift + 1, shift + 2}));
        // The extent: all points widened by half their width (the last point's is 0.9).
        const std::vector<float> extent = sampleFloats(curves, "extent", f);
        ASSERT_EQ(extent.size(), 6u);
        EXPECT_FLOAT_EQ(extent[0], static_cast<float>(shift) - 0.1f);
        EXPECT_FLOAT_EQ(extent[4], 0.75f + 0.45f);
        EXPECT_FLOAT_EQ(extent[5], -1.5f + 0.45f);
    }
}

TEST(UsdWriter, OneFrameIsStillTimeSampledAndTouchesNoSpool) {
    TempFolder folder;
    const std::string path = folder.file("one.usda");
    UsdWriter writer(path, "", {});
    writer.writeFrame(7, smallSet());
    EXPECT_EQ(folder.names(), std::vector<std::string>{"one.usda.tmp"});
    writer.close();
    const UsdaLayer layer = parseUsda(readTextFile(path));
    const UsdaPrim& curves = layer.prim("/groom/strands");
    for (const std::string& name : curves.sampledNames()) {
        EXPECT_EQ(curves.samples(name).value.samples.size(), 1u) << name;
    }
    for (const auto& attribute : curves.attributes) {
        if (attribute.hasValue && !attribute.timeSamples) {
            EXPECT_TRUE(attribute.name == "type" || attribute.name == "wrap") << attribute.name;
        }
    }
    EXPECT_EQ(layer.metadata.at("startTimeCode").number, 7);
    EXPECT_EQ(layer.metadata.count("doc"), 1u);
    EXPECT_EQ(layer.metadata.at("doc").text, "Tressora " TRESSORA_VERSION);
}

TEST(UsdWriter, NoFramesGivesAValidLayerWithoutTimeRange) {
    TempFolder folder;
    const std::string path = folder.file("empty.usda");
    { UsdWriter writer(path, "groom", {}); }
    const UsdaLayer layer = parseUsda(readTextFile(path));
    EXPECT_EQ(layer.metadata.count("startTimeCode"), 0u);
    EXPECT_EQ(layer.metadata.count("endTimeCode"), 0u);
    EXPECT_EQ(layer.metadata.at("metersPerUnit").number, 0.01);
    EXPECT_EQ(layer.metadata.at("upAxis").text, "Y");
    EXPECT_TRUE(layer.prim("/groom/strands").sampledNames().empty());
    EXPECT_EQ(folder.names(), std::vector<std::string>{"empty.usda"});
}

TEST(UsdWriter, FirstFrameFixesChannelsUvsAndColours) {
    TempFolder folder;
    const std::string path = folder.file("fixed.usda");
    const ScalpUvs scalp{kCornerUvs};
    {
        UsdWriter writer(path, "groom", {});
        StrandSet first = smallSet();
        first.addStrandChannel("gone", 3.0f);
        writer.writeFrame(1, first);  // no scalp: no uvs
        StrandSet second = smallSet();
        second.addStrandChannel("colorR");
        second.addStrandChannel("colorG");
        second.addStrandChannel("colorB");
        second.addStrandChannel("fresh", 5.0f);
        second.removePointChannel("curl");
        writer.writeFrame(2, second, &scalp);
    }
    const UsdaLayer layer = parseUsda(readTextFile(path));
    const UsdaPrim& curves = layer.prim("/groom/strands");
    const std::vector<std::string> expected = {"curveVertexCounts", "points", "extent", "widths",
                                               "primvars:strandId", "primvars:clumpId", "primvars:gone",
                                               "primvars:curl"};
    EXPECT_EQ(curves.sampledNames(), expected);
    EXPECT_EQ(sampleNumbers(curves, "primvars:gone", 0), (std::vector<double>{3, 3, 3}));
    EXPECT_EQ(sampleNumbers(curves, "primvars:gone", 1), (std::vector<double>{0, 0, 0}));
    EXPECT_EQ(sampleNumbers(curves, "primvars:curl", 1), std::vector<double>(9, 0.0));
}

TEST(UsdWriter, TopologyMayChangeBetweenFrames) {
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
    const UsdaLayer layer = parseUsda(readTextFile(path));
    const UsdaPrim& curves = layer.prim("/groom/strands");
    expectCountsMatchInterpolation(curves);
    EXPECT_EQ(sampleNumbers(curves, "curveVertexCounts", 1).size(), 6u);
    EXPECT_TRUE(sampleNumbers(curves, "points", 2).empty());
    EXPECT_EQ(sampleNumbers(curves, "extent", 2), std::vector<double>(6, 0.0));
}

TEST(UsdWriter, NonFiniteValuesAreWrittenAsZero) {
    TempFolder folder;
    const std::string path = folder.file("nan.usda");
    {
        UsdWriter writer(path, "groom", {});
        StrandSet set = smallSet();
        set.mutablePoints()[0] = {NAN, INFINITY, -INFINITY};
        set.mutablePoints()[1] = {-0.0f, 1e-45f, 3.4028235e38f};
        writer.writeFrame(1, set);
    }
    const std::string text = readTextFile(path);
    EXPECT_NE(text.find("[(0, 0, 0), (-0, 1e-45, 3.4028235e38), "), std::string::npos);
    EXPECT_EQ(text.find("nan"), std::string::npos);
    EXPECT_EQ(text.find("inf"), std::string::npos);
}

TEST(UsdWriter, RefusesFramesThatDoNotRiseAndFramesAfterClose) {
    TempFolder folder;
    const std::string path = folder.file("order.usda");
    UsdWriter writer(path, "groom", {});
    writer.writeFrame(2, smallSet());
    writer.writeFrame(3, smallSet());
    for (double t : {3.0, 1.0}) {
        try {
            writer.writeFrame(t, smallSet());
            FAIL() << "expected UsdError";
        } catch (const UsdError& e) {
            EXPECT_STREQ(e.what(), "frames must increase");
        }
    }
    writer.writeFrame(4, smallSet());  // still usable
    EXPECT_EQ(writer.frameCount(), 3u);
    writer.close();
    writer.close();
    try {
        writer.writeFrame(5, smallSet());
        FAIL() << "expected UsdError";
    } catch (const UsdError& e) {
        EXPECT_STREQ(e.what(), "writeFrame after close");
    }
    const UsdaLayer layer = parseUsda(readTextFile(path));
    const UsdaPrim& curves = layer.prim("/groom/strands");
    EXPECT_EQ(curves.samples("points").value.samples.size(), 3u);
}

TEST(UsdWriter, ChannelNamesBecomeUniqueIdentifiers) {
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
    const UsdaLayer layer = parseUsda(readTextFile(path));
    EXPECT_EQ(layer.metadata.at("defaultPrim").text, "_9_lives");
    const std::vector<std::string> names = layer.prim("/_9_lives/strands").sampledNames();
    const std::vector<std::string> primvars(names.begin() + 5, names.end());
    EXPECT_EQ(primvars, (std::vector<std::string>{"primvars:clumpId", "primvars:my_attr", "primvars:widths_2",
                                                  "primvars:curl", "primvars:my_attr_2", "primvars:st_2"}));
}

TEST(UsdIdentifiers, SanitiseAndMakeUnique) {
    EXPECT_EQ(sanitizeIdentifier(""), "_");
    EXPECT_EQ(sanitizeIdentifier("3d"), "_3d");
    EXPECT_EQ(sanitizeIdentifier("a.b c"), "a_b_c");
    EXPECT_EQ(sanitizeIdentifier("h\xC3\xA9llo"), "h_llo");  // one character, one '_'
    const std::vector<std::string> names = {"a", "a", "a_2", "a", "st", "x y", "x_y"};
    const std::array<std::string_view, 1> reserved = {"st"};
    EXPECT_EQ(uniqueIdentifiers(names, reserved),
              (std::vector<std::string>{"a", "a_2", "a_2_2", "a_3", "st_2", "x_y", "x_y_2"}));
    EXPECT_EQ(cleanQuotedText("say \"hi\"\\\r\n"), "say 'hi'   ");
}

TEST(UsdWriter, UnwritableTargetIsReportedAtOnce) {
    TempFolder folder;
    const std::string path = folder.file("missing/out.usda");
    try {
        UsdWriter writer(path, "groom", {});
        FAIL() << "expected UsdError";
    } catch (const UsdError& e) {
        EXPECT_EQ(std::string(e.what()), "cannot write '" + path + "'");
    }
}

void writeOldTarget(const std::string& path) {
    std::ofstream(path) << "old";
}

TEST(UsdWriter, WriterAbandonedByAnExceptionKeepsTheOldTarget) {
    TempFolder folder;
    const std::string path = folder.file("keep.usda");
    writeOldTarget(path);
    try {
        UsdWriter writer(path, "groom", {});
        for (int f = 1; f <= 3; ++f) writer.writeFrame(f, smallSet());
        EXPECT_EQ(folder.names().size(), 2u + 7u);  // target, .tmp and one spool per channel
        throw std::runtime_error("evaluation failed");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(folder.names(), std::vector<std::string>{"keep.usda"});
    EXPECT_EQ(readTextFile(path), "old");
}

TEST(UsdWriter, SpoolFailureLeavesNothingBehind) {
    TempFolder folder;
    const std::string path = folder.file("spool.usda");
    writeOldTarget(path);
    std::filesystem::create_directory(path + ".spool3");  // the widths spool cannot be opened
    {
        UsdWriter writer(path, "groom", {});
        writer.writeFrame(1, smallSet());
        try {
            writer.writeFrame(2, smallSet());
            FAIL() << "expected UsdError";
        } catch (const UsdError& e) {
            EXPECT_EQ(std::string(e.what()), "cannot write '" + path + ".spool3'");
        }
        EXPECT_THROW(writer.writeFrame(3, smallSet()), UsdError);
    }
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"spool.usda", "spool.usda.spool3"}));
    EXPECT_TRUE(std::filesystem::is_directory(path + ".spool3"));
    EXPECT_EQ(readTextFile(path), "old");

    // close() itself reports the failure and cleans up the same way.
    UsdWriter writer(path, "groom", {});
    writer.writeFrame(1, smallSet());
    EXPECT_THROW(writer.writeFrame(2, smallSet()), UsdError);
    try {
        writer.close();
        FAIL() << "expected UsdError";
    } catch (const UsdError& e) {
        EXPECT_EQ(std::string(e.what()), "cannot write '" + path + "'");
    }
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"spool.usda", "spool.usda.spool3"}));
}

TEST(UsdWriter, FailedReplacementNamesTheTarget) {
    TempFolder folder;
    const std::string path = folder.file("dir.usda");
    std::filesystem::create_directories(path + "/occupied");  // a full folder cannot be replaced
    UsdWriter writer(path, "groom", {});
    writer.writeFrame(1, smallSet());
    try {
        writer.close();
        FAIL() << "expected UsdError";
    } catch (const UsdError& e) {
        const std::string prefix = "cannot replace '" + path + "': ";
        EXPECT_EQ(std::string(e.what()).substr(0, prefix.size()), prefix);
        EXPECT_GT(std::string(e.what()).size(), prefix.size());
    }
    EXPECT_EQ(folder.names(), std::vector<std::string>{"dir.usda"});
}

TEST(UsdWriter, ReplacesAnExistingTargetWhenWhole) {
    TempFolder folder;
    const std::string path = folder.file("replace.usda");
    writeOldTarget(path);
    {
        UsdWriter writer(path, "groom", {});
        writer.writeFrame(1, smallSet());
        writer.writeFrame(2, smallSet());
        EXPECT_EQ(readTextFile(path), "old");
    }
    EXPECT_EQ(readTextFile(path).substr(0, 9), "#usda 1.0");
}

TEST(UsdWriter, UnitNamesMapToMetersPerUnit) {
    EXPECT_EQ(metersPerUnitFor("m"), 1.0);
    EXPECT_EQ(metersPerUnitFor("mm"), 0.001);
    EXPECT_EQ(metersPerUnitFor("in"), 0.0254);
    EXPECT_EQ(metersPerUnitFor("ft"), 0.3048);
    EXPECT_EQ(metersPerUnitFor("cm"), 0.01);
    EXPECT_EQ(metersPerUnitFor("parsec"), 0.01);
}

}  // namespace
}  // namespace tressora
