#pragma once
// Running one growth node by itself in tests: made through the process-wide registry, its
// params set, evaluated on given inputs in a context of its own.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/errors.h"
#include "core/strand_set.h"
#include "graph/operator_registry.h"

namespace tressora::testing {

struct NodeRun {
    std::unique_ptr<Operator> op;
    EvalContext context;
    SceneCatalog scene;

    explicit NodeRun(const std::string& type) : op(OperatorRegistry::instance().create(type)) {
        context.scene = &scene;
    }
    NodeRun& set(const std::string& name, ParamValue value) {
        op->paramValues.set(name, std::move(value));
        return *this;
    }
    Value run(std::vector<Value> inputs = {}) {
        context.notes.clear();
        return op->evaluate(context, inputs);
    }
    std::shared_ptr<const StrandSet> strands(std::shared_ptr<const StrandSet> in) { return run({Value(in)}).as<StrandSet>(); }
    /// The GraphError's text of a run, or "(no error)".
    std::string error(std::vector<Value> inputs = {}) {
        try {
            run(std::move(inputs));
        } catch (const GraphError& e) {
            return e.what();
        }
        return "(no error)";
    }
};

/// A strand of `n` points from `from`, each `step` further along `along`.
inline std::vector<Vec3f> straight(Vec3f from, Vec3f along, int n, float step = 1.0f) {
    std::vector<Vec3f> points;
    for (int k = 0; k < n; ++k) points.push_back(from + along * (step * float(k)));
    return points;
}

/// `count` straight strands of `n` points standing up along +y, ids 1 ... count, 1 apart in x.
inline std::shared_ptr<StrandSet> standingStrands(int count, int n, float step = 1.0f) {
    auto set = std::make_shared<StrandSet>();
    for (int i = 0; i < count; ++i)
        set->addStrand(std::uint64_t(i + 1), {}, straight({float(i), 0, 0}, {0, 1, 0}, n, step));
    return set;
}

}  // namespace tressora::testing
