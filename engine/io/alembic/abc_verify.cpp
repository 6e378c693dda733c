#include "io/alembic/abc_verify.h"

#include <cstring>

#include "io/alembic/abc_hashes.h"

namespace tressora::abc {

namespace {

void appendDigest(std::vector<std::byte>& out, const Digest& d) {
    const auto* p = reinterpret_cast<const std::byte*>(d.words);
    out.insert(out.end(), p, p + 16);
}

// The hash the writer folds for one sample: the key, and for arrays their dimensions first.
Digest sampleDigest(const PropertyReader& property, const SampleView& view) {
    if (property.kind() != PropertyKind::Array) return view.key;
    std::vector<std::uint64_t> dims = view.dims;
    if (dims.empty()) dims.push_back(view.count);
    std::vector<std::byte> bytes(dims.size() * 8);
    std::memcpy(bytes.data(), dims.data(), bytes.size());
    appendDigest(bytes, view.key);
    return spooky(bytes);
}

Digest propertyHash(const PropertyReader& property) {
    const PropertyHeader& h = property.header();
    std::vector<std::byte> bytes;
    if (property.isCompound())
        for (const PropertyReader& child : property.children()) appendDigest(bytes, propertyHash(child));
    const std::vector<std::byte> prefix = propertyHashPrefix(
        h.name, h.metadata.serialize(), h.kind, h.type,
        property.isCompound() ? TimeSampling::identity() : property.timeSampling());
    bytes.insert(bytes.end(), prefix.begin(), prefix.end());
    if (!property.isCompound() && h.numSamples > 0) {
        Digest chain;
        for (std::uint32_t i = 0; i < h.numSamples; ++i) {
            const Digest d = sampleDigest(property, property.sample(i));
            chain = i == 0 ? d : spookyFold(chain, d);
        }
        appendDigest(bytes, chain);
    }
    return spooky(bytes);
}

// Recomputes an object's record and returns its hash as its parent folds it.
Digest objectHash(const ObjectReader& object, std::vector<std::string>& problems) {
    std::vector<std::byte> propertyHashes;
    for (const PropertyReader& p : object.properties().children()) appendDigest(propertyHashes, propertyHash(p));
    std::vector<std::byte> childHashes;
    for (const ObjectReader& child : object.children()) appendDigest(childHashes, objectHash(child, problems));
    const Digest properties = spooky(propertyHashes);
    const Digest children = object.children().empty() ? Digest{} : spooky(childHashes);
    if (!(properties == object.propertiesHash()) || !(children == object.childrenHash()))
        problems.push_back("'" + object.fullName() + "' stores the record " + object.propertiesHash().hex() + "/" +
                           object.childrenHash().hex() + " but its content hashes to " + properties.hex() + "/" +
                           children.hex());
    std::vector<std::byte> bytes = std::move(childHashes);
    appendDigest(bytes, properties);
    const std::string md = object.metadata().serialize();
    const auto* text = reinterpret_cast<const std::byte*>(md.data());
    bytes.insert(bytes.end(), text, text + md.size());
    const auto* name = reinterpret_cast<const std::byte*>(object.name().data());
    bytes.insert(bytes.end(), name, name + object.name().size());
    return spooky(bytes);
}

void checkKeys(const PropertyReader& property, std::vector<std::string>& problems) {
    if (property.isCompound()) {
        for (const PropertyReader& child : property.children()) checkKeys(child, problems);
        return;
    }
    for (std::uint32_t i = 0; i < property.numSamples(); ++i) {
        const SampleView view = property.sample(i);
        if (!(murmur3(view.payload) == view.key))
            problems.push_back("'" + property.path() + "' sample " + std::to_string(i) + " has the key " +
                               view.key.hex() + " but its values hash to " + murmur3(view.payload).hex());
    }
}

}  // namespace

std::vector<std::string> verifyObjectHashes(const ArchiveReader& archive) {
    std::vector<std::string> problems;
    objectHash(archive.top(), problems);
    return problems;
}

std::vector<std::string> verifySampleKeys(const ArchiveReader& archive) {
    std::vector<std::string> problems;
    checkKeys(archive.top().properties(), problems);
    archive.forEachObject([&](const ObjectReader& object) { checkKeys(object.properties(), problems); });
    return problems;
}

}  // namespace tressora::abc
