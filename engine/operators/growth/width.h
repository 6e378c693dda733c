#pragma once
// The Width node type: fills each strand's widths from a mappable width and a profile.

namespace tressora {

class OperatorRegistry;

void registerWidthOperator(OperatorRegistry& registry);

}  // namespace tressora
