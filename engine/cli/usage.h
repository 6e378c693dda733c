#pragma once
// The usage text: the program's only help.

namespace tressora::cli {

inline constexpr const char* kUsage =
    "usage: tressora-cli --version\n"
    "       tressora-cli --list-operators\n"
    "       tressora-cli info <file.groom>\n"
    "       tressora-cli eval <file.groom> -o <out.abc|out.usda|out.vrscene> [-f <frame>|<start>-<end>]\n"
    "                    [--step <frames>] [--density <0-1>] [--timings] [--stats]\n"
    "                    [--scales mesh|instancer|both|none]\n"
    "       tressora-cli bake-scales <file.groom> -o <prefix> [-f <frame>] [--resolution <16-8192>]\n"
    "                    [--max-height <h>] [--padding <texels>] [--background r,g,b]\n"
    "       tressora-cli abc-info <file.abc> [object]\n"
    "       tressora-cli hash <file.abc> [object]\n"
    "       tressora-cli mcp [--root <dir>]   (an MCP server on stdin/stdout for AI agents)\n";

}  // namespace tressora::cli
