#pragma once
// From a mappable param's value to the ScalarField that gives it per strand and per point:
// which source a map reference names in the scene of one evaluation (the groom's painted
// maps, the scalp's colour sets, image files, strand channels, guide layers, expressions),
// and the checks, with the sentences the user meets when a map can't be read.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "core/guide_set.h"
#include "expression/expression.h"
#include "graph/eval_context.h"
#include "graph/field_value.h"
#include "graph/param_value.h"
#include "maps/scalar_field.h"

namespace tressora {

class BoundMaps;

class Graph;
class MapCatalogValue;

/// The names of the scene items the maps read: the scalp mesh, the guides (a GuideSet or a
/// GuideHierarchy) and the groom's painted maps (a MapCatalogValue).
inline constexpr const char* kScalpItem = "scalp";
inline constexpr const char* kGuidesItem = "guides";
inline constexpr const char* kMapsItem = "maps";

/// What a node offers the maps of its params besides the scene.
struct MapBinding {
    /// The strands on the node's input, to check the channels a map reads; null when unknown.
    const StrandSet* strands = nullptr;
    /// Whether the node has a strands input (with nothing there, channel reads are refused).
    bool strandsInput = false;
    /// Whether the node has a guides input, and the guides connected to it.
    bool guidesInput = false;
    std::shared_ptr<const GuideSet> guides;
    /// Read guide layers from the scene's guides when no guides are connected (for callers
    /// that don't know the node, such as the evaluator's `affect`).
    bool sceneGuides = false;
};

/// Resolves map references in the scene of one evaluation. The session makes one per
/// evaluation and sets it as the context's `maps`; it must not outlive the context.
/// Resolving is thread-safe; the fields it makes are independent of it.
class MapFields final : public MapFieldFactory {
public:
    using PathResolver = std::function<std::string(const std::string&)>;

    /// `resolvePath` turns an image path as stored into the path to open (the groom's search
    /// paths); without one, paths are opened as they are.
    explicit MapFields(const EvalContext& context, PathResolver resolvePath = {});

    /// The field of a map reference for the evaluator, which knows no param name: messages
    /// speak of "the map", and guide layers come from the scene's guides. Throws GraphError.
    std::shared_ptr<const FieldValue> fieldFor(const MapRef& map) const override;

    /// The field of param `name` holding `map`. `want` Vector accepts expressions only.
    /// Throws GraphError whose text begins with "param '<name>'".
    std::shared_ptr<const ScalarField> field(const std::string& name, const MapRef& map, const MapBinding& binding,
                                             ExpressionWant want = ExpressionWant::Number) const;

    /// The maps map("name") reads in an expression or script, in the order of `mapNames`: painted
    /// maps, else the scalp's colour sets. Throws GraphError naming `who` for a name it can't find.
    std::shared_ptr<const BoundMaps> bindMaps(std::span<const std::string> mapNames, const std::string& who,
                                              const MapBinding& binding) const;

    const EvalContext& context() const { return context_; }
    /// The image path to open for a path as stored.
    std::string resolvePath(const std::string& path) const { return resolvePath_ ? resolvePath_(path) : path; }
    /// The scene's scalp, guides (a hierarchy is flattened once) and painted maps; null when absent.
    std::shared_ptr<const ScalpMesh> scalp() const;
    std::shared_ptr<const GuideSet> sceneGuides() const;
    std::shared_ptr<const MapCatalogValue> catalog() const;

private:
    const EvalContext& context_;
    PathResolver resolvePath_;
    mutable std::mutex mutex_;
    mutable std::shared_ptr<const GuideSet> flattenedGuides_;
    mutable std::map<std::uint64_t, std::shared_ptr<const FieldValue>> made_;  // fieldFor by map hash
};

/// The field of a mappable param's value in an evaluation: null for a constant (no field is
/// needed), else the map reference's field, through the context's MapFields when it has one
/// (a MapFields for the context otherwise). Throws GraphError beginning "param '<name>'".
std::shared_ptr<const ScalarField> fieldFromParam(const std::string& name, const ParamValue& value,
                                                  const EvalContext& context, const MapBinding& binding = {},
                                                  ExpressionWant want = ExpressionWant::Number);

/// MapFields::bindMaps through the context's MapFields (one for the context otherwise).
std::shared_ptr<const BoundMaps> bindMapNames(std::span<const std::string> mapNames, const EvalContext& context,
                                             const std::string& who, const MapBinding& binding = {});

/// Whether a param value is an expression map that reads `frame` or `time`.
bool paramReadsTime(const ParamValue& value);

}  // namespace tressora
