#include "io/scale_maps.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

#include "core/parallel.h"

namespace tressora {
namespace {

constexpr std::size_t kBand = 16;  // rows a worker draws at a time

struct UvPoint {
    float u = 0.0f, v = 0.0f;
};

/// A linear value in 0..1 as an 8-bit sRGB value.
std::uint8_t srgb8(float linear) {
    const float c = std::clamp(linear, 0.0f, 1.0f);
    const float s = c <= 0.0031308f ? 12.92f * c : 1.055f * std::pow(c, 1.0f / 2.4f) - 0.055f;
    return static_cast<std::uint8_t>(std::lround(s * 255.0f));
}

/// One tile being drawn: per texel the height above the skin (negative: nothing) and the colour.
struct Canvas {
    int size = 0;
    std::vector<float> height;
    std::vector<Vec3f> colour;
    explicit Canvas(int side) : size(side), height(static_cast<std::size_t>(side) * side, -1.0f),
                                colour(static_cast<std::size_t>(side) * side) {}
};

/// Draws a triangle given in texel coordinates into rows [rowLo, rowHi): texels whose centre
/// lies inside keep the greatest height; `write` says what to do with a covered texel.
template <class Write>
void drawTriangle(const float x[3], const float y[3], int size, int rowLo, int rowHi, Write write) {
    const float area = (x[1] - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (y[1] - y[0]);
    if (!(std::fabs(area) > 1e-12f)) return;
    const int x0 = std::max(0, static_cast<int>(std::floor(std::min({x[0], x[1], x[2]}) - 0.5f)));
    const int x1 = std::min(size - 1, static_cast<int>(std::ceil(std::max({x[0], x[1], x[2]}) - 0.5f)));
    const int y0 = std::max(rowLo, static_cast<int>(std::floor(std::min({y[0], y[1], y[2]}) - 0.5f)));
    const int y1 = std::min(rowHi - 1, static_cast<int>(std::ceil(std::max({y[0], y[1], y[2]}) - 0.5f)));
    for (int py = y0; py <= y1; ++py)
        for (int px = x0; px <= x1; ++px) {
            const float cx = static_cast<float>(px) + 0.5f, cy = static_cast<float>(py) + 0.5f;
            const float w1 = ((cx - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (cy - y[0])) / area;
            const float w2 = ((x[1] - x[0]) * (cy - y[0]) - (cx - x[0]) * (y[1] - y[0])) / area;
            const float w0 = 1.0f - w1 - w2;
            if (w0 >= 0.0f && w1 >= 0.0f && w2 >= 0.0f) write(static_cast<std::size_t>(py) * size + px, w0, w1, w2);
        }
}

/// The texel coordinates of a UV in a tile: x to the right, y down from the tile's top.
void toTexels(const UvPoint (&uv)[3], int tileU, int tileV, int size, float x[3], float y[3]) {
    for (int k = 0; k < 3; ++k) {
        x[k] = (uv[k].u - static_cast<float>(tileU)) * static_cast<float>(size);
        y[k] = (1.0f - (uv[k].v - static_cast<float>(tileV))) * static_cast<float>(size);
    }
}

int udimOf(float u, float v) {
    const int tu = static_cast<int>(std::floor(u)), tv = static_cast<int>(std::floor(v));
    if (tu < 0 || tu > 9 || tv < 0 || tv > 99) return 0;
    return 1001 + tu + 10 * tv;
}

/// Fills `padding` rings of texels around the covered ones with the nearest covered value,
/// ring by ring (left, right, up, down taken in that order), so mipmaps do not bleed.
void pad(Canvas& c, int padding) {
    const int n = c.size;
    for (int ring = 0; ring < padding; ++ring) {
        Canvas next = c;
        parallelRange(0, static_cast<std::size_t>(n), kBand, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t y = lo; y < hi; ++y)
                for (int x = 0; x < n; ++x) {
                    const std::size_t i = y * static_cast<std::size_t>(n) + static_cast<std::size_t>(x);
                    if (c.height[i] >= 0.0f) continue;
                    const std::ptrdiff_t neighbours[4] = {x > 0 ? -1 : 0, x + 1 < n ? 1 : 0, y > 0 ? -n : 0,
                                                          static_cast<int>(y) + 1 < n ? n : 0};
                    for (const std::ptrdiff_t d : neighbours) {
                        const std::size_t j = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(i) + d);
                        if (d != 0 && c.height[j] >= 0.0f) {
                            next.height[i] = c.height[j];
                            next.colour[i] = c.colour[j];
                            break;
                        }
                    }
                }
        });
        c = std::move(next);
    }
}

}  // namespace

