#pragma once
// The samples of one attribute, collected frame by frame. Text goes to memory until spill()
// moves it to a file of its own, then straight to that file; copyTo() hands everything on in
// order. Text writers keep one spool per attribute so they can write attribute-major files
// from frame-major input without holding more than one frame.

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace tressora {

/// A path given as UTF-8 in the platform's path form (wide where the platform's is).
std::filesystem::path utf8Path(const std::string& path);

/// Deletes a file if it exists; errors are ignored.
void removeQuietly(const std::string& path);

class SpoolFile {
public:
    explicit SpoolFile(std::string path) : path_(std::move(path)) {}
    SpoolFile(const SpoolFile&) = delete;
    SpoolFile& operator=(const SpoolFile&) = delete;

    const std::string& path() const noexcept { return path_; }
    /// Bytes of text held in memory (all of it until spill()).
    std::size_t heldBytes() const noexcept;
    bool spilled() const noexcept { return spilled_; }

    /// Appends text: to memory before spill(), to the file after.
    void write(std::string_view text);

    /// Opens the file (binary, truncating), writes `before`, the held text and `after`, and
    /// frees the held text. False when the file cannot be opened or written.
    bool spill(std::string_view before = {}, std::string_view after = {});

    /// False once a write to the file failed.
    bool good() const { return !spilled_ || stream_.good(); }

    /// Closes the file and copies the held text, then the file's bytes, to `out` through one
    /// 1 MiB buffer. False when the file cannot be read back.
    bool copyTo(std::ostream& out);

    /// Closes the file and deletes it, when this spool made it.
    void remove();

private:
    std::string path_;
    // Held text in blocks of about kBlock bytes: no block is ever copied to grow.
    static constexpr std::size_t kBlock = std::size_t{4} << 20;
    std::vector<std::string> held_;
    std::ofstream stream_;
    bool spilled_ = false;
    bool created_ = false;
};

}  // namespace tressora
