#pragma once
// Scatter: roots over the scalp with stable ids, each grown into a straight strand along the
// scalp's normal. The node that says how many hairs there are, and where.

namespace tressora {

class OperatorRegistry;

/// Adds the `Scatter` node type (category "grow") to the registry.
void registerScatterOperator(OperatorRegistry& registry);

}  // namespace tressora
