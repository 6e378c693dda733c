#pragma once
// Small helpers shared by the growth nodes: their param tables and type info, reading a
// required input, the change records an incremental step can patch, polyline length.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "core/errors.h"
#include "core/parallel.h"
#include "core/strand_set.h"
#include "core/vec.h"
#include "graph/operator_registry.h"
#include "graph/param_spec.h"
#include "graph/strand_changes.h"
#include "graph/value.h"
#include "maps/map_fields.h"

namespace tressora {

/// What a node type registers: its category, description and search keywords.
inline OperatorInfo typeInfo(std::string category, std::string description, std::string keywords) {
    OperatorInfo info;
    info.category = std::move(category);
    info.description = std::move(description);
    info.keywords = std::move(keywords);
    return info;
}

/// The binding of a strand node's mappable params: its strands input.
inline MapBinding strandBinding(const StrandSet& strands) {
    MapBinding binding;
    binding.strands = &strands;
    binding.strandsInput = true;
    return binding;
}

/// Builds a row of a node's param table: name, default and description, then the columns
/// that differ from a ParamSpec's defaults.
class ParamRow {
public:
    ParamRow(std::string name, ParamValue defaultValue, std::string description) {
        spec_.name = std::move(name);
        spec_.defaultValue = std::move(defaultValue);
        spec_.description = std::move(description);
    }
    ParamRow& unit(std::string unit) { spec_.unit = std::move(unit); return *this; }
    ParamRow& slider(double low, double high) { spec_.softMin = low; spec_.softMax = high; return *this; }
    ParamRow& choices(std::vector<std::string> choices) { spec_.choices = std::move(choices); return *this; }
    ParamRow& animatable() { spec_.animatable = true; return *this; }
    ParamRow& advanced() { spec_.advanced = true; return *this; }
    ParamRow& shownWhen(std::string param, std::vector<std::string> in) {
        spec_.showWhen = ParamCondition{std::move(param), std::move(in)};
        return *this;
    }
    ParamRow& group(std::string group) { spec_.group = std::move(group); return *this; }
    ParamRow& worldDirection() { spec_.worldDirection = true; return *this; }
    /// The param's text names a strand channel the node writes (or, optionally present, reads).
    ParamRow& writesChannel() { spec_.channel = ChannelMode::Writes; return *this; }
    ParamRow& readsChannel() { spec_.channel = ChannelMode::Reads; spec_.channelOptional = true; return *this; }
    operator ParamSpec() const { return spec_; }  // NOLINT(google-explicit-constructor): rows list as specs

private:
    ParamSpec spec_;
};

/// The value on input `slot`, or GraphError "<word>: <port> input not connected" when empty.
inline const Value& requireInput(const std::vector<Value>& inputs, std::size_t slot, const std::string& word,
                                 const std::string& port) {
    if (slot >= inputs.size() || inputs[slot].empty())
        throw GraphError(word + ": " + port + " input not connected");
    return inputs[slot];
}

/// The strands an incremental step may patch: the input's record when it lists some strands
/// of an unchanged layout, else null (the node then runs in full).
inline const StrandChanges* patchableChanges(const InputChanges& changes, std::size_t slot = 0) {
    const StrandChanges* c = changes.slot(slot);
    return c && !c->all && !c->layoutChanged ? c : nullptr;
}

/// The incremental step of a node that rewrites one point array of its input (points or
/// widths) strand by strand and changes nothing else: the input's arrays are shared, the
/// array is taken from the previous result, and only the strands the input's record lists
/// are redone. `read(set)` and `write(set)` give the array of a set, `makeRedo(in)` a
/// callable redo(strand, array) for this evaluation. False (run in full) when the record
/// or the layouts don't allow it. Parallel over the listed strands (grain 256).
template <class Read, class Write, class MakeRedo>
bool patchChangedStrands(const std::vector<Value>& inputs, const InputChanges& changes, const Value& previous,
                         Value& result, StrandChanges& resultChanges, Read read, Write write, MakeRedo makeRedo) {
    const StrandChanges* changed = patchableChanges(changes);
    const auto in = inputs.empty() ? nullptr : inputs[0].as<StrandSet>();
    const auto last = previous.as<StrandSet>();
    if (!changed || !in || !last || last->pointCount() != in->pointCount() ||
        last->strandCount() != in->strandCount())
        return false;
    const auto redo = makeRedo(*in);
    auto out = std::make_shared<StrandSet>(*in);
    const auto target = write(*out);
    std::ranges::copy(read(*last), target.begin());
    const std::vector<std::uint32_t>& list = changed->strands;
    parallelRange(0, list.size(), 256, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t x = lo; x < hi; ++x)
            if (list[x] < in->strandCount()) redo(list[x], target);
    });
    result = Value(std::shared_ptr<const StrandSet>(std::move(out)));
    resultChanges = {false, list, false};
    return true;
}

/// Polyline length of a run of points.
inline float polylineLength(std::span<const Vec3f> points) {
    float total = 0.0f;
    for (std::size_t i = 1; i < points.size(); ++i) total += length(points[i] - points[i - 1]);
    return total;
}

}  // namespace tressora
