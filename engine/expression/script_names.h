#pragma once
// The names a script reads without declaring them (its built-in inputs and outputs) and the
// names of the functions only scripts have. A node's params may take neither.

#include <span>
#include <string_view>

namespace tressora {

/// The functions scripts have beside the expression library, each of one argument.
std::span<const std::string_view> scriptFunctionNames();

/// A name a script reads already: an environment variable, a vector name or alias, pi, or one
/// of the script's own (width, color, prev, channel).
bool isScriptInputName(std::string_view name);
/// One of scriptFunctionNames().
bool isScriptFunctionName(std::string_view name);

}  // namespace tressora
