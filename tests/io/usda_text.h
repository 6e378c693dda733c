#pragma once
// A small reader of USD text for the writer tests: enough of the grammar to take back what
// the writer produces (layer metadata, nested prims, attributes with values, metadata and
// time samples, relationships, dictionaries), so tests compare structure, not bytes.

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tressora::testing {

struct UsdaValue {
    enum class Kind { Number, String, Word, Path, Tuple, List, Dictionary, TimeSamples } kind = Kind::Word;
    double number = 0.0;
    std::string text;                                         ///< String, Word, Path; a Number's spelling
    std::vector<UsdaValue> items;                             ///< Tuple, List
    std::vector<std::pair<std::string, UsdaValue>> entries;   ///< Dictionary
    std::vector<std::pair<double, UsdaValue>> samples;        ///< TimeSamples, in file order

    /// Every number inside, depth first (a list of tuples flattened).
    std::vector<double> numbers() const;
    /// The same numbers read from their text as floats, as a float reader would take them.
    std::vector<float> floats() const;
    /// The entry of a dictionary by key; throws when absent.
    const UsdaValue& at(const std::string& key) const;
};

struct UsdaAttribute {
    std::vector<std::string> qualifiers;  ///< words before the name: "uniform", "float[]", "rel"
    std::string name;                     ///< without ".timeSamples"
    bool timeSamples = false;
    bool hasValue = false;
    UsdaValue value;
    std::map<std::string, UsdaValue> metadata;
    std::string type() const { return qualifiers.empty() ? std::string() : qualifiers.back(); }
};

struct UsdaPrim {
    std::string specifier;  ///< "def"
    std::string type;
    std::string name;
    std::map<std::string, UsdaValue> metadata;
    std::vector<UsdaAttribute> attributes;  ///< in file order; an attribute may appear twice (metadata, then samples)
    std::vector<UsdaPrim> children;

    const UsdaPrim& child(const std::string& name) const;  ///< throws when absent
    bool hasChild(const std::string& name) const;
    /// The time-sampled entry of an attribute; throws when absent.
    const UsdaAttribute& samples(const std::string& name) const;
    /// The metadata of an attribute from its declaration without value; empty when none.
    std::map<std::string, UsdaValue> attributeMetadata(const std::string& name) const;
    /// The value-carrying entry of an attribute (plain or time-sampled); throws when absent.
    const UsdaAttribute& attribute(const std::string& name) const;
    /// Names of the time-sampled attributes, in file order.
    std::vector<std::string> sampledNames() const;
};

struct UsdaLayer {
    std::map<std::string, UsdaValue> metadata;
    std::vector<UsdaPrim> prims;
    const UsdaPrim& prim(const std::string& path) const&;  ///< "/groom/strands"; throws when absent
    const UsdaPrim& prim(const std::string& path) && = delete;  ///< keep the layer while its prims are read
};

/// Parses USD text; throws std::runtime_error naming the offset of the first thing it cannot read.
UsdaLayer parseUsda(const std::string& text);

/// The whole content of a file.
std::string readTextFile(const std::string& path);

}  // namespace tressora::testing
