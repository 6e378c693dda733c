#include "operators/builtin_operators.h"

#include "graph/operator_registry.h"
#include "operators/growth/interpolate.h"

namespace tressora {

void registerBuiltinOperators(OperatorRegistry& registry) {
    // Each family's register<Name>Operator is called here, in registration order, as the
    // families are added.
    registerInterpolateOperator(registry);
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
