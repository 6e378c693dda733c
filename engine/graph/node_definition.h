#pragma once
// Node types whose content is more than params (a compound's inner graph, a script's text)
// implement this beside Operator, so that graph JSON can read and write their `definition`.

#include <nlohmann/json.hpp>

namespace tressora {

class NodeDefinition {
public:
    /// Takes the node's body; called before the params are read, since it decides which
    /// params there are. Throws GraphError for a body it cannot use.
    virtual void readDefinition(const nlohmann::json& definition) = 0;
    /// The body as written to graph JSON.
    virtual nlohmann::json writeDefinition() const = 0;

protected:
    ~NodeDefinition() = default;
};

}  // namespace tressora
