// Writes the sample meshes in meshes/: closed triangle meshes with UVs, as OBJ files.
//
//   make_sample_meshes <output folder>
//
// Each mesh is the zero level of a signed distance field built from rounded primitives
// joined with smooth unions, turned into triangles by surface nets on a regular grid. The
// program uses no randomness and formats every number with a fixed number of decimals, so
// running it again gives the same files byte for byte.
//
//   nika   a human head on its neck, about 25 units tall, Y up, facing +Z
//   manny  a broader human head on its neck, about 34 units tall, Y up, facing +Z
//   wolf   a four-legged body with head, ears and tail, Y up, facing +Z
//   buddy  a cartoon character's body, about 57 units tall, Y up, facing +Z

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

struct V3 {
    double x = 0, y = 0, z = 0;
};
V3 operator+(V3 a, V3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
V3 operator-(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
V3 operator*(V3 a, double s) { return {a.x * s, a.y * s, a.z * s}; }
double dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
V3 cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double length(V3 a) { return std::sqrt(dot(a, a)); }

using Field = std::function<double(V3)>;

// Distance bounds of rounded primitives (exact for spheres and capsules, close for ellipsoids).
double sphere(V3 p, V3 c, double r) { return length(p - c) - r; }
double ellipsoid(V3 p, V3 c, V3 r) {
    const V3 q = p - c;
    const V3 a{q.x / r.x, q.y / r.y, q.z / r.z};
    const V3 b{q.x / (r.x * r.x), q.y / (r.y * r.y), q.z / (r.z * r.z)};
    const double k0 = length(a), k1 = length(b);
    return k1 > 0 ? k0 * (k0 - 1.0) / k1 : -std::min({r.x, r.y, r.z});
}
double capsule(V3 p, V3 a, V3 b, double r) {
    const V3 pa = p - a, ba = b - a;
    const double h = std::clamp(dot(pa, ba) / dot(ba, ba), 0.0, 1.0);
    return length(pa - ba * h) - r;
}
// Smooth union: joins two shapes with a fillet of size k.
double smin(double a, double b, double k) {
    const double h = std::clamp(0.5 + 0.5 * (b - a) / k, 0.0, 1.0);
    return b + (a - b) * h - k * h * (1.0 - h);
}
// Smooth subtraction of b from a.
double ssub(double a, double b, double k) { return -smin(-a, b, k); }

V3 mirrorX(V3 p) { return {std::fabs(p.x), p.y, p.z}; }

// A human head and neck; `s` scales it, `jaw` widens the lower face.
double head(V3 p, double s, double jaw) {
    p = p * (1.0 / s);
    const V3 m = mirrorX(p);
    double d = ellipsoid(p, {0, 17.0, -1.6}, {7.7, 8.4, 9.0});                               // skull
    d = smin(d, ellipsoid(p, {0, 12.6, 2.4}, {5.8 * jaw, 6.6, 6.2}), 2.5);                    // face
    d = smin(d, ellipsoid(p, {0, 8.9, 5.0}, {3.0 * jaw, 2.4, 2.6}), 2.0);                     // chin
    d = smin(d, ellipsoid(p, {0, 13.6, 9.0}, {1.1, 2.0, 1.7}), 0.8);                          // nose
    d = smin(d, ellipsoid(m, {3.0, 16.4, 7.2}, {2.5, 0.9, 1.2}), 0.8);                        // brow ridge
    d = ssub(d, sphere(m, {2.8, 15.0, 8.5}, 1.25), 0.6);                                      // eye sockets
    d = smin(d, ellipsoid(m, {7.5, 14.2, -1.2}, {1.3, 2.7, 1.9}), 0.7);                       // ears
    d = smin(d, capsule(p, {0, 2.6, -1.4}, {0, 9.5, -1.4}, 3.3), 1.8);                        // neck
    d = std::max(d, -p.y);                                                                    // flat cut under the neck
    return d * s;
}

double nika(V3 p) { return head(p, 1.0, 1.0); }
double manny(V3 p) { return head(p, 34.0 / 25.4, 1.12); }

// A wolf standing on its four legs, nose along +Z.
double wolf(V3 p) {
    const V3 m = mirrorX(p);
    double d = ellipsoid(p, {0, 24, 0}, {8.5, 9.0, 22.0});                                    // body
    d = smin(d, ellipsoid(p, {0, 26.5, 14}, {9.5, 10.0, 10.0}), 4.0);                         // chest
    d = smin(d, capsule(p, {0, 29, 18}, {0, 35, 26}, 5.2), 3.0);                              // neck
    d = smin(d, ellipsoid(p, {0, 37, 29}, {6.2, 6.0, 7.0}), 2.0);                             // skull
    d = smin(d, capsule(p, {0, 35, 32}, {0, 33.5, 40}, 2.6), 2.0);                            // snout
    d = smin(d, ellipsoid(m, {3.4, 43.5, 27.5}, {1.6, 4.0, 1.0}), 1.2);                       // ears
    d = smin(d, capsule(m, {5.2, 20, 14}, {5.5, 2.0, 15}, 2.4), 2.5);                         // fore legs
    d = smin(d, capsule(m, {5.4, 21, -13}, {5.8, 11, -17}, 3.2), 3.0);                        // hind thighs
    d = smin(d, capsule(m, {5.8, 11, -17}, {5.8, 2.0, -14}, 2.2), 1.5);                       // hind shanks
    d = smin(d, ellipsoid(m, {5.6, 1.4, 16.5}, {2.3, 1.4, 3.0}), 1.0);                        // fore paws
    d = smin(d, ellipsoid(m, {5.8, 1.4, -12.5}, {2.3, 1.4, 3.0}), 1.0);                       // hind paws
    d = smin(d, capsule(p, {0, 26, -21}, {0, 16, -34}, 2.6), 2.5);                            // tail
    return std::max(d, -p.y);
}

// A cartoon character: a big head on a small body, arms out, standing.
double buddy(V3 p) {
    const V3 m = mirrorX(p);
    double d = sphere(p, {0, 44, 0}, 12.5);                                                   // head
    d = smin(d, ellipsoid(p, {0, 41.5, 10.5}, {2.4, 2.0, 2.6}), 1.5);                         // nose
    d = smin(d, ellipsoid(m, {12.0, 45, 0}, {1.8, 3.2, 2.2}), 1.5);                           // ears
    d = smin(d, ellipsoid(p, {0, 23, 0}, {8.5, 10.5, 6.5}), 3.5);                             // torso
    d = smin(d, capsule(m, {7.5, 28, 0}, {16, 20, 2}, 2.3), 2.0);                             // arms
    d = smin(d, sphere(m, {16.8, 19.2, 2.3}, 2.9), 1.0);                                      // hands
    d = smin(d, capsule(m, {4.0, 14, 0}, {4.4, 3.5, 0.5}, 2.9), 2.0);                         // legs
    d = smin(d, ellipsoid(m, {4.5, 1.6, 2.4}, {3.0, 1.6, 4.4}), 1.2);                         // feet
    return std::max(d, -p.y);
}

struct Mesh {
    std::vector<V3> points;
    std::vector<std::array<int, 3>> triangles;
};

// Surface nets: one point per grid cell that the surface crosses, placed at the mean of the
// crossings on the cell's edges, and two triangles for every grid edge the surface crosses.
Mesh surfaceNets(const Field& f, V3 lo, V3 hi, double step) {
    const int nx = static_cast<int>(std::ceil((hi.x - lo.x) / step)) + 1;
    const int ny = static_cast<int>(std::ceil((hi.y - lo.y) / step)) + 1;
    const int nz = static_cast<int>(std::ceil((hi.z - lo.z) / step)) + 1;
    const auto at = [&](int i, int j, int k) { return V3{lo.x + i * step, lo.y + j * step, lo.z + k * step}; };
    std::vector<double> value(static_cast<std::size_t>(nx) * ny * nz);
    const auto index = [&](int i, int j, int k) { return (static_cast<std::size_t>(k) * ny + j) * nx + i; };
    for (int k = 0; k < nz; ++k)
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i) value[index(i, j, k)] = f(at(i, j, k));

    Mesh mesh;
    std::unordered_map<std::size_t, int> cellPoint;
    static const int corner[8][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0},
                                     {0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {1, 1, 1}};
    static const int edge[12][2] = {{0, 1}, {2, 3}, {4, 5}, {6, 7}, {0, 2}, {1, 3},
                                    {4, 6}, {5, 7}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
    for (int k = 0; k + 1 < nz; ++k)
        for (int j = 0; j + 1 < ny; ++j)
            for (int i = 0; i + 1 < nx; ++i) {
                double v[8];
                int inside = 0;
                for (int c = 0; c < 8; ++c) {
                    v[c] = value[index(i + corner[c][0], j + corner[c][1], k + corner[c][2])];
                    inside += v[c] < 0 ? 1 : 0;
                }
                if (inside == 0 || inside == 8) continue;
                V3 sum;
                int crossings = 0;
                for (const auto& e : edge) {
                    const double a = v[e[0]], b = v[e[1]];
                    if ((a < 0) == (b < 0)) continue;
                    const double t = a / (a - b);
                    const V3 pa = at(i + corner[e[0]][0], j + corner[e[0]][1], k + corner[e[0]][2]);
                    const V3 pb = at(i + corner[e[1]][0], j + corner[e[1]][1], k + corner[e[1]][2]);
                    sum = sum + pa + (pb - pa) * t;
                    ++crossings;
                }
                cellPoint[index(i, j, k)] = static_cast<int>(mesh.points.size());
                mesh.points.push_back(sum * (1.0 / crossings));
            }

    // For an edge along axis `a` from grid point (i, j, k), the four cells around it.
    const auto quad = [&](int i, int j, int k, int a) {
        const double v0 = value[index(i, j, k)];
        const int di = a == 0, dj = a == 1, dk = a == 2;
        const double v1 = value[index(i + di, j + dj, k + dk)];
        if ((v0 < 0) == (v1 < 0)) return;
        // The two axes across the edge, and the cells' offsets in them.
        const int b = (a + 1) % 3, c = (a + 2) % 3;
        int cells[4];
        const int offsets[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
        for (int q = 0; q < 4; ++q) {
            int p[3] = {i, j, k};
            p[b] -= offsets[q][0];
            p[c] -= offsets[q][1];
            const auto it = cellPoint.find(index(p[0], p[1], p[2]));
            if (it == cellPoint.end()) return;
            cells[q] = it->second;
        }
        // Outward is from the inside grid point toward the outside one.
        V3 outward{double(di), double(dj), double(dk)};
        if (v1 < 0) outward = outward * -1.0;
        const auto addTriangle = [&](int x, int y, int z) {
            const V3 n = cross(mesh.points[y] - mesh.points[x], mesh.points[z] - mesh.points[x]);
            if (dot(n, outward) >= 0) mesh.triangles.push_back({x, y, z});
            else mesh.triangles.push_back({x, z, y});
        };
        const double d02 = length(mesh.points[cells[0]] - mesh.points[cells[2]]);
        const double d13 = length(mesh.points[cells[1]] - mesh.points[cells[3]]);
        if (d02 <= d13) {
            addTriangle(cells[0], cells[1], cells[2]);
            addTriangle(cells[0], cells[2], cells[3]);
        } else {
            addTriangle(cells[0], cells[1], cells[3]);
            addTriangle(cells[1], cells[2], cells[3]);
        }
    };
    for (int k = 1; k + 1 < nz; ++k)
        for (int j = 1; j + 1 < ny; ++j)
            for (int i = 1; i + 1 < nx; ++i)
                for (int a = 0; a < 3; ++a) {
                    const int ni = i + (a == 0), nj = j + (a == 1), nk = k + (a == 2);
                    if (ni < nx && nj < ny && nk < nz) quad(i, j, k, a);
                }
    return mesh;
}

// Whether every directed edge appears exactly once and its reverse once: a closed surface
// with consistent winding.
bool closed(const Mesh& mesh) {
    std::unordered_map<std::uint64_t, int> edges;
    const auto key = [](int a, int b) { return (static_cast<std::uint64_t>(a) << 32) | static_cast<std::uint32_t>(b); };
    for (const auto& t : mesh.triangles)
        for (int e = 0; e < 3; ++e) ++edges[key(t[e], t[(e + 1) % 3])];
    for (const auto& [edge, count] : edges) {
        const int a = static_cast<int>(edge >> 32), b = static_cast<int>(edge & 0xffffffffu);
        const auto reverse = edges.find(key(b, a));
        if (count != 1 || reverse == edges.end() || reverse->second != 1) return false;
    }
    return true;
}

// Evens out the point spacing a little without shrinking the shape (Taubin's two steps).
void relax(Mesh& mesh, int passes) {
    std::vector<std::vector<int>> neighbours(mesh.points.size());
    for (const auto& t : mesh.triangles)
        for (int e = 0; e < 3; ++e) {
            neighbours[t[e]].push_back(t[(e + 1) % 3]);
            neighbours[t[e]].push_back(t[(e + 2) % 3]);
        }
    for (auto& n : neighbours) {
        std::sort(n.begin(), n.end());
        n.erase(std::unique(n.begin(), n.end()), n.end());
    }
    for (int pass = 0; pass < passes * 2; ++pass) {
        const double factor = pass % 2 == 0 ? 0.5 : -0.53;
        std::vector<V3> moved = mesh.points;
        for (std::size_t i = 0; i < mesh.points.size(); ++i) {
            if (neighbours[i].empty()) continue;
            V3 mean;
            for (int n : neighbours[i]) mean = mean + mesh.points[n];
            mean = mean * (1.0 / neighbours[i].size());
            moved[i] = mesh.points[i] + (mean - mesh.points[i]) * factor;
        }
        mesh.points = std::move(moved);
    }
}

// UVs per triangle corner: a cylindrical projection around the vertical axis through
// `centre`, with u wrapped so that no triangle straddles the seam behind the model.
std::array<double, 2> projectUv(V3 p, V3 centre, double bottom, double height) {
    const double angle = std::atan2(p.x - centre.x, p.z - centre.z);  // 0 facing +Z
    return {0.5 + angle / (2.0 * M_PI), std::clamp((p.y - bottom) / height, 0.0, 1.0)};
}

bool writeObj(const std::string& path, const std::string& name, const Mesh& mesh, V3 centre) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (!out) return false;
    double bottom = 1e300, top = -1e300;
    for (const V3& p : mesh.points) {
        bottom = std::min(bottom, p.y);
        top = std::max(top, p.y);
    }
    std::fprintf(out, "# %s: a Tressora sample mesh, made by tools/make_sample_meshes\n", name.c_str());
    std::fprintf(out, "# %zu points, %zu triangles, Y up, facing +Z\n", mesh.points.size(), mesh.triangles.size());
    std::fprintf(out, "o %s\n", name.c_str());
    for (const V3& p : mesh.points) std::fprintf(out, "v %.4f %.4f %.4f\n", p.x, p.y, p.z);
    // Corners share a texture coordinate wherever their text is the same: only the seam
    // splits them.
    std::unordered_map<std::string, std::size_t> uvIndex;
    std::vector<std::array<std::size_t, 3>> cornerUv;
    char text[64];
    for (const auto& t : mesh.triangles) {
        std::array<std::array<double, 2>, 3> uv;
        for (int c = 0; c < 3; ++c) uv[c] = projectUv(mesh.points[t[c]], centre, bottom, top - bottom);
        // A triangle across the seam gets its small u values moved past 1.
        const double umax = std::max({uv[0][0], uv[1][0], uv[2][0]});
        for (auto& corner : uv)
            if (umax - corner[0] > 0.5) corner[0] += 1.0;
        std::array<std::size_t, 3> ids;
        for (int c = 0; c < 3; ++c) {
            std::snprintf(text, sizeof text, "%.5f %.5f", uv[c][0], uv[c][1]);
            const auto [it, added] = uvIndex.emplace(text, uvIndex.size() + 1);
            if (added) std::fprintf(out, "vt %s\n", text);
            ids[c] = it->second;
        }
        cornerUv.push_back(ids);
    }
    for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
        const auto& t = mesh.triangles[i];
        std::fprintf(out, "f %d/%zu %d/%zu %d/%zu\n", t[0] + 1, cornerUv[i][0], t[1] + 1, cornerUv[i][1], t[2] + 1,
                     cornerUv[i][2]);
    }
    return std::fclose(out) == 0;
}

struct Sample {
    const char* name;
    Field field;
    V3 lo, hi;
    double step;
    V3 centre;  // where the UV projection turns around
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_sample_meshes <output folder>\n");
        return 2;
    }
    const std::string folder = argv[1];
    const Sample samples[] = {
        {"nika", nika, {-11, -1, -12}, {11, 27, 12}, 0.32, {0, 0, -0.5}},
        {"manny", manny, {-15, -1, -16}, {15, 36, 16}, 0.42, {0, 0, -0.5}},
        {"wolf", wolf, {-14, -1, -38}, {14, 49, 44}, 0.55, {0, 0, 0}},
        {"buddy", buddy, {-22, -1, -14}, {22, 58, 14}, 0.55, {0, 0, 0}},
    };
    for (const Sample& s : samples) {
        // Where two sheets of the surface meet inside one grid cell, surface nets joins them
        // through a shared edge; moving the grid by a fraction of a cell separates them.
        Mesh mesh;
        for (int attempt = 0; attempt < 16; ++attempt) {
            const double shift = s.step * 0.173 * attempt;
            mesh = surfaceNets(s.field, s.lo - V3{shift, shift, shift}, s.hi, s.step);
            if (closed(mesh)) break;
        }
        if (!closed(mesh)) {
            std::fprintf(stderr, "%s: no grid placement gave a closed surface\n", s.name);
            return 1;
        }
        relax(mesh, 3);
        const std::string path = folder + "/" + s.name + ".obj";
        if (!writeObj(path, s.name, mesh, s.centre)) {
            std::fprintf(stderr, "cannot write '%s'\n", path.c_str());
            return 1;
        }
        std::printf("%s: %zu points, %zu triangles\n", path.c_str(), mesh.points.size(), mesh.triangles.size());
    }
    return 0;
}
