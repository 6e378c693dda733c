#include "cli/commands.h"

namespace tressora::cli {

const CommandTable& builtinCommands() {
    static const CommandTable table{};
    return table;
}

}  // namespace tressora::cli
