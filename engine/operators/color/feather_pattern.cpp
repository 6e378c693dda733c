#include "operators/color/feather_pattern.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tressora::look {
namespace {

float radians(float degrees) { return degrees * std::numbers::pi_v<float> / 180.0f; }

/// Distance of x to the nearest whole number: 0 at a period's centre, 0.5 between.
float periodDistance(float x) { return std::fabs(x - std::round(x)); }

}  // namespace

bool parseFeatherPattern(std::string_view text, FeatherPatternKind& kind) {
    static constexpr std::pair<std::string_view, FeatherPatternKind> kNames[] = {
        {"none", FeatherPatternKind::None},     {"texture", FeatherPatternKind::Texture},
        {"bars", FeatherPatternKind::Bars},     {"chevrons", FeatherPatternKind::Chevrons},
        {"spots", FeatherPatternKind::Spots},   {"fringe", FeatherPatternKind::Fringe},
        {"eye", FeatherPatternKind::Eye}};
    for (const auto& [name, value] : kNames)
        if (name == text) {
            kind = value;
            return true;
        }
    return false;
}

float FeatherPattern::cover(const FeatherPoint& point, const FeatherJitter& jitter, Vec3f& color) const {
    const float scale = std::max(jitter.scale, 1e-3f);
    const float theta = radians(angle + jitter.angle);
    // distance: how far outside the shape's edge (negative inside), and radius: the shape's
    // half size, both in the same measure.
    float distance = 0.0f, radius = 0.5f * width;
    switch (kind) {
        case FeatherPatternKind::None: return 0.0f;
        case FeatherPatternKind::Texture: {
            const bool ownRight = point.side > 0.0f && right;
            const Texture* image = ownRight ? right.get() : left.get();
            if (!image) return 0.0f;
            const float across = std::clamp(point.v, 0.0f, 0.5f);
            // One image: the shaft up its middle, the left vane on the left. A right vane's own
            // image has the shaft along its left edge; the left image is then the left vane's.
            float x = point.side < 0.0f ? 0.5f - across : 0.5f + across;
            if (ownRight) x = 2.0f * across;
            else if (right) x = 1.0f - 2.0f * across;
            const Rgba c = image->sample(x, std::clamp(point.u, 0.0f, 1.0f));
            color = {c[0], c[1], c[2]};
            return std::clamp(c[3], 0.0f, 1.0f);
        }
        case FeatherPatternKind::Bars:
        case FeatherPatternKind::Chevrons: {
            const float slope = std::tan(std::clamp(theta, -1.5f, 1.5f));
            const float along = kind == FeatherPatternKind::Bars ? point.u + point.v * slope * (point.side < 0 ? -1.0f : 1.0f)
                                                                 : point.u - point.v * slope;
            const float x = (along - offset) * count / scale + jitter.shift;
            distance = periodDistance(x) - radius;
            break;
        }
        case FeatherPatternKind::Spots: {
            const float x = (point.u - offset) * count / scale + jitter.shift;
            const float y = point.v * count / scale;
            distance = std::hypot(periodDistance(x), periodDistance(y)) - radius;
            break;
        }
        case FeatherPatternKind::Fringe:
            radius = std::clamp(width * scale, 0.0f, 1.0f);
            distance = (1.0f - radius) - point.t;
            break;
        case FeatherPatternKind::Eye: {
            radius = 0.5f * width * scale;
            const float du = point.u - (offset + jitter.shift * width), dv = point.v * (point.side < 0 ? -1.0f : 1.0f);
            // Tilted ellipse-free circle: the tilt only matters with a hollow profile's rings.
            const float c = std::cos(theta), s = std::sin(theta);
            distance = std::hypot(du * c + dv * s, -du * s + dv * c) - radius;
            break;
        }
    }
    // Soft edges: the blend spans up to half the shape's size at sharpness 0, nothing at 1.
    const float soft = std::max(1e-4f, (1.0f - sharpness) * radius);
    float inside = std::clamp(0.5f - distance / (2.0f * soft), 0.0f, 1.0f);
    inside = inside * inside * (3.0f - 2.0f * inside);
    if (hollow && radius > 0.0f) inside *= std::clamp(1.0f + distance / radius, 0.0f, 1.0f);
    return inside;
}

}  // namespace tressora::look
