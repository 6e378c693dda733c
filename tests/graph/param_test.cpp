#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "graph/param_json.h"
#include "graph/param_set.h"
#include "graph/param_spec.h"
#include "graph/value_kind.h"

namespace tressora {
namespace {

using nlohmann::json;

ParamSpec spec(const std::string& name, ParamValue def) {
    ParamSpec s;
    s.name = name;
    s.defaultValue = std::move(def);
    return s;
}

std::string graphErrorOf(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const GraphError& e) {
        return e.what();
    }
    return "(no GraphError)";
}

TEST(ParamJson, ReadsEachJsonTypeAsItsParamKind) {
    const ParamSpec asInt = spec("count", std::int64_t{0});
    const ParamSpec asFloat = spec("length", 1.0);
    EXPECT_EQ(paramFromJson(json(true), nullptr, "p"), ParamValue(true));
    EXPECT_EQ(paramFromJson(json("hi"), nullptr, "p"), ParamValue(std::string("hi")));
    EXPECT_EQ(paramFromJson(json(3), nullptr, "p"), ParamValue(std::int64_t{3}));
    EXPECT_EQ(paramFromJson(json(-3), nullptr, "p"), ParamValue(std::int64_t{-3}));
    EXPECT_EQ(paramFromJson(json(2.5), nullptr, "p"), ParamValue(2.5));
    EXPECT_EQ(paramFromJson(json(3), &asFloat, "p"), ParamValue(3.0));
    EXPECT_EQ(paramFromJson(json(3.75), &asInt, "p"), ParamValue(std::int64_t{3}));
    EXPECT_EQ(paramFromJson(json::array({1, 2.5, -3}), nullptr, "p"), ParamValue(Vec3f(1, 2.5f, -3)));
}

TEST(ParamJson, IntegerRangeIsCheckedForFractionalAndHugeNumbers) {
    const ParamSpec asInt = spec("count", std::int64_t{0});
    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json(1e30), &asInt, "count"); }),
              "param 'count' is out of range for an integer");
    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json(18446744073709551615ull), &asInt, "count"); }),
              "param 'count' is out of range for an integer");
    EXPECT_EQ(paramFromJson(json(-9.2e18), &asInt, "count"), ParamValue(std::int64_t(-9.2e18)));
}

TEST(ParamJson, RampsFromObjectsArraysAndText) {
    const ParamSpec asRamp = spec("profile", Ramp{});
    const Ramp expected{{{0, 1}, {1, 0.5}}, false};
    EXPECT_EQ(paramFromJson(json::parse(R"({"keys": [[0, 1], [1, 0.5]]})"), nullptr, "p"), ParamValue(expected));
    EXPECT_EQ(paramFromJson(json::parse(R"([[0, 1], [1, 0.5]])"), &asRamp, "p"), ParamValue(expected));
    EXPECT_EQ(paramFromJson(json(R"({"keys": [[0, 1], [1, 0.5]]})"), &asRamp, "p"), ParamValue(expected));
    Ramp linear = expected;
    linear.linear = true;
    EXPECT_EQ(paramFromJson(json::parse(R"({"keys": [[0, 1], [1, 0.5]], "linear": true})"), nullptr, "p"),
              ParamValue(linear));

    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json::parse(R"({"keys": [[0]]})"), nullptr, "profile"); }),
              "ramp for param 'profile' needs keys [[position, value], ...]");
    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json::parse(R"([1, 2])"), &asRamp, "profile"); }),
              "ramp for param 'profile' needs keys [[position, value], ...]");
    EXPECT_EQ(graphErrorOf([&] { rampFromText("{not json"); }), "ramp: malformed JSON");
    EXPECT_EQ(graphErrorOf([&] { rampFromText(R"({"points": []})"); }), "ramp: needs keys [[position, value], ...]");
}

TEST(ParamJson, MapsNeedExactlyOneSourceAndAKnownComponent) {
    const ParamValue map = paramFromJson(
        json::parse(R"({"texture": "maps/density.<UDIM>.png", "component": "r", "min": 0.2, "max": 0.8})"), nullptr,
        "density");
    ASSERT_TRUE(std::holds_alternative<MapRef>(map));
    const MapRef& m = std::get<MapRef>(map);
    EXPECT_EQ(m.source, MapSource::Texture);
    EXPECT_EQ(m.text, "maps/density.<UDIM>.png");
    EXPECT_EQ(m.component, MapComponent::Red);
    EXPECT_DOUBLE_EQ(m.min, 0.2);
    EXPECT_DOUBLE_EQ(m.max, 0.8);

    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json::parse(R"({"texture": "a", "guide": "b"})"), nullptr, "d"); }),
              "map for param 'd' needs exactly one of texture, colorSet, attribute, expression, guide");
    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json::parse(R"({"colorSet": "c", "component": "hue"})"), nullptr, "d"); }),
              "map for param 'd': unknown component 'hue'");
    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json::parse(R"({"other": 1})"), nullptr, "d"); }),
              "unsupported value for param 'd'");
    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json(nullptr), nullptr, "d"); }), "unsupported value for param 'd'");
    EXPECT_EQ(graphErrorOf([&] { paramFromJson(json::array({1, 2}), nullptr, "d"); }),
              "unsupported value for param 'd'");
}

