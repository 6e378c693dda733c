#pragma once
// Curl: winds strands into helices, waves, zigzags or coils along their own length.

namespace tressora {

class OperatorRegistry;

void registerCurlOperator(OperatorRegistry& registry);

}  // namespace tressora
