#include "io/png_writer.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "core/file_replace.h"
#include "core/parallel.h"
#include "core/signal_cleanup.h"
#include "io/deflate.h"
#include "io/spool_file.h"

namespace tressora {
namespace {

constexpr std::size_t kRowGrain = 16;

/// CRC-32 (the PNG and zip polynomial), eight bytes a step through eight tables.
class Crc32 {
public:
    Crc32() {
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t c = i;
            for (int k = 0; k < 8; ++k) c = (c & 1u) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            table_[0][i] = c;
        }
        for (std::size_t t = 1; t < 8; ++t)
            for (std::uint32_t i = 0; i < 256; ++i)
                table_[t][i] = (table_[t - 1][i] >> 8) ^ table_[0][table_[t - 1][i] & 0xFFu];
    }
    std::uint32_t update(std::uint32_t crc, const std::uint8_t* p, std::size_t n) const {
        crc = ~crc;
        while (n >= 8) {
            std::uint32_t low, high;
            std::memcpy(&low, p, 4);
            std::memcpy(&high, p + 4, 4);
            low ^= crc;
            crc = table_[7][low & 0xFFu] ^ table_[6][(low >> 8) & 0xFFu] ^ table_[5][(low >> 16) & 0xFFu] ^
                  table_[4][low >> 24] ^ table_[3][high & 0xFFu] ^ table_[2][(high >> 8) & 0xFFu] ^
                  table_[1][(high >> 16) & 0xFFu] ^ table_[0][high >> 24];
            p += 8;
            n -= 8;
        }
        while (n-- > 0) crc = table_[0][(crc ^ *p++) & 0xFFu] ^ (crc >> 8);
        return ~crc;
    }

private:
    std::array<std::array<std::uint32_t, 256>, 8> table_{};
};

const Crc32& crc32() {
    static const Crc32 crc;
    return crc;
}

void putBigEndian(std::vector<std::uint8_t>& out, std::uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(v >> shift));
}

