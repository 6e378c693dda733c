#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "core/expect_text.h"
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

template <class Fn>
std::string graphErrorOf(Fn&& fn) {
    return testing::failureText<GraphError>(fn);
}

TEST(ParamJson, ReadsEachJsonTypeAsItsParamKind) {
    const ParamSpec asInt = spec("count", std::int64_t{0});
    const ParamSpec asFloat = spec("length", 1.0);
    const ParamSpec asRamp = spec("profile", Ramp{});
    const Ramp ramp{{{0, 1}, {1, 0.5}}, false};
    const struct {
        json in;
        const ParamSpec* hint;
        ParamValue expected;
    } cases[] = {
        {json(true), nullptr, true},
        {json("hi"), nullptr, std::string("hi")},
        {json(-3), nullptr, std::int64_t{-3}},
        {json(2.5), nullptr, 2.5},
        {json(3), &asFloat, 3.0},
        {json(3.75), &asInt, std::int64_t{3}},
        {json(-9.2e18), &asInt, std::int64_t(-9.2e18)},
        {json::array({1, 2.5, -3}), nullptr, Vec3f(1, 2.5f, -3)},
        {json::parse(R"({"keys": [[0, 1], [1, 0.5]]})"), nullptr, ramp},
        {json::parse(R"([[0, 1], [1, 0.5]])"), &asRamp, ramp},
        {json(R"({"keys": [[0, 1], [1, 0.5]]})"), &asRamp, ramp},
        {json::parse(R"({"keys": [[0, 1], [1, 0.5]], "linear": true})"), nullptr, Ramp{ramp.keys, true}},
        {json::parse(R"({"texture": "maps/d.<UDIM>.png", "component": "r", "min": 0.2, "max": 0.8})"), nullptr,
         MapRef{MapSource::Texture, "maps/d.<UDIM>.png", MapComponent::Red, 0.2, 0.8}},
    };
    for (const auto& c : cases) EXPECT_EQ(paramFromJson(c.in, c.hint, "p"), c.expected) << c.in.dump();
}

TEST(ParamJson, RefusesWhatNoParamHoldsWithTheParamsName) {
    const ParamSpec asInt = spec("count", std::int64_t{0});
    const ParamSpec asRamp = spec("profile", Ramp{});
    const std::string oneOf = "map for param 'd' needs exactly one of texture, colorSet, attribute, expression, guide";
    const struct {
        json in;
        const ParamSpec* hint;
        std::string message;
    } cases[] = {
        {json(1e30), &asInt, "param 'd' is out of range for an integer"},
        {json(18446744073709551615ull), &asInt, "param 'd' is out of range for an integer"},
        {json::parse(R"({"keys": [[0]]})"), nullptr, "ramp for param 'd' needs keys [[position, value], ...]"},
        {json::parse("[1, 2]"), &asRamp, "ramp for param 'd' needs keys [[position, value], ...]"},
        {json::parse(R"({"texture": "a", "guide": "b"})"), nullptr, oneOf},
        {json::parse(R"({"colorSet": "c", "component": "hue"})"), nullptr, "map for param 'd': unknown component 'hue'"},
        {json::parse(R"({"other": 1})"), nullptr, "unsupported value for param 'd'"},
        {json(nullptr), nullptr, "unsupported value for param 'd'"},
        {json::array({1, 2}), nullptr, "unsupported value for param 'd'"},
    };
    for (const auto& c : cases) EXPECT_EQ(graphErrorOf([&] { paramFromJson(c.in, c.hint, "d"); }), c.message) << c.in.dump();
    EXPECT_EQ(graphErrorOf([&] { rampFromText("{not json"); }), "ramp: malformed JSON");
    EXPECT_EQ(graphErrorOf([&] { rampFromText(R"({"points": []})"); }), "ramp: needs keys [[position, value], ...]");
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
    ParamSpec mode = spec("mode", std::string("uniform"));
    mode.choices = {"uniform", "uvGrid"};

    EXPECT_EQ(coerce(UniformValue::number(0.5), flag), ParamValue(true));
    EXPECT_EQ(coerce(UniformValue::integer(0), flag), ParamValue(false));
    EXPECT_EQ(coerce(UniformValue::number(-2.9), count), ParamValue(std::int64_t{-2}));
    EXPECT_EQ(coerce(UniformValue::boolean(true), amount), ParamValue(1.0));
    EXPECT_EQ(coerce(UniformValue::vec3({1, 2, 3}), spec("direction", Vec3f())), ParamValue(Vec3f(1, 2, 3)));
    EXPECT_EQ(coerce(UniformValue::choice("uvGrid"), mode), ParamValue(std::string("uvGrid")));
    EXPECT_EQ(coerce(UniformValue::choice("uvGrid"), spec("label", std::string())), ParamValue(std::string("uvGrid")));

    EXPECT_EQ(graphErrorOf([&] { coerce(UniformValue::text("yes"), flag); }),
              "param 'enabled' takes bool and cannot take yes");
    EXPECT_EQ(graphErrorOf([&] { coerce(UniformValue::number(1e300), count); }),
              "param 'count' takes integer: 1e+300 is out of range for an integer");
    EXPECT_EQ(graphErrorOf([&] { coerce(UniformValue::text("random"), mode); }),
              "param 'mode' takes choice: 'random' is not one of its choices (uniform, uvGrid)");
    EXPECT_EQ(graphErrorOf([&] { coerce(UniformValue::vec3({1, 2, 3}), amount); }),
              "param 'amount' takes number and cannot take [1, 2, 3]");
    EXPECT_FALSE(valueKindsCompatible(ValueKind::Vec3, ValueKind::Number));
    EXPECT_TRUE(valueKindsCompatible(ValueKind::Number, ValueKind::Bool));
    EXPECT_EQ(graphErrorOf([] { parseValueKind("float"); }),
              "unknown value kind 'float' (any, number, integer, bool, vec3, choice or text)");
}

