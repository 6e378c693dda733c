#include "core/file_replace.h"

#include <filesystem>
#include <system_error>

namespace tressora {

std::string replaceFile(const std::string& from, const std::string& to) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::rename(fs::path(from), fs::path(to), error);
    if (!error) return {};
    std::error_code ignored;
    fs::remove(fs::path(to), ignored);
    error.clear();
    fs::rename(fs::path(from), fs::path(to), error);
    return error ? error.message() : std::string();
}

}  // namespace tressora
