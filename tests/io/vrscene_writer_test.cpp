#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "core/errors.h"
#include "io/vrscene_writer.h"
#include "io_test_support.h"

namespace tressora {
namespace {

using testing::errorText;
using testing::fileContent;
using testing::smallSet;
using testing::TempFolder;

/// The text of one param of a plugin: from "  <param>=" to its ";\n" at the end of a line.
std::string param(const std::string& text, const std::string& plugin, const std::string& name) {
    const std::size_t start = text.find(plugin + " {\n");
    if (start == std::string::npos) return "<no plugin>";
    const std::size_t end = text.find("\n}\n", start);
    const std::size_t at = text.find("\n  " + name + "=", start);
    if (at == std::string::npos || at > end) return "<no param>";
    const std::size_t valueStart = at + 4 + name.size();
    return text.substr(valueStart, text.find(";\n", valueStart) - valueStart);
}

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

TEST(VrsceneWriter, OneFrameWritesPlainListsAndEveryPlugin) {
    TempFolder folder;
    const std::string path = folder.file("hair.vrscene");
    {
        VrsceneWriterOptions options;
        options.metersPerUnit = 0.001;
        options.upAxis = "Z";
        options.glossiness = 0.5f;
        options.primaryTint = {1.0f, 0.5f, 0.25f};
        options.traceDepth = 3;
        VrsceneWriter writer(path, "my hair", options);
        StrandSet set = smallSet();
        set.addStrandChannel("colorR", 0.25f);
        set.addStrandChannel("colorG", 0.5f);
        set.addStrandChannel("colorB", 1.0f);
        writer.writeFrame(12, set);
        EXPECT_EQ(folder.names(), std::vector<std::string>{"hair.vrscene.tmp"});
    }
    EXPECT_EQ(folder.names(), std::vector<std::string>{"hair.vrscene"});
    const std::string text = fileContent(path);
    EXPECT_EQ(text.substr(0, text.find("SettingsUnitsInfo")),
              "// Tressora " TRESSORA_VERSION " V-Ray scene\n// 3 strands, 9 points, frames 12 to 12\n\n");
    EXPECT_NE(text.find("SettingsUnitsInfo my_hair@units {\n  meters_scale=0.001;\n  frames_scale=24;\n"
                        "  scene_upDir=Vector(0, 0, 1);\n}\n\n"),
              std::string::npos);
    EXPECT_EQ(param(text, "GeomMayaHair my_hair@hair", "num_hair_vertices"), "ListInt(2, 3, 4)");
    EXPECT_TRUE(startsWith(param(text, "GeomMayaHair my_hair@hair", "hair_vertices"),
                           "ListVector(Vector(0, 0, -1.5), Vector(0, 0.25, -1.5), "));
    EXPECT_TRUE(startsWith(param(text, "GeomMayaHair my_hair@hair", "widths"), "ListFloat(0.1, 0.2, 0.3, "));
    // Per strand colours reach each point of their strand.
    const std::string colours = param(text, "GeomMayaHair my_hair@hair", "colors");
    EXPECT_TRUE(startsWith(colours, "ListColor(Color(0.25, 0.5, 1), Color(0.25, 0.5, 1), Color(0.25, "));
    EXPECT_EQ(param(text, "GeomMayaHair my_hair@hair", "transparency"), "<no param>");
    EXPECT_EQ(param(text, "GeomMayaHair my_hair@hair", "geom_splines"), "1");
    EXPECT_EQ(param(text, "GeomMayaHair my_hair@hair", "min_pixel_width"), "0.5");
    EXPECT_NE(text.find("TexHairSampler my_hair@hairSampler {\n}\n\n"), std::string::npos);
    EXPECT_EQ(param(text, "BRDFHair4 my_hair@hairBrdf", "dye_color"), "my_hair@hairSampler::hair_color");
    EXPECT_EQ(param(text, "BRDFHair4 my_hair@hairBrdf", "glossiness"), "0.5");
    EXPECT_EQ(param(text, "BRDFHair4 my_hair@hairBrdf", "primary_tint"), "AColor(1, 0.5, 0.25, 1)");
    EXPECT_EQ(param(text, "BRDFHair4 my_hair@hairBrdf", "trace_depth"), "3");
    EXPECT_EQ(param(text, "BRDFHair4 my_hair@hairBrdf", "transparency"), "<no param>");
    EXPECT_NE(text.find("MtlSingleBRDF my_hair@hairMtl {\n  brdf=my_hair@hairBrdf;\n}\n\n"), std::string::npos);
    EXPECT_EQ(param(text, "Node my_hair@node", "geometry"), "my_hair@hair");
    EXPECT_EQ(param(text, "Node my_hair@node", "material"), "my_hair@hairMtl");
    EXPECT_EQ(param(text, "Node my_hair@node", "visible"), "1");
    EXPECT_EQ(param(text, "Node my_hair@node", "transform"),
              "Transform(Matrix(Vector(1, 0, 0), Vector(0, 1, 0), Vector(0, 0, 1)), Vector(0, 0, 0))");
}

TEST(VrsceneWriter, SeveralFramesInterpolateEveryParam) {
    TempFolder folder;
    const std::string path = folder.file("anim.vrscene");
    const std::vector<std::array<float, 2>> corners = {{0, 0}, {1, 0}, {0, 1}, {0, 0}, {1, 0}, {0, 1},
                                                       {0, 0}, {1, 0}, {0, 1}};
    const ScalpUvs scalp{corners};
    {
        VrsceneWriter writer(path, "", {});
        for (int f = 1; f <= 3; ++f) {
            StrandSet set = smallSet(static_cast<float>(f));
            if (f < 3) set.addPointChannel("opacity", 0.25f);
            writer.writeFrame(f, set, &scalp);
        }
        EXPECT_THROW(writer.writeFrame(3, smallSet()), VrsceneError);
    }
    const std::string text = fileContent(path);
    EXPECT_NE(text.find("// 3 strands, 9 points, frames 1 to 3\n"), std::string::npos);
    EXPECT_EQ(param(text, "GeomMayaHair groom@hair", "num_hair_vertices"),
              "interpolate(\n    (1, ListInt(2, 3, 4)),\n    (2, ListInt(2, 3, 4)),\n    (3, ListInt(2, 3, 4))\n)");
    const std::string vertices = param(text, "GeomMayaHair groom@hair", "hair_vertices");
    EXPECT_TRUE(startsWith(vertices, "interpolate(\n    (1, ListVector(Vector(1, 0, -1.5), "));
    EXPECT_NE(vertices.find("\n    (3, ListVector(Vector(3, 0, -1.5)"), std::string::npos);
    const std::string transparency = param(text, "GeomMayaHair groom@hair", "transparency");
    EXPECT_TRUE(startsWith(transparency, "interpolate(\n    (1, ListColor(Color(0.75, 0.75, 0.75), "));
    // The opacity channel is gone on frame 3: fully opaque.
    EXPECT_NE(transparency.find("(3, ListColor(Color(0, 0, 0), "), std::string::npos);
    EXPECT_EQ(param(text, "BRDFHair4 groom@hairBrdf", "transparency"), "groom@hairSampler::hair_transparency");
    EXPECT_NE(param(text, "GeomMayaHair groom@hair", "strand_uvw").find("ListVector(Vector(0.25, 0.5, 0), "),
              std::string::npos);
    EXPECT_EQ(param(text, "GeomMayaHair groom@hair", "colors"), "<no param>");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"anim.vrscene"});
}

