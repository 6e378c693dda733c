// The session's evaluation: gathering what one run needs, running it here or detached, and
// folding its result, notes and counters back in.

#include "groom/groom_session.h"

#include <mutex>

#include "core/distance_field.h"
#include "core/errors.h"
#include "core/scalp_history.h"
#include "groom/graph_time.h"
#include "groom/scale_reference.h"
#include "library/node_library.h"

namespace tressora {

namespace {

double msSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

GroomSession::GroomSession(GroomScene scene, const OperatorRegistry& registry, NodeTypeResolver resolver)
    : scene_(std::make_shared<GroomScene>(std::move(scene))), registry_(&registry), resolver_(std::move(resolver)) {
    if (!resolver_) resolver_ = libraryNodeResolver(registry);
    if (!scene_->graph.is_null()) graph_ = graphFromJson(scene_->graph, *registry_, resolver_);
    if (scene_->scalp.mesh) {
        const std::vector<Vec3f> rest(scene_->scalp.mesh->restPoints().begin(), scene_->scalp.mesh->restPoints().end());
        publishScalp(scene_->scalp.mesh, scene_->scalp.mesh->hasRest() ? &rest : nullptr);
    }
    publishMeshes();
    updateActiveHierarchy();

    referenceGiven_ = scene_->scaleReference && *scene_->scaleReference > 0.0;
    if (referenceGiven_) referenceArea_ = *scene_->scaleReference;
    else if (const auto& seen = scene_->followScalp ? rest_ : scalp_) referenceArea_ = seen->area();
    distanceFieldsAtStart_ = distanceFieldCacheStats().misses;
}

GroomSession::~GroomSession() = default;

SessionRun GroomSession::prepare(const EvalRequest& request) {
    if (pendingError_) {
        const std::exception_ptr error = pendingError_;
        pendingError_ = nullptr;
        std::rethrow_exception(error);
    }
    if (!graph_) throw GraphError("the groom has no graph");
    SessionRun run;
    run.start = std::chrono::steady_clock::now();
    run.request = request;
    run.node = request.node.empty() ? graph_->outputNode() : graph_->nodeByName(request.node);
    updateActiveHierarchy();

    // Following, the graph sees the rest pose, and a frame only when it reads time, so that
    // every frame shares one evaluation at rest.
    run.follow = scene_->followScalp && scalp_ && !request.skipFollow;
    run.rest = rest_;
    run.current = scalp_;
    run.restStamp = restStamp_;
    run.currentStamp = scalpStamp_;
    run.carry = carry_;
    const std::shared_ptr<const ScalpMesh>& seen = run.follow ? rest_ : scalp_;
    if (seen) catalog_.set("scalp", seen, run.follow ? restStamp_ : scalpStamp_);

    EvalContext& context = run.context;
    context.frame = run.follow && !graphReadsTime(*graph_, run.node) ? kRestFrame : request.frame;
    context.frameMatters = frameMattersFor(*graph_);
    context.fps = scene_->framesPerSecond;
    context.previewFraction = request.density;
    context.viewport = request.viewport;
    context.keepInputs = request.keepInputs;
    context.scene = &catalog_;

    const double area = seen ? seen->area() : 0.0;
    const double factor = tressora::scaleFactor(scene_->scaleSource, area, referenceArea_, transformScale_,
                                                scene_->scaleTransformReference.value_or(0.0));
    if (!referenceGiven_ && factor != 1.0 && scene_->scaleSource == kScaleByArea) {
        std::string message = scaleMessage(area, referenceArea_, factor);
        if (!reportedScales_.count(message)) run.messages.push_back(std::move(message));
    }
    context.scale = factor * request.auxScale;
    publishHistory(run);
    return run;
}

void GroomSession::publishHistory(SessionRun& run) {
    catalog_.erase("scalpHistory");
    if (run.request.skipHistory || !scalp_ || scalpHistoryFrames(*graph_, run.node) <= 0) return;
    std::vector<ScalpHistory::Sample> samples;
    for (double frame : scalpHistoryLoopFrames(*graph_, run.node, run.request.frame)) {
        if (frame == run.request.frame) {
            samples.push_back({frame, scalp_});
            continue;
        }
        if (!scene_->scalpFrames) continue;
        if (std::optional<std::vector<Vec3f>> points = scene_->scalpFrames(frame);
            points && points->size() == scalp_->pointCount()) {
            ++reads_;
            samples.push_back({frame, std::make_shared<const ScalpMesh>(scalp_->withPoints(std::move(*points)))});
        }
    }
    auto history = std::make_shared<const ScalpHistory>(std::move(samples));
    run.historyFrames = history->size();
    catalog_.set("scalpHistory", history, history->fingerprint());
}

std::shared_ptr<const StrandSet> GroomSession::evaluate(double frame, float density) {
    EvalRequest request;
    request.frame = frame;
    request.density = density;
    return evaluate(request);
}

std::shared_ptr<const StrandSet> GroomSession::evaluate(const EvalRequest& request) {
    SessionRun run = prepare(request);
    const std::uint64_t sequence = ++issued_;
    SessionResult result;
    try {
        result = runSession(*graph_, run);
    } catch (...) {
        stale_ = true;
        throw;
    }
    lastFold_ = sequence;
    fold(run, std::move(result), *graph_);
    return lastStrands_;
}

void GroomSession::fold(const SessionRun& run, SessionResult result, Graph& ran) {
    lastStrands_ = std::move(result.strands);
    carry_ = std::move(result.carry);
    timings_ = std::move(result.timings);
    collectNotes(ran);
    messages_ = run.messages;
    reportedScales_.insert(run.messages.begin(), run.messages.end());
    appliedFactor_ = run.context.scale;
    view_ = !run.request.tag.empty() ? run.request.tag : run.request.viewport ? "viewport" : "render";
    times_ = {msSince(run.start), result.graphMs, result.followMs};
    stale_ = false;
    ++runs_;
    frames_.insert(run.request.frame);
    if (run.follow) ++restEvaluations_;
    historyFrames_ = run.historyFrames;
}

void GroomSession::collectNotes(Graph& ran) {
    notes_.clear();
    for (const auto& [id, node] : ran.nodes()) {
        if (node.state.lastUsed != ran.evaluationCount()) continue;
        const std::string& name = ran.nodeName(id);
        std::string note;
        if (const auto it = ran.nodeNotes().find(id); it != ran.nodeNotes().end()) {
            note = it->second;
            noteMemo_[name] = {node.state.key, note};
        } else if (const auto memo = noteMemo_.find(name); memo != noteMemo_.end() && memo->second.first == node.state.key) {
            // A node answered from a state this graph took over keeps the note of its run.
            note = memo->second.second;
        }
        if (!note.empty()) notes_.emplace_back(name, std::move(note));
    }
}

std::unique_ptr<Graph> GroomSession::copyGraph() const {
    std::unique_ptr<Graph> copy = graphFromJson(graphToJson(*graph_), *registry_, resolver_);
    takeOverNodes(*copy, *graph_);
    return copy;
}

std::unique_ptr<DetachedEvaluation> GroomSession::detach(const EvalRequest& request) {
    SessionRun run = prepare(request);
    std::unique_ptr<DetachedEvaluation> detached(new DetachedEvaluation());
    detached->sequence_ = ++issued_;
    detached->graph_ = copyGraph();
    detached->catalog_ = catalog_;
    detached->run_ = std::move(run);
    detached->run_.context.scene = &detached->catalog_;
    return detached;
}

std::shared_ptr<const StrandSet> GroomSession::join(DetachedEvaluation& detached) {
    detached.run();
    if (detached.sequence_ < lastFold_) throw GraphError("a detached evaluation ran before the one it follows");
    lastFold_ = detached.sequence_;
    if (detached.error_) {
        pendingError_ = detached.error_;
        stale_ = true;
        return nullptr;
    }
    if (graph_) takeOverNodes(*graph_, *detached.graph_);
    fold(detached.run_, detached.result_, *detached.graph_);
    return lastStrands_;
}

DetachedEvaluation::~DetachedEvaluation() = default;

void DetachedEvaluation::run() {
    std::lock_guard<std::mutex> lock(runMutex_);
    if (done()) return;
    try {
        result_ = runSession(*graph_, run_);
    } catch (...) {
        error_ = std::current_exception();
    }
    done_.store(true, std::memory_order_release);
}

}  // namespace tressora
