#include <gtest/gtest.h>

#include <stdexcept>

#include <nlohmann/json.hpp>

#include "core/expect_text.h"
#include "core/tube.h"

namespace tressora {
namespace {

std::string parseFailure(const char* text, const TubeShapeLibrary& library = {}) {
    return testing::failureText<std::invalid_argument>([&] { parseTube(nlohmann::json::parse(text), library); });
}

TEST(Tube, ParsingNamesWhatIsWrong) {
    EXPECT_EQ(parseFailure("[1]"), "tube: a JSON object");
    TubeShapeLibrary library;
    library["star"] = {"star", {{0, 1}, {-1, -1}, {1, -1}}, {}, {}, false};
    EXPECT_EQ(parseFailure(R"({"shape":"ROUND"})", library), "tube shape 'ROUND': one of round, ribbon, teardrop, blade, star");
    EXPECT_EQ(parseFailure(R"({"width":"2"})"), "tube width: a number or a list of numbers");
    EXPECT_EQ(parseFailure(R"({"aspect":[]})"), "tube aspect: an empty list");
    EXPECT_EQ(parseFailure(R"({"twist":[1,"a"]})"), "tube twist: not a number");
    EXPECT_EQ(parseFailure(R"({"twist":[1,[2]]})"), "tube twist: numbers only");
    EXPECT_EQ(parseFailure(R"({"width":[1,-0.5]})"), "tube width: 0 or more");
    EXPECT_EQ(parseFailure(R"({"aspect":0})"), "tube aspect: above 0");
    EXPECT_EQ(parseFailure(R"({"scaleWidth":-1})"), "tube scaleWidth: a number, 0 or more");
    EXPECT_EQ(parseFailure(R"({"samples":1})"), "tube samples: 2 to 1024");
    EXPECT_EQ(parseFailure(R"({"samples":2.5})"), "tube samples: 2 to 1024");
    EXPECT_EQ(parseFailure(R"({"smooth":"everything"})"), "tube smooth: width, aspect, twist or all");
    EXPECT_EQ(parseFailure(R"({"passes":101})"), "tube passes: 1 to 100");
    EXPECT_EQ(parseFailure(R"({"wdith":1})"),
              "tube: unknown key 'wdith' (shape, width, aspect, twist, scaleWidth, samples, smooth or passes)");
}

TEST(Tube, RoundTripsAndWritesConstantListsAsOneNumber) {
    const Tube tube = parseTube(nlohmann::json::parse(
                                    R"({"shape":"ribbon","width":[0.5,0.5],"aspect":[1,0.25],"twist":0.1,
                                        "scaleWidth":2,"samples":8,"smooth":"all","passes":3})"),
                                {});
    const nlohmann::json j = tubeToJson(tube);
    EXPECT_EQ(j.dump(),
              R"({"aspect":[1.0,0.25],"passes":3,"samples":8,"scaleWidth":2.0,"shape":"ribbon","smooth":"all",)"
              R"("twist":0.1,"width":0.5})");
    Tube back = parseTube(j, {});
    EXPECT_EQ(back.width, std::vector<float>{0.5f});
    back.width = tube.width;
    EXPECT_EQ(back, tube);
    // Defaults for what is absent.
    EXPECT_EQ(parseTube(nlohmann::json::object(), {}), Tube{});
}

TEST(Tube, ListsAreSpacedEvenlyFromRootToTip) {
    EXPECT_EQ(tubeValueAt({2.0f}, 0.7f), 2.0f);  // one number is that number everywhere
    EXPECT_EQ(tubeValueAt({}, 0.5f), 0.0f);
    const std::vector<float> list{0.0f, 1.0f, 3.0f};
    EXPECT_FLOAT_EQ(tubeValueAt(list, 0.0f), 0.0f);
    EXPECT_FLOAT_EQ(tubeValueAt(list, 0.25f), 0.5f);
    EXPECT_FLOAT_EQ(tubeValueAt(list, 0.75f), 2.0f);
    EXPECT_FLOAT_EQ(tubeValueAt(list, 1.0f), 3.0f);
    EXPECT_FLOAT_EQ(tubeValueAt(list, 7.0f), 3.0f);
}

TEST(Tube, SamplingScalesWidthsAndSmoothsOnlyWhatIsNamed) {
    Tube tube;
    tube.width = {1.0f, 0.0f};
    tube.twist = {0.0f, 0.0f, 1.0f, 0.0f, 0.0f};
    tube.samples = 5;
    tube.scaleWidth = 2.0f;
    TubeProfiles p = sampleTube(tube);
    EXPECT_EQ(p.width, (std::vector<float>{2.0f, 1.5f, 1.0f, 0.5f, 0.0f}));
    EXPECT_EQ(p.aspect, std::vector<float>(5, 1.0f));
    EXPECT_EQ(p.twist, (std::vector<float>{0, 0, 1, 0, 0}));
    tube.smooth = "twist";
    tube.passes = 1;
    p = sampleTube(tube);
    EXPECT_EQ(p.twist, (std::vector<float>{0, 0.25f, 0.5f, 0.25f, 0}));
    EXPECT_EQ(p.width, (std::vector<float>{2.0f, 1.5f, 1.0f, 0.5f, 0.0f}));  // a straight ramp stays
}

}  // namespace
}  // namespace tressora
