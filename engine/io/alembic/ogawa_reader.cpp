#include "io/alembic/ogawa_reader.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/errors.h"

namespace tressora::abc {

namespace {

constexpr std::uint64_t kHeaderSize = 16;

std::string offsetText(std::uint64_t offset) { return std::to_string(offset); }

}  // namespace

std::shared_ptr<const OgawaFile> OgawaFile::open(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw AlembicError("cannot open '" + path + "': " + std::strerror(errno));
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        const int error = errno;
        ::close(fd);
        throw AlembicError("cannot open '" + path + "': " + std::strerror(error));
    }
    if (S_ISDIR(st.st_mode)) {
        ::close(fd);
        throw AlembicError("cannot open '" + path + "': it is a folder, not an Alembic file");
    }
    const auto size = static_cast<std::size_t>(st.st_size);
    void* mapping = nullptr;
    if (size > 0) {
        mapping = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
        if (mapping == MAP_FAILED) {
            const int error = errno;
            ::close(fd);
            throw AlembicError("cannot open '" + path + "': " + std::strerror(error));
        }
    }
    ::close(fd);
    const std::span<const std::byte> bytes(static_cast<const std::byte*>(mapping), size);
    std::shared_ptr<OgawaFile> file(new OgawaFile(path, bytes, {}, mapping));
    file->readHeader();
    return file;
}

std::shared_ptr<const OgawaFile> OgawaFile::fromBytes(std::string name, std::vector<std::byte> bytes) {
    std::shared_ptr<OgawaFile> file(new OgawaFile(std::move(name), {}, std::move(bytes), nullptr));
    file->readHeader();
    return file;
}

OgawaFile::OgawaFile(std::string name, std::span<const std::byte> bytes, std::vector<std::byte> owned,
                     void* mapping)
    : name_(std::move(name)), bytes_(bytes), owned_(std::move(owned)), mapping_(mapping) {
    if (!mapping_) bytes_ = owned_;
}

OgawaFile::~OgawaFile() {
    if (mapping_) ::munmap(mapping_, bytes_.size());
}

void OgawaFile::damaged(const std::string& what) const {
    throw AlembicError("'" + name_ + "' is damaged: " + what);
}

void OgawaFile::readHeader() {
    const auto* b = reinterpret_cast<const unsigned char*>(bytes_.data());
    if (bytes_.size() >= 4 && std::memcmp(b, "\x89HDF", 4) == 0)
        throw AlembicError("'" + name_ +
                           "' is an HDF5-based Alembic archive; only Ogawa archives can be read "
                           "(save it again with a current Alembic exporter)");
    if (bytes_.size() < 5 || std::memcmp(b, "Ogawa", 5) != 0)
        throw AlembicError("'" + name_ + "' is not an Alembic archive: it does not start with the Ogawa signature");
    if (bytes_.size() < kHeaderSize)
        damaged("the file ends inside its 16-byte header (it holds " + std::to_string(bytes_.size()) + " bytes)");
    if (b[5] != 0xFF)
        throw AlembicError("'" + name_ + "' was not finished by its writer (the archive was never closed); write it again");
    const unsigned version = (static_cast<unsigned>(b[6]) << 8) | b[7];
    if (version != 1)
        throw AlembicError("'" + name_ + "' uses Ogawa version " + std::to_string(version) +
                           "; only version 1 can be read");
    std::memcpy(&root_, b + 8, 8);
    if (root_ < kHeaderSize || root_ >= bytes_.size())
        damaged("its root group offset " + offsetText(root_) + " lies outside the file (" +
                std::to_string(bytes_.size()) + " bytes)");
}

std::uint64_t OgawaFile::u64At(std::uint64_t offset, const char* what) const {
    if (offset < kHeaderSize || offset > bytes_.size() || bytes_.size() - offset < 8)
        damaged(std::string(what) + " at offset " + offsetText(offset) + " lies outside the file (" +
                std::to_string(bytes_.size()) + " bytes)");
    std::uint64_t value;
    std::memcpy(&value, bytes_.data() + offset, 8);
    return value;
}

std::vector<OgawaEntry> OgawaFile::group(std::uint64_t offset) const {
    if (offset == 0) return {};
    const std::uint64_t count = u64At(offset, "a group");
    const std::uint64_t room = (bytes_.size() - offset - 8) / 8;
    if (count > room)
        damaged("the group at offset " + offsetText(offset) + " lists " + std::to_string(count) +
                " children, more than the rest of the file can hold");
    std::vector<OgawaEntry> children(count);
    if (count != 0) std::memcpy(children.data(), bytes_.data() + offset + 8, count * 8);
    for (const OgawaEntry& child : children) {
        if (child.isEmpty()) continue;
        if (child.offset() < kHeaderSize || child.offset() >= bytes_.size())
            damaged("the group at offset " + offsetText(offset) + " points at offset " +
                    offsetText(child.offset()) + ", outside the file (" + std::to_string(bytes_.size()) +
                    " bytes)");
        if (child.isGroup() && child.offset() == offset)
            damaged("the group at offset " + offsetText(offset) + " contains itself");
    }
    return children;
}

std::span<const std::byte> OgawaFile::data(std::uint64_t offset) const {
    if (offset == 0) return {};
    const std::uint64_t size = u64At(offset, "a data block");
    if (size > bytes_.size() - offset - 8)
        damaged("the data block at offset " + offsetText(offset) + " claims " + std::to_string(size) +
                " bytes, more than the rest of the file holds");
    return bytes_.subspan(offset + 8, size);
}

}  // namespace tressora::abc
