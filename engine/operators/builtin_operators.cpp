#include "operators/builtin_operators.h"

#include "graph/operator_registry.h"
#include "operators/color/bands.h"
#include "operators/color/feather_color.h"
#include "operators/color/hair_color.h"
#include "operators/color/render_data.h"
#include "operators/growth/guide_conversion.h"
#include "operators/growth/interpolate.h"
#include "operators/growth/length.h"
#include "operators/growth/resample.h"
#include "operators/growth/scatter.h"
#include "operators/growth/source_nodes.h"
#include "operators/growth/width.h"
#include "operators/look/clump.h"
#include "operators/look/curl.h"
#include "operators/look/noise.h"
#include "operators/script/script_node.h"

namespace tressora {

void registerBuiltinOperators(OperatorRegistry& registry) {
    // Sources and growth.
    registerScalpOperator(registry);
    registerGuidesOperator(registry);
    registerColliderMeshOperator(registry);
    registerScatterOperator(registry);
    registerInterpolateOperator(registry);
    registerToGuidesOperator(registry);
    registerToStrandsOperator(registry);
    // Shaping.
    registerLengthOperator(registry);
    registerWidthOperator(registry);
    registerResampleOperator(registry);
    registerScriptOperator(registry);
    // Look.
    registerClumpOperator(registry);
    registerNoiseOperator(registry);
    registerCurlOperator(registry);
    // Colour.
    registerHairColorOperator(registry);
    registerBandsOperator(registry);
    registerFeatherColorOperator(registry);
    registerRenderDataOperator(registry);
    // Utility.
    registerOutputOperator(registry);
}

OperatorRegistry& OperatorRegistry::instance() {
    struct Builtins {
        OperatorRegistry registry;
        Builtins() { registerBuiltinOperators(registry); }
    };
    static Builtins builtins;
    return builtins.registry;
}

}  // namespace tressora
