#include "cli/driver.h"
#include "cli/program_folder.h"
#include "core/signal_cleanup.h"
#include "graph/operator_registry.h"
#include "library/node_library.h"
#include "operators/alembic/import_curves.h"

int main(int argc, char** argv) {
    // The built-ins come with the registry's first use; the Alembic family is added here.
    // An interrupted export deletes its temporary files before the signal ends the process.
    // Graphs may name the library nodes that ship in the nodes folder beside the program.
    tressora::installSignalCleanup();
    tressora::registerAlembicOperators(tressora::OperatorRegistry::instance());
    tressora::registerNodeFolder(tressora::cli::resourceFolder(tressora::cli::programFolder(), "nodes"));
    return tressora::cli::runDriver(argc, argv);
}
