#pragma once
// Running one look node on a hand-made strand set, for the colour and noise tests.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/strand_set.h"
#include "graph/eval_context.h"
#include "graph/operator_registry.h"
#include "graph/value.h"

namespace tressora::looktest {

/// `count` straight strands of `points` points standing along y, strand i at x = i, with
/// ids firstId + i * idStep.
inline StrandSet straightStrands(std::size_t count, std::size_t points, std::uint64_t firstId = 1,
                                 std::uint64_t idStep = 1, float height = 1.0f) {
    StrandSet set;
    std::vector<Vec3f> pts(points);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t k = 0; k < points; ++k)
            pts[k] = {static_cast<float>(i), height * static_cast<float>(k) / static_cast<float>(points - 1), 0.0f};
        set.addStrand(firstId + i * idStep, {}, pts);
    }
    return set;
}

struct NodeRun {
    std::shared_ptr<const StrandSet> strands;
    std::vector<std::string> notes;
    Value value;
};

/// Evaluates a new node of `type` with `params` set on `input`.
inline NodeRun runNode(const std::string& type, const StrandSet& input, const std::map<std::string, ParamValue>& params = {},
                   const std::string& nodeName = "node", const SceneCatalog* scene = nullptr) {
    std::unique_ptr<Operator> op = OperatorRegistry::instance().create(type);
    for (const auto& [name, value] : params) op->paramValues.set(name, value);
    EvalContext context;
    context.nodeName = nodeName;
    context.scene = scene;
    NodeRun run;
    run.value = op->evaluate(context, {Value(std::make_shared<const StrandSet>(input))});
    run.strands = run.value.as<StrandSet>();
    run.notes = context.notes;
    return run;
}

/// A strand channel's value by strand id.
inline std::map<std::uint64_t, float> byId(const StrandSet& set, const std::string& channel) {
    std::map<std::uint64_t, float> out;
    const StrandChannel* c = set.strandChannel(channel);
    EXPECT_NE(c, nullptr) << channel;
    if (!c) return out;
    for (std::size_t i = 0; i < set.strandCount(); ++i) out[set.ids()[i]] = c->values()[i];
    return out;
}

inline Vec3f strandColor(const StrandSet& set, std::size_t i) {
    return {set.strandChannel("colorR")->values()[i], set.strandChannel("colorG")->values()[i],
            set.strandChannel("colorB")->values()[i]};
}

inline Vec3f pointColor(const StrandSet& set, std::size_t point) {
    return {set.pointChannel("colorR")->values()[point], set.pointChannel("colorG")->values()[point],
            set.pointChannel("colorB")->values()[point]};
}

inline float luminance(Vec3f c) { return 0.2126f * c.x + 0.7152f * c.y + 0.0722f * c.z; }

}  // namespace tressora::looktest
