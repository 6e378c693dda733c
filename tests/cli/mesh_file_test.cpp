#include <gtest/gtest.h>

#include "../groom/sample_groom.h"
#include "cli/mesh_file.h"
#include "io/alembic/abc_writer.h"
#include "io/alembic/geom_writer.h"
#include "core/errors.h"

namespace tressora::cli {
namespace {

using tressora::testing::TempFolder;
using tressora::testing::writeText;

std::string errorOf(const std::string& text) {
    try {
        parseObj(text, "head.obj");
    } catch (const MeshFileError& e) {
        return e.what();
    }
    return "(no error)";
}

std::string meshFileError(const std::string& path, const std::string& object) {
    try {
        readMeshFile(path, object);
    } catch (const MeshFileError& e) {
        return e.what();
    }
    return "(no error)";
}

const char* const kQuad = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";

TEST(ObjReader, QuadIsFannedIntoTwoTriangles) {
    const MeshFileData mesh = parseObj(std::string(kQuad) + "vt 0 0\nvt 1 0 7\nvt 1 1\nvt 0 1\nf 1/1 2/2/1 3/3 4/4\n",
                                       "quad.obj");
    ASSERT_EQ(mesh.points.size(), 4u);
    EXPECT_EQ(mesh.triangles, (std::vector<MeshTriangle>{{0, 1, 2}, {0, 2, 3}}));
    EXPECT_EQ(mesh.polygons, std::vector<std::int32_t>{2});
    ASSERT_EQ(mesh.uvs.size(), 6u);
    EXPECT_EQ(mesh.uvs[4], (std::array<float, 2>{1, 1}));
    EXPECT_EQ(mesh.uvs[5], (std::array<float, 2>{0, 1}));

    const ScalpMesh scalp = scalpMeshFromFile(mesh, "quad");
    EXPECT_EQ(scalp.triangleCount(), 2u);
    EXPECT_TRUE(scalp.hasUvs());
    EXPECT_EQ(scalp.name(), "quad");
    EXPECT_FLOAT_EQ(scalp.area(), 1.0f);
}

TEST(ObjReader, FacesAndUvsAsWritten) {
    // Negative indices count back from the last vertex read; other statements are skipped.
    const MeshFileData negative = parseObj("v 0 0 0\nv 1 0 0\nv 0 1 0\nf -3 -2 -1\nv 5 5 5\nf 1 2 -1\n", "n.obj");
    EXPECT_EQ(negative.triangles, (std::vector<MeshTriangle>{{0, 1, 2}, {0, 1, 3}}));
    const MeshFileData other = parseObj(
        "# made by hand\r\nmtllib head.mtl\r\n  # indented comment\r\n\r\no head\r\ng scalp\r\nusemtl skin\r\n"
        "s 1\r\nvn 0 0 1\r\nv 0 0 0\r\nv 1 0 0\r\nv 0 1 0\r\nf 1//1 2//1 3//1\r\n",
        "c.obj");
    EXPECT_EQ(other.points.size(), 3u);
    EXPECT_EQ(other.triangles.size(), 1u);
    // Uvs are kept only when every corner has one.
    const MeshFileData some = parseObj(std::string(kQuad) + "vt 0 0\nvt 1 0\nf 1/1 2/2 3\n", "q.obj");
    EXPECT_EQ(some.triangles.size(), 1u);
    EXPECT_TRUE(some.uvs.empty());
    const MeshFileData mixed = parseObj(std::string(kQuad) + "vt 0 0\nf 1/1 2/1 3/1\nf 1//1 3//1 4//2\n", "m.obj");
    EXPECT_TRUE(mixed.uvs.empty());
    EXPECT_FALSE(scalpMeshFromFile(mixed).hasUvs());
}

TEST(ObjReader, EveryFaultNamesTheFileAndLine) {
    EXPECT_EQ(errorOf("v 0 0\n"), "head.obj:1: bad vertex");
    EXPECT_EQ(errorOf("\nv 0 zero 0\n"), "head.obj:2: bad vertex");
    EXPECT_EQ(errorOf("vt 0\n"), "head.obj:1: bad texture coordinate");
    EXPECT_EQ(errorOf(std::string(kQuad) + "f 1 2 x3\n"), "head.obj:5: bad face corner 'x3'");
    EXPECT_EQ(errorOf(std::string(kQuad) + "f 1 2 3/a\n"), "head.obj:5: bad face corner '3/a'");
    EXPECT_EQ(errorOf(std::string(kQuad) + "f 1 2\n"), "head.obj:5: a face needs 3 corners");
    EXPECT_EQ(errorOf(std::string(kQuad) + "f 1 2 5\n"), "head.obj:5: vertex index 5 out of range");
    EXPECT_EQ(errorOf(std::string(kQuad) + "f 0 1 2\n"), "head.obj:5: vertex index 0 out of range");
    EXPECT_EQ(errorOf(std::string(kQuad) + "f 1 2 -5\n"), "head.obj:5: vertex index -5 out of range");
    EXPECT_EQ(errorOf(std::string(kQuad) + "vt 0 0\nf 1/1 2/2 3/1\n"),
              "head.obj:6: texture coordinate index 2 out of range");
    EXPECT_EQ(errorOf(kQuad), "head.obj: the mesh has no faces");
    EXPECT_EQ(errorOf(""), "head.obj: the mesh has no faces");
}

TEST(MeshFile, DispatchesOnTheLowerCasedExtension) {
    TempFolder folder;
    const std::string obj = folder.file("Head.OBJ");
    writeText(obj, std::string(kQuad) + "f 1 2 3 4\n");
    EXPECT_EQ(readMeshFile(obj, "ignored").triangles.size(), 2u);

    const auto failure = [](const std::string& path) { return meshFileError(path, ""); };
    const std::string fbx = folder.file("head.fbx");
    EXPECT_EQ(failure(fbx), std::string("'").append(fbx).append("' is not a mesh file this reads (.obj or .abc)"));
    const std::string gone = folder.file("gone.obj");
    EXPECT_EQ(failure(gone), std::string("cannot open '").append(gone).append("'"));
    EXPECT_EQ(failure("head.ABC").rfind("head.ABC: ", 0), 0u);
}

// A quad stored clockwise, as Alembic meshes are, with face-varying uvs listed corner by corner.
TEST(MeshFile, ReadsAlembicMeshesAsCounterClockwiseFansWithTheirUvs) {
    TempFolder folder;
    const std::string path = folder.file("head.abc");
    const std::vector<Vec3f> points{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    const std::vector<std::int32_t> clockwise{3, 2, 1, 0}, counts{4};
    const std::vector<abc::Vec2f> uvs{{0, 1}, {1, 1}, {1, 0}, {0, 0}};
    {
        abc::ArchiveWriter archive(path);
        auto& mesh = archive.top().addChild<abc::PolyMeshWriter>("scalp", 0);
        abc::PolyMeshSample sample;
        sample.positions = points;
        sample.faceIndices = clockwise;
        sample.faceCounts = counts;
        sample.uvs = abc::GeomValues<abc::Vec2f>{uvs, abc::GeometryScope::FaceVarying};
        mesh.write(sample);
        archive.close();
    }
    const MeshFileData mesh = readMeshFile(path, "scalp");
    ASSERT_EQ(mesh.triangles.size(), 2u);
    EXPECT_EQ(mesh.points, points);
    EXPECT_EQ(mesh.triangles[0], (MeshTriangle{0, 1, 2}));  // counter-clockwise seen from +Z
    ASSERT_EQ(mesh.uvs.size(), 6u);
    // Every corner keeps the uv stored with it: the uv of point i is (x, y) of the point.
    for (std::size_t t = 0; t < 2; ++t)
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f& p = points[static_cast<std::size_t>(mesh.triangles[t][c])];
            EXPECT_EQ(mesh.uvs[t * 3 + c][0], p.x);
            EXPECT_EQ(mesh.uvs[t * 3 + c][1], p.y);
        }

    EXPECT_EQ(meshFileError(path, "ear"), path + ": no polygon mesh named 'ear'");
    const std::string broken = folder.file("broken.abc");
    writeText(broken, "not an archive");
    EXPECT_EQ(meshFileError(broken, "").rfind(broken + ": ", 0), 0u);
}

}  // namespace
}  // namespace tressora::cli
