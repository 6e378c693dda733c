#pragma once
// HairColor: the hair's main look as channels for renderers (pigment or picked colour, a
// root colour map, greys, randomness, tips, and the highlight values).

namespace tressora {

class OperatorRegistry;

void registerHairColorOperator(OperatorRegistry& registry);

}  // namespace tressora
