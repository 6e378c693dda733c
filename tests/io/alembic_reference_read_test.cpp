// Our reader against the Alembic library: every value the library read back from the reference
// archives (their .expected.json files) and the header facts their README lists.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "io/alembic/geom_reader.h"
#include "io/alembic_test_support.h"

namespace tressora::abc {
namespace {

using namespace testing;
using nlohmann::json;

// One stored value as JSON, exactly (64-bit integers stay integers).
json valueJson(Pod pod, const std::byte* p) {
    auto load = [p](auto v) {
        std::memcpy(&v, p, sizeof v);
        return v;
    };
    switch (pod) {
        case Pod::Int32: return load(std::int32_t{});
        case Pod::Uint32: return load(std::uint32_t{});
        case Pod::Int64: return load(std::int64_t{});
        case Pod::Uint64: return load(std::uint64_t{});
        case Pod::Uint8: return load(std::uint8_t{});
        case Pod::Float32: return static_cast<double>(load(float{}));
        case Pod::Float64: return load(double{});
        default: return decodeNumbers(pod, std::span(p, podSize(pod))).at(0);
    }
}

// Values grouped by element: a flat list for extent 1, else a list per element.
json valuesJson(const DataType& type, const std::vector<std::byte>& bytes, const std::vector<std::string>& strings) {
    json all = json::array();
    if (isStringPod(type.pod)) {
        for (const std::string& s : strings) all.push_back(s);
    } else {
        for (std::size_t i = 0; i < bytes.size(); i += podSize(type.pod)) all.push_back(valueJson(type.pod, &bytes[i]));
    }
    if (type.extent == 1) return all;
    json grouped = json::array();
    for (std::size_t i = 0; i < all.size(); i += type.extent)
        grouped.push_back(json(std::vector<json>(all.begin() + i, all.begin() + i + type.extent)));
    return grouped;
}

json paramJson(const std::optional<GeomParamSample>& sample) {
    if (!sample) return nullptr;
    const GeomParamSample flat = sample->expanded();
    json out = {{"kind", sample->indexed ? "indexed" : "array"},
                {"pod", std::string(podName(sample->type.pod))},
                {"extent", sample->type.extent},
                {"scope", std::string(scopeToken(sample->scope))},
                {"values", valuesJson(flat.type, flat.values, flat.strings)}};
    if (sample->indexed) {
        out["indexedVals"] = valuesJson(sample->type, sample->values, sample->strings);
        out["indices"] = sample->indices;
    }
    return out;
}

json pointsJson(const std::vector<Vec3f>& points) {
    json out = json::array();
    for (const Vec3f& p : points) out.push_back({p.x, p.y, p.z});
    return out;
}

json arbJson(const GeomReader& reader, std::uint32_t index) {
    json out = json::object();
    for (const GeomParamReader& param : reader.arbGeomParams()) out[param.name()] = paramJson(param.read(index));
    return out;
}

const char* typeName(CurveType t) { return t == CurveType::Linear ? "linear" : t == CurveType::Cubic ? "cubic" : "variableOrder"; }
const char* basisName(CurveBasis b) {
    static const char* names[] = {"none", "bezier", "bspline", "catmullrom", "hermite", "power"};
    return names[static_cast<int>(b)];
}

json objectJson(const ObjectReader& object) {
    json samples = json::array();
    json out = {{"path", object.fullName()}, {"schema", object.schema()}};
    if (isXform(object)) {
        const XformReader reader(object);
        out["timeSampling"] = reader.timeSamplingIndex();
        for (std::uint32_t i = 0; i < reader.numSamples(); ++i) {
            const XformData d = reader.read(i);
            samples.push_back({{"index", i}, {"time", d.time}, {"inherits", d.inherits}, {"matrix", d.matrix}});
        }
    } else if (isCurves(object)) {
        const CurvesReader reader(object);
        out["timeSampling"] = reader.timeSamplingIndex();
        for (std::uint32_t i = 0; i < reader.numSamples(); ++i) {
            const CurvesData d = reader.read(i);
            samples.push_back({{"index", i},
                               {"time", d.time},
                               {"type", typeName(d.type)},
                               {"wrap", d.wrap == CurveWrap::Periodic ? "periodic" : "nonperiodic"},
                               {"basis", basisName(d.basis)},
                               {"selfBounds", d.selfBounds->values()},
                               {"nVertices", d.vertexCounts},
                               {"positions", pointsJson(d.positions)},
                               {"width", paramJson(d.widths)},
                               {"uv", paramJson(d.uvs)},
                               {"N", paramJson(d.normals)},
                               {"arbGeomParams", arbJson(reader, i)}});
        }
    } else {
        const PolyMeshReader reader(object);
        out["timeSampling"] = reader.timeSamplingIndex();
        for (std::uint32_t i = 0; i < reader.numSamples(); ++i) {
            const PolyMeshData d = reader.read(i);
            samples.push_back({{"index", i},
                               {"time", d.time},
                               {"positions", pointsJson(d.positions)},
                               {"faceCounts", d.faceCounts},
                               {"faceIndices", d.faceIndices},
                               {"uv", paramJson(d.uvs)},
                               {"N", paramJson(d.normals)},
                               {"arbGeomParams", arbJson(reader, i)}});
        }
    }
    out["samples"] = samples;
    return out;
}

json archiveJson(const ArchiveReader& archive, const std::string& file) {
    json samplings = json::array();
    for (std::size_t i = 0; i < archive.timeSamplings().size(); ++i) {
        const TimeSamplingRecord& r = archive.timeSamplings()[i];
        samplings.push_back({{"index", i},
                             {"type", std::string(r.sampling.kind())},
                             {"timePerCycle", r.sampling.timePerCycle},
                             {"storedTimes", r.sampling.storedTimes},
                             {"maxNumSamples", r.maxSamples}});
    }
    json objects = json::array();
    archive.forEachObject([&](const ObjectReader& object) {
        if (isXform(object) || isCurves(object) || isPolyMesh(object)) objects.push_back(objectJson(object));
    });
    return {{"file", file},
            {"archiveMetaData", archive.metadata().pairs()},
            {"timeSamplings", samplings},
            {"objects", objects}};
}

class ReferenceRead : public ::testing::TestWithParam<const char*> {};

TEST_P(ReferenceRead, EveryValueEqualsWhatTheLibraryRead) {
    const std::string dir = referenceDir();
    TRESSORA_REQUIRE_DIR(dir);
    const std::string name = GetParam();
    std::ifstream in(dir + "/" + name.substr(0, name.find('.')) + ".expected.json");
    const json expected = json::parse(in);
    const json ours = archiveJson(ArchiveReader(dir + "/" + name), name);
    EXPECT_TRUE(ours == expected) << json::diff(expected, ours).dump(1);
}

INSTANTIATE_TEST_SUITE_P(Alembic, ReferenceRead,
                         ::testing::Values("curves_basic.abc", "curves_groom_layout.abc", "mesh_animated.abc",
                                           "empty.abc"),
                         [](const auto& info) {
                             std::string name = info.param;
                             return name.substr(0, name.find('.'));
                         });

struct Opened {
    ArchiveReader archive;
    const PropertyReader& property(const std::string& object, const std::string& path) const {
        const PropertyReader* p = &archive.findObject(object)->properties();
        for (std::size_t start = 0; start < path.size();) {
            const std::size_t end = std::min(path.find('/', start), path.size());
            p = p->find(path.substr(start, end - start));
            EXPECT_NE(p, nullptr) << path;
            start = end + 1;
        }
        return *p;
    }
};

TEST(AlembicReferenceRead, CurvesBasicHeadersKeepChangeRangesAndConstants) {
    const std::string dir = referenceDir();
    TRESSORA_REQUIRE_DIR(dir);
    const Opened f{ArchiveReader(dir + "/curves_basic.abc")};
    const std::string shape = "/groom/groomShape";
    const PropertyReader& melanin = f.property(shape, ".geom/.arbGeomParams/melanin");
    EXPECT_EQ(melanin.header().firstChanged, 1u);
    EXPECT_EQ(melanin.header().lastChanged, 1u);
    EXPECT_NE(melanin.sample(0).payload.data(), melanin.sample(1).payload.data());
    EXPECT_EQ(melanin.sample(1).payload.data(), melanin.sample(2).payload.data());
    const PropertyReader& blend = f.property(shape, ".geom/.arbGeomParams/blend");
    EXPECT_EQ(blend.header().firstChanged, 2u);
    EXPECT_EQ(blend.header().lastChanged, 2u);
    EXPECT_EQ(blend.sample(0).payload.data(), blend.sample(1).payload.data());
    EXPECT_NE(blend.sample(1).payload.data(), blend.sample(2).payload.data());
    for (const char* constant : {".geom/nVertices", ".geom/curveBasisAndType", ".geom/uv", ".geom/width",
                                 ".geom/.arbGeomParams/strandId", ".geom/.arbGeomParams/clumpId"}) {
        const PropertyReader& p = f.property(shape, constant);
        EXPECT_TRUE(p.header().isConstant()) << constant;
        EXPECT_EQ(p.numSamples(), 3u) << constant;
        EXPECT_EQ(p.header().timeSampling, 1u) << constant;
    }
    EXPECT_FALSE(f.property(shape, ".geom/P").header().homogenous);
    EXPECT_FALSE(f.property(shape, ".geom/uv").header().homogenous);
    EXPECT_TRUE(f.property(shape, ".geom/width").header().homogenous);
    EXPECT_EQ(f.property("/groom", ".xform/.inherits").values<bool>(2), std::vector<bool>{true});
}

TEST(AlembicReferenceRead, GroomLayoutSharesEqualBytesAndMarksSingleValueArrays) {
    const std::string dir = referenceDir();
    TRESSORA_REQUIRE_DIR(dir);
    const Opened f{ArchiveReader(dir + "/curves_groom_layout.abc")};
    const PropertyReader& major = f.property("/strands", ".geom/.arbGeomParams/groom_version_major");
    const PropertyReader& minor = f.property("/strands", ".geom/.arbGeomParams/groom_version_minor");
    const PropertyReader& name = f.property("/strands", ".geom/.arbGeomParams/groom_group_name");
    EXPECT_TRUE(major.header().scalarLike && minor.header().scalarLike && name.header().scalarLike);
    EXPECT_FALSE(f.property("/strands", ".geom/.arbGeomParams/groom_id").header().scalarLike);
    // int32 [1] and uint8[4] {1,0,0,0} are the same four bytes, stored once.
    EXPECT_EQ(major.sample(0).payload.data(), f.property("/strands", ".geom/curveBasisAndType").sample(0).payload.data());
    EXPECT_FALSE(major.header().homogenous);
    EXPECT_TRUE(minor.header().homogenous);
    EXPECT_EQ(name.sample(0).dims, std::vector<std::uint64_t>{1});
    EXPECT_EQ(name.strings(0), std::vector<std::string>{"hair"});
}

TEST(AlembicReferenceRead, EmptyArchiveHasOnlyItsTopObjectAndBothSamplings) {
    const std::string dir = referenceDir();
    TRESSORA_REQUIRE_DIR(dir);
    const ArchiveReader archive(dir + "/empty.abc");
    EXPECT_TRUE(archive.top().children().empty());
    EXPECT_TRUE(archive.top().properties().children().empty());
    ASSERT_EQ(archive.timeSamplings().size(), 2u);
    EXPECT_EQ(archive.timeSamplings()[1].sampling.timePerCycle, 1.0 / 24.0);
    EXPECT_EQ(archive.libraryVersion(), 10812);
}

TEST(AlembicReferenceRead, CurvesManyHoldsItsFormulasForEveryPoint) {
    const std::string dir = referenceDir();
    TRESSORA_REQUIRE_DIR(dir);
    const ArchiveReader archive(dir + "/curves_many.abc");
    const CurvesReader reader(*archive.findObject("/groom/groomShape"));
    const CurvesData d = reader.read(0);
    ASSERT_EQ(d.positions.size(), 80000u);
    ASSERT_EQ(d.vertexCounts, std::vector<std::int32_t>(10000, 8));
    const std::vector<float> widths = d.widths->as<float>();
    const std::vector<std::uint64_t> ids = reader.arbGeomParam("strandId")->read(0).as<std::uint64_t>();
    ASSERT_EQ(ids.size(), 10000u);
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(ids[i], static_cast<std::uint64_t>(i + 1) * 11400714819323198485ull) << i;
        for (int k = 0; k < 8; ++k) {
            const Vec3f expected{0.0625f * (i % 100), 0.125f * k, 0.0625f * (i / 100)};
            ASSERT_EQ(d.positions[8 * i + k], expected) << i << " " << k;
            ASSERT_EQ(widths[8 * i + k], (8 - k) / 1024.0f);
        }
    }
    EXPECT_EQ(ids[9999], 6269817706955863120ull);
    EXPECT_EQ(d.selfBounds->values(), (std::array<double, 6>{0, 0, 0, 6.1875, 0.875, 6.1875}));
    EXPECT_EQ(d.type, CurveType::Linear);
}

}  // namespace
}  // namespace tressora::abc
