#pragma once
// Ports: the typed inputs and outputs of a node.

#include <string>
#include <string_view>

#include "graph/value_kind.h"

namespace tressora {

/// What travels on a connection. The order is fixed: it is also the order of names in messages.
enum class PortType { Strands = 0, Guides, Mesh, Field, Curve, Curves, Value };

/// "Strands", "Guides", "Mesh", "Field", "Curve", "Curves" or "Value"; "Unknown" otherwise.
std::string_view portTypeName(PortType type);

/// Reads one of the seven names exactly; anything else throws GraphError.
PortType parsePortType(std::string_view text);

/// One declared input or output of a node.
struct Port {
    std::string name;  ///< unique among the node's inputs, or among its outputs
    PortType type = PortType::Strands;
    bool optional = false;                 ///< the node runs with the port unconnected
    ValueKind valueKind = ValueKind::Any;  ///< for Value ports and single-kind Field ports
    bool operator==(const Port&) const = default;
};

}  // namespace tressora
