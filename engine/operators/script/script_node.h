#pragma once
// The Script node type: a node written as a script, with the params its header declares.

namespace tressora {

class OperatorRegistry;

void registerScriptOperator(OperatorRegistry& registry);

}  // namespace tressora
