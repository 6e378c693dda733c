#include "maps/map_fields.h"

#include <optional>
#include <vector>

#include "core/errors.h"
#include "core/guide_hierarchy.h"
#include "core/hash.h"
#include "core/scalp_mesh.h"
#include "maps/expression_map.h"
#include "maps/guide_sampler.h"
#include "maps/painted_map.h"
#include "maps/texture_cache.h"
#include "maps/udim.h"

namespace tressora {
namespace {

/// The word for what a non-expression source gives, in "a <kind> map gives one number".
const char* sourceWord(MapSource source) {
    switch (source) {
        case MapSource::Texture: return "texture";
        case MapSource::ColorSet: return "color set";
        case MapSource::Attribute: return "channel";
        case MapSource::Guide: return "guide";
        case MapSource::Expression: return "expression";
    }
    return "texture";
}

bool isPathSeparator(char c) { return c == '/' || c == '\\'; }

/// Whether map()'s text is a path in XGen's style rather than a map's name.
bool looksLikeXgenPath(const std::string& text) {
    return text.find('/') != std::string::npos || text.find('\\') != std::string::npos ||
           text.find("${") != std::string::npos;
}

/// The map name an XGen paint-map path stands for: the folder after "paintmaps", else the
/// last part of the path without its extension; nothing when only variables remain.
std::optional<std::string> xgenMapName(const std::string& text) {
    std::vector<std::string> parts;
    std::string part;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || isPathSeparator(text[i])) {
            if (!part.empty() && part.find('$') == std::string::npos) parts.push_back(part);
            part.clear();
        } else {
            part += text[i];
        }
    }
    std::string name;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i)
        if (parts[i] == "paintmaps") name = parts[i + 1];
    if (name.empty() && !parts.empty()) name = parts.back();
    if (const std::size_t dot = name.find('.'); dot != std::string::npos) name.erase(dot);
    if (name.empty()) return std::nullopt;
    return name;
}

/// One param's resolution: who asks, and the scene it reads.
class Resolution {
public:
    Resolution(const MapFields& fields, const std::string& name, const MapBinding& binding)
        : fields_(fields), name_(name), binding_(binding), scalp_(fields.scalp()), catalog_(fields.catalog()) {}

    std::shared_ptr<const ScalarField> resolve(const MapRef& map, ExpressionWant want) {
        try {
            return resolveSource(map, want);
        } catch (const TextureError& e) {
            fail(e.what());
        } catch (const ExpressionError& e) {
            fail(e.what());
        }
    }

    /// The maps an expression or script reads by name, in the order given.
    std::shared_ptr<const BoundMaps> bind(std::span<const std::string> mapNames) const {
        std::vector<std::shared_ptr<const MapSampler>> samplers;
        for (const std::string& mapName : mapNames) samplers.push_back(expressionMapSampler(mapName));
        return std::make_shared<const BoundMaps>(std::move(samplers));
    }

private:
    /// "param '<name>'", or "the map" when no param name is known.
    std::string param() const { return name_.empty() ? std::string("the map") : "param '" + name_ + "'"; }

    [[noreturn]] void fail(const std::string& text) const {
        throw GraphError(name_.empty() ? text : "param '" + name_ + "': " + text);
    }

    std::shared_ptr<const ScalarField> resolveSource(const MapRef& map, ExpressionWant want) {
        const float low = static_cast<float>(map.min), high = static_cast<float>(map.max);
        if (want == ExpressionWant::Vector && map.source != MapSource::Expression)
            throw GraphError(param() + ": a vector takes an expression (a " + sourceWord(map.source) +
                             " map gives one number)");
        switch (map.source) {
            case MapSource::Texture: {
                if (const PaintedMap* painted = paintedMap(map.text)) {
                    if (painted->kind == PaintedMapKind::Guides)
                        return std::make_shared<const GuideSampler>(guideLayer(layerOf(map.text, *painted)), scalp_,
                                                                    low, high);
                    return fieldMap(paintedSampler(map.text, *painted), map, low, high);
                }
                return fieldMap(textureFileSampler(map.text), map, low, high);
            }
            case MapSource::ColorSet: return fieldMap(colorSetSampler(map.text), map, low, high);
            case MapSource::Attribute: return channelField(map.text, low, high);
            case MapSource::Guide: {
                const PaintedMap* painted = paintedMap(map.text);
                const std::string layer =
                    painted && painted->kind == PaintedMapKind::Guides ? layerOf(map.text, *painted) : map.text;
                return std::make_shared<const GuideSampler>(guideLayer(layer), scalp_, low, high);
            }
            case MapSource::Expression: return expressionMap(map.text, want, low, high);
        }
        fail("unknown map source");
    }

