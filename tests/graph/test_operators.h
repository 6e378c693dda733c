#pragma once
// Small node types for graph tests, registered into a registry of the test's own.

#include <atomic>
#include <chrono>
#include <thread>
#include <memory>

#include "core/strand_set.h"
#include "graph/field_value.h"
#include "graph/operator_registry.h"
#include "graph/uniform_value.h"

namespace tressora::testops {

inline ParamSpec param(const std::string& name, ParamValue def, const std::string& description = "") {
    ParamSpec s;
    s.name = name;
    s.defaultValue = std::move(def);
    s.description = description;
    return s;
}

/// Makes `count` straight strands of `points` points; no inputs.
class Grow : public Operator {
public:
    std::string type() const override { return "Grow"; }
    std::vector<Port> inputs() const override { return {}; }
    std::vector<ParamSpec> params() const override {
        ParamSpec count = param("count", std::int64_t{4});
        count.topology = true;
        ParamSpec pts = param("points", std::int64_t{3});
        pts.topology = true;
        return {count, pts, param("height", 1.0), param("padding", 0.0)};
    }
    Value evaluate(EvalContext&, const std::vector<Value>&) override {
        auto set = std::make_shared<StrandSet>();
        const auto count = paramValues.getInt("count", 0);
        const auto n = paramValues.getInt("points", 0);
        const float h = static_cast<float>(paramValues.getFloat("height", 1));
        for (std::int64_t s = 0; s < count; ++s) {
            std::vector<Vec3f> pts;
            for (std::int64_t p = 0; p < n; ++p) pts.push_back({float(s), h * float(p), 0});
            set->addStrand(static_cast<std::uint64_t>(s + 1), {}, pts);
        }
        return Value(std::shared_ptr<const StrandSet>(set));
    }
};

/// A Grow that takes its time: expensive to make again.
class SlowGrow : public Grow {
public:
    std::string type() const override { return "SlowGrow"; }
    Value evaluate(EvalContext& c, const std::vector<Value>& in) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        return Grow::evaluate(c, in);
    }
};

/// Appends its second strands to a copy of its first.
class Join : public Operator {
public:
    std::string type() const override { return "Join"; }
    std::vector<Port> inputs() const override { return {{"a", PortType::Strands}, {"b", PortType::Strands}}; }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override {
        auto out = std::make_shared<StrandSet>(*in.at(0).as<StrandSet>());
        out->append(*in.at(1).as<StrandSet>());
        return Value(std::shared_ptr<const StrandSet>(out));
    }
};

/// Moves every point by `amount` along x; counts its runs.
class Shift : public Operator {
public:
    inline static std::atomic<int> runs{0};
    std::string type() const override { return "Shift"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }
    std::vector<ParamSpec> params() const override {
        ParamSpec mode = param("mode", std::string("x"));
        mode.choices = {"x", "y"};
        return {param("amount", 1.0, "How far (mappable)"), mode};
    }
    std::string role() const override { return "shape"; }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override {
        ++runs;
        const auto strands = in.at(0).as<StrandSet>();
        if (!strands) return {};
        auto out = std::make_shared<StrandSet>(*strands);
        const float a = static_cast<float>(paramValues.getFloat("amount", 0));
        const bool y = paramValues.getString("mode", "x") == "y";
        for (Vec3f& p : out->mutablePoints()) (y ? p.y : p.x) += a;
        return Value(std::shared_ptr<const StrandSet>(out));
    }
};

/// Keeps the first `keep` strands (changes the count).
class Drop : public Operator {
public:
    std::string type() const override { return "Drop"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands}}; }
    std::vector<ParamSpec> params() const override { return {param("keep", std::int64_t{1})}; }
    Value evaluate(EvalContext& context, const std::vector<Value>& in) override {
        const auto strands = in.at(0).as<StrandSet>();
        std::vector<std::size_t> idx;
        for (std::int64_t i = 0; i < paramValues.getInt("keep", 0) && std::size_t(i) < strands->strandCount(); ++i)
            idx.push_back(std::size_t(i));
        context.addNote("kept " + std::to_string(idx.size()));
        return Value(std::shared_ptr<const StrandSet>(std::make_shared<StrandSet>(strands->subset(idx))));
    }
};

/// Two outputs: its input, and nothing. Input is polymorphic.
class Fork : public Operator {
public:
    std::string type() const override { return "Fork"; }
    std::vector<Port> inputs() const override { return {{"curves", PortType::Curves, true}}; }
    Port output() const override { return {"a", PortType::Curves}; }
    std::vector<Port> outputs() const override { return {{"a", PortType::Curves}, {"b", PortType::Curves}}; }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override { return in.at(0); }
    std::vector<Value> evaluateOutputs(EvalContext& c, const std::vector<Value>& in) override {
        return {evaluate(c, in), Value()};
    }
};

