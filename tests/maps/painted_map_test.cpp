#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "core/expect_text.h"
#include "maps/painted_map.h"

namespace tressora {
namespace {

using json = nlohmann::json;

std::string readFailure(const json& maps) {
    return testing::failureText<GroomFileError>([&] { mapCatalogFromJson(maps); });
}

TEST(PaintedMaps, EachKindRoundTripsWithTheKeysItDoesNotRead) {
    const json maps = json::parse(R"({
        "density": {"kind": "texture", "file": "maps/density.png", "channels": 1, "brush": {"size": 3}},
        "tint": {"kind": "texture", "channels": 3},
        "length": {"kind": "vertices", "channels": 2, "vertexCount": 3, "values": [0.1, 1, 0.2, 1, 0.3, 0.5]},
        "waves": {"kind": "guides", "layer": "curly"},
        "frizz": {"kind": "guides"}
    })");
    const auto catalog = mapCatalogFromJson(maps);
    ASSERT_EQ(catalog->maps().size(), 5u);
    const PaintedMap* density = catalog->find("density");
    ASSERT_TRUE(density);
    EXPECT_EQ(density->kind, PaintedMapKind::Texture);
    EXPECT_EQ(density->file, "maps/density.png");
    EXPECT_EQ(density->extra, json::parse(R"({"brush": {"size": 3}})"));
    EXPECT_TRUE(catalog->find("tint")->file.empty());
    const PaintedMap* length = catalog->find("length");
    EXPECT_EQ(length->vertexCount, 3u);
    EXPECT_EQ(length->values, (std::vector<float>{0.1f, 1, 0.2f, 1, 0.3f, 0.5f}));
    EXPECT_EQ(catalog->find("waves")->layer, "curly");
    EXPECT_EQ(catalog->find("nothing"), nullptr);

    const json written = mapCatalogToJson(*catalog);
    EXPECT_EQ(written, maps);  // shortest floats: 0.1f is written 0.1
    EXPECT_EQ(written["length"]["values"].dump(), "[0.1,1.0,0.2,1.0,0.3,0.5]");
    EXPECT_EQ(mapCatalogFromJson(written)->stamp(), catalog->stamp());
}

TEST(PaintedMaps, StampsChangeWithContent) {
    PaintedMap a;
    a.kind = PaintedMapKind::Vertices;
    a.values = {0.5f, 0.25f};
    a.vertexCount = 2;
    PaintedMap b = a;
    b.values[1] = -0.0f;
    PaintedMap c = a;
    c.values[1] = 0.0f;
    EXPECT_NE(paintedMapStamp(a), paintedMapStamp(b));
    EXPECT_NE(paintedMapStamp(b), paintedMapStamp(c));  // by bits
    EXPECT_NE(MapCatalogValue({{"a", a}}).stamp(), MapCatalogValue({{"b", a}}).stamp());
    EXPECT_EQ(MapCatalogValue({{"a", a}}).stamp(), MapCatalogValue({{"a", a}}).stamp());
}

TEST(PaintedMaps, WhatCannotBeReadIsNamedByItsPath) {
    EXPECT_TRUE(mapCatalogFromJson(json())->empty());
    EXPECT_EQ(readFailure(json::array()), "groom file: maps must be an object of painted maps by name");
    EXPECT_EQ(readFailure({{"a", 3}}), "groom file: maps.a must be an object");
    EXPECT_EQ(readFailure({{"a", {{"kind", "paint"}}}}),
              "groom file: maps.a.kind is \"guides\", \"texture\" or \"vertices\", not \"paint\"");
    EXPECT_EQ(readFailure({{"a", json::object()}}),
              "groom file: maps.a.kind is \"guides\", \"texture\" or \"vertices\", not \"\"");
    EXPECT_EQ(readFailure({{"a", {{"kind", 2}}}}), "groom file: maps.a.kind must be text");
    EXPECT_EQ(readFailure({{"a", {{"kind", "texture"}, {"channels", 5}}}}),
              "groom file: maps.a.channels must be a whole number from 1 to 4");
    EXPECT_EQ(readFailure({{"a", {{"kind", "texture"}, {"channels", 1.5}}}}),
              "groom file: maps.a.channels must be a whole number from 1 to 4");
    EXPECT_EQ(readFailure({{"a", {{"kind", "texture"}, {"file", false}}}}), "groom file: maps.a.file must be text");
    EXPECT_EQ(readFailure({{"a", {{"kind", "guides"}, {"layer", 1}}}}), "groom file: maps.a.layer must be text");
    EXPECT_EQ(readFailure({{"a", {{"kind", "vertices"}}}}), "groom file: 'maps.a.values' must be an array of 1-tuples");
    EXPECT_EQ(readFailure({{"a", {{"kind", "vertices"}, {"channels", 3}, {"values", {1, 2}}}}}),
              "groom file: 'maps.a.values' must be an array of 3-tuples");
    EXPECT_EQ(readFailure({{"a", {{"kind", "vertices"}, {"values", {1, "2"}}}}}),
              "groom file: 'maps.a.values' must hold numbers");
    EXPECT_EQ(readFailure({{"a", {{"kind", "vertices"}, {"values", {1, 2}}, {"vertexCount", 3}}}}),
              "groom file: 'maps.a.values' holds 2 points for a vertexCount of 3");
    EXPECT_EQ(readFailure({{"a", {{"kind", "vertices"}, {"values", {1}}, {"vertexCount", -1}}}}),
              "groom file: maps.a.vertexCount must be a whole number");
    // Without a vertexCount, the values tell it.
    EXPECT_EQ(mapCatalogFromJson({{"a", {{"kind", "vertices"}, {"values", {1, 2, 3}}}}})->find("a")->vertexCount, 3u);
}

}  // namespace
}  // namespace tressora
