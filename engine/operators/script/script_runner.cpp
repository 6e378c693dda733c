#include "operators/script/script_runner.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>

#include "core/errors.h"
#include "core/parallel.h"
#include "core/point_index.h"

namespace tressora {
namespace {

constexpr std::size_t kGrain = 64;
constexpr const char* kColorNames[3] = {"colorR", "colorG", "colorB"};

bool finite3(const float* v) { return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]); }

/// The point at arc share s of a polyline (its first point for an empty share or a point alone).
Vec3f pointAtShare(std::span<const Vec3f> points, float s) {
    if (points.empty()) return {};
    if (points.size() == 1 || !(s > 0.0f)) return points.front();
    float total = 0.0f;
    for (std::size_t k = 1; k < points.size(); ++k) total += length(points[k] - points[k - 1]);
    if (s >= 1.0f || total <= 0.0f) return s >= 1.0f ? points.back() : points.front();
    float want = s * total;
    for (std::size_t k = 1; k < points.size(); ++k) {
        const float segment = length(points[k] - points[k - 1]);
        if (want <= segment && segment > 0.0f) return points[k - 1] + (points[k] - points[k - 1]) * (want / segment);
        want -= segment;
    }
    return points.back();
}

/// Where a value of an output comes from on the strands coming in.
struct Source {
    std::span<const float> strand[3];
    std::span<const float> point[3];
};

/// The set-wide facts of a run, shared read-only by every worker.
struct RunShared {
    const ScriptProgram& program;
    const StrandSet& in;
    const GuideSet* guides;
    const ScalpMesh* scalp;
    const ScriptParamValues& params;
    std::vector<ExpressionCurve> curves;  // the program's, then the ramps
    std::vector<Source> sources;          // per output
    std::vector<std::uint8_t> roles;      // per output: kRoleP, kRoleWidth or kRoleOther
    PointIndex guideRoots;
    // What the run writes.
    std::span<Vec3f> points;
    std::span<float> widths;
    std::vector<std::array<std::span<float>, 3>> strandTargets, pointTargets;  // per output
    const ScriptOutput* pOutput = nullptr;
    std::mutex mutex;
    std::string overrun;
    std::atomic<bool> stopped{false};  // set by the first overrun: the rest of the run is skipped
};

// What an output is, told once per run rather than by its name at every point.
constexpr std::uint8_t kRoleP = 0, kRoleWidth = 1, kRoleOther = 2;

float read(std::span<const float> values, std::size_t i) { return i < values.size() ? values[i] : 0.0f; }

/// One worker: its locals, environment and the strand its script functions answer for.
class Worker final : public ScriptFunctions {
public:
    Worker(RunShared& shared, const ExpressionEnvironment& base, const BoundMaps* maps)
        : shared_(shared),
          env_(shared.program.uses, shared.program.readChannels, shared.in, shared.scalp, base, maps),
          locals_(shared.program.slotCount, 0.0f) {}

    void runStrand(std::size_t i);

    void call(std::uint8_t code, const float* args, int, float* out) const override {
        Vec3f v;
        switch (code) {
        case kScriptStrandPoint: v = pointAtShare(shared_.in.strandPoints(strand_), args[0]); break;
        case kScriptGuidePoint: v = pointAtShare(guidePoints(), args[0]); break;
        case kScriptScalpNormal:
        case kScriptClosestOnScalp: {
            const Vec3f p{args[0], args[1], args[2]};
            if (!shared_.scalp || shared_.scalp->triangleCount() == 0 || !finite3(args)) {
                v = code == kScriptClosestOnScalp ? p : Vec3f{0, 1, 0};
                break;
            }
            const SurfacePoint hit = shared_.scalp->closestPoint(p);
            v = hit.face < 0 ? (code == kScriptClosestOnScalp ? p : Vec3f{0, 1, 0})
                             : (code == kScriptClosestOnScalp ? hit.position : hit.normal);
            break;
        }
        default: break;
        }
        out[0] = v.x;
        out[1] = v.y;
        out[2] = v.z;
    }

private:
    std::span<const Vec3f> guidePoints() const {
        const std::span<const Vec3f> own = shared_.in.strandPoints(strand_);
        if (!shared_.guides || shared_.guideRoots.empty() || own.empty()) return own;
        if (guide_ == PointIndex::npos) {
            float d2 = 0.0f;
            guide_ = shared_.guideRoots.nearest(own.front(), d2);
            if (guide_ == PointIndex::npos) return own;
        }
        return shared_.guides->guidePoints(guide_);
    }

