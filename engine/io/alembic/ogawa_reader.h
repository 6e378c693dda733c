#pragma once
// Reads an Ogawa container from a memory-mapped file or from bytes in memory. Every offset and
// size read from the file is checked against the file's size before it is followed; a
// malformed file throws AlembicError with a sentence naming the file and the fault.
// A reader is immutable after opening and may be shared by threads.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tressora::abc {

/// One child entry of a group.
struct OgawaEntry {
    std::uint64_t raw = 0;
    bool isData() const { return (raw >> 63) != 0; }
    bool isGroup() const { return !isData(); }
    std::uint64_t offset() const { return raw & ~(1ull << 63); }
    /// An empty group or empty data block: nothing is stored for it.
    bool isEmpty() const { return offset() == 0; }
};

class OgawaFile {
public:
    /// Maps `path` read-only. Throws AlembicError "cannot open '<path>': <system message>".
    static std::shared_ptr<const OgawaFile> open(const std::string& path);
    /// Reads from bytes in memory; `name` stands for the file in messages.
    static std::shared_ptr<const OgawaFile> fromBytes(std::string name, std::vector<std::byte> bytes);
    ~OgawaFile();
    OgawaFile(const OgawaFile&) = delete;
    OgawaFile& operator=(const OgawaFile&) = delete;

    const std::string& name() const { return name_; }
    std::uint64_t size() const { return bytes_.size(); }
    /// The root group's offset from the header.
    std::uint64_t root() const { return root_; }

    /// The children of the group at `offset` (0 is the empty group).
    std::vector<OgawaEntry> group(std::uint64_t offset) const;
    /// The bytes of the data block at `offset` (0 is the empty block); valid while the file lives.
    std::span<const std::byte> data(std::uint64_t offset) const;
    /// The whole file.
    std::span<const std::byte> bytes() const { return bytes_; }

    /// Throws AlembicError "'<name>' is damaged: <what>".
    [[noreturn]] void damaged(const std::string& what) const;

private:
    OgawaFile(std::string name, std::span<const std::byte> bytes, std::vector<std::byte> owned,
              void* mapping);
    void readHeader();
    std::uint64_t u64At(std::uint64_t offset, const char* what) const;

    std::string name_;
    std::span<const std::byte> bytes_;
    std::vector<std::byte> owned_;
    void* mapping_ = nullptr;
    std::uint64_t root_ = 0;
};

}  // namespace tressora::abc
