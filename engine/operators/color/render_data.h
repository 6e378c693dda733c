#pragma once
// RenderData: render controls per strand for the shader (opacity along the strands).

namespace tressora {

class OperatorRegistry;

void registerRenderDataOperator(OperatorRegistry& registry);

}  // namespace tressora
