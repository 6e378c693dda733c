#pragma once
// The Length node type: trims strands from the tip to a share of their length.

namespace tressora {

class OperatorRegistry;

void registerLengthOperator(OperatorRegistry& registry);

}  // namespace tressora
