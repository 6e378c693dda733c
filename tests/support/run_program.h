#pragma once
// Runs a program with arguments and captures its standard output, standard error and exit
// code, for tests that drive the built tressora-cli as a user would; reads files whole.

#include <functional>
#include <string>
#include <vector>

namespace tressora::testing {

struct ProgramResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

/// Runs `program` with `args` (stdin from /dev/null), with extra environment entries
/// "NAME=value" added to the current environment.
ProgramResult runProgram(const std::string& program, const std::vector<std::string>& args,
                         const std::vector<std::string>& environment = {});

/// Runs the program as runProgram does and sends it `signal` as soon as `when()` turns true
/// (asked every half millisecond while the program runs).
ProgramResult runProgramUntil(const std::string& program, const std::vector<std::string>& args, int signal,
                              const std::function<bool()>& when, const std::vector<std::string>& environment = {});

/// The whole content of a file ("" when it cannot be read).
std::string fileContent(const std::string& path);

/// The built tressora-cli.
inline ProgramResult runCli(const std::vector<std::string>& args, const std::vector<std::string>& environment = {}) {
    return runProgram(TRESSORA_CLI_PATH, args, environment);
}

}  // namespace tressora::testing