TEST(ParamSpec, DecimalsFollowUnitsThenSoftRangeThenDefault) {
    const struct {
        ParamValue def;
        std::optional<double> softMin, softMax;
        const char* unit;
        int decimals;
    } cases[] = {
        {0.0, 0.0, 0.0, "", 3},  // a span that is not positive
        {0.0, 0.0, 0.05, "", 4},      {0.0, 0.0, 500.0, "", 1},    {0.0, 0.0, 20.0, "", 2},
        {0.0, 0.0, 20.0, "angle", 1}, {0.0, 0.0, 20.0, "turns", 2}, {0.0, 0.0, 20.0, "pixels", 0},
        {250.0, 0.0, {}, "", 1},  // a float takes its default as the span
        {0.01, 0.0, {}, "", 4},       {Vec3f(), {}, {}, "", 3},    {std::int64_t{5}, {}, {}, "", 0},
    };
    for (const auto& c : cases) {
        ParamSpec s = spec("x", c.def);
        s.softMin = c.softMin;
        s.softMax = c.softMax;
        s.unit = c.unit;
        EXPECT_EQ(s.decimals(), c.decimals) << c.unit << " " << c.softMax.value_or(-1);
    }
}

TEST(ParamSpec, PortRuleGivesFieldCurveValueOrNothing) {
    ParamSpec mappable = spec("density", 1.0);
    mappable.description = "Hairs per unit (mappable)";
    EXPECT_EQ(paramPort(mappable)->type, PortType::Field);
    EXPECT_TRUE(paramPort(mappable)->optional);
    mappable.port = ParamPort::None;
    EXPECT_FALSE(paramPort(mappable));
    mappable.port = ParamPort::Value;
    EXPECT_EQ(paramPort(mappable)->valueKind, ValueKind::Number);

    ParamSpec word = spec("density", 1.0);
    word.description = "mappable without the parenthesis";
    EXPECT_EQ(paramPort(word)->type, PortType::Value);
    word.description = "(mappabl";
    EXPECT_FALSE(word.mappable());

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
    set.declare(spec("on", true));
    EXPECT_DOUBLE_EQ(set.getFloat("on", -1), 1.0);
    EXPECT_EQ(set.getString("amount", "fallback"), "fallback");

    const std::uint64_t before = set.stamp();
    set.set("amount", 0.75);
    EXPECT_NE(set.stamp(), before);
    set.set("amount", 0.5);
    EXPECT_EQ(set.stamp(), before);    // the stamp depends on content only
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
