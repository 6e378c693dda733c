#include "core/file_replace.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace tressora {

namespace {

std::string messageOf(int code) { return std::generic_category().message(code); }

}  // namespace

std::string replaceFile(const std::string& from, const std::string& to) {
    namespace fs = std::filesystem;
    std::error_code error;
    // Removing and renaming again below would delete an empty directory in the target's place.
    if (fs::is_directory(fs::path(to), error)) return messageOf(EISDIR);
    fs::rename(fs::path(from), fs::path(to), error);
    if (!error) return {};
    std::error_code ignored;
    fs::remove(fs::path(to), ignored);
    error.clear();
    fs::rename(fs::path(from), fs::path(to), error);
    return error ? error.message() : std::string();
}

std::string targetProblem(const std::string& target) {
    namespace fs = std::filesystem;
    const fs::path path(target);
    std::error_code error;
    if (fs::is_directory(path, error)) return messageOf(EISDIR);
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, error)) return messageOf(fs::exists(folder, error) ? ENOTDIR : ENOENT);
    if (::access(folder.c_str(), W_OK) != 0) return messageOf(errno);
    return {};
}

std::string lastSystemError() { return messageOf(errno); }

}  // namespace tressora
