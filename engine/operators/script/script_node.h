#pragma once
// The Script node type: a node written as a script, with the params its header declares.

#include <nlohmann/json.hpp>

namespace tressora {

class OperatorRegistry;

/// Checks a script node file's object and compiles its script, as a Script node holding it
/// would: GraphError for a file that fails its checks, ScriptError (with line and column) for
/// a script that does not compile.
void compileScriptNode(const nlohmann::json& definition);

void registerScriptOperator(OperatorRegistry& registry);

}  // namespace tressora
