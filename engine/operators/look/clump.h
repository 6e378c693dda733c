#pragma once
// Clump: gathers strands toward their clump's center curve, into locks, ribbons or parts.

namespace tressora {

class OperatorRegistry;

void registerClumpOperator(OperatorRegistry& registry);

}  // namespace tressora
