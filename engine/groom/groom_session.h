#pragma once
// GroomSession: a groom document brought to life. It owns the scene and the graph built from
// it, hands the scene's items to the evaluator by name ("scalp", "guides", "hierarchy",
// "scalp:<name>", "collider:<name>", "scalpHistory"), and gives one call that returns the
// strands of a frame, with the queries around it: notes, timings, stats. Used from one
// thread at a time; a DetachedEvaluation evaluates a snapshot on another.

#include <atomic>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "graph/graph_json.h"
#include "graph/operator_registry.h"
#include "groom/groom_scene.h"
#include "groom/groom_stats.h"
#include "groom/hair_look.h"
#include "groom/session_run.h"

namespace tressora {

class DetachedEvaluation;

/// The frame a graph that does not read time is evaluated at when it follows the scalp, so
/// that every frame shares its cached values.
inline constexpr double kRestFrame = 1.0;

class GroomSession {
public:
    /// Builds the graph from the scene's `graph` (GraphError or SchemaError when it does not
    /// load), wires the scene's items into the catalogue with fresh stamps, and takes the
    /// scale reference: the scene's `scaleReference`, else the scalp's area now.
    explicit GroomSession(GroomScene scene, const OperatorRegistry& registry = OperatorRegistry::instance(),
                          NodeTypeResolver resolver = {});
    ~GroomSession();
    GroomSession(const GroomSession&) = delete;
    GroomSession& operator=(const GroomSession&) = delete;

    // ---- evaluation ------------------------------------------------------------------------

    /// The strands of a frame at a preview density (1: all), or null when the graph gives
    /// none (or gives guides). Throws a failure kept from a detached evaluation, then
    /// GraphError "the groom has no graph", then whatever the graph throws; the graph is
    /// left as it is, so the next call can succeed.
    std::shared_ptr<const StrandSet> evaluate(double frame, float density = 1.0f);
    std::shared_ptr<const StrandSet> evaluate(const EvalRequest& request);

    /// Brings scalp and guides to a frame with the points of the scene's attached caches
    /// (GroomScene::scalpFrames, guideFrames). GroomFileError "setFrame: the guide cache has
    /// <n> curves for <m> guides" when the guide cache does not fit.
    void setFrame(double frame);

    /// The scalp's points of this frame (and its rest pose, when given). Points equal to the
    /// present ones change nothing; otherwise a new scalp sharing the topology is published
    /// and its stamp moves on. GroomFileError "updateScalpPoints: <n> points for a scalp of
    /// <m>" and "updateScalpPoints: the session has no scalp".
    void updateScalpPoints(std::vector<Vec3f> points, const std::vector<Vec3f>* restPoints = nullptr);

    /// Snapshot of the session for evaluating `request` on another thread; join folds it back.
    std::unique_ptr<DetachedEvaluation> detach(const EvalRequest& request);
    /// Runs the detached evaluation here if it has not run, and folds its result and cache
    /// state back into the session. A failure of its run is kept and thrown by the next
    /// evaluate (null is returned). GraphError "a detached evaluation ran before the one it
    /// follows" when the session evaluated or folded after the snapshot was taken.
    std::shared_ptr<const StrandSet> join(DetachedEvaluation& detached);

    // ---- queries -----------------------------------------------------------------------------

    /// Node name and text of the last evaluation's nodes that left a note, in id order.
    const std::vector<std::pair<std::string, std::string>>& notes() const { return notes_; }
    /// Node name and milliseconds of the last evaluation's nodes, in id order.
    const std::vector<std::pair<std::string, double>>& timings() const { return timings_; }
    /// The session's own sentences of the last evaluation (the scale message, once per value).
    const std::vector<std::string>& messages() const { return messages_; }
    GroomStats stats();
    std::string statsJson() { return tressora::statsJson(stats()); }
    /// The look of the groom's colour nodes as plain values, and that as compact JSON.
    HairLook hairLook();
    std::string hairLookJson();

    /// Whether two frames can give different strands: the graph reads time, or the scene
    /// has scalp or guide caches.
    bool hasMotion();
    /// Whether an active node of that type lies upstream of the output.
    bool hasCardsNode() { return hasActiveNode("Cards"); }
    bool hasStrandMeshNode() { return hasActiveNode("StrandMesh"); }

    /// The scale factor applied to the last evaluation (1: none).
    double scaleFactor() const { return appliedFactor_; }
    /// The scale of the groom's transform, for the "transformScale" scale source.
    void setTransformScale(double scale) { transformScale_ = scale; }

