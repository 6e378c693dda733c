#include "cli/driver.h"
#include "core/signal_cleanup.h"
#include "graph/operator_registry.h"
#include "operators/alembic/import_curves.h"

int main(int argc, char** argv) {
    // The built-ins come with the registry's first use; the Alembic family is added here.
    // An interrupted export deletes its temporary files before the signal ends the process.
    tressora::installSignalCleanup();
    tressora::registerAlembicOperators(tressora::OperatorRegistry::instance());
    return tressora::cli::runDriver(argc, argv);
}