void putChunk(std::vector<std::uint8_t>& out, const char type[4], std::span<const std::uint8_t> data) {
    putBigEndian(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    putBigEndian(out, crc32().update(0, out.data() + start, out.size() - start));
}

std::uint8_t paeth(int a, int b, int c) {
    const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    return static_cast<std::uint8_t>(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

std::uint64_t signedSize(const std::uint8_t* f, std::size_t n) {
    std::uint64_t cost = 0;
    for (std::size_t i = 0; i < n; ++i) cost += static_cast<std::uint64_t>(std::abs(static_cast<int>(static_cast<std::int8_t>(f[i]))));
    return cost;
}

/// Filters one row (raw bytes, `previous` the raw row above or null) into out[0] (the
/// filter's number) and out[1..]: each of the five filters is tried and the one whose bytes,
/// read as signed, sum smallest in size is kept.
void filterRow(const std::uint8_t* row, const std::uint8_t* previous, std::size_t length, std::size_t bpp,
               std::uint8_t* out, std::vector<std::uint8_t>& scratch) {
    scratch.resize(4 * length);
    std::uint8_t* sub = scratch.data();
    std::uint8_t* up = sub + length;
    std::uint8_t* average = up + length;
    std::uint8_t* paethed = average + length;
    const std::size_t head = std::min(bpp, length);
    for (std::size_t i = 0; i < head; ++i) sub[i] = row[i];
    for (std::size_t i = head; i < length; ++i) sub[i] = static_cast<std::uint8_t>(row[i] - row[i - bpp]);
    if (previous) {
        for (std::size_t i = 0; i < length; ++i) up[i] = static_cast<std::uint8_t>(row[i] - previous[i]);
        for (std::size_t i = 0; i < head; ++i) average[i] = static_cast<std::uint8_t>(row[i] - (previous[i] >> 1));
        for (std::size_t i = head; i < length; ++i)
            average[i] = static_cast<std::uint8_t>(row[i] - ((row[i - bpp] + previous[i]) >> 1));
        for (std::size_t i = 0; i < head; ++i) paethed[i] = static_cast<std::uint8_t>(row[i] - previous[i]);
        for (std::size_t i = head; i < length; ++i)
            paethed[i] = static_cast<std::uint8_t>(row[i] - paeth(row[i - bpp], previous[i], previous[i - bpp]));
    } else {
        // With no row above, Up is None, Average halves Sub's left value and Paeth is Sub.
        std::memcpy(up, row, length);
        for (std::size_t i = 0; i < head; ++i) average[i] = row[i];
        for (std::size_t i = head; i < length; ++i) average[i] = static_cast<std::uint8_t>(row[i] - (row[i - bpp] >> 1));
        std::memcpy(paethed, sub, length);
    }
    const std::uint8_t* candidates[5] = {row, sub, up, average, paethed};
    int chosen = 0;
    std::uint64_t best = signedSize(row, length);
    for (int filter = 1; filter < 5; ++filter) {
        const std::uint64_t cost = signedSize(candidates[filter], length);
        if (cost < best) {
            best = cost;
            chosen = filter;
        }
    }
    out[0] = static_cast<std::uint8_t>(chosen);
    std::memcpy(out + 1, candidates[chosen], length);
}

/// The file of an image whose raw rows (big-endian for 16 bits) `rowAt(y, buffer)` gives.
template <class RowAt>
std::vector<std::uint8_t> encode(int width, int height, int channels, int depth, RowAt rowAt) {
    const std::size_t bpp = static_cast<std::size_t>(channels * depth / 8);
    const std::size_t length = static_cast<std::size_t>(width) * bpp;
    const std::size_t rows = static_cast<std::size_t>(height);
    std::vector<std::uint8_t> filtered(rows * (length + 1));
    parallelRange(0, rows, kRowGrain, [&](std::size_t lo, std::size_t hi) {
        std::vector<std::uint8_t> scratch, above(length), current(length);
        const std::uint8_t* previous = lo > 0 ? rowAt(lo - 1, above) : nullptr;
        for (std::size_t y = lo; y < hi; ++y) {
            const std::uint8_t* row = rowAt(y, current);
            filterRow(row, previous, length, bpp, filtered.data() + y * (length + 1), scratch);
            // The row just filtered is the next one's row above.
            if (row == current.data()) {
                std::swap(above, current);
                previous = above.data();
            } else {
                previous = row;
            }
        }
    });

    std::vector<std::uint8_t> file = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<std::uint8_t> header;
    putBigEndian(header, static_cast<std::uint32_t>(width));
    putBigEndian(header, static_cast<std::uint32_t>(height));
    const std::uint8_t colourType[5] = {0, 0, 4, 2, 6};
    header.insert(header.end(), {static_cast<std::uint8_t>(depth), colourType[channels], 0, 0, 0});
    putChunk(file, "IHDR", header);
    const std::vector<std::uint8_t> data = zlibCompress(filtered);
    putChunk(file, "IDAT", data);
    putChunk(file, "IEND", {});
    return file;
}

void checkSize(const char* word, int width, int height, int channels, std::size_t values) {
    if (width < 1 || height < 1 || channels < 1 || channels > 4 || width > (1 << 24) || height > (1 << 24))
        throw std::invalid_argument(std::string(word) + ": bad size or channels");
    if (values != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * static_cast<std::size_t>(channels))
        throw std::invalid_argument(std::string(word) + ": pixel count does not match the size");
}

}  // namespace

std::vector<std::uint8_t> encodePng(int width, int height, int channels, std::span<const std::uint8_t> pixels) {
    checkSize("encodePng", width, height, channels, pixels.size());
    const std::size_t length = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    return encode(width, height, channels, 8,
                  [&](std::size_t y, std::vector<std::uint8_t>&) { return pixels.data() + y * length; });
}

std::vector<std::uint8_t> encodePng16(int width, int height, int channels, std::span<const std::uint16_t> pixels) {
    checkSize("encodePng16", width, height, channels, pixels.size());
    const std::size_t values = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    // PNG stores 16-bit values most significant byte first.
    return encode(width, height, channels, 16, [&](std::size_t y, std::vector<std::uint8_t>& buffer) {
        const std::uint16_t* row = pixels.data() + y * values;
        for (std::size_t i = 0; i < values; ++i) {
            buffer[2 * i] = static_cast<std::uint8_t>(row[i] >> 8);
            buffer[2 * i + 1] = static_cast<std::uint8_t>(row[i]);
        }
        return static_cast<const std::uint8_t*>(buffer.data());
    });
}

std::vector<std::vector<std::uint8_t>> encodePngs(const std::vector<PngImage>& images) {
    for (const PngImage& image : images)
        if (image.pixels8.empty() && image.pixels16.empty()) throw std::invalid_argument("encodePngs: an image has no pixels");
    std::vector<std::vector<std::uint8_t>> files(images.size());
    // Images side by side; each one's rows and pieces run in parallel as well.
    parallelRange(0, images.size(), 1, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i) {
            const PngImage& image = images[i];
            files[i] = image.pixels16.empty() ? encodePng(image.width, image.height, image.channels, image.pixels8)
                                              : encodePng16(image.width, image.height, image.channels, image.pixels16);
        }
    });
    return files;
}

void writeCompressedPngs(const std::vector<PngImage>& images, const std::vector<std::string>& paths) {
    if (paths.size() != images.size()) throw std::invalid_argument("writeCompressedPngs: a path per image");
    const std::vector<std::vector<std::uint8_t>> files = encodePngs(images);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string& path = paths[i];
        const std::string temporary = path + ".tmp";
        const RemoveOnSignal cleanup(temporary);
        {
            std::ofstream out(utf8Path(temporary), std::ios::binary | std::ios::trunc);
            out.write(reinterpret_cast<const char*>(files[i].data()), static_cast<std::streamsize>(files[i].size()));
            out.close();
            if (!out) {
                removeQuietly(temporary);
                throw std::runtime_error("can't write " + path);
            }
        }
        if (!replaceFile(temporary, path).empty()) {
            removeQuietly(temporary);
            throw std::runtime_error("can't write " + path);
        }
    }
}

}  // namespace tressora