    std::shared_ptr<const ScalarField> fieldMap(std::shared_ptr<const MapSampler> sampler, const MapRef& map,
                                                float low, float high) const {
        return std::make_shared<const FieldMap>(std::move(sampler), scalp_, map.component, low, high);
    }

    const PaintedMap* paintedMap(const std::string& mapName) const {
        return catalog_ ? catalog_->find(mapName) : nullptr;
    }

    static std::string layerOf(const std::string& mapName, const PaintedMap& painted) {
        return painted.layer.empty() ? mapName : painted.layer;
    }

    void needUvs() const {
        if (!scalp_ || !scalp_->hasUvs()) fail("a texture map needs a scalp with UVs");
    }

    std::shared_ptr<const MapSampler> textureFileSampler(const std::string& path) const {
        needUvs();
        return textureSampler(acquireTexture(fields_.resolvePath(path)));
    }

    /// A painted map of the texture or vertices kind (guides are read by guideLayer).
    std::shared_ptr<const MapSampler> paintedSampler(const std::string& mapName, const PaintedMap& painted) const {
        const std::string quoted = "map(\"" + mapName + "\")";
        if (painted.kind == PaintedMapKind::Texture) {
            needUvs();
            if (painted.file.empty()) fail(quoted + ": the texture map has no image file yet");
            if (isUdimPattern(normalizeUdimTokens(painted.file)))
                fail("a scalp map is one image over UVs 0-1: UDIM tile sets can't be used as scalp maps");
            return textureSampler(acquireTexture(fields_.resolvePath(painted.file)));
        }
        if (painted.kind == PaintedMapKind::Vertices) {
            if (!scalp_ || painted.vertexCount != scalp_->pointCount())
                fail(quoted + ": the vertex map does not fit this scalp");
            return vertexMapSampler(scalp_, painted);
        }
        return guideLayerSampler(guideLayer(layerOf(mapName, painted)));
    }

    std::shared_ptr<const MapSampler> colorSetSampler(const std::string& set) const {
        if (auto sampler = tressora::colorSetSampler(scalp_, set)) return sampler;
        if (const PaintedMap* painted = paintedMap(set); painted && painted->kind == PaintedMapKind::Vertices)
            return paintedSampler(set, *painted);
        fail("the scalp has no color set '" + set + "'");
    }

    /// The guides a guide layer is read from: those connected to the node, or the scene's.
    std::shared_ptr<const GuideSet> guides() const {
        if (binding_.guides) return binding_.guides;
        if (binding_.sceneGuides) return fields_.sceneGuides();
        return nullptr;
    }

    std::shared_ptr<const GuideLayer> guideLayer(const std::string& layer) const {
        const std::shared_ptr<const GuideSet> set = guides();
        if (!set) {
            if (binding_.guidesInput) fail("a guide map here needs guides: connect them to this node's guides input");
            throw GraphError(param() + " must be a layer painted on the guides, with the guides connected to this node");
        }
        if (auto found = GuideLayer::make(set, layer)) return found;
        fail("no guide carries the layer '" + layer + "'");
    }

    /// Whether a name is known as a layer on the guides (Interpolate carries such layers onto
    /// strands).
    bool isGuideLayer(const std::string& layer) const {
        if (const PaintedMap* painted = paintedMap(layer); painted && painted->kind == PaintedMapKind::Guides) return true;
        const std::shared_ptr<const GuideSet> set = binding_.guides ? binding_.guides : fields_.sceneGuides();
        return set && (set->attribute(layer) || set->pointAttribute(layer));
    }

    /// Checks a channel read against the node's strands; true when it is a point channel.
    bool checkChannel(const std::string& channel, bool expression) const {
        if (!binding_.strands) {
            if (binding_.strandsInput) fail("no strands yet, so '" + channel + "' can't be read");
            return true;  // unknown here: read whatever the strands carry
        }
        if (binding_.strands->pointChannel(channel)) return true;
        if (binding_.strands->strandChannel(channel)) return false;
        if (isGuideLayer(channel))
            fail("strands have no attribute '" + channel +
                 "' on the strands (Interpolate writes it; paint it on the guides)");
        if (expression)
            fail("the expression reads '" + channel + "', which is neither a variable nor a channel of the strands");
        fail("the strands have no channel '" + channel + "'");
    }

    std::shared_ptr<const ScalarField> channelField(const std::string& channel, float low, float high) const {
        const bool perPoint = checkChannel(channel, false);
        return std::make_shared<const ChannelField>(channel, perPoint, low, high);
    }

