// The agent server keeps standard output for the protocol: whatever code inside the process
// prints to stdout once the server runs lands on standard error, never between its answers.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "cli/mcp_server.h"

namespace tressora::cli {
namespace {

std::string drain(int fd) {
    std::string out;
    char buffer[4096];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;) out.append(buffer, static_cast<std::size_t>(got));
    return out;
}

bool sameFile(int a, int b) {
    struct stat x {}, y {};
    return ::fstat(a, &x) == 0 && ::fstat(b, &y) == 0 && x.st_dev == y.st_dev && x.st_ino == y.st_ino;
}

TEST(McpStdout, PrintsInsideTheServerNeverReachTheProtocolStream) {
    int in[2], out[2], err[2];
    ASSERT_EQ(::pipe(in), 0);
    ASSERT_EQ(::pipe(out), 0);
    ASSERT_EQ(::pipe(err), 0);
    std::fflush(nullptr);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) ::close(fd);
        // Library code printing while the server runs, once it has taken standard output.
        std::thread noisy([] {
            while (!sameFile(1, 2)) std::this_thread::sleep_for(std::chrono::microseconds(200));
            for (int i = 0; i < 50; ++i) {
                std::printf("library noise %d\n", i);
                std::cout << "stream noise " << i << std::endl;
                std::fflush(stdout);
            }
        });
        const std::string root = std::filesystem::temp_directory_path().string();
        char* argv[] = {const_cast<char*>("tressora-cli"), const_cast<char*>("mcp"), const_cast<char*>("--root"),
                        const_cast<char*>(root.c_str()), nullptr};
        const int code = mcpCommand(4, argv, std::cout, std::cerr);
        noisy.join();
        std::_Exit(code);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    // Pings while the noise runs, then the end of input.
    for (int i = 0; i < 40; ++i) {
        const std::string ping = "{\"jsonrpc\":\"2.0\",\"id\":" + std::to_string(i) + ",\"method\":\"ping\"}\n";
        ASSERT_EQ(::write(in[1], ping.data(), ping.size()), static_cast<ssize_t>(ping.size()));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ::close(in[1]);
    const std::string protocol = drain(out[0]);
    const std::string log = drain(err[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::size_t answers = 0, start = 0;
    for (std::size_t end; (end = protocol.find('\n', start)) != std::string::npos; start = end + 1) {
        const nlohmann::json answer = nlohmann::json::parse(protocol.substr(start, end - start), nullptr, false);
        ASSERT_FALSE(answer.is_discarded()) << protocol.substr(start, end - start);
        EXPECT_EQ(answer["id"], answers++);
    }
    EXPECT_EQ(answers, 40u);
    EXPECT_NE(log.find("library noise 49"), std::string::npos);
    EXPECT_NE(log.find("stream noise 49"), std::string::npos);
    // The server's own line, written piece by piece: the noise may land between its pieces.
    for (const char* piece : {"tressora mcp ", "0.28.0", ": root "}) EXPECT_NE(log.find(piece), std::string::npos) << log;
}

}  // namespace
}  // namespace tressora::cli