/// Claims two outputs but makes one value: an evaluator invariant break.
class Liar : public Fork {
public:
    std::string type() const override { return "Liar"; }
    std::vector<Value> evaluateOutputs(EvalContext& c, const std::vector<Value>& in) override {
        return {evaluate(c, in)};
    }
};

/// The graph's result: hands its strands on.
class Out : public Operator {
public:
    std::string type() const override { return "Output"; }
    std::vector<Port> inputs() const override { return {{"strands", PortType::Strands, true}}; }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override { return in.at(0); }
};

/// One number for a whole node, on a Value port.
class Number : public Operator {
public:
    std::string type() const override { return "Number"; }
    std::vector<Port> inputs() const override { return {}; }
    Port output() const override { return {"value", PortType::Value, false, ValueKind::Number}; }
    std::vector<ParamSpec> params() const override { return {param("value", 0.25)}; }
    Value evaluate(EvalContext&, const std::vector<Value>&) override {
        return Value(std::make_shared<const UniformValue>(UniformValue::number(paramValues.getFloat("value", 0))));
    }
};

/// A vector on a Value port.
class Vector : public Operator {
public:
    std::string type() const override { return "Vector"; }
    std::vector<Port> inputs() const override { return {}; }
    Port output() const override { return {"value", PortType::Value, false, ValueKind::Vec3}; }
    Value evaluate(EvalContext&, const std::vector<Value>&) override {
        return Value(std::make_shared<const UniformValue>(UniformValue::vec3({1, 2, 3})));
    }
};

/// A constant field.
class Constant : public Operator {
public:
    std::string type() const override { return "Constant"; }
    std::vector<Port> inputs() const override { return {}; }
    Port output() const override { return {"field", PortType::Field}; }
    std::vector<ParamSpec> params() const override { return {param("value", 0.5)}; }
    Value evaluate(EvalContext&, const std::vector<Value>&) override {
        return Value(std::make_shared<const ConstantFieldValue>(float(paramValues.getFloat("value", 0))));
    }
};

/// Stand-ins named like the growth nodes, for the resolution report.
class NamedPass : public Operator {
public:
    explicit NamedPass(std::string type, bool source) : type_(std::move(type)), source_(source) {}
    std::string type() const override { return type_; }
    std::vector<Port> inputs() const override {
        if (source_) return {};
        return {{"strands", PortType::Strands, true}};
    }
    std::vector<ParamSpec> params() const override {
        if (type_ != "Resample") return {};
        return {param("segments", std::int64_t{0})};
    }
    Value evaluate(EvalContext&, const std::vector<Value>& in) override { return in.empty() ? Value() : in[0]; }

private:
    std::string type_;
    bool source_;
};

inline void registerTestOperators(OperatorRegistry& r) {
    r.add("Grow", {"source", "", "", "", false}, [] { return std::make_unique<Grow>(); });
    r.add("SlowGrow", {"source", "", "", "", false}, [] { return std::make_unique<SlowGrow>(); });
    r.add("Join", {"utility", "", "", "", false}, [] { return std::make_unique<Join>(); });
    r.add("Shift", {"shape", "", "", "", false}, [] { return std::make_unique<Shift>(); });
    r.add("Drop", {"grow", "", "", "", false}, [] { return std::make_unique<Drop>(); });
    r.add("Fork", {"utility", "", "", "", false}, [] { return std::make_unique<Fork>(); });
    r.add("Liar", {"utility", "", "", "", false}, [] { return std::make_unique<Liar>(); });
    r.add("Output", {"utility", "", "", "", false}, [] { return std::make_unique<Out>(); });
    r.add("Number", {"field", "", "", "", false}, [] { return std::make_unique<Number>(); });
    r.add("Vector", {"field", "", "", "", false}, [] { return std::make_unique<Vector>(); });
    r.add("Constant", {"field", "", "", "", false}, [] { return std::make_unique<Constant>(); });
    r.add("Scatter", {"grow", "", "", "", false}, [] { return std::make_unique<NamedPass>("Scatter", true); });
    r.add("Resample", {"shape", "", "", "", false}, [] { return std::make_unique<NamedPass>("Resample", false); });
}

inline const OperatorRegistry& testRegistry() {
    static OperatorRegistry registry;
    static bool filled = (registerTestOperators(registry), true);
    (void)filled;
    return registry;
}

}  // namespace tressora::testops