TEST(ParamJson, WrittenValuesReadBackEqual) {
    const std::vector<ParamValue> values = {
        true, std::int64_t{-7}, 0.125, std::string("clumpId"), Vec3f(0.1f, -2, 3e-8f),
        Ramp{{{0, 0}, {0.3, 0.9}, {1, 1}}, true},
        MapRef{MapSource::Expression, "$u * 2", MapComponent::Auto, 0.0, 1.0},
        MapRef{MapSource::ColorSet, "tint", MapComponent::Luminance, -1.0, 2.0}};
    for (const ParamValue& v : values) {
        const ParamSpec hint = spec("p", v);
        const std::string text = paramToJson(v).dump();
        EXPECT_EQ(paramFromJson(json::parse(text), &hint, "p"), v) << text;
    }
    // A map at its default component and range writes only its source.
    EXPECT_EQ(paramToJson(MapRef{MapSource::Guide, "crown"}).dump(), R"({"guide":"crown"})");
}

TEST(ParamCoerce, AcceptsCompatibleKindsAndNamesWhatItRefuses) {
    const ParamSpec flag = spec("enabled", false);
    const ParamSpec count = spec("count", std::int64_t{0});
    const ParamSpec amount = spec("amount", 0.0);
    const ParamSpec dir = spec("direction", Vec3f());
    ParamSpec mode = spec("mode", std::string("uniform"));
    mode.choices = {"uniform", "uvGrid"};
    const ParamSpec label = spec("label", std::string());

    EXPECT_EQ(coerce(UniformValue::number(0.5), flag), ParamValue(true));
    EXPECT_EQ(coerce(UniformValue::integer(0), flag), ParamValue(false));
    EXPECT_EQ(coerce(UniformValue::number(-2.9), count), ParamValue(std::int64_t{-2}));
    EXPECT_EQ(coerce(UniformValue::boolean(true), amount), ParamValue(1.0));
    EXPECT_EQ(coerce(UniformValue::integer(4), amount), ParamValue(4.0));
    EXPECT_EQ(coerce(UniformValue::vec3({1, 2, 3}), dir), ParamValue(Vec3f(1, 2, 3)));
    EXPECT_EQ(coerce(UniformValue::choice("uvGrid"), mode), ParamValue(std::string("uvGrid")));
    EXPECT_EQ(coerce(UniformValue::choice("uvGrid"), label), ParamValue(std::string("uvGrid")));

    EXPECT_EQ(graphErrorOf([&] { coerce(UniformValue::text("yes"), flag); }),
              "param 'enabled' takes bool and cannot take yes");
    EXPECT_EQ(graphErrorOf([&] { coerce(UniformValue::number(1e300), count); }),
              "param 'count' takes integer: 1e+300 is out of range for an integer");
    EXPECT_EQ(graphErrorOf([&] { coerce(UniformValue::text("random"), mode); }),
              "param 'mode' takes choice: 'random' is not one of its choices (uniform, uvGrid)");
    EXPECT_EQ(graphErrorOf([&] { coerce(UniformValue::vec3({1, 2, 3}), amount); }),
              "param 'amount' takes number and cannot take [1, 2, 3]");
}

TEST(ValueKinds, CompatibilityFollowsTheTable) {
    using K = ValueKind;
    EXPECT_TRUE(valueKindsCompatible(K::Choice, K::Text));
    EXPECT_TRUE(valueKindsCompatible(K::Number, K::Bool));
    EXPECT_TRUE(valueKindsCompatible(K::Bool, K::Vec3));
    EXPECT_TRUE(valueKindsCompatible(K::Vec3, K::Any));
    EXPECT_TRUE(valueKindsCompatible(K::Text, K::Any));
    EXPECT_FALSE(valueKindsCompatible(K::Vec3, K::Text));
    EXPECT_FALSE(valueKindsCompatible(K::Vec3, K::Number));
    EXPECT_FALSE(valueKindsCompatible(K::Number, K::Text));
    EXPECT_FALSE(valueKindsCompatible(K::Text, K::Number));
    EXPECT_EQ(parseValueKind("vec3"), K::Vec3);
    EXPECT_EQ(graphErrorOf([] { parseValueKind("float"); }),
              "unknown value kind 'float' (any, number, integer, bool, vec3, choice or text)");
}

