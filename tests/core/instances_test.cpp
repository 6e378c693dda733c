#include <gtest/gtest.h>

#include <atomic>

#include "core/errors.h"
#include "core/expect_text.h"
#include "core/instances.h"
#include "core/strand_set.h"
#include "strand_builders.h"

namespace tressora {
namespace {

InstancePrototype triangle() {
    InstancePrototype p;
    p.points = {{0, 0, 0}, {1, 0, 0}, {0, 0, 1}};
    p.triangles = {{0, 1, 2}};
    p.uvs = {{0, 0}, {1, 0}, {0, 1}};
    return p;
}

Instance on(std::uint64_t strand, std::uint32_t prototype) {
    Instance i;
    i.strandId = strand;
    i.prototype = prototype;
    i.frame.position = {static_cast<float>(strand), 0, 0};
    return i;
}

TEST(InstancePrototype, StoredPrototypeMustNameOnlyItsOwnPoints) {
    EXPECT_NO_THROW(checkStoredPrototype(triangle()));
    InstancePrototype bad = triangle();
    bad.triangles.push_back({0, 2, 3});
    EXPECT_EQ(testing::failureText<GroomFileError>([&] { checkStoredPrototype(bad); }),
              "groom file: a prototype's triangle names a point it does not have");
    InstancePrototype uvs = triangle();
    uvs.uvs.pop_back();
    EXPECT_THROW(checkStoredPrototype(uvs), GroomFileError);
}

TEST(InstanceSet, AppendMapsPrototypesByNameAndFingerprintSeesEveryField) {
    InstanceSet a;
    a.prototypes = {"leaf", "scale"};
    a.instances = {on(1, 0), on(2, 1)};
    const std::uint64_t reference = a.fingerprint();
    InstanceSet b;
    b.prototypes = {"scale", "thorn"};
    b.instances = {on(3, 0), on(4, 1), on(5, 7)};
    a.append(b);
    EXPECT_EQ(a.prototypes, (std::vector<std::string>{"leaf", "scale", "thorn"}));
    EXPECT_EQ(a.instances[2].prototype, 1u);
    EXPECT_EQ(a.instances[3].prototype, 2u);
    std::string message;
    EXPECT_FALSE(a.validate(&message));  // b's bad index stays bad
    EXPECT_EQ(message, "instance 4 names prototype 10 of 3");

    a.instances.resize(2);
    a.prototypes.resize(2);
    EXPECT_EQ(a.fingerprint(), reference);
    a.instances[1].alongStrand = true;
    EXPECT_NE(a.fingerprint(), reference);
    a.instances[1].alongStrand = false;
    a.instances[0].frame.normal.z = -0.0f;
    EXPECT_NE(a.fingerprint(), reference);
}

TEST(InstancePlacement, FrameIsMadeOrthonormalAndScaled) {
    InstanceFrame frame;
    frame.position = {10, 0, 0};
    frame.tangent = {0, 0, 2};       // along +Z
    frame.normal = {0, 1, 1};        // leans along the tangent: only its +Y part counts
    frame.size = 2;
    EXPECT_EQ(placePoint(frame, {1, 0, 0}), (Vec3f{10, 0, 2}));
    EXPECT_EQ(placePoint(frame, {0, 1, 0}), (Vec3f{10, 2, 0}));
    EXPECT_EQ(placePoint(frame, {0, 0, 1}), (Vec3f{8, 0, 0}));  // tangent x normal
    frame.normal = {0, 0, 5};  // degenerate: still a usable frame
    const Vec3f p = placePoint(frame, {0, 1, 0});
    EXPECT_NEAR(length(p - frame.position), 2.0f, 1e-5f);
}

TEST(ScaleMeshBake, PlacesEveryKnownInstanceAndLeavesUnknownOnesOut) {
    InstanceSet set;
    set.prototypes = {"tri", "missing"};
    set.instances = {on(1, 0), on(2, 1), on(3, 0)};
    set.instances[2].colour = {1, 0, 0};
    set.instances[2].conform = true;
    const auto prototype = std::make_shared<const InstancePrototype>(triangle());
    int asked = 0;
    const PrototypeLookup lookup = [&](std::string_view name) -> std::shared_ptr<const InstancePrototype> {
        ++asked;
        return name == "tri" ? prototype : nullptr;
    };
    std::atomic<int> bent{0};
    const ScaleMesh mesh = bakeScaleMesh(set, lookup, [&](std::size_t instance, std::span<Vec3f> points) {
        EXPECT_EQ(instance, 2u);
        EXPECT_EQ(points.size(), 3u);
        ++bent;
    });
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(bent.load(), 1);
    ASSERT_EQ(mesh.points.size(), 6u);
    ASSERT_EQ(mesh.triangles.size(), 2u);
    EXPECT_EQ(mesh.triangles[1], (IndexTriangle{3, 4, 5}));
    EXPECT_EQ(mesh.points[4], (Vec3f{4, 0, 0}));
    EXPECT_EQ(mesh.uvs[5], (MeshUv{0, 1}));
    EXPECT_EQ(mesh.faceColours[0], (Vec3f{1, 1, 1}));
    EXPECT_EQ(mesh.faceColours[1], (Vec3f{1, 0, 0}));
}

TEST(StrandSetInstances, TravelWithTheirStrands) {
    StrandSet strands = testing::randomSet(100, 50);
    auto instances = std::make_shared<InstanceSet>();
    instances->prototypes = {"tressora:scale"};
    for (std::uint64_t id : strands.ids()) instances->instances.push_back(on(id, 0));
    const std::uint64_t bare = strands.fingerprint();
    strands.setInstances(instances);
    EXPECT_NE(strands.fingerprint(), bare);

    const StrandSet kept = strands.thinned(0.5f);
    ASSERT_NE(kept.instances(), nullptr);
    ASSERT_EQ(kept.instances()->instances.size(), kept.strandCount());
    for (std::size_t i = 0; i < kept.strandCount(); ++i) EXPECT_EQ(kept.instances()->instances[i].strandId, kept.ids()[i]);

    StrandSet both(kept);
    both.append(strands);
    EXPECT_EQ(both.instances()->instances.size(), kept.strandCount() + 100);
    EXPECT_EQ(both.instances()->prototypes.size(), 1u);
    both.clear();
    EXPECT_EQ(both.instances(), nullptr);
}

}  // namespace
}  // namespace tressora
