#include "expression/script_names.h"

#include <algorithm>

#include "expression/names.h"

namespace tressora {
namespace {

constexpr std::string_view kFunctions[] = {"strandPoint", "guidePoint", "scalpNormal", "closestOnScalp"};
constexpr std::string_view kScriptNames[] = {"width", "color", "prev", "channel", "pi"};

}  // namespace

std::span<const std::string_view> scriptFunctionNames() { return kFunctions; }

bool isScriptInputName(std::string_view name) {
    if (std::find(std::begin(kScriptNames), std::end(kScriptNames), name) != std::end(kScriptNames)) return true;
    return exprc::slotOfName(name) || exprc::vectorSlotOfName(name) || !exprc::aliasTarget(name).empty();
}

bool isScriptFunctionName(std::string_view name) {
    return std::find(std::begin(kFunctions), std::end(kFunctions), name) != std::end(kFunctions);
}

}  // namespace tressora
