#include "support/run_program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

extern char** environ;

namespace tressora::testing {

std::string fileContent(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

ProgramResult runProgram(const std::string& program, const std::vector<std::string>& args,
                         const std::vector<std::string>& environment) {
    return runProgramUntil(program, args, 0, {}, environment);
}

ProgramResult runProgramUntil(const std::string& program, const std::vector<std::string>& args, int signal,
                              const std::function<bool()>& when, const std::vector<std::string>& environment) {
    char outPath[] = "/tmp/tressora-out-XXXXXX";
    char errPath[] = "/tmp/tressora-err-XXXXXX";
    const int outFd = mkstemp(outPath);
    const int errFd = mkstemp(errPath);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outFd, 1);
    posix_spawn_file_actions_adddup2(&actions, errFd, 2);

    std::vector<std::string> argStore = {program};
    argStore.insert(argStore.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : argStore) argv.push_back(a.data());
    argv.push_back(nullptr);

    std::vector<std::string> envStore;
    for (char** e = environ; *e; ++e) envStore.emplace_back(*e);
    envStore.insert(envStore.end(), environment.begin(), environment.end());
    std::vector<char*> envp;
    for (std::string& e : envStore) envp.push_back(e.data());
    envp.push_back(nullptr);

    ProgramResult result;
    pid_t pid = 0;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data()) == 0) {
        int status = 0;
        bool sent = !when;
        while (!sent && waitpid(pid, &status, WNOHANG) == 0) {
            if (when()) {
                kill(pid, signal);
                sent = true;
            } else {
                usleep(500);
            }
        }
        if (sent) waitpid(pid, &status, 0);
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    close(outFd);
    close(errFd);
    result.out = fileContent(outPath);
    result.err = fileContent(errPath);
    std::remove(outPath);
    std::remove(errPath);
    return result;
}

}  // namespace tressora::testing
