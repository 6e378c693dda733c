// Writes the example groom examples/nika.groom from the sample head meshes/nika.obj:
//
//   make_example_groom <nika.obj> <output .groom>
//
// The scalp is the part of the head that grows hair (the top, back and sides of the skull
// above the ears, with a hairline in front of the crown), cut out of the head mesh with its
// UVs. Guides stand on it at evenly spread places (a Fibonacci lattice over the skull), each
// of 9 points: out from the surface at the root, then back and down under a gentle droop,
// like combed hair about 9 to 11 units long, kept off the head. The graph is the default
// one. Nothing is drawn at random but from the guide's number, so the file comes out the
// same byte for byte every time.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/mesh_file.h"
#include "core/guide_hierarchy.h"
#include "core/hash.h"
#include "core/scalp_mesh.h"
#include "graph/graph_json.h"
#include "groom/groom_file.h"

namespace {

using namespace tressora;

// The skull of the sample head: the centre and radii of the ellipsoid it is modelled on.
const Vec3f kSkullCentre{0.0f, 17.0f, -1.6f};
const Vec3f kSkullRadii{7.7f, 8.4f, 9.0f};

constexpr int kLatticePoints = 96;
constexpr int kGuidePoints = 9;
constexpr float kClearance = 0.25f;  // how far guides stay off the head

// A point's direction from the skull centre, on the unit sphere of the skull's ellipsoid.
Vec3f skullDirection(Vec3f p) {
    const Vec3f q = p - kSkullCentre;
    return normalized({q.x / kSkullRadii.x, q.y / kSkullRadii.y, q.z / kSkullRadii.z});
}

// Whether hair grows at a place of the head: above a line that runs over the ears at the
// sides, down to the nape at the back and up to a hairline at the front. `margin` widens
// the region (the scalp mesh reaches a little beyond where guides stand).
bool growsHair(Vec3f p, float margin) {
    const Vec3f u = skullDirection(p);
    const float line = u.z > 0.0f ? 0.75f * u.z : 0.35f * u.z;
    return u.y > line - margin;
}

// The triangles of the head in the hair region, with their points renumbered and their
// UVs kept.
cli::MeshFileData cutScalp(const cli::MeshFileData& head) {
    cli::MeshFileData scalp;
    std::unordered_map<std::int32_t, std::int32_t> renumbered;
    for (std::size_t t = 0; t < head.triangles.size(); ++t) {
        const MeshTriangle& tri = head.triangles[t];
        if (!std::all_of(tri.begin(), tri.end(), [&](std::int32_t i) { return growsHair(head.points[i], 0.08f); }))
            continue;
        MeshTriangle out{};
        for (int k = 0; k < 3; ++k) {
            const auto [it, added] = renumbered.try_emplace(tri[k], static_cast<std::int32_t>(scalp.points.size()));
            if (added) scalp.points.push_back(head.points[tri[k]]);
            out[k] = it->second;
            if (!head.uvs.empty()) scalp.uvs.push_back(head.uvs[3 * t + k]);
        }
        scalp.triangles.push_back(out);
        scalp.polygons.push_back(1);
    }
    return scalp;
}

// Where a ray from the skull centre along `direction` leaves the head, or nothing.
bool surfaceAlong(const ScalpMesh& head, Vec3f direction, SurfacePoint& point) {
    RayHit hit;
    const Vec3f far = direction * 40.0f;
    // Cast inward from outside, so the first hit is the outer surface.
    if (!head.intersect(kSkullCentre + far, -far, hit, 0.0f, 1.0f)) return false;
    point = hit.point;
    return true;
}

// Keeps a point at least kClearance outside the head.
Vec3f keepOutside(const ScalpMesh& head, Vec3f p) {
    const SurfacePoint near = head.closestPoint(p);
    if (near.face < 0) return p;
    const float above = dot(p - near.position, near.normal);
    return above < kClearance ? p + near.normal * (kClearance - above) : p;
}

// A guide's curve: out along the normal at the root, turning back and down segment by
// segment, each point kept off the head. Roots toward the front comb back harder, so no
// hair falls over the face; each step slides along the head where it meets it, keeping
// its length.
std::vector<Vec3f> combedCurve(const ScalpMesh& head, const SurfacePoint& root, float length, float sway) {
    const Vec3f n = root.normal;
    // Down and back, leaning a little outward at the sides so side hair falls past the ears.
    const Vec3f fall = normalized(Vec3f{0.25f * n.x + sway, -1.0f, -0.55f - 1.2f * std::max(0.0f, n.z)});
    const float step = length / float(kGuidePoints - 1);
    std::vector<Vec3f> points{root.position};
    Vec3f p = root.position;
    for (int k = 1; k < kGuidePoints; ++k) {
        const float droop = std::min(1.0f, 0.5f + 0.12f * float(k));
        Vec3f direction = normalized(n * (1.0f - droop) + fall * droop);
        for (int slide = 0; slide < 3; ++slide) direction = normalized(keepOutside(head, p + direction * step) - p);
        p = keepOutside(head, p + direction * step);
        points.push_back(p);
    }
    return points;
}

GuideHierarchy placeGuides(const ScalpMesh& head, const ScalpMesh& scalp) {
    GuideHierarchy hierarchy;
    const std::uint32_t group = hierarchy.addGroup("main");
    const float golden = 2.39996323f;  // the golden angle, radians
    std::uint64_t id = 0;
    for (int i = 0; i < kLatticePoints; ++i) {
        // Fibonacci lattice: even spacing over the sphere, from the top down.
        const float y = 1.0f - (float(i) + 0.5f) * 2.0f / float(kLatticePoints);
        const float ring = std::sqrt(std::max(0.0f, 1.0f - y * y));
        const float angle = golden * float(i);
        const Vec3f u{ring * std::sin(angle), y, ring * std::cos(angle)};
        const Vec3f direction{u.x * kSkullRadii.x, u.y * kSkullRadii.y, u.z * kSkullRadii.z};
        SurfacePoint onHead;
        if (!surfaceAlong(head, normalized(direction), onHead) || !growsHair(onHead.position, -0.06f)) continue;
        const SurfacePoint onScalp = scalp.closestPoint(onHead.position);
        if (onScalp.face < 0) continue;
        ++id;
        const float length = 9.0f + 2.0f * unit(combine(id, 0x1E9A));
        const float sway = 0.15f * (2.0f * unit(combine(id, 0x5A7E)) - 1.0f);
        Guide guide;
        guide.root = {onScalp.face, onScalp.b1, onScalp.b2};
        guide.points = combedCurve(head, onScalp, length, sway);
        guide.frameUp = normalized(cross(onScalp.normal, Vec3f{1.0f, 0.0f, 0.0f}));
        hierarchy.addGuide(group, id, std::move(guide));
    }
    hierarchy.setScalpTopology(scalp.topologyHash());
    hierarchy.computeRootLocal(scalp);
    return hierarchy;
}

/// The default graph with the look of the example: locks gathered by a Clump after Length,
/// and a loose wave wound by a Curl after Resample (which adds the points the wave needs).
nlohmann::json exampleGraph() {
    nlohmann::json graph = nlohmann::json::parse(defaultGraphText());
    nlohmann::json& nodes = graph["nodes"];
    nodes.push_back({{"name", "clump"},
                     {"type", "Clump"},
                     {"params", {{"count", 140}, {"strength", 0.6}, {"lockRadius", 0.3}, {"flatness", 0.2}}}});
    nodes.push_back({{"name", "curl"},
                     {"type", "Curl"},
                     {"params", {{"shape", "wave"}, {"radius", 0.35}, {"frequency", 0.18}, {"coherence", "clump"}}}});
    // A finer noise, so that the locks show through it.
    for (nlohmann::json& node : nodes)
        if (node["name"] == "noise") node["params"] = {{"amplitude", 0.08}};
    // length -> clump -> noise, and resample -> curl -> output.
    for (nlohmann::json& c : graph["connections"]) {
        if (c["from"] == "length" && c["to"] == "noise") c["to"] = "clump";
        if (c["from"] == "resample" && c["to"] == "output") c["to"] = "curl";
    }
    graph["connections"].push_back({{"from", "clump"}, {"to", "noise"}, {"input", "strands"}});
    graph["connections"].push_back({{"from", "curl"}, {"to", "output"}, {"input", "strands"}});
    return graph;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_example_groom <nika.obj> <output .groom>\n");
        return 2;
    }
    try {
        const cli::MeshFileData headData = cli::readObjFile(argv[1]);
        const ScalpMesh head = cli::scalpMeshFromFile(headData, "nika");
        auto scalp = std::make_shared<ScalpMesh>(cli::scalpMeshFromFile(cutScalp(headData), "nika_scalp"));

        GroomScene scene;
        scene.units = "cm";
        scene.upAxis = "Y";
        scene.source = "meshes/nika.obj";
        scene.graph = exampleGraph();
        scene.hierarchy = std::make_shared<const GuideHierarchy>(placeGuides(head, *scalp));
        scene.scalp.mesh = std::move(scalp);
        writeGroom(argv[2], scene);
        std::printf("%s: %zu guides on a scalp of %zu triangles\n", argv[2], scene.hierarchy->guides().size(),
                    scene.scalp.mesh->triangleCount());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "error: %s\n", e.what());
        return 1;
    }
    return 0;
}
