// Whether a graph's params read the frame through expression maps.

#include "core/errors.h"
#include "expression/expression.h"
#include "graph/graph.h"
#include "maps/map_fields.h"

namespace tressora {
namespace {

bool paramsReadTime(const Operator& op) {
    for (const auto& [name, value] : op.paramValues.values())
        if (paramReadsTime(value)) return true;
    return false;
}

}  // namespace

bool paramReadsTime(const ParamValue& value) {
    const MapRef* map = std::get_if<MapRef>(&value);
    if (!map || map->source != MapSource::Expression) return false;
    try {
        return Expression::compile(map->text, {}, ExpressionWant::Either)->readsTime();
    } catch (const ExpressionError&) {
        return false;  // a text that doesn't compile reads nothing; the node reports it
    }
}

bool graphReadsTime(const Graph& graph) {
    for (const auto& [id, node] : graph.nodes()) {
        if (paramsReadTime(*node.op)) return true;
        bool inner = false;
        node.op->forEachInner("", [&inner](const std::string&, Operator& op) {
            inner = paramsReadTime(op);
            return !inner;
        });
        if (inner) return true;
    }
    return false;
}

}  // namespace tressora