    void setParams(std::size_t i, std::size_t point, float t, bool perPoint);
    void loadOutputs(std::size_t strand, std::size_t point, bool atPoint);
    void runBlock(const ScriptBlock& block, ScriptBlockKind kind);

    RunShared& shared_;
    StrandEnvironment env_;
    std::vector<float> locals_;
    std::size_t strand_ = 0;
    mutable std::uint32_t guide_ = PointIndex::npos;
};

void Worker::setParams(std::size_t i, std::size_t point, float t, bool perPoint) {
    const ScriptProgram& program = shared_.program;
    for (std::size_t k = 0; k < program.params.size(); ++k) {
        const ScriptParamSlot& p = program.params[k];
        if (p.slot == kNoScriptSlot) continue;
        const ScalarField* field = shared_.params.fields[k].get();
        float* to = &locals_[p.slot];
        if (!field) {
            if (perPoint) continue;
            const Vec3f c = shared_.params.constants[k];
            to[0] = c.x;
            if (p.type == ScriptParamType::Color) {
                to[1] = c.y;
                to[2] = c.z;
            }
        } else if (field->perPoint()) {
            if (perPoint) to[0] = field->pointValueAt(shared_.in, i, point, t);
        } else if (!perPoint) {
            to[0] = field->strandValue(shared_.in, i);
        }
    }
}

// Fills the slots of the outputs with what comes in: for the strand (its root) or for a point.
// An output the per strand block writes keeps its strand value through the points.
void Worker::loadOutputs(std::size_t strand, std::size_t point, bool atPoint) {
    const ScriptProgram& program = shared_.program;
    for (std::size_t k = 0; k < program.outputs.size(); ++k) {
        const ScriptOutput& o = program.outputs[k];
        if (o.slot == kNoScriptSlot) continue;
        if (atPoint && o.written && o.kind == ScriptBlockKind::Strand) continue;
        float* to = &locals_[o.slot];
        const std::uint8_t role = shared_.roles[k];
        if (role == kRoleP) {
            const Vec3f p = point < shared_.in.pointCount() ? shared_.in.points()[point] : Vec3f{};
            to[0] = p.x;
            to[1] = p.y;
            to[2] = p.z;
            continue;
        }
        if (role == kRoleWidth) {
            to[0] = read(shared_.in.widths(), point);
            continue;
        }
        const Source& s = shared_.sources[k];
        for (int c = 0; c < o.width; ++c) {
            const bool usePoint = !s.point[c].empty() && (atPoint || s.strand[c].empty());
            to[c] = usePoint ? read(s.point[c], point) : read(s.strand[c], strand);
        }
    }
}

void Worker::runBlock(const ScriptBlock& block, ScriptBlockKind kind) {
    const ScriptProgram& program = shared_.program;
    if (runScriptBlock(block, locals_.data(), env_.environment(), shared_.curves, program.mapProbes, *this)) return;
    shared_.stopped.store(true, std::memory_order_relaxed);
    std::lock_guard lock(shared_.mutex);
    if (!shared_.overrun.empty()) return;
    const std::string what = kind == ScriptBlockKind::Strand ? "strand" : "point";
    shared_.overrun = "the per " + what + " block ran past its budget of " + std::to_string(kScriptStepBudget) +
                      " steps for one " + what + ": a loop runs too long";
}

