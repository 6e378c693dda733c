#include "io/alembic/geom_params.h"

#include <algorithm>
#include <stdexcept>

#include "core/errors.h"

namespace tressora::abc {

MetaData geomParamMetaData(const GeomParamType& type, GeometryScope scope, const MetaData& extra) {
    MetaData md = extra;
    md.set("arrayExtent", "1");
    md.set("geoScope", std::string(scopeToken(scope)));
    md.set("interpretation", type.interpretation);
    md.set("isGeomParam", "true");
    md.set("podExtent", std::to_string(type.type.extent));
    md.set("podName", std::string(podName(type.type.pod)));
    return md;
}

// ---- GeomParamWriter -------------------------------------------------------------------------

GeomParamWriter::GeomParamWriter(CompoundWriter& parent, std::string name, const GeomParamType& type,
                                 GeometryScope scope, bool indexed, std::uint32_t timeSampling, const MetaData& extra)
    : name_(std::move(name)) {
    const MetaData md = geomParamMetaData(type, scope, extra);
    if (indexed) {
        compound_ = &parent.addCompound(name_, md);
        vals_ = &compound_->addArray(".vals", type.type, md, timeSampling);
        indices_ = &compound_->addArray(".indices", {Pod::Uint32, 1}, {}, timeSampling);
    } else {
        vals_ = &parent.addArray(name_, type.type, md, timeSampling);
    }
}

void GeomParamWriter::requireFlat() const {
    if (indexed()) throw std::invalid_argument("the param '" + name_ + "' is indexed; write it with writeIndexed");
}

void GeomParamWriter::write(std::span<const std::byte> values, std::uint64_t count) {
    requireFlat();
    vals_->write(values, count);
}

void GeomParamWriter::writeIndexed(std::span<const std::byte> values, std::uint64_t count,
                                   std::span<const std::uint32_t> indices) {
    if (!indexed()) throw std::invalid_argument("the param '" + name_ + "' is not indexed");
    for (std::uint32_t index : indices)
        if (index >= count)
            throw std::invalid_argument("the param '" + name_ + "' has an index " + std::to_string(index) +
                                        " past its " + std::to_string(count) + " values");
    vals_->write(values, count);
    indices_->writeValues(indices);
}

void GeomParamWriter::writeStrings(std::span<const std::string> values) {
    requireFlat();
    vals_->writeStrings(values);
}

void GeomParamWriter::writeEmpty() {
    if (isStringPod(vals_->type().pod))
        vals_->writeStrings({});
    else
        vals_->write({}, 0);
    if (indices_) indices_->write({}, 0);
}

void GeomParamWriter::writeRepeat() {
    vals_->writeRepeat();
    if (indices_) indices_->writeRepeat();
}

void GeomParamWriter::close() {
    if (indices_) indices_->close();
    vals_->close();
    if (compound_) compound_->close();
}

// ---- GeomParamSample -------------------------------------------------------------------------

void GeomParamSample::wrongType(std::string_view expected) const {
    throw std::invalid_argument("the param '" + name + "' holds " + std::to_string(type.extent) + " x " +
                                std::string(podName(type.pod)) + " per element, not " + std::string(expected));
}

std::vector<double> GeomParamSample::numbers() const {
    if (isStringPod(type.pod)) wrongType("numbers");
    return decodeNumbers(type.pod, values);
}

GeomParamSample GeomParamSample::expanded(const std::string& where) const {
    if (!indexed) return *this;
    GeomParamSample out = *this;
    out.indexed = false;
    out.indices.clear();
    out.values.clear();
    out.strings.clear();
    out.count = indices.size();
    const std::size_t elementBytes = isStringPod(type.pod) ? 0 : podSize(type.pod) * type.extent;
    for (std::uint32_t index : indices) {
        if (index >= count)
            throw AlembicError(where + "the param '" + name + "' has an index " + std::to_string(index) +
                               " past its " + std::to_string(count) + " values");
        if (elementBytes == 0) {
            for (std::size_t k = 0; k < type.extent; ++k) out.strings.push_back(strings[index * type.extent + k]);
        } else {
            const auto* first = values.data() + index * elementBytes;
            out.values.insert(out.values.end(), first, first + elementBytes);
        }
    }
    return out;
}

// ---- GeomParamReader -------------------------------------------------------------------------

GeomParamReader::GeomParamReader(const PropertyReader& property) : property_(&property) {
    if (property.kind() == PropertyKind::Array) {
        vals_ = &property;
        return;
    }
    if (property.isCompound()) {
        const PropertyReader* vals = property.find(".vals");
        const PropertyReader* indices = property.find(".indices");
        const bool indicesOk = indices && indices->kind() == PropertyKind::Array && indices->type().extent == 1 &&
                               (indices->type().pod == Pod::Uint32 || indices->type().pod == Pod::Int32);
        if (vals && vals->kind() == PropertyKind::Array && indicesOk) {
            vals_ = vals;
            indices_ = indices;
            return;
        }
    }
    throw AlembicError("'" + property.fileName() + "': '" + property.path() +
                       "' is not a geometry param (an array, or a compound of .vals and .indices)");
}

std::optional<GeomParamReader> GeomParamReader::find(const PropertyReader* compound, std::string_view name) {
    if (!compound) return std::nullopt;
    const PropertyReader* property = compound->find(name);
    if (!property) return std::nullopt;
    return GeomParamReader(*property);
}

std::vector<GeomParamReader> GeomParamReader::all(const PropertyReader* compound) {
    std::vector<GeomParamReader> out;
    if (!compound) return out;
    for (const PropertyReader& child : compound->children()) {
        try {
            out.push_back(GeomParamReader(child));
        } catch (const AlembicError&) {
            // Scalars and other compounds are user data, not geometry params.
        }
    }
    return out;
}

GeometryScope GeomParamReader::scope() const { return parseScope(vals_->metadata().get("geoScope")); }

GeomParamSample GeomParamReader::read(std::uint32_t index) const {
    GeomParamSample out;
    out.name = name();
    out.type = type();
    out.interpretation = interpretation();
    out.scope = scope();
    out.indexed = indexed();
    if (vals_->numSamples() == 0) return out;
    const std::uint32_t i = std::min(index, vals_->numSamples() - 1);
    if (isStringPod(type().pod)) {
        out.strings = vals_->strings(i);
        out.count = out.strings.size() / type().extent;
    } else {
        const SampleView view = vals_->sample(i);
        out.values.assign(view.payload.begin(), view.payload.end());
        out.count = view.count;
    }
    if (indices_ && indices_->numSamples() > 0) {
        const std::uint32_t k = std::min(index, indices_->numSamples() - 1);
        if (indices_->type().pod == Pod::Uint32) {
            out.indices = indices_->values<std::uint32_t>(k);
        } else {
            for (std::int32_t v : indices_->values<std::int32_t>(k))
                out.indices.push_back(static_cast<std::uint32_t>(v));
        }
    }
    return out;
}

}  // namespace tressora::abc
