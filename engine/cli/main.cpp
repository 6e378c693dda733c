#include "cli/driver.h"
#include "graph/operator_registry.h"
#include "operators/alembic/import_curves.h"

int main(int argc, char** argv) {
    // The built-ins come with the registry's first use; the Alembic family is added here.
    tressora::registerAlembicOperators(tressora::OperatorRegistry::instance());
    return tressora::cli::runDriver(argc, argv);
}