    /// What map("text") reads: a painted map, else a colour set of the scalp.
    std::shared_ptr<const MapSampler> expressionMapSampler(const std::string& text) const {
        if (const PaintedMap* painted = paintedMap(text)) return paintedSampler(text, *painted);
        if (auto sampler = tressora::colorSetSampler(scalp_, text)) return sampler;
        if (looksLikeXgenPath(text)) {
            const std::optional<std::string> derived = xgenMapName(text);
            if (!derived) fail("map('" + text + "'): give the name of one of the groom's maps, map(\"name\")");
            if (const PaintedMap* painted = paintedMap(*derived)) return paintedSampler(*derived, *painted);
            if (auto sampler = tressora::colorSetSampler(scalp_, *derived)) return sampler;
            fail("map('" + text +
                 "'): XGen's paint maps do not carry over; Tressora reads the groom's own maps by name, here '" +
                 *derived + "', and the groom has none of that name (paint one in Groom Tools > Paint, or write "
                 "map(\"name\"))");
        }
        fail("no map named '" + text + "'");
    }

    std::shared_ptr<const ScalarField> expressionMap(const std::string& text, ExpressionWant want, float low,
                                                     float high) const {
        const auto expression = Expression::compile(text, {}, want);
        for (const std::string& channel : expression->readChannels()) checkChannel(channel, true);
        return std::make_shared<const ExpressionMap>(expression, bind(expression->mapNames()), scalp_,
                                                     expressionEnvironment(fields_.context()), low, high);
    }

    const MapFields& fields_;
    const std::string& name_;
    const MapBinding& binding_;
    std::shared_ptr<const ScalpMesh> scalp_;
    std::shared_ptr<const MapCatalogValue> catalog_;
};

}  // namespace

MapFields::MapFields(const EvalContext& context, PathResolver resolvePath)
    : context_(context), resolvePath_(std::move(resolvePath)) {}

std::shared_ptr<const ScalpMesh> MapFields::scalp() const {
    const SceneItem* item = context_.sceneItem(kScalpItem);
    return item ? item->value.as<ScalpMesh>() : nullptr;
}

std::shared_ptr<const MapCatalogValue> MapFields::catalog() const {
    const SceneItem* item = context_.sceneItem(kMapsItem);
    return item ? item->value.as<MapCatalogValue>() : nullptr;
}

std::shared_ptr<const GuideSet> MapFields::sceneGuides() const {
    const SceneItem* item = context_.sceneItem(kGuidesItem);
    if (!item) return nullptr;
    if (auto set = item->value.as<GuideSet>()) return set;
    const auto hierarchy = item->value.as<GuideHierarchy>();
    if (!hierarchy) return nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    if (!flattenedGuides_) flattenedGuides_ = std::make_shared<const GuideSet>(GuideSet::fromHierarchy(*hierarchy));
    return flattenedGuides_;
}

std::shared_ptr<const ScalarField> MapFields::field(const std::string& name, const MapRef& map,
                                                    const MapBinding& binding, ExpressionWant want) const {
    return Resolution(*this, name, binding).resolve(map, want);
}

std::shared_ptr<const FieldValue> MapFields::fieldFor(const MapRef& map) const {
    const std::uint64_t key = hashParamValue(0xFA7, map);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (const auto it = made_.find(key); it != made_.end()) return it->second;
    }
    MapBinding binding;
    binding.sceneGuides = true;
    std::shared_ptr<const FieldValue> made = field("", map, binding);
    std::lock_guard<std::mutex> lock(mutex_);
    return made_.emplace(key, std::move(made)).first->second;
}

std::shared_ptr<const BoundMaps> MapFields::bindMaps(std::span<const std::string> mapNames, const std::string& who,
                                                    const MapBinding& binding) const {
    if (mapNames.empty()) return nullptr;
    return Resolution(*this, who, binding).bind(mapNames);
}

std::shared_ptr<const BoundMaps> bindMapNames(std::span<const std::string> mapNames, const EvalContext& context,
                                             const std::string& who, const MapBinding& binding) {
    if (mapNames.empty()) return nullptr;
    if (const auto* fields = dynamic_cast<const MapFields*>(context.maps)) return fields->bindMaps(mapNames, who, binding);
    return MapFields(context).bindMaps(mapNames, who, binding);
}

std::shared_ptr<const ScalarField> fieldFromParam(const std::string& name, const ParamValue& value,
                                                  const EvalContext& context, const MapBinding& binding,
                                                  ExpressionWant want) {
    const MapRef* map = std::get_if<MapRef>(&value);
    if (!map) return nullptr;
    if (const auto* fields = dynamic_cast<const MapFields*>(context.maps)) return fields->field(name, *map, binding, want);
    return MapFields(context).field(name, *map, binding, want);
}

}  // namespace tressora
