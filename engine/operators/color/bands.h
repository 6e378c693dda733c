#pragma once
// Bands: stripes of another pigment along each hair (agouti, ticked fur), on the guard hairs.

namespace tressora {

class OperatorRegistry;

void registerBandsOperator(OperatorRegistry& registry);

}  // namespace tressora
