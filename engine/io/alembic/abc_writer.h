#pragma once
// Writes an Alembic archive (Ogawa back end) in the layout the Alembic library writes, so that
// any Alembic reader takes it and the library's own checks (sample keys, object hashes) agree.
//
// The archive is a tree: objects hold child objects and one compound of properties; compounds
// hold scalar, array and compound properties. Samples go to disk as soon as they are written,
// so frames can be written one by one without holding earlier frames in memory. A property or
// object is finished by close(): closing a parent closes whatever of its children is still open
// (latest first). ArchiveWriter::close() finishes everything and moves the file into place.
//
// Writers belong to one thread. A fault of the file (disk full...) throws AlembicError; misuse
// by the caller (bad names, wrong sample sizes, writing after close) throws std::invalid_argument
// or std::logic_error. After any exception the archive can only be destroyed, which discards it.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/signal_cleanup.h"
#include "io/alembic/abc_types.h"
#include "io/alembic/abc_writer_core.h"

namespace tressora::abc {

class CompoundWriter;

/// Base of the three property kinds.
class PropertyWriter {
public:
    virtual ~PropertyWriter() = default;
    PropertyWriter(const PropertyWriter&) = delete;
    PropertyWriter& operator=(const PropertyWriter&) = delete;

    const std::string& name() const { return record_.name; }
    /// "/object/.geom/P": the owning object's path and the property names below it.
    const std::string& path() const { return path_; }
    PropertyKind kind() const { return record_.kind; }
    bool closed() const { return closed_; }
    /// Finishes the property: writes what it still holds and hands its header to its parent.
    /// Closing twice is harmless.
    virtual void close() = 0;

protected:
    PropertyWriter(WriterCore& core, std::string path, PropertyRecord record);
    void requireOpen() const;

    WriterCore& core_;
    std::string path_;
    PropertyRecord record_;
    bool closed_ = false;
    Digest hash_;
    std::uint64_t groupEntry_ = kEmptyGroupEntry;

    friend class CompoundWriter;
};

/// Scalar and array properties: a sequence of samples, one per time-sampling index.
class SampledWriter : public PropertyWriter {
public:
    const DataType& type() const { return record_.type; }
    std::uint32_t numSamples() const { return record_.numSamples; }
    /// Writes the previous sample again (cheap: nothing new is stored). Needs a first sample.
    void writeRepeat();
    void close() override;

protected:
    SampledWriter(WriterCore& core, std::string path, PropertyRecord record);
    /// Stores one sample given as its payload bytes and element count (arrays) and folds
    /// it into the property's hash.
    void writeSample(std::span<const std::byte> payload, std::uint64_t count, std::uint8_t stringClass);
    void foldDigest();
    void checkTime() const;
    std::uint64_t dimsEntry(std::uint64_t count);

    std::vector<std::uint64_t> entries_;
    StoredSample previous_;
    std::uint64_t previousCount_ = 0;
    Digest chain_;
};

/// A scalar property: every sample holds exactly `extent` values.
class ScalarWriter final : public SampledWriter {
public:
    ScalarWriter(WriterCore& core, std::string path, PropertyRecord record);
    /// One sample as raw bytes: extent values of the property's numeric type.
    void write(std::span<const std::byte> value);
    template <class T>
    void writeValues(std::span<const T> values) {
        checkValueType<T>(values.size());
        write(std::as_bytes(values));
    }
    template <class T>
    void writeValue(const T& value) {
        writeValues(std::span<const T>(&value, 1));
    }
    /// One sample of a string property: exactly `extent` strings without NUL characters.
    void writeStrings(std::span<const std::string> values);

private:
    template <class T>
    void checkValueType(std::size_t count) const {
        static_assert(std::is_trivially_copyable_v<T>);
        checkPod(PodOf<T>::value, count);
    }
    void checkPod(Pod pod, std::size_t count) const;
};

/// An array property: each sample holds any number of elements of `extent` values.
class ArrayWriter final : public SampledWriter {
public:
    ArrayWriter(WriterCore& core, std::string path, PropertyRecord record);
    /// One sample of `count` elements given as raw bytes (count * extent values).
    void write(std::span<const std::byte> bytes, std::uint64_t count);
    /// One sample from typed values; values.size() must be a multiple of the extent.
    template <class T>
    void writeValues(std::span<const T> values) {
        static_assert(std::is_trivially_copyable_v<T>);
        checkPod(PodOf<T>::value);
        write(std::as_bytes(values), values.size() / type().extent);
    }
    /// One sample of a string array: values.size() must be a multiple of the extent.
    void writeStrings(std::span<const std::string> values);

private:
    void checkPod(Pod pod) const;
};

/// A compound property: named child properties, in creation order.
class CompoundWriter final : public PropertyWriter {
public:
    CompoundWriter(WriterCore& core, std::string path, std::string name, MetaData metadata);

    /// Adds a child. Names must be non-empty, without '/', and unique in this compound;
    /// `timeSampling` is an index from ArchiveWriter::addTimeSampling.
    ScalarWriter& addScalar(std::string name, DataType type, MetaData metadata = {},
                            std::uint32_t timeSampling = 0);
    ArrayWriter& addArray(std::string name, DataType type, MetaData metadata = {},
                          std::uint32_t timeSampling = 0);
    CompoundWriter& addCompound(std::string name, MetaData metadata = {});