std::string scaleMapPath(const std::string& prefix, const std::string& map, int udim) {
    return prefix + map + "." + std::to_string(udim) + ".png";
}

ScaleMaps bakeScaleMaps(const ScaleMesh& scales, const ScalpMesh& skin, const ScaleMapOptions& options) {
    if (options.resolution < 16 || options.resolution > 8192)
        throw std::invalid_argument("the scale maps' resolution must be 16 to 8192");
    if (!skin.hasUvs()) throw std::runtime_error("the skin has no uvs to bake the scales onto");
    const int size = options.resolution;
    ScaleMaps maps;
    maps.scales = scales.records.size();

    // Each scale point on the skin: its UV there and its height above it.
    std::vector<SurfacePoint> on(scales.points.size());
    skin.closestPoints(scales.points, on);
    std::vector<UvPoint> uv(scales.points.size());
    std::vector<float> height(scales.points.size());
    parallelRange(0, on.size(), 1024, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const ScalpMesh::Uv at = skin.uvAt(on[i].face, on[i].b1, on[i].b2);
            uv[i] = {at[0], at[1]};
            height[i] = std::max(0.0f, dot(scales.points[i] - on[i].position, skin.normalAt(on[i].face, on[i].b1, on[i].b2)));
        }
    });
    float highest = 0.0f;
    for (const float h : height) highest = std::max(highest, h);
    maps.maxHeight = options.maxHeight > 0.0f ? options.maxHeight : highest * 1.01f + 1e-5f;

    // Triangles by the tile of their centre.
    std::map<int, std::vector<std::size_t>> byTile;
    for (std::size_t t = 0; t < scales.triangles.size(); ++t) {
        const IndexTriangle& tri = scales.triangles[t];
        float cu = 0.0f, cv = 0.0f;
        for (int k = 0; k < 3; ++k) {
            cu += uv[tri[static_cast<std::size_t>(k)]].u / 3.0f;
            cv += uv[tri[static_cast<std::size_t>(k)]].v / 3.0f;
        }
        if (const int udim = udimOf(cu, cv)) byTile[udim].push_back(t);
    }

    // The skin's texels: its UV area, and the world length of one texel for the normals.
    const std::span<const ScalpMesh::Uv> skinUvs = skin.uvs();
    double uvArea = 0.0;
    for (std::size_t t = 0; t + 2 < skinUvs.size(); t += 3) {
        const auto& a = skinUvs[t];
        const auto& b = skinUvs[t + 1];
        const auto& c = skinUvs[t + 2];
        uvArea += std::fabs((b[0] - a[0]) * (c[1] - a[1]) - (c[0] - a[0]) * (b[1] - a[1])) * 0.5;
    }
    const float texel = uvArea > 0.0 ? static_cast<float>(std::sqrt(skin.area() / uvArea)) / static_cast<float>(size) : 1.0f;
    std::size_t coveredTexels = 0;

    for (const auto& tileTriangles : byTile) {
        const int udim = tileTriangles.first;
        const std::vector<std::size_t>& triangles = tileTriangles.second;
        const int tileU = (udim - 1001) % 10, tileV = (udim - 1001) / 10;
        Canvas canvas(size);
        parallelRange(0, static_cast<std::size_t>(size), kBand, [&](std::size_t lo, std::size_t hi) {
            for (const std::size_t t : triangles) {
                const IndexTriangle& tri = scales.triangles[t];
                const UvPoint corners[3] = {uv[tri[0]], uv[tri[1]], uv[tri[2]]};
                const float h[3] = {height[tri[0]], height[tri[1]], height[tri[2]]};
                const Vec3f colour = t < scales.faceColours.size() ? scales.faceColours[t] : Vec3f{1, 1, 1};
                float x[3], y[3];
                toTexels(corners, tileU, tileV, size, x, y);
                drawTriangle(x, y, size, static_cast<int>(lo), static_cast<int>(hi), [&](std::size_t i, float w0, float w1, float w2) {
                    const float at = h[0] * w0 + h[1] * w1 + h[2] * w2;
                    if (at > canvas.height[i]) {
                        canvas.height[i] = at;
                        canvas.colour[i] = colour;
                    }
                });
            }
        });
        for (const float h : canvas.height) coveredTexels += h >= 0.0f;
        pad(canvas, options.padding);

        ScaleTileMaps tile;
        tile.udim = udim;
        const std::size_t texels = static_cast<std::size_t>(size) * static_cast<std::size_t>(size);
        tile.height = PngImage{size, size, 1, {}, std::vector<std::uint16_t>(texels)};
        tile.normal = PngImage{size, size, 3, std::vector<std::uint8_t>(texels * 3), {}};
        tile.colour = PngImage{size, size, 3, std::vector<std::uint8_t>(texels * 3), {}};
        const std::uint8_t background[3] = {srgb8(options.background.x), srgb8(options.background.y), srgb8(options.background.z)};
        parallelRange(0, static_cast<std::size_t>(size), kBand, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t y = lo; y < hi; ++y)
                for (std::size_t x = 0; x < static_cast<std::size_t>(size); ++x) {
                    const std::size_t i = y * static_cast<std::size_t>(size) + x;
                    const float h = std::max(canvas.height[i], 0.0f);
                    tile.height.pixels16[i] =
                        static_cast<std::uint16_t>(std::lround(std::clamp(h / maps.maxHeight, 0.0f, 1.0f) * 65535.0f));
                    // The slope from the neighbours' heights, in world units over a texel's width.
                    const auto at = [&](std::size_t xx, std::size_t yy) {
                        return std::max(canvas.height[yy * static_cast<std::size_t>(size) + xx], 0.0f);
                    };
                    const std::size_t left = x > 0 ? x - 1 : x, right = x + 1 < static_cast<std::size_t>(size) ? x + 1 : x;
                    const std::size_t up = y > 0 ? y - 1 : y, down = y + 1 < static_cast<std::size_t>(size) ? y + 1 : y;
                    const float dx = (at(right, y) - at(left, y)) / (static_cast<float>(right - left) * texel + 1e-20f);
                    const float dy = (at(x, up) - at(x, down)) / (static_cast<float>(down - up) * texel + 1e-20f);
                    const Vec3f n = normalized(Vec3f{-dx, -dy, 1.0f});
                    for (int k = 0; k < 3; ++k) {
                        tile.normal.pixels8[i * 3 + static_cast<std::size_t>(k)] =
                            static_cast<std::uint8_t>(std::lround((n[k] * 0.5f + 0.5f) * 255.0f));
                        tile.colour.pixels8[i * 3 + static_cast<std::size_t>(k)] =
                            canvas.height[i] >= 0.0f ? srgb8(canvas.colour[i][k]) : background[k];
                    }
                }
        });
        maps.tiles.push_back(std::move(tile));
    }
    const double skinTexels = uvArea * static_cast<double>(size) * static_cast<double>(size);
    maps.covered = skinTexels > 0.0 ? std::min(1.0, static_cast<double>(coveredTexels) / skinTexels) : 0.0;
    return maps;
}

}  // namespace tressora
