#include "core/tube_shape.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "core/float_text.h"
#include "core/json_numbers.h"
#include "core/hash.h"

namespace tressora {
namespace {

constexpr float kPi = 3.14159265358979f;

std::invalid_argument shapeError(const std::string& name, const std::string& rest) {
    return std::invalid_argument("tube shape '" + name + "'" + rest);
}

float cross2(Point2 o, Point2 a, Point2 b) { return (a[0] - o[0]) * (b[1] - o[1]) - (a[1] - o[1]) * (b[0] - o[0]); }

/// Whether segments [a, b] and [c, d] meet, touching included.
bool segmentsMeet(Point2 a, Point2 b, Point2 c, Point2 d) {
    const float d1 = cross2(c, d, a), d2 = cross2(c, d, b), d3 = cross2(a, b, c), d4 = cross2(a, b, d);
    if (((d1 > 0 && d2 < 0) || (d1 < 0 && d2 > 0)) && ((d3 > 0 && d4 < 0) || (d3 < 0 && d4 > 0))) return true;
    auto onSegment = [](Point2 p, Point2 q, Point2 r, float cr) {
        return cr == 0.0f && std::min(p[0], q[0]) <= r[0] && r[0] <= std::max(p[0], q[0]) &&
               std::min(p[1], q[1]) <= r[1] && r[1] <= std::max(p[1], q[1]);
    };
    return onSegment(c, d, a, d1) || onSegment(c, d, b, d2) || onSegment(a, b, c, d3) || onSegment(a, b, d, d4);
}

/// A closed Catmull-Rom curve through the points, `resolution` samples in all.
std::vector<Point2> smoothLoop(const std::vector<Point2>& p, int resolution) {
    const std::size_t n = p.size();
    const int perSegment = std::max(1, resolution / static_cast<int>(n));
    std::vector<Point2> out;
    out.reserve(n * static_cast<std::size_t>(perSegment));
    for (std::size_t i = 0; i < n; ++i) {
        const Point2 &p0 = p[(i + n - 1) % n], &p1 = p[i], &p2 = p[(i + 1) % n], &p3 = p[(i + 2) % n];
        for (int s = 0; s < perSegment; ++s) {
            const float t = static_cast<float>(s) / static_cast<float>(perSegment), t2 = t * t, t3 = t2 * t;
            Point2 q;
            for (int a = 0; a < 2; ++a)
                q[a] = 0.5f * (2.0f * p1[a] + (p2[a] - p0[a]) * t + (2.0f * p0[a] - 5.0f * p1[a] + 4.0f * p2[a] - p3[a]) * t2 +
                               (3.0f * p1[a] - p0[a] - 3.0f * p2[a] + p3[a]) * t3);
            out.push_back(q);
        }
    }
    return out;
}

/// Twice the signed area; positive for a counter-clockwise polygon.
float signedArea2(const std::vector<Point2>& p) {
    float sum = 0.0f;
    for (std::size_t i = 0; i < p.size(); ++i) {
        const Point2 &a = p[i], &b = p[(i + 1) % p.size()];
        sum += a[0] * b[1] - b[0] * a[1];
    }
    return sum;
}

std::vector<Point2> builtinOutline(std::string_view name, int n) {
    std::vector<Point2> out(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        const float t = 2.0f * kPi * static_cast<float>(i) / static_cast<float>(n);
        const float c = std::cos(t), s = std::sin(t);
        Point2 p{c, s};
        if (name == "ribbon") {
            // A flat superellipse: straight long sides, rounded ends, a quarter as high as wide.
            p = {std::copysign(std::sqrt(std::fabs(c)), c), 0.25f * std::copysign(std::sqrt(std::fabs(s)), s)};
        } else if (name == "teardrop") {
            // Round below, pointed above; widest a little under the middle.
            // The point is at t = 0; 0.7698 is the curve's greatest half-width.
            p = {-s * std::sin(0.5f * t) / 0.7698f, c};
        } else if (name == "blade") {
            // A lens with sharp ends at (+1, 0) and (-1, 0).
            p = {c, 0.35f * s * std::fabs(s)};
        }
        out[static_cast<std::size_t>(i)] = p;
    }
    return out;
}

}  // namespace

const std::vector<std::string>& builtinTubeShapes() {
    static const std::vector<std::string> names = {"round", "ribbon", "teardrop", "blade"};
    return names;
}

bool isBuiltinTubeShape(std::string_view name) {
    const auto& names = builtinTubeShapes();
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::vector<std::string> tubeShapeNames(const TubeShapeLibrary& library) {
    std::vector<std::string> names = builtinTubeShapes();
    for (const auto& entry : library) names.push_back(entry.first);
    return names;
}

bool isKnownTubeShape(std::string_view name, const TubeShapeLibrary& library) {
    return isBuiltinTubeShape(name) || library.count(std::string(name)) != 0;
}

void checkTubeShapeName(const std::string& name) {
    if (name.empty()) throw std::invalid_argument("a tube shape needs a name");
    if (name.size() > 64) throw std::invalid_argument("tube shape names: 64 characters at most");
    for (unsigned char c : name)
        if (!std::isalnum(c) && c != ' ' && c != '_' && c != '-' && c != '.')  // ASCII: isalnum in the C locale
            throw shapeError(name, ": letters, digits, spaces, '_', '-' and '.' only");
    if (name.front() == ' ' || name.back() == ' ') throw shapeError(name, ": no spaces at the ends");
    if (isBuiltinTubeShape(name))
        throw std::invalid_argument("'" + name + "' is a built-in tube shape: pick another name");
}

void checkTubeShapeOutline(const CustomTubeShape& shape) {
    const auto& p = shape.points;
    const std::string& name = shape.name;
    for (const Point2& q : p)
        if (!std::isfinite(q[0]) || !std::isfinite(q[1])) throw shapeError(name, ": points must be numbers");
    if ((shape.width && !(*shape.width > 0.0f && std::isfinite(*shape.width))) ||
        (shape.height && !(*shape.height > 0.0f && std::isfinite(*shape.height))))
        throw shapeError(name, ": width and height must be above 0");
    if (p.size() > kMaxTubeShapePoints)
        throw shapeError(name, ": " + std::to_string(kMaxTubeShapePoints) + " points at most");

    float extent = 0.0f;
    for (const Point2& q : p) extent = std::max({extent, std::fabs(q[0]), std::fabs(q[1])});
    const float apart = extent * 1e-5f;
    bool distinct = p.size() >= 3 && extent > 0.0f;
    for (std::size_t i = 0; distinct && i < p.size(); ++i)
        for (std::size_t j = i + 1; j < p.size(); ++j)
            if (std::fabs(p[i][0] - p[j][0]) <= apart && std::fabs(p[i][1] - p[j][1]) <= apart) {
                distinct = false;
                break;
            }
    if (!distinct) throw shapeError(name, ": at least 3 points, apart");

    bool flat = true;
    for (std::size_t i = 2; i < p.size() && flat; ++i)
        flat = std::fabs(cross2(p[0], p[1], p[i])) <= extent * extent * 1e-6f;
    if (flat) throw shapeError(name, ": the points lie on a line; give the outline width and height");

    const std::size_t n = p.size();
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = i + 1; j < n; ++j) {
            const bool adjacent = j == i + 1 || (i == 0 && j == n - 1);
            if (adjacent) continue;
            if (segmentsMeet(p[i], p[(i + 1) % n], p[j], p[(j + 1) % n]))
                throw shapeError(name, ": the outline crosses itself; move the points so its edges don't cross");
        }

    if (!insideOutline(p, {0.0f, 0.0f}))
        throw shapeError(name,
                         ": the outline must enclose its center (the guide runs through it); keep the middle of "
                         "the square inside the shape");
}

void checkCustomTubeShape(const CustomTubeShape& shape) {
    checkTubeShapeName(shape.name);
    checkTubeShapeOutline(shape);
}

std::vector<Point2> tubeShapeOutline(std::string_view name, const TubeShapeLibrary& library, int resolution) {
    resolution = std::clamp(resolution, 8, 4096);
    const auto it = library.find(std::string(name));
    if (it == library.end() || it->second.points.size() < 3)
        return builtinOutline(isBuiltinTubeShape(name) ? name : "round", resolution);

    const CustomTubeShape& shape = it->second;
    float maxX = 0.0f, maxY = 0.0f;
    for (const Point2& q : shape.points) {
        maxX = std::max(maxX, std::fabs(q[0]));
        maxY = std::max(maxY, std::fabs(q[1]));
    }
    const float halfW = shape.width ? *shape.width * 0.5f : maxX;
    const float halfH = shape.height ? *shape.height * 0.5f : maxY;
    std::vector<Point2> out = shape.points;
    for (Point2& q : out) {
        q[0] = halfW > 0.0f ? q[0] / halfW : 0.0f;
        q[1] = halfH > 0.0f ? q[1] / halfH : 0.0f;
    }
    if (shape.smooth) out = smoothLoop(out, resolution);
    if (signedArea2(out) < 0.0f) std::reverse(out.begin(), out.end());
    return out;
}

Point2 sectionPoint(Point2 p, float width, float aspect, float twist) {
    const float x = p[0] * width, y = p[1] * width * aspect;
    const float c = std::cos(twist), s = std::sin(twist);
    return {x * c - y * s, x * s + y * c};
}

bool insideOutline(const std::vector<Point2>& outline, Point2 p) {
    bool inside = false;
    const std::size_t n = outline.size();
    for (std::size_t i = 0, j = n - 1; i < n; j = i++) {
        const Point2 &a = outline[i], &b = outline[j];
        if ((a[1] > p[1]) != (b[1] > p[1]) && p[0] < (b[0] - a[0]) * (p[1] - a[1]) / (b[1] - a[1]) + a[0])
            inside = !inside;
    }
    return inside;
}

Point2 sampleTubeSection(const std::vector<Point2>& outline, float aspect, std::uint64_t seed) {
    if (outline.size() < 3) return {0.0f, 0.0f};
    float lo[2] = {outline[0][0], outline[0][1]}, hi[2] = {lo[0], lo[1]};
    for (const Point2& q : outline)
        for (int a = 0; a < 2; ++a) {
            lo[a] = std::min(lo[a], q[a]);
            hi[a] = std::max(hi[a], q[a]);
        }
    DrawStream draws(seed);
    for (int attempt = 0; attempt < 64; ++attempt) {
        const float x = lo[0] + (hi[0] - lo[0]) * draws.nextUnit();
        const float y = lo[1] + (hi[1] - lo[1]) * draws.nextUnit();
        if (insideOutline(outline, {x, y})) return {x, y * aspect};
    }
    return {0.0f, 0.0f};
}

nlohmann::json tubeShapeToJson(const CustomTubeShape& shape) {
    nlohmann::json points = nlohmann::json::array();
    for (const Point2& q : shape.points) {
        points.push_back(shortestDouble(q[0]));
        points.push_back(shortestDouble(q[1]));
    }
    nlohmann::json out = {{"name", shape.name}, {"points", std::move(points)}, {"smooth", shape.smooth}};
    if (shape.width) out["width"] = shortestDouble(*shape.width);
    if (shape.height) out["height"] = shortestDouble(*shape.height);
    return out;
}

CustomTubeShape tubeShapeFromJson(const nlohmann::json& value) {
    if (!value.is_object()) throw std::invalid_argument("a tube shape is a JSON object with a name and points");
    CustomTubeShape shape;
    const auto name = value.find("name");
    if (name == value.end() || !name->is_string()) throw std::invalid_argument("a tube shape needs a name");
    shape.name = name->get<std::string>();
    checkTubeShapeName(shape.name);
    const auto points = value.find("points");
    if (points == value.end() || !points->is_array()) throw shapeError(shape.name, ": at least 3 points, apart");
    std::vector<float> coordinates;
    for (const auto& v : *points) {
        const std::optional<float> f = finiteFloat(v);
        if (!f) throw shapeError(shape.name, ": points must be numbers");
        coordinates.push_back(*f);
    }
    if (coordinates.size() % 2 != 0) throw shapeError(shape.name, ": points come in x, y pairs");
    for (std::size_t i = 0; i + 1 < coordinates.size(); i += 2) shape.points.push_back({coordinates[i], coordinates[i + 1]});
    if (const auto s = value.find("smooth"); s != value.end()) {
        if (!s->is_boolean()) throw shapeError(shape.name, ": smooth is true or false");
        shape.smooth = s->get<bool>();
    }
    for (const char* key : {"width", "height"}) {
        const auto v = value.find(key);
        if (v == value.end()) continue;
        const std::optional<float> f = finiteFloat(*v);
        if (!f) throw shapeError(shape.name, ": width and height must be above 0");
        (std::string(key) == "width" ? shape.width : shape.height) = *f;
    }
    checkTubeShapeOutline(shape);
    return shape;
}

}  // namespace tressora