    /// The child with that name, or nullptr.
    PropertyWriter* find(std::string_view name) const;
    std::size_t size() const { return children_.size(); }
    const MetaData& metadata() const { return record_.metadata; }
    void close() override;

private:
    PropertyRecord childRecord(std::string& name, PropertyKind kind, DataType type, MetaData metadata,
                               std::uint32_t timeSampling);
    void closeChildren();
    /// Writes the children's header records and this compound's group; returns the group entry.
    std::uint64_t writeBody();
    /// The hashes of the children, concatenated in order.
    std::vector<std::byte> childHashes() const;

    std::vector<std::unique_ptr<PropertyWriter>> children_;

    friend class ObjectWriter;
};

/// An object: child objects and one compound of properties. Schema writers derive from it.
class ObjectWriter {
public:
    /// Made only by addChild (and by the archive for its top object).
    class Init {
        Init(WriterCore* core_, std::string name_, std::string fullName_)
            : core(core_), name(std::move(name_)), fullName(std::move(fullName_)) {}
        WriterCore* core = nullptr;
        std::string name;
        std::string fullName;
        friend class ObjectWriter;
        friend class ArchiveWriter;
    };

    ObjectWriter(const Init& init, MetaData metadata = {});
    virtual ~ObjectWriter() = default;
    ObjectWriter(const ObjectWriter&) = delete;
    ObjectWriter& operator=(const ObjectWriter&) = delete;

    /// Adds a child object of type T (ObjectWriter or a schema writer), constructed from
    /// (Init, args...). Names must be non-empty, without '/', and unique among siblings.
    template <class T = ObjectWriter, class... Args>
    T& addChild(std::string name, Args&&... args) {
        static_assert(std::is_base_of_v<ObjectWriter, T>);
        Init init = childInit(std::move(name));
        auto child = std::make_unique<T>(init, std::forward<Args>(args)...);
        T& ref = *child;
        children_.push_back(std::move(child));
        return ref;
    }

    const std::string& name() const { return name_; }
    /// "/a/b"; the top object is "/".
    const std::string& fullName() const { return fullName_; }
    const MetaData& metadata() const { return metadata_; }
    CompoundWriter& properties() { return properties_; }
    bool closed() const { return closed_; }
    /// Closes the open child objects (latest first), then this object's properties, and writes
    /// the object. Closing twice is harmless.
    void close();

protected:
    /// Schema writers close their properties here, in their own order; what they leave open
    /// is closed afterwards, latest first.
    virtual void closeSchema() {}
    WriterCore& core() { return *core_; }
    void requireOpen() const;

private:
    Init childInit(std::string name);
    /// Writes the child records and the hash record, the property compound and the object
    /// group; returns the object's group entry.
    std::uint64_t writeBody();

    WriterCore* core_;
    std::string name_;
    std::string fullName_;
    MetaData metadata_;
    CompoundWriter properties_;
    std::vector<std::unique_ptr<ObjectWriter>> children_;
    bool closed_ = false;
    Digest hash_;
    std::uint64_t groupEntry_ = kEmptyGroupEntry;

    friend class ArchiveWriter;
};

/// The archive-wide facts stored in the archive's metadata.
struct ArchiveInfo {
    std::string application;     ///< "_ai_Application"
    std::string description;     ///< "_ai_Description"
    double fps = 0.0;            ///< "_ai_DCC_FPS", written when positive
    std::string dateWritten;     ///< "_ai_DateWritten"; empty: the current local time, ctime() style
    std::string alembicVersion;  ///< "_ai_AlembicVersion"; empty: kAlembicVersionText
    MetaData extra;              ///< further keys, written as given
};

/// The library version the archives claim (the layout is that of Alembic 1.8.12).
inline constexpr std::int32_t kAlembicLibraryVersion = 10812;
extern const char* const kAlembicVersionText;

class ArchiveWriter {
public:
    /// Starts an archive that will replace `targetPath` when closed; it is written to
    /// "<targetPath>.tmp" until then. Throws AlembicError when that file cannot be created.
    explicit ArchiveWriter(std::string targetPath, ArchiveInfo info = {});
    /// Without close(), discards the temporary file and leaves the target alone.
    ~ArchiveWriter();
    ArchiveWriter(const ArchiveWriter&) = delete;
    ArchiveWriter& operator=(const ArchiveWriter&) = delete;

    /// The index of a time sampling, adding it if no equal one exists (0 is the identity).
    std::uint32_t addTimeSampling(const TimeSampling& sampling);
    /// The archive's top object "/".
    ObjectWriter& top();
    /// Closes every object, writes the archive's tables and moves the file onto the target.
    /// Throws AlembicError "cannot replace '<target>': <system message>" when the move fails.
    void close();
    bool closed() const { return closed_; }
    const std::string& targetPath() const { return target_; }
    /// The archive metadata as it will be stored.
    const MetaData& metadata() const { return metadata_; }

private:
    std::string target_;
    std::string tmp_;
    RemoveOnSignal tmpOnSignal_;
    MetaData metadata_;
    std::unique_ptr<WriterCore> core_;
    std::unique_ptr<ObjectWriter> top_;
    bool closed_ = false;
};

}  // namespace tressora::abc
