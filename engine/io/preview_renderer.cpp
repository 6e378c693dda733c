#include "io/preview_renderer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "core/parallel.h"
#include "io/png_writer.h"

namespace tressora {
namespace {

constexpr Vec3f kBackground{0.035f, 0.037f, 0.042f};
constexpr Vec3f kScalpAlbedo{0.42f, 0.36f, 0.33f};
constexpr Vec3f kHairDefault{0.2f, 0.12f, 0.07f};

struct View {
    Vec3f direction, up;
};

View viewNamed(const std::string& name, bool zUp) {
    View v;
    if (name == "front") v = {{0, 0, 1}, {0, 1, 0}};
    else if (name == "back") v = {{0, 0, -1}, {0, 1, 0}};
    else if (name == "side") v = {{1, 0, 0}, {0, 1, 0}};
    else if (name == "top") v = {{0, 1, 0}, {0, 0, -1}};
    else if (name == "three_quarter") {
        const float a = 0.6108653f, b = 0.2617994f;
        v = {{std::sin(a) * std::cos(b), std::sin(b), std::cos(a) * std::cos(b)}, {0, 1, 0}};
    } else {
        throw std::invalid_argument("unknown view '" + name + "' (front, side, back, three_quarter, top)");
    }
    if (zUp) {
        const auto turn = [](Vec3f p) { return Vec3f{p.x, -p.z, p.y}; };
        v = {turn(v.direction), turn(v.up)};
    }
    return v;
}

Vec3f unitOr(Vec3f v, Vec3f fallback) {
    const float l = length(v);
    return l > 0.0f && std::isfinite(l) ? v / l : fallback;
}

/// Linear values to 8-bit sRGB: the linear value where each code begins, looked up by a
/// binary search instead of a power per channel and pixel.
class SrgbCodes {
public:
    SrgbCodes() {
        for (int k = 1; k < 256; ++k) {
            const double s = (k - 0.5) / 255.0;  // the encoded value halfway below code k
            starts_[static_cast<std::size_t>(k)] =
                static_cast<float>(s <= 0.04045 ? s / 12.92 : std::pow((s + 0.055) / 1.055, 2.4));
        }
    }
    std::uint8_t operator()(float linear) const {
        if (!(linear > 0.0f)) return 0;
        const auto it = std::upper_bound(starts_.begin() + 1, starts_.end(), linear);
        return static_cast<std::uint8_t>(it - starts_.begin() - 1);
    }

private:
    std::array<float, 256> starts_{};
};

std::uint8_t srgb8(float linear) {
    static const SrgbCodes codes;
    return codes(linear);
}

/// What every view draws: the scalp's points and triangles and the drawn strands' points
/// and colours, gathered once.
struct Scene {
    std::vector<Vec3f> scalpPoints;
    std::vector<ScalpMesh::Triangle> triangles;
    std::vector<Vec3f> points;            // the drawn strands' points, strand after strand
    std::vector<std::uint64_t> offsets{0};
    std::vector<Vec3f> colours;           // one per point
};

Scene gather(const StrandSet* strands, const ScalpMesh* scalp, std::uint64_t stride) {
    Scene s;
    if (scalp) {
        s.scalpPoints.assign(scalp->points().begin(), scalp->points().end());
        s.triangles.assign(scalp->triangles().begin(), scalp->triangles().end());
    }
    if (!strands) return s;
    const auto channel = [&](bool perPoint, const char* name) -> const float* {
        const StrandChannel* c = perPoint ? strands->pointChannel(name) : strands->strandChannel(name);
        const std::size_t want = perPoint ? strands->pointCount() : strands->strandCount();
        return c && c->values().size() == want ? c->values().data() : nullptr;
    };
    const float* pr = channel(true, "colorR");
    const float* pg = channel(true, "colorG");
    const float* pb = channel(true, "colorB");
    const bool perPoint = pr && pg && pb;
    const float* sr = channel(false, "colorR");
    const float* sg = channel(false, "colorG");
    const float* sb = channel(false, "colorB");
    const bool perStrand = sr && sg && sb;
    for (std::size_t i = 0; i < strands->strandCount(); i += stride) {
        const PointRange r = strands->pointRange(i);
        for (std::size_t p = r.begin; p < r.end; ++p) {
            s.points.push_back(strands->points()[p]);
            s.colours.push_back(perPoint ? Vec3f{pr[p], pg[p], pb[p]} : perStrand ? Vec3f{sr[i], sg[i], sb[i]} : kHairDefault);
        }
        s.offsets.push_back(s.points.size());
    }
    return s;
}

/// Draws one view into a square cell of `side` pixels (supersampled `ss` times a side) and
/// writes the resolved linear colours into `out` (side * side).
void drawView(const Scene& scene, const View& view, int side, int ss, std::vector<Vec3f>& out) {
    const int n = side * ss;
    const Vec3f f = unitOr(view.direction, {0, 0, 1});
    const Vec3f r = unitOr(cross(view.up, f), {1, 0, 0});
    const Vec3f u = cross(f, r);

    // Fit the scalp and the drawn strands in the cell.
    Vec3f lo{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(), std::numeric_limits<float>::max()};
    Vec3f hi = lo * -1.0f;
    bool any = false;
    const auto extend = [&](Vec3f p) {
        const Vec3f q{dot(p, r), dot(p, u), dot(p, f)};
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], q[k]);
            hi[k] = std::max(hi[k], q[k]);
        }
        any = true;
    };
    for (const Vec3f& p : scene.scalpPoints) extend(p);
    for (const Vec3f& p : scene.points) extend(p);
    if (!any) lo = hi = Vec3f{};
    const Vec3f mid = (lo + hi) * 0.5f;
    const Vec3f centre = r * mid.x + u * mid.y + f * mid.z;
    const float scale = 0.9f * static_cast<float>(n) / std::max({hi.x - lo.x, hi.y - lo.y, 1e-6f});
    const float depthExtent = std::max(hi.z - lo.z, 1e-6f);
    const float half = static_cast<float>(n) / 2.0f;
    struct Projected {
        float x, y, depth;
    };
    const auto project = [&](Vec3f p) {
        const Vec3f d = p - centre;
        return Projected{dot(d, r) * scale + half, half - dot(d, u) * scale, -dot(d, f)};
    };
    const Vec3f light = unitOr(f + u * 0.8f + r * 0.5f, f);
    const Vec3f halfway = unitOr(f + light, f);

    std::vector<float> depth(static_cast<std::size_t>(n) * n, std::numeric_limits<float>::infinity());
    std::vector<Vec3f> colour(static_cast<std::size_t>(n) * n, kBackground);
    const auto plot = [&](int x, int y, float z, Vec3f c) {
        if (x < 0 || y < 0 || x >= n || y >= n) return;
        const std::size_t i = static_cast<std::size_t>(y) * n + x;
        if (z >= depth[i]) return;
        depth[i] = z;
        colour[i] = c;
    };

    // The scalp: flat-shaded triangles, lit from the front on both sides.
    for (const ScalpMesh::Triangle& t : scene.triangles) {
        const Vec3f p0 = scene.scalpPoints[static_cast<std::size_t>(t[0])], p1 = scene.scalpPoints[static_cast<std::size_t>(t[1])],
                    p2 = scene.scalpPoints[static_cast<std::size_t>(t[2])];
        Vec3f normal = unitOr(cross(p1 - p0, p2 - p0), f);
        if (dot(normal, f) < 0.0f) normal = normal * -1.0f;
        const Vec3f c = kScalpAlbedo * (std::max(dot(normal, light), 0.0f) * 0.82f + 0.18f);
        const Projected a = project(p0), b = project(p1), e = project(p2);
        const float area = (b.x - a.x) * (e.y - a.y) - (e.x - a.x) * (b.y - a.y);
        if (std::fabs(area) < 1e-12f) continue;
        const int x0 = std::max(0, static_cast<int>(std::floor(std::min({a.x, b.x, e.x}))));
        const int x1 = std::min(n - 1, static_cast<int>(std::ceil(std::max({a.x, b.x, e.x}))));
        const int y0 = std::max(0, static_cast<int>(std::floor(std::min({a.y, b.y, e.y}))));
        const int y1 = std::min(n - 1, static_cast<int>(std::ceil(std::max({a.y, b.y, e.y}))));
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                const float px = static_cast<float>(x) + 0.5f, py = static_cast<float>(y) + 0.5f;
                const float w1 = ((px - a.x) * (e.y - a.y) - (e.x - a.x) * (py - a.y)) / area;
                const float w2 = ((b.x - a.x) * (py - a.y) - (px - a.x) * (b.y - a.y)) / area;
                const float w0 = 1.0f - w1 - w2;
                if (w0 >= 0.0f && w1 >= 0.0f && w2 >= 0.0f) plot(x, y, a.depth * w0 + b.depth * w1 + e.depth * w2, c);
            }
    }

    // The strands: one-pixel lines, lighter toward the tips, with a narrow highlight.
    const float bias = 0.004f * scale * depthExtent;
    const float longest = 4.0f * static_cast<float>(n + n);
    for (std::size_t s = 0; s + 1 < scene.offsets.size(); ++s) {
        const std::size_t first = scene.offsets[s], count = scene.offsets[s + 1] - first;
        if (count < 2) continue;
        for (std::size_t i = 1; i < count; ++i) {
            const Vec3f pa = scene.points[first + i - 1], pb = scene.points[first + i];
            const Vec3f t = unitOr(pb - pa, f);
            const float la = dot(t, light), lb = dot(t, halfway);
            const float diffuse = std::sqrt(std::max(1.0f - la * la, 0.0f)) * 0.75f + 0.25f;
            // sqrt(1 - b^2)^60 as (1 - b^2)^30, by squaring.
            const float y = std::max(1.0f - lb * lb, 0.0f), y2 = y * y, y4 = y2 * y2, y8 = y4 * y4, y16 = y8 * y8;
            const float specular = y16 * y8 * y4 * y2;
            const float k = diffuse * (0.55f + 0.45f * static_cast<float>(i) / static_cast<float>(count - 1));
            const Vec3f c = scene.colours[first + i] * k + Vec3f{0.12f, 0.12f, 0.12f} * specular;
            const Projected a = project(pa), b = project(pb);
            const float steps = std::max(std::ceil(std::max(std::fabs(b.x - a.x), std::fabs(b.y - a.y))), 1.0f);
            if (!(steps <= longest)) continue;
            const int m = static_cast<int>(steps);
            const float sx = (b.x - a.x) / steps, sy = (b.y - a.y) / steps, sz = (b.depth - a.depth) / steps;
            const float z0 = a.depth - bias;
            for (int j = 0; j <= m; ++j) {
                const float jf = static_cast<float>(j);
                // floor by an offset truncation: every coordinate that can land is above -2^16.
                const int x = static_cast<int>(a.x + sx * jf + 65536.0f) - 65536;
                const int y = static_cast<int>(a.y + sy * jf + 65536.0f) - 65536;
                if (static_cast<unsigned>(x) >= static_cast<unsigned>(n) || static_cast<unsigned>(y) >= static_cast<unsigned>(n))
                    continue;
                const std::size_t i = static_cast<std::size_t>(y) * static_cast<std::size_t>(n) + static_cast<std::size_t>(x);
                const float z = z0 + sz * jf;
                if (z < depth[i]) {
                    depth[i] = z;
                    colour[i] = c;
                }
            }
        }
    }

    // Resolve the supersamples.
    out.assign(static_cast<std::size_t>(side) * side, Vec3f{});
    const float share = 1.0f / static_cast<float>(ss * ss);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            Vec3f sum{};
            for (int dy = 0; dy < ss; ++dy)
                for (int dx = 0; dx < ss; ++dx) sum = sum + colour[static_cast<std::size_t>(y * ss + dy) * n + (x * ss + dx)];
            out[static_cast<std::size_t>(y) * side + x] = sum * share;
        }
}

}  // namespace

