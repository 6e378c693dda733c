#include "groom/groom_files.h"

#include <cstdio>
#include <fstream>
#include <system_error>

#include "core/errors.h"
#include "core/file_replace.h"

namespace tressora {

namespace fs = std::filesystem;

fs::path pathFromUtf8(std::string_view text) { return fs::path(std::u8string(text.begin(), text.end())); }

std::string utf8Text(const fs::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

std::string readWholeFile(const std::string& path) {
    std::ifstream in(pathFromUtf8(path), std::ios::binary);
    std::error_code error;
    if (!in || fs::is_directory(pathFromUtf8(path), error)) throw GroomFileError("cannot read '" + path + "'");
    std::string text;
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    in.seekg(0, std::ios::beg);
    if (size > 0) text.resize(static_cast<std::size_t>(size));
    if (size > 0 && !in.read(text.data(), size)) throw GroomFileError("cannot read '" + path + "'");
    return text;
}

void writeFileWhole(const std::string& path, std::string_view text) {
    const fs::path target = pathFromUtf8(path);
    fs::path temporary = target;
    temporary += ".tmp";
    std::error_code ignored;
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (out) out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.close();
        if (!out) {
            fs::remove(temporary, ignored);
            throw GroomFileError("cannot write '" + path + "'");
        }
    }
    if (const std::string error = replaceFile(temporary.string(), target.string()); !error.empty()) {
        fs::remove(temporary, ignored);
        throw GroomFileError("cannot replace '" + path + "': " + error);
    }
}

}  // namespace tressora
