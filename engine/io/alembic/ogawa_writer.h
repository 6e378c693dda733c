#pragma once
// Writes an Ogawa container: a 16-byte header, then data blocks (u64 size + bytes) and group
// blocks (u64 count + u64 child entries) appended back to back. Blocks go to disk as soon as
// they are made, so a file of any size is written with a small, fixed buffer. The header is
// finished last (root offset, then the frozen flag), so a file whose writer stopped early is
// recognisable as unfinished.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace tressora::abc {

/// Child entries of a group: a group's offset, or a data block's offset with the top bit set.
inline constexpr std::uint64_t kDataEntryBit = 1ull << 63;
inline constexpr std::uint64_t kEmptyGroupEntry = 0;
inline constexpr std::uint64_t kEmptyDataEntry = kDataEntryBit;
inline constexpr std::uint64_t dataEntry(std::uint64_t offset) { return kDataEntryBit | offset; }

class OgawaWriter {
public:
    /// Creates (or truncates) `path` and writes the unfinished header. Throws AlembicError
    /// "cannot write '<path>': <system message>" when the file cannot be created.
    explicit OgawaWriter(std::string path);
    ~OgawaWriter();
    OgawaWriter(const OgawaWriter&) = delete;
    OgawaWriter& operator=(const OgawaWriter&) = delete;

    /// Appends one data block made of `pieces` in order and returns its entry: kEmptyDataEntry
    /// for zero bytes (nothing is written), else dataEntry(offset).
    std::uint64_t appendData(std::initializer_list<std::span<const std::byte>> pieces);
    std::uint64_t appendData(std::span<const std::byte> bytes) { return appendData({bytes}); }

    /// Appends a group block and returns its entry: kEmptyGroupEntry for no children
    /// (nothing is written), else the group's offset.
    std::uint64_t appendGroup(std::span<const std::uint64_t> children);

    /// Overwrites bytes already appended at `offset` (for a key known only after its block).
    void patch(std::uint64_t offset, std::span<const std::byte> bytes);
    /// Drops everything appended from `offset` on (the last blocks, when they turn out unneeded).
    void truncate(std::uint64_t offset);

    /// Flushes, points the header at the root group, sets the frozen flag and closes the file.
    void finish(std::uint64_t rootGroupEntry);

    /// Bytes written so far (the offset the next block will get).
    std::uint64_t size() const { return position_; }
    const std::string& path() const { return path_; }

private:
    void put(std::span<const std::byte> bytes);
    void putU64(std::uint64_t value);
    void flush();
    void writeAll(const std::byte* bytes, std::size_t count);
    void writeAt(std::uint64_t offset, const void* bytes, std::size_t count);
    [[noreturn]] void fail() const;

    std::string path_;
    int fd_ = -1;
    std::vector<std::byte> buffer_;
    std::size_t buffered_ = 0;
    std::uint64_t position_ = 0;
};

}  // namespace tressora::abc