TEST(ParamSpec, DecimalsFollowUnitsThenSoftRangeThenDefault) {
    ParamSpec s = spec("x", 0.0);
    s.softMin = 0.0;
    s.softMax = 0.0;
    EXPECT_EQ(s.decimals(), 3);  // a span that is not positive
    s.softMax = 0.05;
    EXPECT_EQ(s.decimals(), 4);
    s.softMax = 500.0;
    EXPECT_EQ(s.decimals(), 1);
    s.softMax = 20.0;
    EXPECT_EQ(s.decimals(), 2);
    s.unit = "angle";
    EXPECT_EQ(s.decimals(), 1);
    s.unit = "turns";
    EXPECT_EQ(s.decimals(), 2);
    s.unit = "pixels";
    EXPECT_EQ(s.decimals(), 0);

    ParamSpec onlyMin = spec("y", 250.0);
    onlyMin.softMin = 0.0;
    EXPECT_EQ(onlyMin.decimals(), 1);  // a float takes its default as the span
    onlyMin.defaultValue = 0.01;
    EXPECT_EQ(onlyMin.decimals(), 4);
    EXPECT_EQ(spec("v", Vec3f()).decimals(), 3);
    EXPECT_EQ(spec("n", std::int64_t{5}).decimals(), 0);
}

TEST(ParamSpec, PortRuleGivesFieldCurveValueOrNothing) {
    ParamSpec mappable = spec("density", 1.0);
    mappable.description = "Hairs per unit (mappable)";
    EXPECT_TRUE(mappable.mappable());
    EXPECT_EQ(paramPort(mappable)->type, PortType::Field);
    EXPECT_TRUE(paramPort(mappable)->optional);

    mappable.port = ParamPort::None;
    EXPECT_FALSE(paramPort(mappable));
    mappable.port = ParamPort::Value;
    EXPECT_EQ(paramPort(mappable)->type, PortType::Value);
    EXPECT_EQ(paramPort(mappable)->valueKind, ValueKind::Number);

    ParamSpec word = spec("density", 1.0);
    word.description = "mappable without the parenthesis";
    EXPECT_FALSE(word.mappable());
    EXPECT_EQ(paramPort(word)->type, PortType::Value);

    ParamSpec shortText = spec("s", 1.0);
    shortText.description = "(mappabl";
    EXPECT_FALSE(shortText.mappable());

    ParamSpec ramp = spec("profile", Ramp{});
    EXPECT_EQ(paramPort(ramp)->type, PortType::Curve);
    ramp.port = ParamPort::Value;
    EXPECT_FALSE(paramPort(ramp));

    ParamSpec color = spec("tint", MapRef{});
    color.colorField = true;
    EXPECT_EQ(paramPort(color)->type, PortType::Field);

    ParamSpec choice = spec("mode", std::string("a"));
    choice.choices = {"a", "b"};
    EXPECT_EQ(paramPort(choice)->valueKind, ValueKind::Choice);
    EXPECT_EQ(paramPort(spec("name", std::string()))->valueKind, ValueKind::Text);
}

TEST(ParamSpec, CatalogueJsonKeepsOrderAndLeavesDefaultsOut) {
    ParamSpec s = spec("length", 2.0);
    s.description = "How long (mappable)";
    s.unit = "cm";
    s.softMin = 0.0;
    s.softMax = 50.0;
    s.group = "Shape";
    s.showWhen = ParamCondition{"mode", {"fixed"}};
    EXPECT_EQ(paramSpecToJson(s).dump(),
              R"j({"name":"length","kind":"float","default":2.0,"description":"How long (mappable)",)j"
              R"("mappable":true,"unit":"cm","group":"Shape","decimals":2,"softMin":0.0,"softMax":50.0,)"
              R"("showWhen":{"param":"mode","in":["fixed"]},"port":"Field"})");

    ParamSpec plain = spec("name", std::string("x"));
    plain.port = ParamPort::None;
    EXPECT_EQ(paramSpecToJson(plain).dump(), R"({"name":"name","kind":"string","default":"x","description":""})");
}

TEST(ParamSet, ReadsDefaultsClampsAndStampsEveryChange) {
    ParamSet set;
    EXPECT_EQ(graphErrorOf([&] { set.get("amount"); }), "unknown parameter 'amount'");
    set.declare(spec("amount", 0.5));
    set.declare(spec("count", std::int64_t{4}));
    set.declare(spec("on", true));
    EXPECT_DOUBLE_EQ(set.getFloat("amount", -1), 0.5);
    EXPECT_DOUBLE_EQ(set.getFloat("count", -1), 4.0);
    EXPECT_DOUBLE_EQ(set.getFloat("on", -1), 1.0);
    EXPECT_EQ(set.getString("amount", "fallback"), "fallback");

    const std::uint64_t before = set.stamp();
    set.set("amount", 0.75);
    EXPECT_NE(set.stamp(), before);
    set.set("amount", 0.5);
    EXPECT_EQ(set.stamp(), before);  // the stamp depends on content only
    set.declare(spec("amount", 9.0));  // declaring again keeps the value
    EXPECT_DOUBLE_EQ(set.getFloat("amount", -1), 0.5);

    ParamSet copy = set;
    copy.setLimits("amount", {0.0, 0.25});
    EXPECT_DOUBLE_EQ(copy.getFloat("amount", -1), 0.25);
    EXPECT_DOUBLE_EQ(set.getFloat("amount", -1), 0.5);  // limits are per set

    set.set("amount", -0.0);
    const std::uint64_t negativeZero = set.stamp();
    set.set("amount", 0.0);
    EXPECT_NE(set.stamp(), negativeZero);
}

}  // namespace
}  // namespace tressora
