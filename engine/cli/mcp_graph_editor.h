#pragma once
// A small editor over a graph's JSON text, for the agent tools: it knows node names, each
// node's ports (from its type), the rules of connections, and how a new node gets its name,
// its fitted lengths and a seed of its own. Every fault is a GraphError with a sentence the
// agent can act on; the tools run it inside the edit step, so a fault changes nothing.

#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "graph/port.h"

namespace tressora::cli {

class GraphEditor {
public:
    /// Parses the text: blank text is an empty graph; other text must be a JSON object
    /// (GraphError "the graph is not a JSON object").
    explicit GraphEditor(const std::string& text);

    /// The graph as compact JSON text.
    std::string text() const;
    nlohmann::json& document() { return doc_; }
    const nlohmann::json& document() const { return doc_; }

    bool has(const std::string& name) const;
    /// The node's JSON; GraphError "no node named <name>".
    nlohmann::json& node(const std::string& name);
    std::string output() const { return doc_.value("output", std::string()); }

    /// The node's inputs (its type's, then those of its paramInputs) and outputs.
    std::vector<Port> inputs(const std::string& name);
    std::vector<Port> outputs(const std::string& name);

    /// What addNode adds.
    struct NewNode {
        std::string type;           ///< a registered type, or "node:<id>" for a node of the library
        std::string name;           ///< empty: a free name made from `base`
        std::string base;           ///< empty: the type's name with a lower-case first letter, or
                                    ///< a library node's last id part
        nlohmann::json params;      ///< an object or null
        nlohmann::json definition;  ///< the body of a Script or Compound node; null for others
    };
    /// Adds a node and returns its name. A free name is the base with a number behind it until
    /// no node has it. Length params left at their defaults are fitted to the scalp by its
    /// largest side `scalpSize` (0: not fitted): a node with a definition that gives a `size`
    /// by that over it, others by that over the size the built-in defaults suit. A seed param
    /// gets a value of its own, so that two nodes of one type do not pick the same strands.
    std::string addNode(const NewNode& node, double scalpSize);
    /// Deletes the node and its connections; the output is cleared when it was this node.
    void removeNode(const std::string& name);
    /// Connects from.output (empty: the first output) to to.input, replacing what fed it.
    void connect(const std::string& from, const std::string& output, const std::string& to, const std::string& input);
    /// Removes the connection into to.input; false when there was none.
    bool disconnect(const std::string& to, const std::string& input);

    /// The connections as (from, output, to, input), output empty for a first output.
    struct Link {
        std::string from, output, to, input;
    };
    std::vector<Link> links() const;

private:
    nlohmann::json& connections();
    bool reaches(const std::string& from, const std::string& to) const;

    nlohmann::json doc_;
};

/// "node" or "node.output" split at the first ".".
std::pair<std::string, std::string> splitSource(const std::string& text);

/// Places the new node `made` as the placement arguments say, the first that is there:
/// "after" a node (it takes that node's output and feeds what it fed), "before" a node (into
/// its first input), "inputs" ({"input": "node" or "node.output"}); with none of them, before
/// the output node when it fits there. Returns the placement as answers word it. ToolError or
/// GraphError when a placement cannot be made.
std::string placeNode(GraphEditor& editor, const std::string& made, const nlohmann::json& args);

}  // namespace tressora::cli
