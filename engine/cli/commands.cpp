#include "cli/commands.h"

#include "cli/info_command.h"

namespace tressora::cli {

const CommandTable& builtinCommands() {
    static const CommandTable table = [] {
        CommandTable t;
        t.info = infoCommand;
        return t;
    }();
    return table;
}

}  // namespace tressora::cli