void Worker::runStrand(std::size_t i) {
    const ScriptProgram& program = shared_.program;
    const StrandSet& in = shared_.in;
    strand_ = i;
    guide_ = PointIndex::npos;
    std::fill(locals_.begin(), locals_.end(), 0.0f);
    env_.setStrand(i);
    const PointRange r = in.pointRange(i);
    const std::size_t first = r.size() > 0 ? r.begin : in.pointCount();
    setParams(i, first, 0.0f, false);
    loadOutputs(i, first, false);

    if (program.strand.present) {
        runBlock(program.strand, ScriptBlockKind::Strand);
        for (std::size_t k = 0; k < program.outputs.size(); ++k) {
            const ScriptOutput& o = program.outputs[k];
            if (!o.written || o.kind != ScriptBlockKind::Strand) continue;
            const float* v = &locals_[o.slot];
            if (shared_.roles[k] == kRoleWidth) {
                const float w = std::isfinite(v[0]) ? std::max(0.0f, v[0]) : -1.0f;
                if (w >= 0.0f)
                    for (std::size_t p = r.begin; p < r.end; ++p) shared_.widths[p] = w;
                continue;
            }
            for (int c = 0; c < o.width; ++c) shared_.strandTargets[k][c][i] = std::isfinite(v[c]) ? v[c] : 0.0f;
        }
    }
    if (!program.point.present || r.size() == 0) return;

    const std::span<const Vec3f> points = in.points();
    float total = 0.0f;
    for (std::size_t p = r.begin + 1; p < r.end; ++p) total += length(points[p] - points[p - 1]);
    const std::size_t n = r.size();
    float along = 0.0f;
    Vec3f previous = points[r.begin];
    const ScriptOutput* pOut = shared_.pOutput;
    for (std::size_t p = r.begin; p < r.end; ++p) {
        if (p > r.begin) along += length(points[p] - points[p - 1]);
        const float t = n > 1 ? static_cast<float>(p - r.begin) / static_cast<float>(n - 1) : 0.0f;
        env_.setPoint(p, t, total > 0.0f ? along / total : t);
        setParams(i, p, t, true);
        loadOutputs(i, p, true);
        if (program.prevSlot != kNoScriptSlot) {
            locals_[program.prevSlot] = previous.x;
            locals_[program.prevSlot + 1] = previous.y;
            locals_[program.prevSlot + 2] = previous.z;
        }
        runBlock(program.point, ScriptBlockKind::Point);
        previous = points[p];
        for (std::size_t k = 0; k < program.outputs.size(); ++k) {
            const ScriptOutput& o = program.outputs[k];
            if (!o.written || o.kind != ScriptBlockKind::Point) continue;
            const float* v = &locals_[o.slot];
            if (&o == pOut) {
                if (finite3(v)) previous = {v[0], v[1], v[2]};
                shared_.points[p] = previous;
            } else if (shared_.roles[k] == kRoleWidth) {
                if (std::isfinite(v[0])) shared_.widths[p] = std::max(0.0f, v[0]);
            } else {
                for (int c = 0; c < o.width; ++c) shared_.pointTargets[k][c][p] = std::isfinite(v[c]) ? v[c] : 0.0f;
            }
        }
    }
}

}  // namespace

