#pragma once
// Numbers as text, the same in every text format the engine writes (USD, V-Ray scenes,
// groom files): a float is the shortest decimal that reads back as the same float, with no
// fixed precision and no padding in the exponent ("1e5", "1.5e-7"); a non-finite value is
// written as "0"; -0.0 keeps its sign ("-0"), because it reads back as the same bits.
// Integers are plain decimal.
//
// Large arrays are formatted in parallel: the elements are cut into fixed pieces, each piece
// is formatted into a string of its own, and the strings are handed on in order, so the text
// never depends on the number of threads.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/parallel.h"
#include "core/vec.h"

namespace tressora {

/// Room that any single number below needs, in characters.
inline constexpr std::size_t kNumberTextMax = 32;

/// Write one number at `out` (which has kNumberTextMax characters of room) and return the
/// end of the text. No terminating NUL. Thread-safe; no allocation.
char* writeFloat(char* out, float value) noexcept;
char* writeDouble(char* out, double value) noexcept;
char* writeInteger(char* out, std::int64_t value) noexcept;
char* writeUnsigned(char* out, std::uint64_t value) noexcept;

/// Append one number to `out`.
void appendFloat(std::string& out, float value);
void appendDouble(std::string& out, double value);
void appendInteger(std::string& out, std::int64_t value);

/// Append a tuple: "(x, y, z)" and "(u, v)".
void appendVec3(std::string& out, Vec3f value);
void appendVec2(std::string& out, float u, float v);

/// One number as a string.
std::string numberText(float value);
std::string numberText(double value);

/// Elements per run and per piece of formatList, and the bytes reserved per element.
inline constexpr std::size_t kFormatRun = 1'048'576;
inline constexpr std::size_t kFormatPiece = 16'384;
inline constexpr std::size_t kFormatBytesPerElement = 24;

/// Formats elements 0 .. count - 1 as "e0, e1, e2" and hands the text to
/// write(std::string_view) in order, in several calls. element(std::string& out, std::size_t i)
/// appends element i. The elements are taken in runs of kFormatRun; the pieces of a run
/// (kFormatPiece elements each) are formatted at once on the worker threads through
/// parallelRange, so `element` must be safe to call from several threads; `write` runs on
/// the calling thread only. At most one run's text is held at a time.
template <class Element, class Write>
void formatList(std::size_t count, Element&& element, Write&& write) {
    std::vector<std::string> pieces;
    for (std::size_t runBegin = 0; runBegin < count; runBegin += kFormatRun) {
        const std::size_t runEnd = runBegin + kFormatRun < count ? runBegin + kFormatRun : count;
        const std::size_t pieceCount = (runEnd - runBegin + kFormatPiece - 1) / kFormatPiece;
        // The strings of one run are reused by the next, keeping their room.
        if (pieces.size() < pieceCount) pieces.resize(pieceCount);
        parallelRange(0, pieceCount, 1, [&](std::size_t lo, std::size_t hi) {
            for (std::size_t p = lo; p < hi; ++p) {
                const std::size_t begin = runBegin + p * kFormatPiece;
                const std::size_t end = begin + kFormatPiece < runEnd ? begin + kFormatPiece : runEnd;
                std::string& text = pieces[p];
                text.clear();
                text.reserve((end - begin) * kFormatBytesPerElement);
                for (std::size_t i = begin; i < end; ++i) {
                    if (i != 0) {
                        text.push_back(',');
                        text.push_back(' ');
                    }
                    element(text, i);
                }
            }
        });
        for (std::size_t p = 0; p < pieceCount; ++p) write(std::string_view(pieces[p]));
    }
}

/// The whole list as one string (formatList collected); for short arrays and tests.
template <class Element>
std::string listText(std::size_t count, Element&& element) {
    std::string text;
    formatList(count, element, [&text](std::string_view piece) { text += piece; });
    return text;
}

}  // namespace tressora
