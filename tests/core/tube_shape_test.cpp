#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "core/expect_text.h"
#include "core/tube_shape.h"

namespace tressora {
namespace {

using testing::failureText;

std::string nameFailure(const std::string& name) {
    return failureText<std::invalid_argument>([&] { checkTubeShapeName(name); });
}

std::string outlineFailure(std::vector<Point2> points) {
    CustomTubeShape s{"lock", std::move(points), {}, {}, false};
    return failureText<std::invalid_argument>([&] { checkTubeShapeOutline(s); });
}

TEST(TubeShape, NamesAreCheckedAndCaseSensitive) {
    TubeShapeLibrary library;
    library["star"] = {"star", {{0, 1}, {-1, -1}, {1, -1}}, {}, {}, false};
    EXPECT_EQ(tubeShapeNames(library), (std::vector<std::string>{"round", "ribbon", "teardrop", "blade", "star"}));
    EXPECT_FALSE(isBuiltinTubeShape("ROUND"));
    EXPECT_FALSE(isKnownTubeShape("Star", library));
    EXPECT_EQ(nameFailure(""), "a tube shape needs a name");
    EXPECT_EQ(nameFailure(std::string(65, 'a')), "tube shape names: 64 characters at most");
    EXPECT_EQ(nameFailure("a/b"), "tube shape 'a/b': letters, digits, spaces, '_', '-' and '.' only");
    EXPECT_EQ(nameFailure(" flat"), "tube shape ' flat': no spaces at the ends");
    EXPECT_EQ(nameFailure("blade"), "'blade' is a built-in tube shape: pick another name");
    EXPECT_EQ(nameFailure("Blade 2_b-c.d"), "no failure");
    EXPECT_EQ(nameFailure(std::string(64, 'a')), "no failure");
}

TEST(TubeShape, OutlinesAreChecked) {
    EXPECT_EQ(outlineFailure({{0, 1}, {NAN, -1}, {1, -1}}), "tube shape 'lock': points must be numbers");
    EXPECT_EQ(outlineFailure(std::vector<Point2>(257, {1, 1})), "tube shape 'lock': 256 points at most");
    EXPECT_EQ(outlineFailure({{0, 1}, {1, -1}}), "tube shape 'lock': at least 3 points, apart");
    EXPECT_EQ(outlineFailure({{0, 1}, {1, -1}, {1, -1}}), "tube shape 'lock': at least 3 points, apart");
    EXPECT_EQ(outlineFailure({{-1, -1}, {0, 0}, {1, 1}}),
              "tube shape 'lock': the points lie on a line; give the outline width and height");
    // A bow tie: its two long edges cross at the middle.
    EXPECT_EQ(outlineFailure({{-1, -1}, {1, 1}, {1, -1}, {-1, 1}}),
              "tube shape 'lock': the outline crosses itself; move the points so its edges don't cross");
    EXPECT_EQ(outlineFailure({{1, 1}, {3, 1}, {2, 3}}),
              "tube shape 'lock': the outline must enclose its center (the guide runs through it); keep the middle "
              "of the square inside the shape");
    EXPECT_EQ(outlineFailure({{0, 1}, {-1, -1}, {1, -1}}), "no failure");
    // Clockwise outlines are fine too.
    EXPECT_EQ(outlineFailure({{0, 1}, {1, -1}, {-1, -1}}), "no failure");
}

TEST(TubeShape, BuiltInOutlinesFillTheUnitSquareAboutTheGuide) {
    for (const std::string& name : builtinTubeShapes()) {
        const auto outline = tubeShapeOutline(name, {}, 64);
        ASSERT_EQ(outline.size(), 64u) << name;
        float maxX = 0, maxY = 0, area2 = 0;
        for (std::size_t i = 0; i < outline.size(); ++i) {
            const Point2 a = outline[i], b = outline[(i + 1) % outline.size()];
            maxX = std::max(maxX, std::fabs(a[0]));
            maxY = std::max(maxY, std::fabs(a[1]));
            area2 += a[0] * b[1] - b[0] * a[1];
        }
        EXPECT_NEAR(maxX, 1.0f, 0.02f) << name;
        EXPECT_LE(maxY, 1.0f + 1e-5f) << name;
        EXPECT_GT(area2, 0.0f) << name << " runs counter-clockwise";
        EXPECT_TRUE(insideOutline(outline, {0, 0})) << name;
    }
    // Ribbons and blades are flat, teardrops point up.
    EXPECT_LT(tubeShapeOutline("ribbon", {}, 64)[16][1], 0.3f);
    EXPECT_NEAR(tubeShapeOutline("teardrop", {}, 64)[0][1], 1.0f, 1e-6f);
    EXPECT_EQ(tubeShapeOutline("no such", {}, 16), tubeShapeOutline("round", {}, 16));
}

TEST(TubeShape, CustomOutlinesAreReadInTheirBox) {
    TubeShapeLibrary library;
    library["tri"] = {"tri", {{0, 2}, {-2, -1}, {2, -1}}, {}, {}, false};
    library["boxed"] = {"boxed", {{0, 2}, {-2, -1}, {2, -1}}, 8.0f, 4.0f, false};
    library["soft"] = {"soft", {{0, 2}, {-2, -1}, {2, -1}}, {}, {}, true};
    EXPECT_EQ(tubeShapeOutline("tri", library), (std::vector<Point2>{{0, 1}, {-1, -0.5f}, {1, -0.5f}}));
    EXPECT_EQ(tubeShapeOutline("boxed", library), (std::vector<Point2>{{0, 1}, {-0.5f, -0.5f}, {0.5f, -0.5f}}));
    const auto soft = tubeShapeOutline("soft", library, 30);
    EXPECT_EQ(soft.size(), 30u);
    EXPECT_EQ(soft[0], (Point2{0, 1}));  // the curve passes through the points
    EXPECT_TRUE(insideOutline(soft, {0, 0}));
}

TEST(TubeShape, SectionSamplesFallInsideTheStretchedOutline) {
    const auto blade = tubeShapeOutline("blade", {}, 64);
    double meanX = 0;
    for (std::uint64_t seed = 0; seed < 2000; ++seed) {
        const Point2 q = sampleTubeSection(blade, 0.5f, seed);
        ASSERT_TRUE(insideOutline(blade, {q[0], q[1] / 0.5f}));
        meanX += q[0];
        ASSERT_EQ(q, sampleTubeSection(blade, 0.5f, seed));  // decided by the seed alone
    }
    EXPECT_NEAR(meanX / 2000, 0.0, 0.05);
    EXPECT_EQ(sampleTubeSection({}, 1.0f, 1), (Point2{0, 0}));
}

TEST(TubeShape, LibraryShapesRoundTripThroughJson) {
    const CustomTubeShape shape{"leaf", {{0, 1.5f}, {-0.1f, -1}, {0.7f, -0.25f}}, 4.0f, {}, true};
    const nlohmann::json j = tubeShapeToJson(shape);
    EXPECT_EQ(j.dump(), R"({"name":"leaf","points":[0.0,1.5,-0.1,-1.0,0.7,-0.25],"smooth":true,"width":4.0})");
    EXPECT_EQ(tubeShapeFromJson(j), shape);
    auto fails = [](const char* text) {
        return failureText<std::invalid_argument>([&] { tubeShapeFromJson(nlohmann::json::parse(text)); });
    };
    EXPECT_EQ(fails(R"({"points":[0,1,-1,-1,1,-1]})"), "a tube shape needs a name");
    EXPECT_EQ(fails(R"({"name":"a","points":[0,1,"x",-1,1,-1]})"), "tube shape 'a': points must be numbers");
    EXPECT_EQ(fails(R"({"name":"a","points":[0,1,-1,-1,1]})"), "tube shape 'a': points come in x, y pairs");
    EXPECT_EQ(fails(R"({"name":"round","points":[0,1,-1,-1,1,-1]})"),
              "'round' is a built-in tube shape: pick another name");
}

}  // namespace
}  // namespace tressora
