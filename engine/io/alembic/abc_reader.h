#pragma once
// Reads an Alembic archive (Ogawa back end). Opening parses the whole tree of objects and
// property headers and checks it; samples are read on request, straight from the mapped file.
// Every fault of the file throws AlembicError with a sentence that names the file and, where
// it can, the object or property and the sample. A reader is immutable once open: its const
// functions may be called from several threads at once.

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "io/alembic/abc_types.h"
#include "io/alembic/ogawa_reader.h"

namespace tressora::abc {

struct ArchiveData;

/// A property's header as the archive stores it.
struct PropertyHeader {
    std::string name;
    PropertyKind kind = PropertyKind::Compound;
    DataType type;                   ///< scalars and arrays
    MetaData metadata;
    std::uint32_t timeSampling = 0;  ///< index into ArchiveReader::timeSamplings()
    std::uint32_t numSamples = 0;
    std::uint32_t firstChanged = 0;  ///< first sample that differs from sample 0 (0: none)
    std::uint32_t lastChanged = 0;   ///< last sample that differs from the one before it
    bool scalarLike = false;         ///< an array whose every stored sample held one element
    bool homogenous = false;         ///< the writer's "same size" flag (not reliable for extent > 1)
    bool isConstant() const { return lastChanged == 0; }
};

/// One stored sample, viewed in place: valid while the archive is open.
struct SampleView {
    std::span<const std::byte> payload;  ///< the values; for strings each is followed by a NUL
    Digest key;                          ///< the writer's MurmurHash3 of the payload; zero when empty
    std::uint64_t count = 0;             ///< elements of `extent` values (1 for scalars)
    std::vector<std::uint64_t> dims;     ///< stored dimensions; empty for plain numeric arrays
};

class PropertyReader {
public:
    const PropertyHeader& header() const { return header_; }
    const std::string& name() const { return header_.name; }
    PropertyKind kind() const { return header_.kind; }
    bool isCompound() const { return header_.kind == PropertyKind::Compound; }
    const DataType& type() const { return header_.type; }
    const MetaData& metadata() const { return header_.metadata; }
    /// "/object/.geom/P".
    const std::string& path() const { return path_; }
    /// The archive's file name, for messages.
    const std::string& fileName() const;

    // ---- compounds
    const std::vector<PropertyReader>& children() const { return children_; }
    /// The child with that name, or nullptr (also for scalars and arrays).
    const PropertyReader* find(std::string_view name) const;

    // ---- scalars and arrays
    std::uint32_t numSamples() const { return header_.numSamples; }
    const TimeSampling& timeSampling() const;
    /// The time of sample `index` in seconds.
    double sampleTime(std::uint32_t index) const;
    /// Sample `index` (below numSamples()) in place, checked against the file.
    SampleView sample(std::uint32_t index) const;
    /// Sample `index` as values of T, which must be the property's type (bool reads bool_t);
    /// count * extent values. A different stored type throws AlembicError.
    template <class T>
    std::vector<T> values(std::uint32_t index) const;
    /// Sample `index` as whole elements: Element is a plain struct of `extent` values of `pod`
    /// (Vec3f for float32[3]). A different stored type throws AlembicError.
    template <class Element>
    std::vector<Element> elements(std::uint32_t index, Pod pod) const;
    /// Sample `index` of any numeric type, converted to double.
    std::vector<double> numbers(std::uint32_t index) const;
    /// Sample `index` of a string or wstring property (wide strings as UTF-8).
    std::vector<std::string> strings(std::uint32_t index) const;

    /// Throws AlembicError "'<file>' is damaged: '<path>' <what>".
    [[noreturn]] void damaged(const std::string& what) const;

private:
    friend struct ArchiveParser;
    /// The sample, after checking that the property holds `expected` values.
    SampleView typedSample(std::uint32_t index, Pod expected) const;
    [[noreturn]] void wrongElement(std::size_t elementSize) const;

    const ArchiveData* archive_ = nullptr;
    std::string path_;
    PropertyHeader header_;
    std::vector<PropertyReader> children_;
    std::vector<OgawaEntry> entries_;
};

class ObjectReader {
public:
    const std::string& name() const { return name_; }
    /// "/a/b"; the top object is "/".
    const std::string& fullName() const { return fullName_; }
    const MetaData& metadata() const { return metadata_; }
    /// The metadata's "schema" value ("AbcGeom_Curve_v2"...), "" for plain objects.
    std::string schema() const { return metadata_.get("schema"); }
    const std::vector<ObjectReader>& children() const { return children_; }
    const ObjectReader* child(std::string_view name) const;
    /// The object's own compound of properties (it has no name).
    const PropertyReader& properties() const { return properties_; }
    /// The 32-byte record the writer stores: a hash of the properties, then of the children.
    const Digest& propertiesHash() const { return propertiesHash_; }
    const Digest& childrenHash() const { return childrenHash_; }

private:
    friend struct ArchiveParser;
    std::string name_;
    std::string fullName_;
    MetaData metadata_;
    PropertyReader properties_;
    std::vector<ObjectReader> children_;
    Digest propertiesHash_;
    Digest childrenHash_;
};

class ArchiveReader {
public:
    /// Opens and checks `path`. Throws AlembicError when it cannot be read or is not a sound archive.
    explicit ArchiveReader(const std::string& path);
    /// Reads an archive held in memory; `name` stands for the file in messages.
    ArchiveReader(std::string name, std::vector<std::byte> bytes);
    ~ArchiveReader();
    ArchiveReader(ArchiveReader&&) noexcept;
    ArchiveReader& operator=(ArchiveReader&&) noexcept;

    const std::string& fileName() const;
    /// The version of the Alembic library that wrote the file (10812 for 1.8.12).
    std::int32_t libraryVersion() const;
    /// The archive metadata ("_ai_Application"...), also the top object's metadata.
    const MetaData& metadata() const;
    const std::vector<TimeSamplingRecord>& timeSamplings() const;
    const ObjectReader& top() const;
    /// The object with that full name ("/groom/groomShape"), or nullptr.
    const ObjectReader* findObject(std::string_view fullName) const;
    /// Calls fn for every object below the top, parents before children, in file order.
    void forEachObject(const std::function<void(const ObjectReader&)>& fn) const;

private:
    std::unique_ptr<ArchiveData> data_;
};

/// Numeric values stored as `pod` (little-endian, packed), converted to double.
std::vector<double> decodeNumbers(Pod pod, std::span<const std::byte> bytes);

// ---- template definitions

template <class T>
std::vector<T> PropertyReader::values(std::uint32_t index) const {
    static_assert(std::is_trivially_copyable_v<T>);
    const SampleView view = typedSample(index, PodOf<T>::value);
    std::vector<T> out(view.payload.size() / sizeof(T));
    if constexpr (std::is_same_v<T, bool>) {
        for (std::size_t i = 0; i < out.size(); ++i) out[i] = view.payload[i] != std::byte{0};
    } else if (!out.empty()) {
        std::memcpy(out.data(), view.payload.data(), out.size() * sizeof(T));
    }
    return out;
}

template <class Element>
std::vector<Element> PropertyReader::elements(std::uint32_t index, Pod pod) const {
    static_assert(std::is_trivially_copyable_v<Element>);
    if (sizeof(Element) != podSize(pod) * header_.type.extent) wrongElement(sizeof(Element));
    const SampleView view = typedSample(index, pod);
    std::vector<Element> out(view.count);
    if (!out.empty()) std::memcpy(out.data(), view.payload.data(), out.size() * sizeof(Element));
    return out;
}

}  // namespace tressora::abc
