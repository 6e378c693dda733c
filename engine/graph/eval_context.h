#pragma once
// EvalContext: what an operator's evaluate receives besides its inputs — the frame, the
// preview settings, the scene items by name — and where it leaves notes for the user.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "graph/value.h"

namespace tressora {

class MapFieldFactory;

/// A scene item handed to nodes by name ("scalp", "guides", "parts", maps, "control:<name>"...).
/// The stamp changes whenever the item's content does; it enters the cache keys.
struct SceneItem {
    Value value;
    std::uint64_t stamp = 0;
};

/// The scene items of one evaluation, by name.
class SceneCatalog {
public:
    void set(const std::string& name, Value value, std::uint64_t stamp) { items_[name] = {std::move(value), stamp}; }
    void erase(const std::string& name) { items_.erase(name); }
    /// The item, or null when the scene has none of that name.
    const SceneItem* find(const std::string& name) const {
        const auto it = items_.find(name);
        return it == items_.end() ? nullptr : &it->second;
    }
    const std::map<std::string, SceneItem>& items() const { return items_; }

private:
    std::map<std::string, SceneItem> items_;
};

struct EvalContext {
    double frame = 1.0;
    double fps = 24.0;
    float previewFraction = 1.0f;     ///< share of strands kept in a preview; 1 in final output
    double previewPointBudget = 0.0;  ///< a preview's budget of points; 0 or less means none
    int segments = 0;                 ///< the groom's strand resolution; 0 or less means the default
    bool viewport = false;            ///< a viewport evaluation (decides viewportOnly / renderOnly)
    const SceneCatalog* scene = nullptr;
    int threads = 0;                  ///< thread limit of this evaluation; 0 means all
    double scale = 1.0;               ///< the scene's scale factor; 1 means none
    bool keepInputs = false;          ///< keep intermediate values of the run
    int resolutionKnown = 0;          ///< above 0 when strand resolutions were worked out
    const MapFieldFactory* maps = nullptr;  ///< turns map references into fields; null: maps read as 1
    /// Whether the result of node `id` can change with the frame (it or a node upstream reads
    /// time). When set, a node it answers false for is keyed without the frame, so its cached
    /// result stands from frame to frame; unset, every node's key holds the frame.
    std::function<bool(int id)> frameMatters;
    std::string nodeName;             ///< the node being evaluated, for notes that name it

    /// The scene item of that name, or null.
    const SceneItem* sceneItem(const std::string& name) const { return scene ? scene->find(name) : nullptr; }

    /// Leaves a message for the user about this evaluation of the current node.
    void addNote(std::string text);
    /// Messages in the order of their arrival; the evaluator collects them per node.
    std::vector<std::string> notes;
};

}  // namespace tressora
