#pragma once
// Tube shapes: the cross-sections a guide sweeps along its length. Four are built in
// ("round", "ribbon", "teardrop", "blade"); a groom's library adds custom outlines.
// An outline is read in a unit square about the guide: its half-width across is 1, and its
// half-height 1 "as drawn"; a tube's width, aspect and twist then size and turn it.

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace tressora {

using Point2 = std::array<float, 2>;

/// A custom cross-section: a closed polygon about the guide at (0, 0), with the optional
/// size of the box it was drawn in (the outline's own extent when absent) and whether it is
/// drawn as a smooth closed curve through its points.
struct CustomTubeShape {
    std::string name;
    std::vector<Point2> points;
    std::optional<float> width;
    std::optional<float> height;
    bool smooth = false;

    bool operator==(const CustomTubeShape&) const = default;
};

/// A groom's custom shapes by name.
using TubeShapeLibrary = std::map<std::string, CustomTubeShape>;

/// The most points a custom outline may have.
inline constexpr std::size_t kMaxTubeShapePoints = 256;

/// The built-in shapes in their order: round, ribbon, teardrop, blade.
const std::vector<std::string>& builtinTubeShapes();
bool isBuiltinTubeShape(std::string_view name);
/// The built-ins, then the library's names in order.
std::vector<std::string> tubeShapeNames(const TubeShapeLibrary& library);
/// True for a built-in or a library name (names are case-sensitive).
bool isKnownTubeShape(std::string_view name, const TubeShapeLibrary& library);

/// Checks a custom shape's name; throws std::invalid_argument with the user's sentence.
void checkTubeShapeName(const std::string& name);
/// Checks a custom outline (numbers, count, distinct points, not on a line, not crossing
/// itself, enclosing the guide); throws std::invalid_argument with the user's sentence.
void checkTubeShapeOutline(const CustomTubeShape& shape);
/// Both checks.
void checkCustomTubeShape(const CustomTubeShape& shape);

/// The shape's outline in the unit square, counter-clockwise. Built-ins and smooth custom
/// outlines are sampled at `resolution` points (at least 8); a plain custom outline is its
/// own polygon. An unknown name gives the round outline.
std::vector<Point2> tubeShapeOutline(std::string_view name, const TubeShapeLibrary& library, int resolution = 64);

/// A point of the section at a tube sample: the outline point scaled by width across and by
/// width * aspect up, turned by twist (radians) about the guide.
Point2 sectionPoint(Point2 outlinePoint, float width, float aspect, float twist);

/// A point drawn uniformly inside the outline stretched by `aspect` up, decided by seed.
/// (0, 0) when no draw lands inside (a degenerate outline).
Point2 sampleTubeSection(const std::vector<Point2>& outline, float aspect, std::uint64_t seed);

/// True when p lies strictly inside the closed polygon (even-odd rule).
bool insideOutline(const std::vector<Point2>& outline, Point2 p);

/// The JSON object of a library shape: name, points (flat x, y pairs), smooth, and width
/// and height when set.
nlohmann::json tubeShapeToJson(const CustomTubeShape& shape);
/// Reads a library shape and checks it; throws std::invalid_argument with the user's sentence.
CustomTubeShape tubeShapeFromJson(const nlohmann::json& value);

}  // namespace tressora
