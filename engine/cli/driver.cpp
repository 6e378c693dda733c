#include "cli/driver.h"

#include <iostream>
#include <string_view>

#include "core/parallel.h"

namespace tressora::cli {

int runDriver(int argc, char** argv, std::ostream& out, std::ostream& /*err*/) {
    if (argc >= 2 && std::string_view(argv[1]) == "--version") {
        out << "tressora-cli " << kVersion << " (TBB on, Alembic on)\n";
        return 0;
    }
    return 1;
}

int runDriver(int argc, char** argv) {
    int code = 1;
    runWithThreads([&] { code = runDriver(argc, argv, std::cout, std::cerr); });
    return code;
}

}  // namespace tressora::cli
