#include "io/alembic_test_support.h"


namespace tressora::abc::testing {

ArchiveInfo referenceInfo() {
    ArchiveInfo info;
    info.application = "reference writer";
    info.fps = 24.0;
    info.dateWritten = "Thu Jan  1 00:00:00 2026";
    info.alembicVersion = "Alembic 1.8.12 (built Nov 21 2026 05:25:36)";
    return info;
}

namespace {

std::uint32_t frameSampling(ArchiveWriter& archive) {
    return archive.addTimeSampling(TimeSampling::uniform(1.0 / 24.0, 1.0 / 24.0));
}

template <class T>
std::span<const T> spanOf(const std::vector<T>& v) {
    return std::span<const T>(v);
}

}  // namespace

void writeCurvesBasic(const std::string& path) {
    ArchiveWriter archive(path, referenceInfo());
    const std::uint32_t ts = frameSampling(archive);
    auto& groom = archive.top().addChild<XformWriter>("groom", ts);
    auto& shape = groom.addChild<CurvesWriter>("groomShape", ts);
    auto& strandId = shape.addArbGeomParam("strandId", GeomParamType::uint64(), GeometryScope::Uniform);
    auto& groupId = shape.addArbGeomParam("groupId", GeomParamType::int32(), GeometryScope::Uniform);
    auto& clumpId = shape.addArbGeomParam("clumpId", GeomParamType::int32(), GeometryScope::Uniform);
    auto& melanin = shape.addArbGeomParam("melanin", GeomParamType::float32(), GeometryScope::Uniform);
    auto& blend = shape.addArbGeomParam("blend", GeomParamType::float32(), GeometryScope::Vertex);
    const std::vector<std::int32_t> counts{2, 3, 4, 5};
    const std::vector<std::uint64_t> ids{1ull, 4294967297ull, 9007199254740993ull, 18446744073709551615ull};
    const std::vector<std::int32_t> groups{0, 0, 1, 2}, clumps{-1, 7, 7, 2147483647};
    for (int f = 1; f <= 3; ++f) {
        std::vector<Vec3f> points;
        std::vector<float> widths, blends, melanins;
        std::vector<Vec2f> uvs;
        for (int i = 0, j = 0; i < 4; ++i) {
            uvs.push_back({0.25f * i, 1.0f - 0.25f * i});
            melanins.push_back(0.25f * i + (f > 1 ? 0.125f : 0.0f));
            for (int k = 0; k < i + 2; ++k, ++j) {
                points.push_back({float(i), 0.5f * k, 0.25f * f});
                widths.push_back((j + 1) / 128.0f);
                blends.push_back(0.125f * k + (f == 3 ? 0.5f : 0.0f));
            }
        }
        groom.writeIdentity();
        CurvesSample sample;
        sample.positions = points;
        sample.vertexCounts = counts;
        sample.uvs = GeomValues<Vec2f>{uvs, GeometryScope::Uniform};
        sample.widths = GeomValues<float>{widths, GeometryScope::Vertex};
        shape.write(sample);
        strandId.writeValues(spanOf(ids));
        groupId.writeValues(spanOf(groups));
        clumpId.writeValues(spanOf(clumps));
        melanin.writeValues(spanOf(melanins));
        blend.writeValues(spanOf(blends));
    }
    archive.close();
}

void writeCurvesGroomLayout(const std::string& path) {
    ArchiveWriter archive(path, referenceInfo());
    const std::uint32_t ts = frameSampling(archive);
    const std::int32_t one = 1, five = 5;
    {
        auto& strands = archive.top().addChild<CurvesWriter>("strands", ts);
        auto& major = strands.addArbGeomParam("groom_version_major", GeomParamType::int32(), GeometryScope::Constant);
        auto& minor = strands.addArbGeomParam("groom_version_minor", GeomParamType::int32(), GeometryScope::Constant);
        auto& name = strands.addArbGeomParam("groom_group_name", GeomParamType::string(), GeometryScope::Constant);
        auto& groupId = strands.addArbGeomParam("groom_group_id", GeomParamType::int32(), GeometryScope::Uniform);
        auto& id = strands.addArbGeomParam("groom_id", GeomParamType::int32(), GeometryScope::Uniform);
        auto& low = strands.addArbGeomParam("tressora_strand_id_low", GeomParamType::uint32(), GeometryScope::Uniform);
        auto& high = strands.addArbGeomParam("tressora_strand_id_high", GeomParamType::uint32(), GeometryScope::Uniform);
        auto& width = strands.addArbGeomParam("groom_width", GeomParamType::float32(), GeometryScope::Vertex);
        auto& rootUv = strands.addArbGeomParam("groom_root_uv", GeomParamType::vec2(), GeometryScope::Uniform);
        auto& color = strands.addArbGeomParam("groom_color", GeomParamType::color3(), GeometryScope::Uniform);
        std::vector<Vec3f> points;
        std::vector<float> widths;
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 4; ++k) {
                points.push_back({0.5f * i, 0.25f * k, 0.125f * i - 0.25f});
                widths.push_back(0.03125f - 0.0078125f * k + 0.001953125f * i);
            }
        const std::vector<std::int32_t> counts{4, 4, 4};
        CurvesSample sample;
        sample.positions = points;
        sample.vertexCounts = counts;
        strands.write(sample);
        major.writeValues(std::span<const std::int32_t>(&one, 1));
        minor.writeValues(std::span<const std::int32_t>(&five, 1));
        const std::vector<std::string> hair{"hair"};
        name.writeStrings(hair);
        groupId.writeValues(spanOf(std::vector<std::int32_t>{0, 0, 0}));
        id.writeValues(spanOf(std::vector<std::int32_t>{100, 101, 102}));
        low.writeValues(spanOf(std::vector<std::uint32_t>{1, 1, 4294967295u}));
        high.writeValues(spanOf(std::vector<std::uint32_t>{0, 1, 4294967295u}));
        width.writeValues(spanOf(widths));
        rootUv.writeValues(spanOf(std::vector<float>{0.25f, 0.5f, 0.5f, 0.5f, 0.75f, 0.5f}));
        color.writeValues(spanOf(std::vector<float>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
        strands.close();
    }
    {
        auto& guides = archive.top().addChild<CurvesWriter>("guides", ts);
        auto& guide = guides.addArbGeomParam("groom_guide", GeomParamType::int32(), GeometryScope::Constant);
        std::vector<Vec3f> points;
        for (int i = 0; i < 2; ++i)
            for (int k = 0; k < 4; ++k) points.push_back({0.5f * i + 0.25f, 0.25f * k, -0.0625f});
        const std::vector<std::int32_t> counts{4, 4};
        CurvesSample sample;
        sample.positions = points;
        sample.vertexCounts = counts;
        guides.write(sample);
        guide.writeValues(std::span<const std::int32_t>(&one, 1));
        guides.close();
    }
    archive.close();
}

void writeMeshAnimated(const std::string& path) {
    ArchiveWriter archive(path, referenceInfo());
    const std::uint32_t ts = frameSampling(archive);
    auto& scalp = archive.top().addChild<XformWriter>("scalp", ts);
    auto& shape = scalp.addChild<PolyMeshWriter>("scalpShape", ts);
    const std::vector<std::int32_t> indices{0, 1, 3, 2, 4, 6, 7, 5, 0, 4, 5, 1, 2, 3, 7, 6, 0, 2, 6, 4, 1, 5, 7, 3};
    const std::vector<std::int32_t> counts(6, 4);
    const std::vector<Vec2f> uvValues{{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    std::vector<std::uint32_t> uvIndices;
    for (int face = 0; face < 6; ++face)
        for (std::uint32_t c = 0; c < 4; ++c) uvIndices.push_back(c);
    for (int f = 1; f <= 3; ++f) {
        std::vector<Vec3f> points;
        for (int p = 0; p < 8; ++p)
            points.push_back({(p & 1) - 0.5f + (f - 1), ((p >> 1) & 1) - 0.5f, ((p >> 2) & 1) - 0.5f});
        scalp.writeIdentity();
        PolyMeshSample sample;
        sample.positions = points;
        sample.faceIndices = indices;
        sample.faceCounts = counts;
        sample.uvs = GeomValues<Vec2f>{uvValues, uvIndices, GeometryScope::FaceVarying};
        shape.write(sample);
    }
    archive.close();
}

void writeEmpty(const std::string& path) {
    ArchiveWriter archive(path, referenceInfo());
    frameSampling(archive);
    archive.close();
}

void writeCurvesMany(const std::string& path) {
    ArchiveWriter archive(path, referenceInfo());
    const std::uint32_t ts = frameSampling(archive);
    auto& groom = archive.top().addChild<XformWriter>("groom", ts);
    auto& shape = groom.addChild<CurvesWriter>("groomShape", ts);
    auto& strandId = shape.addArbGeomParam("strandId", GeomParamType::uint64(), GeometryScope::Uniform);
    std::vector<Vec3f> points;
    std::vector<float> widths;
    std::vector<std::uint64_t> ids;
    const std::vector<std::int32_t> counts(10000, 8);
    for (int i = 0; i < 10000; ++i) {
        ids.push_back(static_cast<std::uint64_t>(i + 1) * 11400714819323198485ull);
        for (int k = 0; k < 8; ++k) {
            points.push_back({0.0625f * (i % 100), 0.125f * k, 0.0625f * (i / 100)});
            widths.push_back((8 - k) / 1024.0f);
        }
    }
    groom.writeIdentity();
    CurvesSample sample;
    sample.positions = points;
    sample.vertexCounts = counts;
    sample.widths = GeomValues<float>{widths, GeometryScope::Vertex};
    shape.write(sample);
    strandId.writeValues(spanOf(ids));
    archive.close();
}

}  // namespace tressora::abc::testing
