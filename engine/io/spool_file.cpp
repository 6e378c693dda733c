#include "io/spool_file.h"

#include <algorithm>
#include <memory>
#include <system_error>

namespace tressora {

std::filesystem::path utf8Path(const std::string& path) {
    return std::filesystem::path(std::u8string(path.begin(), path.end()));
}

void removeQuietly(const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove(utf8Path(path), ignored);
}

std::size_t SpoolFile::heldBytes() const noexcept {
    std::size_t bytes = 0;
    for (const std::string& block : held_) bytes += block.size();
    return bytes;
}

void SpoolFile::write(std::string_view text) {
    if (spilled_) {
        stream_.write(text.data(), static_cast<std::streamsize>(text.size()));
        return;
    }
    if (text.empty()) return;
    if (held_.empty() || held_.back().capacity() - held_.back().size() < text.size()) {
        held_.emplace_back();
        held_.back().reserve(std::max(kBlock, text.size()));
    }
    held_.back().append(text);
}

bool SpoolFile::spill(std::string_view before, std::string_view after) {
    if (spilled_) return stream_.good();
    stream_.open(utf8Path(path_), std::ios::binary | std::ios::trunc);
    spilled_ = true;
    created_ = stream_.is_open();
    if (!created_) return false;
    write(before);
    for (const std::string& block : held_) write(block);
    write(after);
    std::vector<std::string>().swap(held_);
    return stream_.good();
}

bool SpoolFile::copyTo(std::ostream& out) {
    for (const std::string& block : held_) out.write(block.data(), static_cast<std::streamsize>(block.size()));
    if (!spilled_) return out.good();
    stream_.close();
    if (stream_.fail()) return false;
    std::ifstream in(utf8Path(path_), std::ios::binary);
    if (!in.is_open()) return false;
    const auto buffer = std::make_unique<char[]>(std::size_t{1} << 20);  // zeroed
    while (in) {
        in.read(buffer.get(), std::streamsize{1} << 20);
        const std::streamsize got = in.gcount();
        if (got > 0) out.write(buffer.get(), got);
    }
    return in.eof() && !in.bad() && out.good();
}

void SpoolFile::remove() {
    if (stream_.is_open()) stream_.close();
    if (created_) removeQuietly(path_);
    created_ = false;
}

}  // namespace tressora
