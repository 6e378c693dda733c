#include <gtest/gtest.h>

#include <cmath>

#include "io/instance_transform.h"
#include "io/usd_writer.h"
#include "io_test_support.h"
#include "usda_layer.h"

namespace tressora {
namespace {

using testing::readUsda;
using testing::smallSet;
using testing::TempFolder;
using testing::usdaNumbers;
using testing::usdaSample;
using testing::usdaSampledNames;
using Json = testing::UsdaJson;

/// The rotation of unit quaternion (w, x, y, z) applied to v.
Vec3f rotate(const std::array<float, 4>& q, Vec3f v) {
    const Vec3f u{q[1], q[2], q[3]};
    const float w = q[0];
    return u * (2.0f * dot(u, v)) + v * (w * w - dot(u, u)) + cross(u, v) * (2.0f * w);
}

TEST(InstanceTransform, DecompositionRecoversRotationAndScaleOnEveryBranch) {
    const float h = std::sqrt(0.5f);
    // Identity (trace branch), half turns about x, y and z (one branch each), and a general one.
    const std::vector<std::array<float, 4>> rotations = {
        {1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}, {0.5f, 0.5f, -0.5f, 0.5f}, {0.1f, h, 0.0f, -0.69282f}};
    for (std::array<float, 4> q : rotations) {
        const float n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
        for (float& c : q) c /= n;
        const Vec3f scale{2.0f, 0.5f, 3.0f};
        const InstanceTransform t = decomposeAxes({1, 2, 3}, rotate(q, {scale.x, 0, 0}), rotate(q, {0, scale.y, 0}),
                                                  rotate(q, {0, 0, scale.z}));
        EXPECT_EQ(t.position, (Vec3f{1, 2, 3}));
        EXPECT_NEAR(t.scale.x, 2.0f, 1e-5f);
        EXPECT_NEAR(t.scale.y, 0.5f, 1e-5f);
        EXPECT_NEAR(t.scale.z, 3.0f, 1e-5f);
        // The same rotation: q and -q both are.
        const float sign = t.orientation[0] * q[0] + t.orientation[1] * q[1] + t.orientation[2] * q[2] +
                                   t.orientation[3] * q[3] < 0 ? -1.0f : 1.0f;
        for (int c = 0; c < 4; ++c) EXPECT_NEAR(t.orientation[c] * sign, q[c], 1e-5f) << c;
    }
    const InstanceTransform flat = decomposeAxes({}, {1, 0, 0}, {0, 0, 0}, {0, 0, 1});
    EXPECT_EQ(flat.scale, (Vec3f{1, 1, 1}));

    InstanceFrame frame;
    frame.position = {1e6f, 0, 0};
    frame.tangent = {0, 0, 5};
    frame.normal = {0, 1, 0};
    frame.size = 0.25f;
    const InstanceTransform placed = placedTransform(frame);
    const Vec3f local{0.3f, -0.2f, 0.7f};
    const Vec3f mapped = placed.position + rotate(placed.orientation, Vec3f{local.x * placed.scale.x,
                                                                            local.y * placed.scale.y,
                                                                            local.z * placed.scale.z});
    const Vec3f expected = placePoint(frame, local);
    EXPECT_NEAR(mapped.x, expected.x, 0.1f);
    EXPECT_NEAR(mapped.y, expected.y, 1e-5f);
    EXPECT_NEAR(mapped.z, expected.z, 1e-5f);
}

Instance instanceOn(std::uint64_t strand, std::uint32_t prototype, float x) {
    Instance i;
    i.strandId = strand;
    i.prototype = prototype;
    i.frame.position = {x, 0, 0};
    return i;
}

std::shared_ptr<const InstancePrototype> leaf() {
    auto p = std::make_shared<InstancePrototype>();
    p->points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    p->triangles = {{0, 1, 2}, {1, 3, 2}};
    p->uvs = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
    return p;
}

PrototypeLookup leafLookup() {
    return [](std::string_view name) -> std::shared_ptr<const InstancePrototype> {
        return name == "leaf" || name == "bud" || name == "twig" ? leaf() : nullptr;
    };
}

const Json& attribute(const Json& prim, const std::string& name) { return prim.at("attributes").at(name); }

class UsdInstances : public testing::UsdaTest {};

TEST_F(UsdInstances, InstancerKeepsRigidInstancesWhosePrototypeNameHolds) {
    TempFolder folder;
    const std::string path = folder.file("instances.usda");
    {
        UsdWriterOptions options;
        options.prototypes = leafLookup();
        UsdWriter writer(path, "groom", options);
        for (int f = 0; f < 2; ++f) {
            StrandSet set = smallSet();
            auto instances = std::make_shared<InstanceSet>();
            // Frame 2 renames prototype 1 at its index: its instances drop out.
            instances->prototypes = {"leaf", f == 0 ? "my flower" : "weed", "bud"};
            instances->instances = {instanceOn(10, 0, 1), instanceOn(10, 1, 2), instanceOn(10, 2, 3),
                                    instanceOn(11, 0, 4)};
            Instance bent = instanceOn(12, 0, 5);
            bent.alongStrand = true;
            instances->instances.push_back(bent);
            instances->hidesStrands = true;
            set.setInstances(instances);
            writer.writeFrame(f + 1, set);
        }
    }
    const Json layer = readUsda(path);
    const Json& prims = layer.at("prims");
    EXPECT_EQ(attribute(prims.at("/groom/strands"), "visibility").at("value"), "invisible");
    const Json& instancer = prims.at("/groom/instances");
    EXPECT_EQ(instancer.at("type"), "PointInstancer");
    EXPECT_EQ(usdaSampledNames(instancer),
              (std::vector<std::string>{"protoIndices", "positions", "orientations", "scales", "ids"}));
    EXPECT_EQ(attribute(instancer, "orientations").at("type"), "quath[]");
    const Json& targets = attribute(instancer, "prototypes").at("value");
    ASSERT_EQ(targets.size(), 3u);
    EXPECT_EQ(targets[1], "/groom/instances/prototypes/my_flower");

    EXPECT_EQ(usdaSample(instancer, "protoIndices", 0), (std::vector<double>{0, 1, 2, 0}));
    EXPECT_EQ(usdaSample(instancer, "protoIndices", 1), (std::vector<double>{0, 2, 0}));
    EXPECT_EQ(usdaSample(instancer, "positions", 1), (std::vector<double>{1, 0, 0, 3, 0, 0, 4, 0, 0}));
    EXPECT_EQ(usdaSample(instancer, "orientations", 1), (std::vector<double>{1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}));
    // Ids stay distinct for several instances on one strand, and equal from frame to frame.
    const std::vector<double> ids0 = usdaSample(instancer, "ids", 0), ids1 = usdaSample(instancer, "ids", 1);
    EXPECT_EQ(ids0[0], 10);
    EXPECT_NE(ids0[1], ids0[2]);
    EXPECT_EQ(ids1[1], ids0[2]);
    EXPECT_EQ(ids0[3], 11);

    EXPECT_EQ(prims.at("/groom/instances/prototypes").at("type"), "Scope");
    const Json& mesh = prims.at("/groom/instances/prototypes/leaf");
    EXPECT_EQ(mesh.at("type"), "Mesh");
    EXPECT_EQ(mesh.at("metadata").at("doc"), "Tressora prototype 'leaf'");
    EXPECT_EQ(usdaNumbers(attribute(mesh, "faceVertexIndices").at("value")), (std::vector<double>{0, 1, 2, 1, 3, 2}));
    EXPECT_EQ(usdaNumbers(attribute(mesh, "extent").at("value")), (std::vector<double>{0, 0, 0, 1, 1, 0}));
    EXPECT_EQ(attribute(mesh, "primvars:st").at("metadata").at("interpolation"), "vertex");
    const Json& placeholder = prims.at("/groom/instances/prototypes/my_flower");
    EXPECT_EQ(placeholder.at("type"), "Xform");
    EXPECT_EQ(placeholder.at("metadata").at("doc"), "Tressora prototype 'my flower': reference its geometry here");
    EXPECT_FALSE(prims.contains("/groom/scales"));
}

TEST_F(UsdInstances, NoRigidInstanceMeansNoInstancer) {
    TempFolder folder;
    const std::string path = folder.file("bent.usda");
    {
        UsdWriter writer(path, "groom", {});
        StrandSet set = smallSet();
        auto instances = std::make_shared<InstanceSet>();
        instances->prototypes = {"leaf"};
        Instance conform = instanceOn(10, 0, 0);
        conform.conform = true;
        instances->instances = {conform};
        set.setInstances(instances);
        writer.writeFrame(1, set);
    }
    const Json layer = readUsda(path);
    EXPECT_FALSE(layer.at("prims").contains("/groom/instances"));
    EXPECT_FALSE(layer.at("prims").at("/groom/strands").at("attributes").contains("visibility"));
}

/// A set whose instances bake into a scale mesh; one triangle is left to no record.
std::pair<StrandSet, ScaleMesh> scaledFrame(const std::vector<std::string>& names) {
    StrandSet set = smallSet();
    auto instances = std::make_shared<InstanceSet>();
    instances->prototypes = names;
    Instance a = instanceOn(10, 0, 0), b = instanceOn(11, 1, 2);
    a.conform = b.conform = true;
    a.colour = {1, 0, 0};
    b.colour = {0, 0, 1};
    a.random = 0.25f;
    b.random = 0.75f;
    instances->instances = {a, b};
    set.setInstances(instances);
    ScaleMesh mesh = bakeScaleMesh(*instances, leafLookup());
    mesh.records[1].scaleUv = {0.5f, 0.125f};
    mesh.records[1].triangleCount = 1;  // its second triangle falls to record 0
    return {set, mesh};
}

TEST_F(UsdInstances, ScaleMeshAndScaleInstancerCarryTheRecords) {
    TempFolder folder;
    const std::string path = folder.file("scales.usda");
    {
        UsdWriterOptions options;
        options.scales = ScaleOutput::both;
        options.prototypes = leafLookup();
        UsdWriter writer(path, "groom", options);
        auto [set, mesh] = scaledFrame({"leaf", "bud"});
        writer.writeFrame(1, set, nullptr, &mesh);
        auto [renamed, mesh2] = scaledFrame({"leaf", "twig"});
        writer.writeFrame(2, renamed, nullptr, &mesh2);
        writer.writeFrame(3, smallSet(), nullptr, nullptr);
    }
    const Json layer = readUsda(path);
    const Json& prims = layer.at("prims");
    EXPECT_FALSE(prims.contains("/groom/instances"));
    const Json& scales = prims.at("/groom/scales");
    EXPECT_EQ(scales.at("type"), "Mesh");
    EXPECT_EQ(attribute(scales, "subdivisionScheme").at("value"), "none");
    EXPECT_EQ(usdaSampledNames(scales),
              (std::vector<std::string>{"faceVertexCounts", "faceVertexIndices", "points", "extent", "normals",
                                        "primvars:st", "primvars:displayColor", "primvars:scaleColor",
                                        "primvars:scaleRootColor", "primvars:scaleId", "primvars:scaleUV",
                                        "primvars:scaleVariant"}));
    EXPECT_EQ(usdaSample(scales, "faceVertexCounts", 0), (std::vector<double>{3, 3, 3, 3}));
    EXPECT_EQ(usdaSample(scales, "faceVertexIndices", 0), (std::vector<double>{0, 1, 2, 1, 3, 2, 4, 5, 6, 5, 7, 6}));
    EXPECT_EQ(usdaSample(scales, "extent", 0), (std::vector<double>{0, 0, 0, 3, 1, 0}));
    EXPECT_EQ(usdaSample(scales, "normals", 0).size(), 8u * 3u);
    EXPECT_EQ(usdaSample(scales, "normals", 0)[2], 1.0);
    EXPECT_EQ(usdaSample(scales, "primvars:scaleColor", 0), usdaSample(scales, "primvars:displayColor", 0));
    EXPECT_EQ(usdaSample(scales, "primvars:scaleId", 0), (std::vector<double>{0.25, 0.25, 0.75, 0.25}));
    EXPECT_EQ(usdaSample(scales, "primvars:scaleRootColor", 0),
              (std::vector<double>{1, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0}));
    EXPECT_EQ(usdaSample(scales, "primvars:scaleUV", 0), (std::vector<double>{0, 0, 0, 0, 0.5, 0.125, 0, 0}));
    EXPECT_EQ(usdaSample(scales, "primvars:scaleVariant", 0), (std::vector<double>{0, 0, 1, 0}));
    EXPECT_EQ(attribute(scales, "primvars:scaleId").at("metadata").at("interpolation"), "uniform");
    // A frame without a scale mesh still has every attribute, empty.
    EXPECT_TRUE(usdaSample(scales, "points", 2).empty());
    EXPECT_TRUE(usdaSample(scales, "extent", 2).empty());

    const Json& instancer = prims.at("/groom/scaleInstances");
    EXPECT_EQ(attribute(instancer, "prototypes").at("value").at(1), "/groom/scaleInstances/prototypes/bud");
    EXPECT_EQ(prims.at("/groom/scaleInstances/prototypes/bud").at("type"), "Mesh");
    EXPECT_EQ(usdaSample(instancer, "protoIndices", 0), (std::vector<double>{0, 1}));
    EXPECT_EQ(usdaSample(instancer, "protoIndices", 1), (std::vector<double>{0}));  // "bud" became "twig"
    EXPECT_EQ(usdaSample(instancer, "ids", 0), (std::vector<double>{10, 11}));
    EXPECT_EQ(usdaSample(instancer, "primvars:scaleId", 0), (std::vector<double>{0.25, 0.75}));
    EXPECT_EQ(attribute(instancer, "primvars:scaleUV").at("metadata").at("interpolation"), "vertex");
    EXPECT_TRUE(usdaSample(instancer, "positions", 2).empty());
}

TEST_F(UsdInstances, ScaleChoiceFollowsTheOptionAndTheFirstFrame) {
    for (ScaleOutput mode : {ScaleOutput::mesh, ScaleOutput::instancer, ScaleOutput::none}) {
        TempFolder folder;
        const std::string path = folder.file("choice.usda");
        {
            UsdWriterOptions options;
            options.scales = mode;
            UsdWriter writer(path, "groom", options);
            auto [set, mesh] = scaledFrame({"leaf", "bud"});
            writer.writeFrame(1, set, nullptr, &mesh);
        }
        const Json prims = readUsda(path).at("prims");
        EXPECT_EQ(prims.contains("/groom/scales"), mode == ScaleOutput::mesh);
        EXPECT_EQ(prims.contains("/groom/scaleInstances"), mode == ScaleOutput::instancer);
    }
    // Scales first seen on a later frame are not written.
    TempFolder folder;
    const std::string path = folder.file("late.usda");
    {
        UsdWriter writer(path, "groom", {});
        writer.writeFrame(1, smallSet());
        auto [set, mesh] = scaledFrame({"leaf", "bud"});
        writer.writeFrame(2, set, nullptr, &mesh);
    }
    EXPECT_FALSE(readUsda(path).at("prims").contains("/groom/scales"));
}

}  // namespace
}  // namespace tressora
