// Cost of the evaluator's bookkeeping: keying a 200-node chain and re-evaluating it when
// everything is cached. Both should cost microseconds per node.

#include <benchmark/benchmark.h>

#include "core/strand_set.h"
#include "graph/graph.h"
#include "graph/operator_registry.h"

namespace tressora {
namespace {

class Seed : public Operator {
public:
    std::string type() const override { return "Seed"; }
    std::vector<Port> inputs() const override { return {}; }
    Value evaluate(EvalContext&, const std::vector<Value>&) override {
        auto set = std::make_shared<StrandSet>();
        const Vec3f pts[2] = {{0, 0, 0}, {0, 1, 0}};
        set->addStrand(1, {}, pts);
        return Value(std::shared_ptr<const StrandSet>(set));
    }
};

class Step : public Operator {
public:
    std::string type() const override { return "Step"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }
    std::vector<ParamSpec> params() const override {
        ParamSpec amount;
        amount.name = "amount";
        amount.defaultValue = 0.5;
        ParamSpec label;
        label.name = "label";
        label.defaultValue = std::string("step");
        return {amount, label};
    }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override { return in.at(0); }
};

const OperatorRegistry& registry() {
    static OperatorRegistry r;
    static bool once = [] {
        r.add("Seed", {}, [] { return std::make_unique<Seed>(); });
        r.add("Step", {}, [] { return std::make_unique<Step>(); });
        return true;
    }();
    (void)once;
    return r;
}

std::unique_ptr<Graph> chain(int nodes, NodeId& last) {
    auto g = std::make_unique<Graph>(registry());
    last = g->addNode("Seed");
    for (int i = 1; i < nodes; ++i) {
        const NodeId next = g->addNode("Step");
        g->connect(last, 0, next, 0);
        last = next;
    }
    return g;
}

void BM_KeyChain(benchmark::State& state) {
    NodeId last = 0;
    const auto g = chain(static_cast<int>(state.range(0)), last);
    const EvalContext context;
    for (auto _ : state) {
        std::unordered_map<NodeId, std::uint64_t> memo;
        benchmark::DoNotOptimize(g->nodeKey(last, context, memo));
    }
    state.counters["us_per_node"] = benchmark::Counter(static_cast<double>(state.range(0)) * 1e-6,
                                                       benchmark::Counter::kIsIterationInvariantRate |
                                                           benchmark::Counter::kInvert);
}
BENCHMARK(BM_KeyChain)->Arg(200)->Unit(benchmark::kMicrosecond);

void BM_CachedReevaluation(benchmark::State& state) {
    NodeId last = 0;
    const auto g = chain(static_cast<int>(state.range(0)), last);
    EvalContext context;
    g->evaluate(last, context);
    for (auto _ : state) benchmark::DoNotOptimize(g->evaluate(last, context));
    state.counters["us_per_node"] = benchmark::Counter(static_cast<double>(state.range(0)) * 1e-6,
                                                       benchmark::Counter::kIsIterationInvariantRate |
                                                           benchmark::Counter::kInvert);
}
BENCHMARK(BM_CachedReevaluation)->Arg(200)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tressora

BENCHMARK_MAIN();
