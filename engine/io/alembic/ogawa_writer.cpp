#include "io/alembic/ogawa_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/errors.h"

namespace tressora::abc {

namespace {

constexpr std::size_t kBufferSize = 1 << 20;
// Pieces at least this large skip the buffer and go to the file directly.
constexpr std::size_t kDirectWrite = 256 << 10;

constexpr unsigned char kUnfinishedHeader[16] = {'O', 'g', 'a', 'w', 'a', 0x00, 0x00, 0x01,
                                                 0,   0,   0,   0,   0,   0,    0,    0};

}  // namespace

OgawaWriter::OgawaWriter(std::string path) : path_(std::move(path)), buffer_(kBufferSize) {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd_ < 0) fail();
    put(std::as_bytes(std::span(kUnfinishedHeader)));
}

OgawaWriter::~OgawaWriter() {
    if (fd_ >= 0) ::close(fd_);
}

void OgawaWriter::fail() const {
    throw AlembicError("cannot write '" + path_ + "': " + std::strerror(errno));
}

std::uint64_t OgawaWriter::appendData(std::initializer_list<std::span<const std::byte>> pieces) {
    std::uint64_t total = 0;
    for (const auto& piece : pieces) total += piece.size();
    if (total == 0) return kEmptyDataEntry;
    const std::uint64_t offset = position_;
    putU64(total);
    for (const auto& piece : pieces) put(piece);
    return dataEntry(offset);
}

std::uint64_t OgawaWriter::appendGroup(std::span<const std::uint64_t> children) {
    if (children.empty()) return kEmptyGroupEntry;
    const std::uint64_t offset = position_;
    putU64(children.size());
    put(std::as_bytes(children));
    return offset;
}

void OgawaWriter::finish(std::uint64_t rootGroupEntry) {
    flush();
    writeAt(8, &rootGroupEntry, 8);
    const unsigned char frozen = 0xFF;
    writeAt(5, &frozen, 1);
    if (::close(fd_) != 0) {
        fd_ = -1;
        fail();
    }
    fd_ = -1;
}

void OgawaWriter::patch(std::uint64_t offset, std::span<const std::byte> bytes) {
    flush();
    writeAt(offset, bytes.data(), bytes.size());
}

void OgawaWriter::truncate(std::uint64_t offset) {
    flush();
    if (::ftruncate(fd_, static_cast<off_t>(offset)) != 0 || ::lseek(fd_, static_cast<off_t>(offset), SEEK_SET) < 0)
        fail();
    position_ = offset;
}

void OgawaWriter::putU64(std::uint64_t value) { put(std::as_bytes(std::span(&value, 1))); }

void OgawaWriter::put(std::span<const std::byte> bytes) {
    if (fd_ < 0) throw AlembicError("cannot write '" + path_ + "': the file is already closed");
    position_ += bytes.size();
    if (bytes.size() >= kDirectWrite) {
        flush();
        writeAll(bytes.data(), bytes.size());
        return;
    }
    if (buffered_ + bytes.size() > buffer_.size()) flush();
    std::memcpy(buffer_.data() + buffered_, bytes.data(), bytes.size());
    buffered_ += bytes.size();
}

void OgawaWriter::flush() {
    if (buffered_ == 0) return;
    writeAll(buffer_.data(), buffered_);
    buffered_ = 0;
}

void OgawaWriter::writeAll(const std::byte* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t n = ::write(fd_, bytes, count);
        if (n < 0) {
            if (errno == EINTR) continue;
            fail();
        }
        bytes += n;
        count -= static_cast<std::size_t>(n);
    }
}

void OgawaWriter::writeAt(std::uint64_t offset, const void* bytes, std::size_t count) {
    if (::pwrite(fd_, bytes, count, static_cast<off_t>(offset)) != static_cast<ssize_t>(count)) fail();
}

}  // namespace tressora::abc
