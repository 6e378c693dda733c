#pragma once
// The source nodes, which hand the scene's items to the graph (Scalp, ColliderMesh, Guides),
// and Output, whose value is the groom's strands.

namespace tressora {

class OperatorRegistry;

void registerScalpOperator(OperatorRegistry& registry);
void registerGuidesOperator(OperatorRegistry& registry);
void registerColliderMeshOperator(OperatorRegistry& registry);
void registerOutputOperator(OperatorRegistry& registry);

}  // namespace tressora
