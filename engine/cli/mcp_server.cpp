#include "cli/mcp_server.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "cli/program_folder.h"

#include "cli/driver.h"
#include "core/json_depth.h"

namespace tressora::cli {
namespace fs = std::filesystem;

namespace {

const char* const kRevisions[] = {"2025-11-25", "2025-06-18", "2025-03-26", "2024-11-05"};

const char* const kInstructions =
    "Tressora grows hair, fur and feathers on a mesh with a node graph (a scalp feeds Scatter, guides shape the "
    "strands through Interpolate, look nodes such as Clump, Curl, Noise, Length, HairColor and Width style them). "
    "Start with new_groom on a sample mesh (list_sample_meshes) and a preset (list_presets), look at it with "
    "render_preview, then refine: get_graph, describe_node, set_params, add_node. Read get_docs for how a feature "
    "works. Every change can be undone (undo). Save with save_groom; export curves with export. Paths are relative "
    "to the server's root folder.";

const char* const kUsageText =
    "usage: tressora-cli mcp [--root <dir>]\nSpeaks the Model Context Protocol on stdin/stdout. Files are read and "
    "written only under\nthe root (default: the current folder).\n";

nlohmann::json rpcError(int code, const std::string& message, const nlohmann::json& id) {
    return {{"error", {{"code", code}, {"message", message}}}, {"id", id}, {"jsonrpc", "2.0"}};
}

std::string dumped(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool blank(const std::string& line) {
    return line.find_first_not_of(" \t") == std::string::npos;
}

/// The text with each byte that does not begin or continue a well-formed UTF-8 sequence
/// replaced by U+FFFD, so that a string with a broken character still parses.
std::string wellFormedUtf8(std::string text) {
    std::string out;
    std::size_t i = 0;
    const std::size_t n = text.size();
    const auto cont = [&](std::size_t k) { return k < n && (static_cast<unsigned char>(text[k]) & 0xC0) == 0x80; };
    bool changed = false;
    while (i < n) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        if (c < 0x80) length = 1;
        else if (c >= 0xC2 && c <= 0xDF && cont(i + 1)) length = 2;
        else if (c >= 0xE0 && c <= 0xEF && cont(i + 1) && cont(i + 2)) {
            const unsigned char d = static_cast<unsigned char>(text[i + 1]);
            // No overlong forms, no surrogates.
            if (!(c == 0xE0 && d < 0xA0) && !(c == 0xED && d > 0x9F)) length = 3;
        } else if (c >= 0xF0 && c <= 0xF4 && cont(i + 1) && cont(i + 2) && cont(i + 3)) {
            const unsigned char d = static_cast<unsigned char>(text[i + 1]);
            if (!(c == 0xF0 && d < 0x90) && !(c == 0xF4 && d > 0x8F)) length = 4;
        }
        if (length == 0) {
            if (!changed) out.assign(text, 0, i);
            changed = true;
            out += "\xEF\xBF\xBD";
            ++i;
            continue;
        }
        if (changed) out.append(text, i, length);
        i += length;
    }
    return changed ? out : text;
}

}  // namespace

std::optional<std::string> McpServer::handleLine(std::string line) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (blank(line)) return std::nullopt;
    if (line.size() > kMcpLineLimit) return dumped(rpcError(-32600, "the message is too long", nullptr));
    if (!jsonDepthWithin(line)) return dumped(rpcError(-32700, "not JSON", nullptr));
    const nlohmann::json value = nlohmann::json::parse(wellFormedUtf8(std::move(line)), nullptr, false, false);
    if (value.is_discarded()) return dumped(rpcError(-32700, "not JSON", nullptr));
    if (value.is_array()) {
        if (value.empty()) return dumped(rpcError(-32600, "an empty batch", nullptr));
        nlohmann::json answers = nlohmann::json::array();
        for (const nlohmann::json& element : value) {
            nlohmann::json answer = handleMessage(element);
            if (!answer.is_null()) answers.push_back(std::move(answer));
        }
        if (answers.empty()) return std::nullopt;
        return dumped(answers);
    }
    const nlohmann::json answer = handleMessage(value);
    if (answer.is_null()) return std::nullopt;
    return dumped(answer);
}

nlohmann::json McpServer::handleMessage(const nlohmann::json& message) {
    if (!message.is_object()) return rpcError(-32600, "a message must be a JSON object", nullptr);
    const bool hasMethod = message.contains("method");
    // A reply to something: dropped.
    if (!hasMethod && (message.contains("result") || message.contains("error"))) return nullptr;
    nlohmann::json id = nullptr;
    const bool hasId = message.contains("id");
    if (hasId) {
        id = message["id"];
        if (!id.is_string() && !id.is_number_integer()) return rpcError(-32600, "the id must be a string or an integer", nullptr);
    }
    const auto jsonrpc = message.find("jsonrpc");
    if (jsonrpc == message.end() || !jsonrpc->is_string() || jsonrpc->get<std::string>() != "2.0" || !hasMethod ||
        !message["method"].is_string())
        return rpcError(-32600, "not a JSON-RPC 2.0 request", id);
    // A notification gets no answer, whatever it asks.
    if (!hasId) return nullptr;
    const nlohmann::json params = message.contains("params") ? message["params"] : nlohmann::json::object();
    try {
        return dispatch(message["method"].get<std::string>(), params, id);
    } catch (const std::exception& e) {
        return rpcError(-32603, e.what(), id);
    }
}

