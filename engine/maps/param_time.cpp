// Whether a param reads the frame through an expression map.

#include "core/errors.h"
#include "expression/expression.h"
#include "maps/map_fields.h"

namespace tressora {
bool paramReadsTime(const ParamValue& value) {
    const MapRef* map = std::get_if<MapRef>(&value);
    if (!map || map->source != MapSource::Expression) return false;
    try {
        return Expression::compile(map->text, {}, ExpressionWant::Either)->readsTime();
    } catch (const ExpressionError&) {
        return false;  // a text that doesn't compile reads nothing; the node reports it
    }
}

}  // namespace tressora
