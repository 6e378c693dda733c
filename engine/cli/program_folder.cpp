#include "cli/program_folder.h"

#include <filesystem>

namespace tressora::cli {
namespace fs = std::filesystem;

namespace {

fs::path fromUtf8(const std::string& text) { return fs::path(std::u8string(text.begin(), text.end())); }

std::string toUtf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

}  // namespace

std::string programFolder() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? std::string() : toUtf8(self.parent_path());
}

std::string resourceFolder(const std::string& exeFolder, const std::string& name) {
    const fs::path exe = fromUtf8(exeFolder);
    const fs::path source = fromUtf8(TRESSORA_RESOURCE_DIR);
    const fs::path candidates[] = {exeFolder.empty() ? fs::path() : exe / ".." / name,
                                   exeFolder.empty() ? fs::path() : exe / name, source / name};
    for (const fs::path& candidate : candidates) {
        std::error_code error;
        if (!candidate.empty() && fs::is_directory(candidate, error)) {
            const fs::path canonical = fs::weakly_canonical(candidate, error);
            return toUtf8(error ? candidate : canonical);
        }
    }
    return {};
}

}  // namespace tressora::cli
