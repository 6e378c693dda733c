#pragma once
// Noise: displaces points with fractal noise, independent per strand or coherent in world
// space; on a fraction of the strands at a high frequency, frizz.

namespace tressora {

class OperatorRegistry;

void registerNoiseOperator(OperatorRegistry& registry);

}  // namespace tressora