    // ---- the document ------------------------------------------------------------------------

    /// The scene as the session holds it (its `graph` is the one it was made from; see
    /// `document` for the graph as it is now).
    const GroomScene& scene() const { return *scene_; }
    /// The scene with the graph as it is now, ready for writeGroom.
    GroomScene document() const;
    /// The graph, or null for a groom without graph.
    Graph* graph() { return graph_.get(); }
    /// The current scalp (null without scalp) and its stamp.
    const std::shared_ptr<const ScalpMesh>& scalp() const { return scalp_; }
    std::uint64_t scalpStamp() const { return scalpStamp_; }
    /// The scene's catalogue as the next evaluation sees it.
    const SceneCatalog& catalog() const { return catalog_; }

    /// The graph as compact JSON text; empty for a groom without graph.
    std::string graphJson() const;
    /// Replaces the graph by a text's (empty or blank text: no graph); nothing changes when it
    /// does not load. Nodes of the same name and type keep their derived caches.
    void setGraphJson(std::string_view text);
    /// The guide hierarchy as JSON text; empty without hierarchy.
    std::string guidesJson() const;
    /// Replaces the guide hierarchy by a text's (empty: none); nothing changes when it does
    /// not load (SchemaError).
    void setGuidesJson(std::string_view text);

private:
    SessionRun prepare(const EvalRequest& request);
    void fold(const SessionRun& run, SessionResult result, Graph& ran);
    void updateActiveHierarchy();
    void publishScalp(std::shared_ptr<const ScalpMesh> scalp, const std::vector<Vec3f>* restPoints);
    void publishMeshes();
    void publishHistory(SessionRun& run);
    void collectNotes(Graph& ran);
    bool hasActiveNode(const std::string& type);
    std::unique_ptr<Graph> copyGraph() const;

    std::shared_ptr<GroomScene> scene_;
    const OperatorRegistry* registry_;
    NodeTypeResolver resolver_;
    std::unique_ptr<Graph> graph_;
    SceneCatalog catalog_;

    // Scalp: the current pose and the rest pose that following grows strands on.
    std::shared_ptr<const ScalpMesh> scalp_, rest_;
    std::uint64_t scalpStamp_ = 0, restStamp_ = 0;
    // Guides as last published.
    const GuideHierarchy* publishedHierarchy_ = nullptr;
    std::uint64_t guidesVersion_ = 1, publishedGuidesVersion_ = 0;

    // Scale state.
    double referenceArea_ = 0.0;
    bool referenceGiven_ = false;
    double transformScale_ = 1.0;
    double appliedFactor_ = 1.0;
    std::set<std::string> reportedScales_;

    CarryCache carry_;
    std::exception_ptr pendingError_;
    std::uint64_t issued_ = 0, lastFold_ = 0;

    // The last evaluation and the counters of the session's life.
    std::shared_ptr<const StrandSet> lastStrands_;
    std::vector<std::pair<std::string, std::string>> notes_;
    std::vector<std::pair<std::string, double>> timings_;
    std::vector<std::string> messages_;
    std::map<std::string, std::pair<std::uint64_t, std::string>> noteMemo_;  ///< name -> (key, note)
    std::string view_;
    EvaluationTimes times_;
    bool stale_ = false;
    std::uint64_t runs_ = 0, reads_ = 0, restEvaluations_ = 0, historyFrames_ = 0;
    std::set<double> frames_;
    std::uint64_t distanceFieldsAtStart_ = 0;
};

/// An evaluation of a snapshot of a session on another thread: its own copy of the graph
/// (operators adopt the session's derived caches, nodes start from its cached results) and
/// of the scene catalogue, whose items are shared and immutable.
class DetachedEvaluation {
public:
    ~DetachedEvaluation();
    /// Evaluates the snapshot, once; later calls do nothing. A failure is kept for the
    /// session. Safe to call on any one thread while the session goes on.
    void run();
    bool done() const { return done_.load(std::memory_order_acquire); }
    /// The strands of the run (null before it, after a failure, or without strands).
    std::shared_ptr<const StrandSet> strands() const { return result_.strands; }

private:
    friend class GroomSession;
    DetachedEvaluation() = default;

    std::uint64_t sequence_ = 0;
    std::unique_ptr<Graph> graph_;
    SceneCatalog catalog_;
    SessionRun run_;
    SessionResult result_;
    std::exception_ptr error_;
    std::mutex runMutex_;  ///< orders a second call of run() after the first
    std::atomic<bool> done_{false};
};

}  // namespace tressora
