#pragma once
// Long number lists of the groom file. Writing: each float as the shortest decimal that reads
// back as the same float, formatted in parallel into ready-made array texts that are spliced
// into the dumped JSON tree in place of marker strings. Reading: checked conversion of JSON
// arrays into float tuples and index triples, with messages that name the dotted path.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/vec.h"

namespace tressora {

// ---- writing -------------------------------------------------------------------------

/// Writes the file's text of one finite float at `out` (room for 32 characters) and returns
/// the end: the shortest decimal that reads back (as a double, then rounded to float) as the
/// same float, "-0.0" for negative zero, or the double's shortest text when the short form
/// does not read back.
char* writeFloatText(char* out, float value);

/// "[a,b,...]" of the floats; GroomFileError "groom file: '<path>' holds a non-finite value
/// at index <i>" for the first NaN or infinity. Formatted in parallel for long lists.
std::string floatArrayText(std::span<const float> values, std::string_view path);
std::string floatArrayText(std::span<const Vec3f> values, std::string_view path);
std::string floatArrayText(std::span<const std::array<float, 2>> values, std::string_view path);
std::string floatArrayText(std::span<const std::array<float, 4>> values, std::string_view path);
/// "[i,j,k,...]" of triangles' point indices.
std::string indexArrayText(std::span<const std::array<std::int32_t, 3>> triangles);
std::string indexArrayText(std::span<const std::array<std::uint32_t, 3>> triangles);

/// Ready-made texts standing in a JSON tree as "@tressora.floats:<n>" strings while the tree
/// is built. After the tree is dumped, `splice` replaces each quoted marker by its text.
class ArraySplice {
public:
    /// `inlineArrays` makes `add` return the parsed value instead of a marker: the slow way,
    /// for a document whose own strings look like markers.
    explicit ArraySplice(bool inlineArrays = false) : inline_(inlineArrays) {}
    /// Keeps `text` (a JSON value's text) and returns the marker that stands for it.
    nlohmann::ordered_json add(std::string text);
    std::size_t size() const { return texts_.size(); }
    /// The dumped tree with each quoted marker replaced, in one pass. False (and `out`
    /// untouched) when the text holds the marker prefix more often than there are markers,
    /// i.e. some string of the document itself looks like a marker.
    bool splice(std::string_view dumped, std::string& out) const;

private:
    bool inline_;
    std::vector<std::string> texts_;
};

// ---- reading -------------------------------------------------------------------------

/// The numbers of a JSON array, as floats, in tuples of `tuple`. GroomFileError:
/// "groom file: '<path>' must be an array of <k>-tuples" when it is no array or its length is
/// not a multiple of k; "groom file: '<path>' must hold numbers" for an element that is no
/// number; "groom file: '<path>' holds a number beyond single precision at index <i>".
std::vector<float> readFloats(const nlohmann::json& value, const std::string& path, std::size_t tuple);
std::vector<Vec3f> readPoints(const nlohmann::json& value, const std::string& path);
std::vector<std::array<float, 2>> readPairs(const nlohmann::json& value, const std::string& path);
std::vector<std::array<float, 4>> readQuads(const nlohmann::json& value, const std::string& path);

/// Triangles as index triples below `pointCount`, from the `triangles` array of the mesh at
/// `meshPath`; GroomFileError "groom file: bad <meshPath>.triangles" for a length not a
/// multiple of three, an element that is no whole number from 0, or an index at or past the
/// points (pass SIZE_MAX to leave the bound to the caller).
std::vector<std::array<std::int32_t, 3>> readTriangles(const nlohmann::json& value, const std::string& meshPath,
                                                       std::size_t pointCount);
/// The same as unsigned triples (instance prototypes).
std::vector<std::array<std::uint32_t, 3>> readUnsignedTriangles(const nlohmann::json& value, const std::string& meshPath,
                                                                std::size_t pointCount);

}  // namespace tressora
