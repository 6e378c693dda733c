#pragma once
// The Interpolate node type: grows each root into a strand shaped like the guides around it.

namespace tressora {

class OperatorRegistry;

/// Adds the type "Interpolate" (category "grow") to the registry.
void registerInterpolateOperator(OperatorRegistry& registry);

}  // namespace tressora
