#include "cli/commands.h"

#include "cli/abc_info_command.h"
#include "cli/bake_scales_command.h"
#include "cli/eval_command.h"
#include "cli/hash_command.h"
#include "cli/info_command.h"
#include "cli/mcp_server.h"

namespace tressora::cli {

const CommandTable& builtinCommands() {
    static const CommandTable table = [] {
        CommandTable t;
        t.info = infoCommand;
        t.abcInfo = abcInfoCommand;
        t.hash = hashCommand;
        t.eval = evalCommand;
        t.bakeScales = bakeScalesCommand;
        t.mcp = mcpCommand;
        return t;
    }();
    return table;
}

}  // namespace tressora::cli
