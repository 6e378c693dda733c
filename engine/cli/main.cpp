#include "cli/driver.h"

int main(int argc, char** argv) { return tressora::cli::runDriver(argc, argv); }
