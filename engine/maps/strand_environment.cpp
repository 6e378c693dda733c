#include "maps/strand_environment.h"

#include <cmath>

#include "core/hash.h"

namespace tressora {
namespace {

float polylineLength(std::span<const Vec3f> points) {
    float sum = 0.0f;
    for (std::size_t i = 1; i < points.size(); ++i) sum += length(points[i] - points[i - 1]);
    return sum;
}

void setVector(ExpressionEnvironment& env, ExpressionSlot first, Vec3f v) {
    env.slots[first] = v.x;
    env.slots[first + 1] = v.y;
    env.slots[first + 2] = v.z;
}

}  // namespace

ExpressionEnvironment expressionEnvironment(const EvalContext& context) {
    ExpressionEnvironment env;
    env[kSlotFrame] = static_cast<float>(context.frame);
    env[kSlotTime] = static_cast<float>(context.fps > 0.0 ? context.frame / context.fps : context.frame / 24.0);
    return env;
}

float strandRandom(std::uint64_t id) { return unitFromBits(combine(hash64(id), 0x72616E64)); }

BoundMaps::BoundMaps(std::vector<std::shared_ptr<const MapSampler>> samplers) : samplers_(std::move(samplers)) {
    std::uint64_t h = combine(0xB0A9, samplers_.size());
    for (const auto& s : samplers_) h = combine(h, s ? s->stamp() : 0);
    stamp_ = h;
}

Rgba BoundMaps::sample(std::uint32_t map, const RootSample& root) const {
    if (map >= samplers_.size() || !samplers_[map]) return {};
    return samplers_[map]->sample(root);
}

float StrandEnvironment::Probe::value(std::uint32_t map, int channel, const ExpressionEnvironment&) const {
    return maps ? pickComponent(maps->sample(map, root), componentOfChannel(channel)) : 0.0f;
}

Vec3f StrandEnvironment::Probe::color(std::uint32_t map, const ExpressionEnvironment&) const {
    if (!maps) return {};
    const Rgba c = maps->sample(map, root);
    return {c[0], c[1], c[2]};
}

StrandEnvironment::StrandEnvironment(const Expression& expression, const StrandSet& strands, const ScalpMesh* scalp,
                                     const ExpressionEnvironment& base, const BoundMaps* maps)
    : StrandEnvironment(expression.uses(), expression.readChannels(), strands, scalp, base, maps) {
    expression_ = &expression;
}

StrandEnvironment::StrandEnvironment(const ExpressionUses& uses, std::span<const std::string> names,
                                     const StrandSet& strands, const ScalpMesh* scalp, const ExpressionEnvironment& base,
                                     const BoundMaps* maps)
    : strands_(strands), scalp_(scalp), uses_(uses), env_(base) {
    needsRoot_ = uses_.surface || uses_.restPose || uses_.shape || (maps && maps->size() > 0);
    probe_.maps = maps;
    env_.maps = &probe_;
    env_.point = ExpressionEnvironment::kNoPoint;

    std::span<std::span<const float>> strandTables = strandInline_, pointTables = pointInline_;
    if (names.size() > kInlineChannels) {
        strandTables_.resize(names.size());
        pointTables_.resize(names.size());
        strandTables = strandTables_;
        pointTables = pointTables_;
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (const StrandChannel* c = strands.strandChannel(names[i])) strandTables[i] = c->values();
        if (const StrandChannel* c = strands.pointChannel(names[i])) pointTables[i] = c->values();
    }
    env_.strandChannels = strandTables.first(names.size());
    env_.pointChannels = pointTables.first(names.size());
}

void StrandEnvironment::setStrand(std::size_t strand) {
    ExpressionEnvironment& env = env_;
    range_ = strands_.pointRange(strand);
    env.strand = strand;
    env.point = ExpressionEnvironment::kNoPoint;
    const std::uint64_t id = strands_.ids()[strand];
    env[kSlotIndex] = static_cast<float>(strand);
    env[kSlotId] = static_cast<float>(id);
    env[kSlotRand] = strandRandom(id);
    env[kSlotFaceId] = static_cast<float>(strands_.roots()[strand].face);
    if (!needsRoot_) return;

    const RootSample root = rootSample(scalp_, strands_, strand);
    probe_.root = root;
    const std::span<const Vec3f> points = strands_.points().subspan(range_.begin, range_.size());
    Vec3f normal;
    if (root.face >= 0) {
        normal = scalp_->normalAt(root.face, root.b1, root.b2);
    } else if (points.size() >= 2) {
        normal = normalized(points[1] - points[0]);  // a strand off the scalp stands on its first segment
    }
    env[kSlotU] = root.uv[0];
    env[kSlotV] = root.uv[1];
    setVector(env, kSlotX, root.position);
    setVector(env, kSlotNx, normal);
    if (uses_.restPose)
        setVector(env, kSlotPrefX, root.face >= 0 ? scalp_->restPositionAt(root.face, root.b1, root.b2) : root.position);
    if (uses_.shape) {
        const Vec3f first = points.empty() ? root.position : points.front();
        const Vec3f tip = points.empty() ? root.position : points.back();
        const float len = polylineLength(points);
        const float reach = length(tip - first);
        env[kSlotLength] = len;
        env[kSlotReach] = reach;
        env[kSlotStraightness] = len > 0.0f ? reach / len : 1.0f;
        env[kSlotLift] = dot(tip - first, normal);
        setVector(env, kSlotTipX, tip);
        if (uses_.longest) env[kSlotLongest] = strands_.extent().longest;
    }
}

void StrandEnvironment::setPoint(std::size_t point) {
    const float t = range_.size() > 1 && point > range_.begin
                        ? static_cast<float>(point - range_.begin) / static_cast<float>(range_.size() - 1)
                        : 0.0f;
    setPoint(point, t);
}

void StrandEnvironment::setPoint(std::size_t point, float t) {
    const std::span<const Vec3f> points = strands_.points();
    float along = 0.0f, total = 0.0f;
    for (std::size_t p = range_.begin + 1; p < range_.end; ++p) {
        const float segment = length(points[p] - points[p - 1]);
        total += segment;
        if (p <= point) along += segment;
    }
    setPoint(point, t, total > 0.0f ? along / total : t);
}

void StrandEnvironment::setPoint(std::size_t point, float t, float pt) {
    env_.point = point;
    env_[kSlotT] = t;
    env_[kSlotPt] = pt;
    env_[kSlotPointIndex] = static_cast<float>(point - range_.begin);
    if (point < strands_.pointCount()) setVector(env_, kSlotPx, strands_.points()[point]);
}

}  // namespace tressora
