#include <gtest/gtest.h>

#include <cmath>

#include "core/errors.h"
#include "core/expect_text.h"
#include "maps/expression_map.h"
#include "maps/guide_sampler.h"
#include "maps/map_fields.h"
#include "maps/texture_cache.h"
#include "map_scene.h"
#include "test_images.h"

namespace tressora {
namespace {

using testing::MapScene;
using testing::mapRef;

constexpr MapSource kTexture = MapSource::Texture, kColorSet = MapSource::ColorSet,
                    kAttribute = MapSource::Attribute, kExpression = MapSource::Expression,
                    kGuide = MapSource::Guide;

std::string paramFailure(const MapScene& s, const MapRef& map, const MapBinding& binding = {},
                         ExpressionWant want = ExpressionWant::Number) {
    return testing::failureText<GraphError>([&] { fieldFromParam("density", map, s.context, binding, want); });
}

ScalpMesh::Uv rootUv(const MapScene& s, std::size_t strand) {
    const StrandRoot r = s.strands.roots()[strand];
    return s.scalp->uvAt(r.face, r.u, r.v);
}

// A 4 x 4 RGBA image whose red grows along u, green along v, blue constant, alpha 1 - red.
class ImageMaps : public ::testing::Test {
protected:
    void SetUp() override {
        testing::Pixels8 image{4, 4, 4, {}};
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x) {
                const std::uint8_t r = static_cast<std::uint8_t>(40 + 60 * x), g = static_cast<std::uint8_t>(220 - 60 * y);
                image.data.insert(image.data.end(), {r, g, 128, static_cast<std::uint8_t>(255 - r)});
            }
        path = folder.file("colours.png");
        testing::writePng(path, image);
        texture = Texture::open(path);
    }
    testing::TempFolder folder;
    std::string path;
    std::shared_ptr<const Texture> texture;
    MapScene s;
};

TEST_F(ImageMaps, AnImageFileGivesEachStrandItsRootTexelRemappedOntoMinAndMax) {
    const std::pair<MapComponent, int> components[] = {{MapComponent::Red, 0}, {MapComponent::Green, 1},
                                                      {MapComponent::Blue, 2}, {MapComponent::Alpha, 3},
                                                      {MapComponent::Luminance, 4}, {MapComponent::Auto, 4}};
    for (const auto& [c, channel] : components) {
        const auto field = fieldFromParam("density", mapRef(kTexture, path, c, 0.2, 0.8), s.context);
        EXPECT_FALSE(field->perPoint());
        for (std::size_t i = 0; i < s.strands.strandCount(); ++i) {
            const ScalpMesh::Uv uv = rootUv(s, i);
            const Rgba texel = texture->sample(uv[0], uv[1]);
            const float raw = channel < 4 ? texel[static_cast<std::size_t>(channel)] : luminance(texel);
            EXPECT_FLOAT_EQ(field->strandValue(s.strands, i), 0.2f + 0.6f * raw) << i;
            EXPECT_FLOAT_EQ(field->pointValue(s.strands, i, s.strands.pointRange(i).end - 1), 0.2f + 0.6f * raw);
        }
    }
    // The colour of a strand is the remapped RGB.
    const auto field = fieldFromParam("tint", mapRef(kTexture, path, MapComponent::Auto, 0.0, 2.0), s.context);
    const ScalpMesh::Uv uv = rootUv(s, 3);
    const Rgba texel = texture->sample(uv[0], uv[1]);
    const auto rgb = field->strandColor(s.strands, 3);
    for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(rgb[k], 2.0f * texel[k]);
}

TEST_F(ImageMaps, StrandsOffTheScalpReadZeroAndTheMeanStandsForTheWhole) {
    StrandSet loose;
    const std::vector<Vec3f> points = {{0.5f, 0.5f, 0}, {0.5f, 0.5f, 1}};
    loose.addStrand(1, {}, points);
    loose.addStrand(2, {99, 0.1f, 0.1f}, points);  // a face the scalp doesn't have
    const auto field = fieldFromParam("density", mapRef(kTexture, path, MapComponent::Red, 0.5, 1.0), s.context);
    EXPECT_FLOAT_EQ(field->strandValue(loose, 0), 0.5f);
    EXPECT_FLOAT_EQ(field->strandValue(loose, 1), 0.5f);
    EXPECT_FLOAT_EQ(field->remapped(), 0.5f + 0.5f * texture->mean()[0]);
    EXPECT_NEAR(texture->mean()[0], (40.0f + 100 + 160 + 220) / 4 / 255, 1e-6f);
}

TEST_F(ImageMaps, PaintedTextureMapsAreReadByNameThroughTheResolver) {
    PaintedMap painted;
    painted.kind = PaintedMapKind::Texture;
    painted.file = "colours.png";  // relative: the resolver finds it
    painted.channels = 4;
    s.setCatalog({{"density", painted}});
    const MapFields fields(s.context, [&](const std::string& p) { return folder.file(p); });
    s.context.maps = &fields;
    const auto field = fieldFromParam("density", mapRef(kTexture, "density", MapComponent::Green), s.context);
    const ScalpMesh::Uv uv = rootUv(s, 2);
    EXPECT_FLOAT_EQ(field->strandValue(s.strands, 2), texture->sample(uv[0], uv[1])[1]);
    // The evaluator's hook gives the same field for the same reference, made once.
    const auto a = fields.fieldFor(mapRef(kTexture, "density"));
    EXPECT_EQ(a.get(), fields.fieldFor(mapRef(kTexture, "density")).get());
    EXPECT_FLOAT_EQ(a->strandValue(s.strands, 2), luminance(texture->sample(uv[0], uv[1])));
}

TEST(ColorSetMaps, AColorSetIsBlendedAtTheRootTriangle) {
    MapScene s;
    const auto green = fieldFromParam("p", mapRef(kColorSet, "tint", MapComponent::Green), s.context);
    const auto alpha = fieldFromParam("p", mapRef(kColorSet, "tint", MapComponent::Alpha, 1.0, 3.0), s.context);
    const auto lum = fieldFromParam("p", mapRef(kColorSet, "tint"), s.context);
    for (std::size_t i = 0; i < s.strands.strandCount(); ++i) {
        const Vec3f root = s.strands.strandPoints(i)[0];
        EXPECT_NEAR(green->strandValue(s.strands, i), root.y, 1e-6f);
        EXPECT_NEAR(alpha->strandValue(s.strands, i), 1.0f + 2.0f * (1.0f - root.x), 1e-5f);
        EXPECT_NEAR(lum->strandValue(s.strands, i), 0.2126f * root.x + 0.7152f * root.y + 0.0722f * 0.25f, 1e-6f);
    }
}

TEST(VertexMaps, AVertexMapIsBlendedFromItsPointsAndMustFitTheScalp) {
    MapScene s;
    PaintedMap painted;
    painted.kind = PaintedMapKind::Vertices;
    painted.channels = 2;
    for (const Vec3f& p : s.scalp->points()) painted.values.insert(painted.values.end(), {p.x + p.y, 0.5f});
    painted.vertexCount = s.scalp->pointCount();
    s.setCatalog({{"reach", painted}});
    for (MapSource source : {kTexture, kColorSet}) {
        const auto field = fieldFromParam("length", mapRef(source, "reach"), s.context);
        for (std::size_t i = 0; i < s.strands.strandCount(); ++i) {
            const Vec3f root = s.strands.strandPoints(i)[0];
            EXPECT_NEAR(field->strandValue(s.strands, i), root.x + root.y, 1e-6f);
        }
        const auto alpha = fieldFromParam("length", mapRef(source, "reach", MapComponent::Alpha), s.context);
        EXPECT_FLOAT_EQ(alpha->strandValue(s.strands, 0), 0.5f);
    }
    painted.values.resize(painted.values.size() - 2);
    painted.vertexCount -= 1;
    s.setCatalog({{"reach", painted}});
    EXPECT_EQ(paramFailure(s, mapRef(kTexture, "reach")),
              "param 'density': map(\"reach\"): the vertex map does not fit this scalp");
    EXPECT_EQ(paintedMapMismatches(*std::make_shared<MapCatalogValue>(std::map<std::string, PaintedMap>{
                                       {"reach", painted}}),
                                   *s.scalp),
              (std::vector<std::string>{"map 'reach' was painted on a scalp with 8 vertices; this one has 9 (convert "
                                        "it to a texture or guide layer on the old scalp, or fill it anew)"}));
}

TEST(ChannelMaps, StrandAndPointChannelsAreReadFromTheStrandsHandedIn) {
    MapScene s;
    MapBinding binding;
    binding.strands = &s.strands;
    binding.strandsInput = true;
    const auto group = fieldFromParam("p", mapRef(kAttribute, "group", MapComponent::Auto, 0, 0.5), s.context, binding);
    EXPECT_FALSE(group->perPoint());
    EXPECT_FLOAT_EQ(group->strandValue(s.strands, 4), 2.0f);
    EXPECT_FLOAT_EQ(group->pointValue(s.strands, 4, s.strands.pointRange(4).begin + 2), 2.0f);
    const auto curl = fieldFromParam("p", mapRef(kAttribute, "curl"), s.context, binding);
    EXPECT_TRUE(curl->perPoint());
    const PointRange r = s.strands.pointRange(3);
    EXPECT_FLOAT_EQ(curl->strandValue(s.strands, 3), 0.0f);
    EXPECT_FLOAT_EQ(curl->pointValue(s.strands, 3, r.begin + 3), 3.0f);
    // Unknown strands (the evaluator's hook): missing channels read 0.
    const auto unknown = fieldFromParam("p", mapRef(kAttribute, "nothing"), s.context);
    EXPECT_FLOAT_EQ(unknown->strandValue(s.strands, 0), 0.0f);
}

TEST(GuideMaps, GuideLayersBlendTheNearestGuidesAndPointLayersFollowTheStrand) {
    MapScene s;
    MapBinding binding;
    binding.guidesInput = true;
    binding.guides = testing::mapGuides();
    const auto curly = fieldFromParam("p", mapRef(kGuide, "curly"), s.context, binding);
    EXPECT_FALSE(curly->perPoint());
    for (std::size_t i = 0; i < s.strands.strandCount(); ++i) {
        const Vec3f root = s.strands.strandPoints(i)[0];
        const float d0 = lengthSquared(root), d1 = lengthSquared(root - Vec3f{1, 1, 0});
        const float expected = (1.0f / d1) / (1.0f / d0 + 1.0f / d1);
        EXPECT_NEAR(curly->strandValue(s.strands, i), expected, 1e-5f) << i;
    }
    StrandSet onGuide;
    onGuide.addStrand(1, {}, std::vector<Vec3f>{{1, 1, 0}, {1, 1, 3}});
    EXPECT_FLOAT_EQ(curly->strandValue(onGuide, 0), 1.0f);

    const auto frizz = fieldFromParam("p", mapRef(kGuide, "frizz", MapComponent::Auto, 0, 4), s.context, binding);
    EXPECT_TRUE(frizz->perPoint());
    const PointRange r = s.strands.pointRange(1);
    EXPECT_NEAR(frizz->pointValue(s.strands, 1, r.begin), 0.0f, 1e-6f);
    EXPECT_NEAR(frizz->pointValue(s.strands, 1, r.begin + 1), 4.0f / 3.0f, 1e-5f);
    EXPECT_NEAR(frizz->pointValueAt(s.strands, 1, r.begin, 0.75f), 3.0f, 1e-5f);
    EXPECT_NEAR(frizz->pointValue(s.strands, 1, r.end - 1), 4.0f, 1e-5f);

    // A painted map of the guides kind names its layer.
    PaintedMap layer;
    layer.kind = PaintedMapKind::Guides;
    layer.layer = "curly";
    s.setCatalog({{"waves", layer}});
    EXPECT_FLOAT_EQ(fieldFromParam("p", mapRef(kTexture, "waves"), s.context, binding)->strandValue(onGuide, 0), 1.0f);
    EXPECT_FLOAT_EQ(fieldFromParam("p", mapRef(kGuide, "waves"), s.context, binding)->strandValue(onGuide, 0), 1.0f);
}

TEST(ExpressionMaps, ExpressionsReadRootsShapesPointsChannelsAndMaps) {
    MapScene s;
    MapBinding binding;
    binding.strands = &s.strands;
    binding.strandsInput = true;
    const auto field = fieldFromParam(
        "p", mapRef(kExpression, "u + 10 * map(\"tint\", \"g\") + 100 * group + frame", MapComponent::Auto, 0, 1),
        s.context, binding);
    EXPECT_FALSE(field->perPoint());
    EXPECT_TRUE(field->readsTime());
    for (std::size_t i = 0; i < s.strands.strandCount(); ++i) {
        const Vec3f root = s.strands.strandPoints(i)[0];
        EXPECT_NEAR(field->strandValue(s.strands, i), root.x + 10 * root.y + 100 * float(i) + 12, 1e-3f) << i;
    }

    const auto perPoint = std::dynamic_pointer_cast<const ExpressionMap>(
        fieldFromParam("p", mapRef(kExpression, "t + 10 * curl + length", MapComponent::Auto, 1, 3), s.context, binding));
    ASSERT_TRUE(perPoint);
    EXPECT_TRUE(perPoint->perPoint());
    const PointRange r = s.strands.pointRange(2);
    const float length = 0.3f * 3;
    std::vector<float> points(r.size());
    perPoint->evaluatePoints(s.strands, 2, points);
    for (std::size_t k = 0; k < r.size(); ++k) {
        const float expected = 1 + 2 * (float(k) / 3 + 10 * float(k) + length);
        EXPECT_NEAR(perPoint->pointValue(s.strands, 2, r.begin + k), expected, 1e-4f);
        EXPECT_NEAR(perPoint->evaluate(s.strands, 2, r.begin + k), expected, 1e-4f);
        EXPECT_NEAR(points[k], expected, 1e-4f);
    }
    EXPECT_NEAR(perPoint->strandValue(s.strands, 2), 1 + 2 * length, 1e-4f);  // the root's value

    // A vector param takes a vector expression; its remap applies to each component.
    const auto vec = std::dynamic_pointer_cast<const ExpressionMap>(
        fieldFromParam("dir", mapRef(kExpression, "[x, y, 1] * 2"), s.context, binding, ExpressionWant::Vector));
    const Vec3f root = s.strands.strandPoints(5)[0];
    const Vec3f v = vec->evaluateVector(s.strands, 5);
    EXPECT_NEAR(v.x, 2 * root.x, 1e-6f);
    EXPECT_NEAR(v.y, 2 * root.y, 1e-6f);
    EXPECT_FLOAT_EQ(v.z, 2.0f);
}

TEST(ExpressionMaps, TheEnvironmentCarriesSurfaceShapeAndIdentity) {
    MapScene s;
    const auto get = [&](const char* text, const StrandSet& strands, std::size_t strand,
                         std::size_t point = ExpressionEnvironment::kNoPoint) {
        return std::dynamic_pointer_cast<const ExpressionMap>(fieldFromParam("p", mapRef(kExpression, text), s.context))
            ->evaluate(strands, strand, point);
    };
    const StrandRoot r = s.strands.roots()[4];
    const Vec3f root = s.scalp->positionAt(r.face, r.u, r.v);
    const float nz = s.scalp->normalAt(r.face, r.u, r.v).z;
    const std::size_t begin = s.strands.pointRange(4).begin;
    // A bent strand off the scalp: it stands on its first segment.
    StrandSet bent;
    bent.addStrand(7, {}, std::vector<Vec3f>{{0, 0, 0}, {0, 0, 1}, {1, 0, 1}});
    const struct {
        const char* text;
        const StrandSet* strands;
        std::size_t strand, point;
        float expected;
    } cases[] = {
        {"x", &s.strands, 4, ExpressionEnvironment::kNoPoint, root.x},
        {"v", &s.strands, 4, ExpressionEnvironment::kNoPoint, s.scalp->uvAt(r.face, r.u, r.v)[1]},
        {"nz", &s.strands, 4, ExpressionEnvironment::kNoPoint, nz},
        {"prefy", &s.strands, 4, ExpressionEnvironment::kNoPoint, root.y},
        {"index", &s.strands, 4, ExpressionEnvironment::kNoPoint, 4.0f},
        {"id", &s.strands, 4, ExpressionEnvironment::kNoPoint, 104.0f},
        {"faceId", &s.strands, 4, ExpressionEnvironment::kNoPoint, 4.0f},
        {"length", &s.strands, 4, ExpressionEnvironment::kNoPoint, 1.5f},
        {"longest", &s.strands, 0, ExpressionEnvironment::kNoPoint, 1.8f},
        {"reach", &s.strands, 4, ExpressionEnvironment::kNoPoint, 1.5f},
        {"straightness", &s.strands, 4, ExpressionEnvironment::kNoPoint, 1.0f},
        {"lift", &s.strands, 4, ExpressionEnvironment::kNoPoint, 1.5f * nz},
        {"tipz", &s.strands, 4, ExpressionEnvironment::kNoPoint, 1.5f},
        {"time", &s.strands, 0, ExpressionEnvironment::kNoPoint, 0.5f},
        {"rand", &s.strands, 3, ExpressionEnvironment::kNoPoint, strandRandom(103)},
        {"pointIndex", &s.strands, 4, begin + 2, 2.0f},
        {"pz", &s.strands, 4, begin + 2, 1.0f},
        {"pt", &s.strands, 4, begin + 1, 1.0f / 3.0f},
        {"length", &bent, 0, ExpressionEnvironment::kNoPoint, 2.0f},
        {"reach", &bent, 0, ExpressionEnvironment::kNoPoint, std::sqrt(2.0f)},
        {"straightness", &bent, 0, ExpressionEnvironment::kNoPoint, std::sqrt(2.0f) / 2.0f},
        {"lift", &bent, 0, ExpressionEnvironment::kNoPoint, 1.0f},
        {"tipx + 10 * faceId", &bent, 0, ExpressionEnvironment::kNoPoint, -9.0f},
        {"pt", &bent, 0, ExpressionEnvironment::kNoPoint, 0.0f},
    };
    for (const auto& c : cases) EXPECT_NEAR(get(c.text, *c.strands, c.strand, c.point), c.expected, 1e-5f) << c.text;
    EXPECT_NE(get("rand", s.strands, 3), get("rand", s.strands, 2));
    // A constant expression's mean is its value; the base environment has frame and time.
    EXPECT_FLOAT_EQ(fieldFromParam("p", mapRef(kExpression, "frame * 2", MapComponent::Auto, 0, 0.5), s.context)
                        ->remapped(),
                    12.0f);
}

TEST(MapParams, AConstantMakesNoFieldAndStampsFollowTheSource) {
    MapScene s;
    EXPECT_EQ(fieldFromParam("p", ParamValue(0.5), s.context), nullptr);
    EXPECT_EQ(fieldFromParam("p", ParamValue(std::string("tint")), s.context), nullptr);
    const auto a = fieldFromParam("p", mapRef(kColorSet, "tint"), s.context);
    const auto b = fieldFromParam("p", mapRef(kColorSet, "tint"), s.context);
    const auto c = fieldFromParam("p", mapRef(kColorSet, "tint", MapComponent::Red), s.context);
    const auto d = fieldFromParam("p", mapRef(kColorSet, "tint", MapComponent::Auto, 0, 2), s.context);
    EXPECT_EQ(a->stamp(), b->stamp());
    EXPECT_NE(a->stamp(), c->stamp());
    EXPECT_NE(a->stamp(), d->stamp());
    // An expression that reads the frame stamps it; one that doesn't, doesn't.
    EvalContext later = s.context;
    later.frame = 13;
    const auto still = [&](const EvalContext& c2) { return fieldFromParam("p", mapRef(kExpression, "u"), c2)->stamp(); };
    const auto moving = [&](const EvalContext& c2) { return fieldFromParam("p", mapRef(kExpression, "u + frame"), c2)->stamp(); };
    EXPECT_EQ(still(s.context), still(later));
    EXPECT_NE(moving(s.context), moving(later));
}

TEST(MapParams, EachUnreadableMapSaysWhatToDo) {
    MapScene s;
    const std::string missing = "/nonexistent/tressora/colours.png";
    EXPECT_EQ(paramFailure(s, mapRef(kTexture, missing)),
              "param 'density': cannot read '" + missing + "': file not found");
    EXPECT_EQ(paramFailure(s, mapRef(kColorSet, "paint")), "param 'density': the scalp has no color set 'paint'");
    EXPECT_EQ(paramFailure(s, mapRef(kTexture, "x.png"), {}, ExpressionWant::Vector),
              "param 'density': a vector takes an expression (a texture map gives one number)");
    EXPECT_EQ(paramFailure(s, mapRef(kAttribute, "group"), {}, ExpressionWant::Vector),
              "param 'density': a vector takes an expression (a channel map gives one number)");
    EXPECT_EQ(paramFailure(s, mapRef(kExpression, "u +")).rfind("param 'density': expression 'u +'", 0), 0u);
    EXPECT_EQ(paramFailure(s, mapRef(kExpression, "u"), {}, ExpressionWant::Vector),
              "param 'density': expression 'u' gives a number; this takes a vector, e.g. [0, -1, 0] or normalize(N)");

    // Painted maps: texture without a file, tile sets, and a scalp without UVs.
    PaintedMap unsaved;
    unsaved.kind = PaintedMapKind::Texture;
    PaintedMap tiles = unsaved;
    tiles.file = "paint.<udim>.png";
    s.setCatalog({{"unsaved", unsaved}, {"tiles", tiles}});
    EXPECT_EQ(paramFailure(s, mapRef(kTexture, "unsaved")),
              "param 'density': map(\"unsaved\"): the texture map has no image file yet");
    EXPECT_EQ(paramFailure(s, mapRef(kTexture, "tiles")),
              "param 'density': a scalp map is one image over UVs 0-1: UDIM tile sets can't be used as scalp maps");
    MapScene bare(testing::mapScalp(false));
    EXPECT_EQ(paramFailure(bare, mapRef(kTexture, "x.png")), "param 'density': a texture map needs a scalp with UVs");

    // Guide layers need guides on the node.
    EXPECT_EQ(paramFailure(s, mapRef(kGuide, "curly")),
              "param 'density' must be a layer painted on the guides, with the guides connected to this node");
    MapBinding unconnected;
    unconnected.guidesInput = true;
    EXPECT_EQ(paramFailure(s, mapRef(kGuide, "curly"), unconnected),
              "param 'density': a guide map here needs guides: connect them to this node's guides input");
    MapBinding connected = unconnected;
    connected.guides = testing::mapGuides();
    EXPECT_EQ(paramFailure(s, mapRef(kGuide, "straight"), connected),
              "param 'density': no guide carries the layer 'straight'");
}

TEST(MapParams, ExpressionReadsAreCheckedAgainstTheStrandsAndTheGroomsMaps) {
    MapScene s;
    MapBinding binding;
    binding.strands = &s.strands;
    binding.strandsInput = true;
    binding.guides = testing::mapGuides();
    EXPECT_EQ(paramFailure(s, mapRef(kExpression, "clumpiness * 2"), binding),
              "param 'density': the expression reads 'clumpiness', which is neither a variable nor a channel of "
              "the strands");
    EXPECT_EQ(paramFailure(s, mapRef(kExpression, "curly * 2"), binding),
              "param 'density': strands have no attribute 'curly' on the strands (Interpolate writes it; paint it on "
              "the guides)");
    EXPECT_EQ(paramFailure(s, mapRef(kAttribute, "clumpiness"), binding),
              "param 'density': the strands have no channel 'clumpiness'");
    MapBinding empty;
    empty.strandsInput = true;
    EXPECT_EQ(paramFailure(s, mapRef(kExpression, "group"), empty),
              "param 'density': no strands yet, so 'group' can't be read");

    EXPECT_EQ(paramFailure(s, mapRef(kExpression, "map(\"paint\")")), "param 'density': no map named 'paint'");
    EXPECT_EQ(paramFailure(s, mapRef(kExpression, "map('${DESC}/paintmaps/density/')")),
              "param 'density': map('${DESC}/paintmaps/density/'): XGen's paint maps do not carry over; Tressora "
              "reads the groom's own maps by name, here 'density', and the groom has none of that name (paint one "
              "in Groom Tools > Paint, or write map(\"name\"))");
    EXPECT_EQ(paramFailure(s, mapRef(kExpression, "map('${DESC}/')")),
              "param 'density': map('${DESC}/'): give the name of one of the groom's maps, map(\"name\")");
    // An XGen path whose map the groom has reads that map.
    const auto xgen = fieldFromParam("p", mapRef(kExpression, "map('${DESC}/paintmaps/tint/tint.ptx', 'r')"), s.context);
    EXPECT_NEAR(xgen->strandValue(s.strands, 1), s.strands.strandPoints(1)[0].x, 1e-6f);
    // cmap gives the colour.
    const auto colour = std::dynamic_pointer_cast<const ExpressionMap>(
        fieldFromParam("p", mapRef(kExpression, "cmap(\"tint\")"), s.context, {}, ExpressionWant::Vector));
    EXPECT_NEAR(colour->evaluateVector(s.strands, 1).z, 0.25f, 1e-6f);
}

TEST(MapParams, TheEvaluatorsHookReadsGuideLayersFromTheSceneAndSpeaksOfTheMap) {
    MapScene s;
    const MapFields fields(s.context);
    EXPECT_EQ(testing::failureText<GraphError>([&] { fields.fieldFor(mapRef(kGuide, "curly")); }),
              "the map must be a layer painted on the guides, with the guides connected to this node");
    EXPECT_EQ(testing::failureText<GraphError>([&] { fields.fieldFor(mapRef(kColorSet, "paint")); }),
              "the scalp has no color set 'paint'");
    s.setGuides(testing::mapGuides());
    StrandSet onGuide;
    onGuide.addStrand(1, {}, std::vector<Vec3f>{{1, 1, 0}, {1, 1, 3}});
    EXPECT_FLOAT_EQ(fields.fieldFor(mapRef(kGuide, "curly"))->strandValue(onGuide, 0), 1.0f);
}

}  // namespace
}  // namespace tressora
