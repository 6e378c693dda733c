#pragma once
// Geometry params: typed arrays with a scope and an interpretation, stored either as one array
// property or, when indexed, as a compound of ".vals" and ".indices". Curves and meshes keep
// their widths, uvs and normals this way, and user attributes live in ".arbGeomParams".

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "io/alembic/abc_reader.h"
#include "io/alembic/abc_writer.h"
#include "io/alembic/geom_types.h"

namespace tressora::abc {

/// The element of a geometry param: its stored type and interpretation.
struct GeomParamType {
    DataType type;
    std::string interpretation;

    static GeomParamType float32() { return {{Pod::Float32, 1}, ""}; }
    static GeomParamType int32() { return {{Pod::Int32, 1}, ""}; }
    static GeomParamType uint32() { return {{Pod::Uint32, 1}, ""}; }
    static GeomParamType uint64() { return {{Pod::Uint64, 1}, ""}; }
    static GeomParamType string() { return {{Pod::String, 1}, ""}; }
    static GeomParamType vec2() { return {{Pod::Float32, 2}, "vector"}; }
    static GeomParamType vec3() { return {{Pod::Float32, 3}, "vector"}; }
    static GeomParamType point3() { return {{Pod::Float32, 3}, "point"}; }
    static GeomParamType normal3() { return {{Pod::Float32, 3}, "normal"}; }
    static GeomParamType color3() { return {{Pod::Float32, 3}, "rgb"}; }
    static GeomParamType color4() { return {{Pod::Float32, 4}, "rgba"}; }
};

/// The metadata of a geometry param: arrayExtent, geoScope, interpretation, isGeomParam,
/// podExtent, podName, plus `extra` (such as "sourceName" for a uv set).
MetaData geomParamMetaData(const GeomParamType& type, GeometryScope scope, const MetaData& extra = {});

/// Typed values for a geometry param of a schema sample; `indices` only for indexed params.
template <class T>
struct GeomValues {
    GeomValues() = default;
    GeomValues(std::span<const T> values_, GeometryScope scope_) : values(values_), scope(scope_) {}
    /// Indexed: distinct values, and one index into them per element.
    GeomValues(std::span<const T> values_, std::span<const std::uint32_t> indices_, GeometryScope scope_)
        : values(values_), scope(scope_), indexed(true), indices(indices_) {}

    std::span<const T> values;
    GeometryScope scope = GeometryScope::Vertex;
    bool indexed = false;
    std::span<const std::uint32_t> indices;
};

class GeomParamWriter {
public:
    /// Adds the param `name` to `parent` with the given type, scope and time sampling.
    GeomParamWriter(CompoundWriter& parent, std::string name, const GeomParamType& type, GeometryScope scope,
                    bool indexed, std::uint32_t timeSampling, const MetaData& extra = {});
    GeomParamWriter(const GeomParamWriter&) = delete;
    GeomParamWriter& operator=(const GeomParamWriter&) = delete;

    const std::string& name() const { return name_; }
    bool indexed() const { return indices_ != nullptr; }
    const DataType& type() const { return vals_->type(); }
    std::uint32_t numSamples() const { return vals_->numSamples(); }

    /// One sample of `count` elements given as raw bytes (not indexed params).
    void write(std::span<const std::byte> values, std::uint64_t count);
    /// One sample from typed values (T is the stored value type, values.size() a multiple of the extent).
    template <class T>
    void writeValues(std::span<const T> values) {
        requireFlat();
        vals_->writeValues(values);
    }
    /// One sample of an indexed param: the distinct values and, per element, an index into them.
    void writeIndexed(std::span<const std::byte> values, std::uint64_t count, std::span<const std::uint32_t> indices);
    /// One sample of a string param (not indexed).
    void writeStrings(std::span<const std::string> values);
    /// An empty sample (no values, no indices).
    void writeEmpty();
    /// The previous sample again.
    void writeRepeat();
    /// Closes the indices, the values and the compound, in that order.
    void close();

private:
    void requireFlat() const;

    std::string name_;
    ArrayWriter* vals_ = nullptr;
    ArrayWriter* indices_ = nullptr;
    CompoundWriter* compound_ = nullptr;
};

/// A geometry param's sample as read: values as stored, with the indices of an indexed param.
struct GeomParamSample {
    std::string name;
    DataType type;
    std::string interpretation;
    GeometryScope scope = GeometryScope::Constant;
    bool indexed = false;
    std::uint64_t count = 0;              ///< elements in `values` (or `strings` / extent)
    std::vector<std::byte> values;        ///< count * extent numeric values
    std::vector<std::string> strings;     ///< string params
    std::vector<std::uint32_t> indices;   ///< indexed params: one per element of the expanded param

    /// All values as T, which must be the stored type (std::invalid_argument otherwise).
    template <class T>
    std::vector<T> as() const;
    /// Whole elements: Element is a plain struct of `extent` values of `pod` (Vec2f for float32[2]).
    template <class Element>
    std::vector<Element> elements(Pod pod) const;
    /// The values as doubles, whatever their numeric type.
    std::vector<double> numbers() const;
    /// The param as one value per element: indexed params looked up through their indices.
    /// An index past the values throws AlembicError naming `where`.
    GeomParamSample expanded(const std::string& where = {}) const;

private:
    [[noreturn]] void wrongType(std::string_view expected) const;
};

class GeomParamReader {
public:
    /// Reads the param stored as `property`: an array, or a compound of ".vals" and ".indices".
    /// Throws AlembicError when the property is neither.
    explicit GeomParamReader(const PropertyReader& property);
    /// The param `name` of `compound`, or nothing when it has none.
    static std::optional<GeomParamReader> find(const PropertyReader* compound, std::string_view name);
    /// Every param of a compound (".arbGeomParams"), in file order; children that are not
    /// params are skipped.
    static std::vector<GeomParamReader> all(const PropertyReader* compound);

    const std::string& name() const { return property_->name(); }
    const DataType& type() const { return vals_->type(); }
    GeometryScope scope() const;
    std::string interpretation() const { return vals_->metadata().get("interpretation"); }
    bool indexed() const { return indices_ != nullptr; }
    std::uint32_t numSamples() const { return vals_->numSamples(); }
    const PropertyReader& values() const { return *vals_; }

    /// Sample `index`, clamped to the last sample the param has; reads nothing for a param
    /// without samples (count 0).
    GeomParamSample read(std::uint32_t index) const;

private:
    GeomParamReader() = default;
    const PropertyReader* property_ = nullptr;
    const PropertyReader* vals_ = nullptr;
    const PropertyReader* indices_ = nullptr;
};

// ---- template definitions

template <class T>
std::vector<T> GeomParamSample::as() const {
    static_assert(std::is_trivially_copyable_v<T>);
    if (PodOf<T>::value != type.pod) wrongType(podName(PodOf<T>::value));
    std::vector<T> out(values.size() / sizeof(T));
    if (!out.empty()) std::memcpy(out.data(), values.data(), out.size() * sizeof(T));
    return out;
}

template <class Element>
std::vector<Element> GeomParamSample::elements(Pod pod) const {
    static_assert(std::is_trivially_copyable_v<Element>);
    if (pod != type.pod || sizeof(Element) != podSize(pod) * type.extent) wrongType(podName(pod));
    std::vector<Element> out(count);
    if (!out.empty()) std::memcpy(out.data(), values.data(), out.size() * sizeof(Element));
    return out;
}

}  // namespace tressora::abc