nlohmann::json McpServer::dispatch(const std::string& method, const nlohmann::json& params, const nlohmann::json& id) {
    const auto reply = [&](nlohmann::json result) {
        return nlohmann::json{{"id", id}, {"jsonrpc", "2.0"}, {"result", std::move(result)}};
    };
    if (method == "initialize") {
        std::string revision = kMcpProtocolPreferred;
        if (params.is_object())
            if (const auto asked = params.find("protocolVersion"); asked != params.end() && asked->is_string())
                for (const char* known : kRevisions)
                    if (asked->get<std::string>() == known) revision = known;
        return reply({{"protocolVersion", revision},
                      {"capabilities", {{"tools", {{"listChanged", false}}}}},
                      {"serverInfo", {{"name", "tressora"}, {"title", "Tressora"}, {"version", kVersion}}},
                      {"instructions", kInstructions}});
    }
    if (method == "ping") return reply(nlohmann::json::object());
    if (method == "tools/list") return reply({{"tools", tools_.toolList()}});
    if (method == "resources/list") return reply({{"resources", nlohmann::json::array()}});
    if (method == "prompts/list") return reply({{"prompts", nlohmann::json::array()}});
    if (method == "tools/call") {
        if (!params.is_object() || !params.contains("name") || !params["name"].is_string())
            return rpcError(-32602, "tools/call needs a tool \"name\"", id);
        const std::string name = params["name"].get<std::string>();
        if (!tools_.hasTool(name)) return rpcError(-32602, "unknown tool '" + name + "'", id);
        nlohmann::json arguments = nlohmann::json::object();
        if (params.contains("arguments")) {
            arguments = params["arguments"];
            if (!arguments.is_object()) return rpcError(-32602, "the arguments must be a JSON object", id);
        }
        if (log_) *log_ << "tressora mcp: " << name << '\n' << std::flush;
        const ToolResult result = tools_.call(name, arguments);
        return reply({{"content", result.content}, {"isError", result.isError}});
    }
    return rpcError(-32601, "unknown method '" + method + "'", id);
}

int mcpCommand(int argc, char** argv, std::ostream&, std::ostream& err) {
    std::string given;
    bool rooted = false;
    for (int i = 2; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--root" && i + 1 < argc) {
            given = argv[++i];
            rooted = true;
        } else {
            err << kUsageText << std::flush;
            return 2;
        }
    }
    std::error_code error;
    fs::path root = rooted ? fs::path(std::u8string(given.begin(), given.end())) : fs::current_path(error);
    if (!error) root = fs::absolute(root, error);
    if (!error) root = fs::weakly_canonical(root, error);
    if (error || !fs::is_directory(root, error)) {
        err << "tressora-cli mcp: the root '" << (rooted ? given : root.string()) << "' is not a folder\n" << std::flush;
        return 2;
    }

    // Standard output belongs to the protocol: a duplicate of it is the protocol stream, and
    // descriptor 1 now leads to standard error, so nothing any library prints can reach the
    // client.
    std::cout.flush();
    std::fflush(stdout);
    const int protocolFd = ::dup(1);
    if (protocolFd >= 0 && ::dup2(2, 1) < 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        if (null >= 0) {
            ::dup2(null, 1);
            ::close(null);
        }
    }
    std::FILE* protocol = protocolFd >= 0 ? ::fdopen(protocolFd, "wb") : nullptr;
    if (!protocol) {
        err << "tressora-cli mcp: cannot take stdout for the protocol\n" << std::flush;
        return 1;
    }
    const std::u8string rootText = root.u8string();
    err << "tressora mcp " << kVersion << ": root " << std::string(rootText.begin(), rootText.end()) << '\n' << std::flush;

    McpTools tools(std::string(rootText.begin(), rootText.end()), programFolder());
    McpServer server(tools, &err);
    // Lines of any length, split across reads as they come.
    std::string pending;
    std::vector<char> buffer(1 << 16);
    const auto answer = [&](std::string line) {
        if (const std::optional<std::string> out = server.handleLine(std::move(line))) {
            std::string text = *out;
            text += '\n';
            std::fwrite(text.data(), 1, text.size(), protocol);
            std::fflush(protocol);
        }
    };
    for (;;) {
        const ssize_t got = ::read(0, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        std::size_t start = 0;
        for (std::size_t i = 0; i < static_cast<std::size_t>(got); ++i) {
            if (buffer[i] != '\n') continue;
            pending.append(buffer.data() + start, i - start);
            answer(std::move(pending));
            pending.clear();
            start = i + 1;
        }
        pending.append(buffer.data() + start, static_cast<std::size_t>(got) - start);
    }
    if (!pending.empty()) answer(std::move(pending));
    std::fclose(protocol);
    return 0;
}

}  // namespace tressora::cli
