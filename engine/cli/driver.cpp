#include "cli/driver.h"

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "cli/usage.h"
#include "core/errors.h"
#include "core/parallel.h"
#include "graph/operator_registry.h"

namespace tressora::cli {

namespace {

int unknownCommand(std::ostream& out) {
    out << kUsage;
    return 1;
}

// eval and bake-scales: a bad command line exits 2 with the usage after the error line;
// any other failure exits 1.
int guarded(ArgvCommand command, int argc, char** argv, std::ostream& out, std::ostream& err) {
    try {
        return command(argc, argv, out, err);
    } catch (const std::invalid_argument& e) {
        err << "error: " << e.what() << '\n';
        out << kUsage;
        return 2;
    } catch (const std::exception& e) {
        err << "error: " << e.what() << '\n';
        return 1;
    }
}

}  // namespace

int runDriver(int argc, char** argv, std::ostream& out, std::ostream& err, const CommandTable& commands) {
    OperatorRegistry& registry = OperatorRegistry::instance();

    if (argc < 2) return unknownCommand(out);
    const std::string_view command = argv[1];
    const bool hasFile = argc >= 3;

    if (command == "--version") {
        out << "tressora-cli " << kVersion << " (TBB on, Alembic on)\n";
        return 0;
    }
    if (command == "--list-operators") {
        for (const std::string& name : registry.names()) out << name << '\n';
        return 0;
    }
    if ((command == "abc-info" && hasFile && commands.abcInfo) || (command == "hash" && hasFile && commands.hash)) {
        const FileCommand handler = command == "hash" ? commands.hash : commands.abcInfo;
        try {
            return handler(argv[2], argc >= 4 ? argv[3] : nullptr, out, err);
        } catch (const AlembicError& e) {
            err << "error: " << e.what() << '\n';
            return 1;
        }
    }
    if (command == "info" && hasFile && commands.info) {
        try {
            return commands.info(argv[2], nullptr, out, err);
        } catch (const std::exception& e) {
            err << "error: " << e.what() << '\n';
            return 1;
        }
    }
    if (command == "mcp" && commands.mcp) return commands.mcp(argc, argv, out, err);
    if (command == "eval" && commands.eval) return guarded(commands.eval, argc, argv, out, err);
    if (command == "bake-scales" && commands.bakeScales) return guarded(commands.bakeScales, argc, argv, out, err);
    return unknownCommand(out);
}

int runDriver(int argc, char** argv, std::ostream& out, std::ostream& err) {
    return runDriver(argc, argv, out, err, builtinCommands());
}

int runDriver(int argc, char** argv) {
    int code = 1;
    runWithThreads([&] { code = runDriver(argc, argv, std::cout, std::cerr); });
    return code;
}

}  // namespace tressora::cli
