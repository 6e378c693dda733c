#pragma once
// FeatherColor: patterns over feather vanes, a down colour and iridescence, from Propagate's vane channels.

namespace tressora {

class OperatorRegistry;

void registerFeatherColorOperator(OperatorRegistry& registry);

}  // namespace tressora
