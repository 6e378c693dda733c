#pragma once
// Image files written by the map tests themselves, in a temporary folder of their own.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tressora::testing {

/// A fresh folder under the system's temporary folder, removed with everything in it.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    /// The path of a file name inside the folder.
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// 8-bit pixels, rows from the top, `channels` values per pixel.
struct Pixels8 {
    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<std::uint8_t> data;
};

/// A width x height image of one grey value (0-255) with `channels` channels (alpha 255).
Pixels8 flatImage(int width, int height, int channels, std::uint8_t grey);

// Writers by format; each fails the test when the file can't be written.
void writePng(const std::string& path, const Pixels8& image);
void writeTga(const std::string& path, const Pixels8& image);
void writeBmp(const std::string& path, const Pixels8& image);
void writeJpg(const std::string& path, const Pixels8& image, int quality = 100);
/// A Radiance HDR file of float pixels, rows from the top.
void writeHdr(const std::string& path, int width, int height, int channels, const std::vector<float>& data);
/// Raw bytes, for files that are no image.
void writeBytes(const std::string& path, const std::string& bytes);
/// The bytes of a file.
std::string readBytes(const std::string& path);

}  // namespace tressora::testing