PreviewImage renderPreview(const StrandSet* strands, const ScalpMesh* scalp, const PreviewRequest& request) {
    if (request.size < 64 || request.size > 1024) throw std::invalid_argument("size must be between 64 and 1024 pixels");
    if (request.views.empty()) throw std::invalid_argument("no views");
    if (request.views.size() > 6) throw std::invalid_argument("at most 6 views in one image");
    std::vector<View> views;
    for (const std::string& name : request.views) views.push_back(viewNamed(name, request.zUp));

    PreviewImage image;
    const int count = static_cast<int>(views.size());
    image.columns = count <= 3 ? count : (count + 1) / 2;
    const int rows = (count + image.columns - 1) / image.columns;
    const int cell = request.size / image.columns;
    image.width = image.columns * cell;
    image.height = rows * cell;
    image.strands = strands ? strands->strandCount() : 0;
    const std::uint64_t m = request.maxStrands;
    image.stride = m == 0 || image.strands <= m ? 1 : (image.strands + m - 1) / m;
    image.strandsDrawn = (image.strands + image.stride - 1) / image.stride;
    const int ss = cell < 513 ? 2 : 1;

    const Scene scene = gather(strands, scalp, image.stride);
    std::vector<std::vector<Vec3f>> cells(views.size());
    parallelRange(0, views.size(), 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t v = lo; v < hi; ++v) drawView(scene, views[v], cell, ss, cells[v]);
    });

    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(image.width) * image.height * 3);
    const std::uint8_t background[3] = {srgb8(kBackground.x), srgb8(kBackground.y), srgb8(kBackground.z)};
    for (std::size_t i = 0; i < rgb.size(); i += 3) std::copy(background, background + 3, rgb.begin() + static_cast<std::ptrdiff_t>(i));
    for (std::size_t v = 0; v < cells.size(); ++v) {
        const int cx = static_cast<int>(v) % image.columns, cy = static_cast<int>(v) / image.columns;
        for (int y = 0; y < cell; ++y)
            for (int x = 0; x < cell; ++x) {
                const Vec3f c = cells[v][static_cast<std::size_t>(y) * cell + x];
                const std::size_t at = (static_cast<std::size_t>(cy * cell + y) * image.width + (cx * cell + x)) * 3;
                rgb[at] = srgb8(c.x);
                rgb[at + 1] = srgb8(c.y);
                rgb[at + 2] = srgb8(c.z);
            }
    }
    image.png = encodePng(image.width, image.height, 3, rgb);
    return image;
}

}  // namespace tressora
