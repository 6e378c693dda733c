#include "test_images.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <system_error>

#include <unistd.h>

// The encoder is compiled into this file alone, with its functions private to it.
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#include <stb_image_write.h>

namespace tressora::testing {

TempFolder::TempFolder() {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("tressora-maps-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
}

TempFolder::~TempFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

Pixels8 flatImage(int width, int height, int channels, std::uint8_t grey) {
    Pixels8 image{width, height, channels, {}};
    image.data.resize(static_cast<std::size_t>(width * height * channels), grey);
    if (channels == 2 || channels == 4)
        for (std::size_t i = static_cast<std::size_t>(channels) - 1; i < image.data.size(); i += channels)
            image.data[i] = 255;
    return image;
}

void writePng(const std::string& path, const Pixels8& i) {
    ASSERT_NE(stbi_write_png(path.c_str(), i.width, i.height, i.channels, i.data.data(), i.width * i.channels), 0);
}
void writeTga(const std::string& path, const Pixels8& i) {
    ASSERT_NE(stbi_write_tga(path.c_str(), i.width, i.height, i.channels, i.data.data()), 0);
}
void writeBmp(const std::string& path, const Pixels8& i) {
    ASSERT_NE(stbi_write_bmp(path.c_str(), i.width, i.height, i.channels, i.data.data()), 0);
}
void writeJpg(const std::string& path, const Pixels8& i, int quality) {
    ASSERT_NE(stbi_write_jpg(path.c_str(), i.width, i.height, i.channels, i.data.data(), quality), 0);
}
void writeHdr(const std::string& path, int width, int height, int channels, const std::vector<float>& data) {
    ASSERT_NE(stbi_write_hdr(path.c_str(), width, height, channels, data.data()), 0);
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    ASSERT_TRUE(out.good()) << path;
}

std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace tressora::testing