ScriptRunResult runScript(const ScriptProgram& program, const std::shared_ptr<const StrandSet>& strands,
                          const GuideSet* guides, const ScalpMesh* scalp, const ScriptParamValues& params,
                          const ExpressionEnvironment& base, const BoundMaps* maps, const std::string& who) {
    ScriptRunResult result;
    const StrandSet& in = *strands;

    for (const std::string& name : program.readChannels) {
        if (!in.strandChannel(name) && !in.pointChannel(name))
            result.notes.push_back(who + " reads '" + name +
                                   "', which is no input, param or channel of the strands coming in (it reads 0)");
    }
    // A channel is a strand's or a point's: the script writes it in the block of its kind.
    for (const ScriptOutput& o : program.outputs) {
        const std::string channel = o.channel();
        if (!o.written || channel.empty()) continue;
        if (o.kind == ScriptBlockKind::Point && in.strandChannel(channel))
            throw GraphError(channel + " is a strand channel on the strands coming in: write it in the per strand block");
        if (o.kind == ScriptBlockKind::Strand && in.pointChannel(channel))
            throw GraphError(channel + " is a point channel on the strands coming in: write it in the per point block");
    }

    auto out = std::make_shared<StrandSet>(in);
    RunShared shared{program, in, guides, scalp, params, program.curves, {}, {}, {}, {}, {}, {}, {}, nullptr, {}, {}};
    shared.curves.insert(shared.curves.end(), params.ramps.begin(), params.ramps.end());
    if (program.callsGuidePoint && guides && guides->guideCount() > 0) {
        std::vector<Vec3f> roots(guides->guideCount());
        for (std::size_t g = 0; g < roots.size(); ++g) {
            const std::span<const Vec3f> gp = guides->guidePoints(g);
            roots[g] = gp.empty() ? Vec3f{} : gp.front();
        }
        shared.guideRoots = PointIndex(roots);
    }

    // The channels written: made on the copy (keeping values that come in) before any worker runs.
    const std::size_t outputs = program.outputs.size();
    shared.sources.resize(outputs);
    for (const ScriptOutput& o : program.outputs)
        shared.roles.push_back(o.name == "P" ? kRoleP : o.name == "width" ? kRoleWidth : kRoleOther);
    shared.strandTargets.resize(outputs);
    shared.pointTargets.resize(outputs);
    for (std::size_t k = 0; k < outputs; ++k) {
        const ScriptOutput& o = program.outputs[k];
        if (o.name == "P" || o.name == "width") continue;
        const bool color = o.name == "color";
        for (int c = 0; c < o.width; ++c) {
            const std::string name = color ? kColorNames[c] : o.channel();
            if (const StrandChannel* s = in.strandChannel(name)) shared.sources[k].strand[c] = s->values();
            if (const StrandChannel* p = in.pointChannel(name)) shared.sources[k].point[c] = p->values();
        }
    }
    for (std::size_t k = 0; k < outputs; ++k) {
        const ScriptOutput& o = program.outputs[k];
        if (!o.written) continue;
        if (o.name == "P") {
            shared.points = out->mutablePoints();
            shared.pOutput = &o;
            continue;
        }
        if (o.name == "width") {
            shared.widths = out->mutableWidths();
            continue;
        }
        const bool color = o.name == "color";
        for (int c = 0; c < o.width; ++c) {
            const std::string name = color ? kColorNames[c] : o.channel();
            if (o.kind == ScriptBlockKind::Strand) {
                // A colour given per strand replaces colour that changed along the strands.
                if (color) out->removePointChannel(name);
                out->addStrandChannel(name, 0.0f);
            } else {
                out->addPointChannel(name, 0.0f);
            }
        }
    }
    // Spans are taken once every channel exists, so that no later change moves them.
    for (std::size_t k = 0; k < outputs; ++k) {
        const ScriptOutput& o = program.outputs[k];
        if (!o.written || o.name == "P" || o.name == "width") continue;
        const bool color = o.name == "color";
        for (int c = 0; c < o.width; ++c) {
            const std::string name = color ? kColorNames[c] : o.channel();
            if (o.kind == ScriptBlockKind::Strand) {
                shared.strandTargets[k][c] = out->mutableStrandChannel(name);
            } else {
                shared.pointTargets[k][c] = out->mutablePointChannel(name);
            }
        }
    }
    // A colour written per point also gives each strand its root colour.
    const ScriptOutput* color = program.output("color");
    const bool rootColor = color && color->written && color->kind == ScriptBlockKind::Point;

    parallelRange(0, in.strandCount(), kGrain, [&](std::size_t lo, std::size_t hi) {
        Worker worker(shared, base, maps);
        for (std::size_t i = lo; i < hi && !shared.stopped.load(std::memory_order_relaxed); ++i) worker.runStrand(i);
    });
    if (rootColor) {
        for (int c = 0; c < 3; ++c) {
            const std::span<const float> points = out->pointChannel(kColorNames[c])->values();
            std::vector<float> roots(in.strandCount());
            for (std::size_t i = 0; i < roots.size(); ++i) {
                const PointRange r = in.pointRange(i);
                roots[i] = r.size() ? points[r.begin] : 0.0f;
            }
            std::span<float> target = out->addStrandChannel(kColorNames[c], 0.0f);
            std::copy(roots.begin(), roots.end(), target.begin());
        }
    }
    if (!shared.overrun.empty()) {
        // A runaway loop would cost as much on every strand: the run stops at the first one and
        // the strands go on as they came, whichever strand (and thread) met it first.
        result.notes.push_back(who + ": " + shared.overrun + "; the strands go on unchanged");
        result.strands = strands;
        return result;
    }
    result.strands = std::move(out);
    return result;
}

}  // namespace tressora