TEST(VrsceneWriter, FailuresUseTheSceneErrorAndLeaveNothingBehind) {
    TempFolder folder;
    const std::string nowhere = folder.file("no/such/dir.vrscene");
    EXPECT_THROW(VrsceneWriter(nowhere, "groom", {}), VrsceneError);
    EXPECT_EQ(errorText([&] { VrsceneWriter writer(nowhere, "groom", {}); }), "cannot write '" + nowhere + "'");
    const std::string path = folder.file("keep.vrscene");
    std::ofstream(path) << "old";
    std::filesystem::create_directory(path + ".spool1");
    {
        VrsceneWriter writer(path, "groom", {});
        writer.writeFrame(1, smallSet());
        EXPECT_EQ(errorText([&] { writer.writeFrame(2, smallSet()); }), "cannot write '" + path + ".spool1'");
    }
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"keep.vrscene", "keep.vrscene.spool1"}));
    EXPECT_EQ(fileContent(path), "old");

    VrsceneWriter writer(folder.file("order.vrscene"), "groom", {});
    writer.writeFrame(1, smallSet());
    EXPECT_EQ(errorText([&] { writer.writeFrame(0.5, smallSet()); }), "frames must increase");
    writer.close();
    EXPECT_THROW(writer.writeFrame(2, smallSet()), VrsceneError);
    EXPECT_EQ(errorText([&] { writer.writeFrame(2, smallSet()); }), "writeFrame after close");
    EXPECT_EQ(param(fileContent(folder.file("order.vrscene")), "GeomMayaHair groom@hair", "num_hair_vertices"),
              "ListInt(2, 3, 4)");
}

TEST(VrsceneWriter, NoFramesGivesEmptyHair) {
    TempFolder folder;
    const std::string path = folder.file("empty.vrscene");
    { VrsceneWriter writer(path, "groom", {}); }
    const std::string text = fileContent(path);
    EXPECT_EQ(param(text, "GeomMayaHair groom@hair", "num_hair_vertices"), "ListInt()");
    EXPECT_EQ(param(text, "GeomMayaHair groom@hair", "hair_vertices"), "ListVector()");
    EXPECT_NE(text.find("// 0 strands, 0 points, frames 0 to 0\n"), std::string::npos);
}

}  // namespace
}  // namespace tressora
