// A node's compile-time variables from its JSON.

#include <algorithm>

#include <nlohmann/json.hpp>

#include "core/errors.h"
#include "core/json_numbers.h"
#include "expression/expression.h"

namespace tressora {
namespace {

bool isVariableName(const std::string& name) {
    if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        if (!ok) return false;
    }
    return true;
}

}  // namespace

std::vector<ExpressionVariable> expressionVariablesFromJson(const nlohmann::json& value) {
    std::vector<ExpressionVariable> variables;
    if (value.is_null()) return variables;
    if (!value.is_object()) throw ExpressionError("variables are a JSON object of numbers and vectors");
    for (const auto& [key, item] : value.items()) {
        std::string name = key;
        if (!name.empty() && name[0] == '$') name.erase(0, 1);
        if (!isVariableName(name)) {
            throw ExpressionError("'" + key + "' is not a variable name (letters, digits and _)");
        }
        ExpressionVariable v;
        v.name = name;
        if (finiteFloat(item)) {
            v.value.x = *finiteFloat(item);
        } else if (item.is_array() && item.size() == 3 &&
                   std::all_of(item.begin(), item.end(), [](const nlohmann::json& c) { return finiteFloat(c).has_value(); })) {
            v.isVector = true;
            v.value = {*finiteFloat(item[0]), *finiteFloat(item[1]), *finiteFloat(item[2])};
        } else {
            throw ExpressionError(key + " is neither a number nor a vector of three");
        }
        variables.push_back(std::move(v));
    }
    return variables;
}

}  // namespace tressora
