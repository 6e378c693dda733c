#pragma once
// The built-in node types. Each register<Name>Operator stands beside its class, in the
// source file of its family; registerBuiltinOperators runs them all.

namespace tressora {

class OperatorRegistry;

/// Adds every built-in type to the registry, in registration order.
void registerBuiltinOperators(OperatorRegistry& registry);

}  // namespace tressora
