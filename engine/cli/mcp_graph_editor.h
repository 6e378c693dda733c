#pragma once
// A small editor over a graph's JSON text, for the agent tools: it knows node names, each
// node's ports (from its type), the rules of connections, and how a new node gets its name,
// its fitted lengths and a seed of its own. Every fault is a GraphError with a sentence the
// agent can act on; the tools run it inside the edit step, so a fault changes nothing.

#include <string>
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

    /// Adds a node of `type`, named `name` (or a free name made from the type), with
    /// `params`; lengths left at their defaults are multiplied by `scale`, and a seed param
    /// gets a value of its own. Returns the name.
    std::string addNode(const std::string& type, const std::string& name, const nlohmann::json& params, double scale);
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

}  // namespace tressora::cli
