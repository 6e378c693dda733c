#include "operators/builtin_operators.h"

#include "graph/operator_registry.h"
#include "operators/growth/guide_conversion.h"
#include "operators/growth/length.h"
#include "operators/growth/resample.h"
#include "operators/growth/scatter.h"
#include "operators/growth/source_nodes.h"
#include "operators/growth/width.h"
#include "operators/growth/interpolate.h"
#include "operators/color/bands.h"
#include "operators/color/feather_color.h"
#include "operators/color/hair_color.h"
#include "operators/color/render_data.h"
#include "operators/look/noise.h"

namespace tressora {

void registerBuiltinOperators(OperatorRegistry& registry) {
    // Each family's register<Name>Operator is called here, in registration order, as the
    // families are added.
    registerScalpOperator(registry);
    registerGuidesOperator(registry);
    registerColliderMeshOperator(registry);
    registerScatterOperator(registry);
    registerLengthOperator(registry);
    registerWidthOperator(registry);
    registerResampleOperator(registry);
    registerToGuidesOperator(registry);
    registerToStrandsOperator(registry);
    registerOutputOperator(registry);
    registerInterpolateOperator(registry);

    // Look
    registerNoiseOperator(registry);
    // Color
    registerHairColorOperator(registry);
    registerBandsOperator(registry);
    registerFeatherColorOperator(registry);
    registerRenderDataOperator(registry);
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
