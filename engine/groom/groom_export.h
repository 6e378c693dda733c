#pragma once
// Exporting a groom over a frame range: evaluates the session frame by frame (or reuses the
// first frame when nothing can move), bakes the scales, hands each frame to the writer chosen
// by the output's extension, and reports progress, notes, stats and timings as it goes.

#include <cstdint>
#include <iosfwd>
#include <string>

#include "groom/groom_session.h"

namespace tressora {

struct ExportRequest {
    std::string output;            ///< .abc, .usda, .usd or .vrscene
    double start = 1.0;
    double end = 1.0;
    double step = 1.0;
    float density = 1.0f;
    std::string scales = "mesh";   ///< mesh, instancer, both or none
    std::string layout = "neutral";  ///< neutral, or unreal: Alembic in the layout of Unreal's groom importer
    std::ostream* progress = nullptr;  ///< per-frame lines, notes, stats and timings; may be null
    bool stats = false;
    bool timings = false;
    std::string application;       ///< named in the Alembic archive's info
};

struct ExportResult {
    std::uint64_t frames = 0;
    std::uint64_t strands = 0;  ///< summed over the frames
};

/// A frame as users write it: up to ten significant digits, so 1 + 3 * 0.1 reads 1.3.
std::string frameText(double frame);

/// Frames from start to end by step: floor((end - start) / step + 0.000001) + 1, the small
/// constant keeping a range that should divide evenly from losing its last frame.
std::uint64_t exportFrameCount(double start, double end, double step);

/// The most frames one export writes: an archive numbers its samples with 32-bit integers.
inline constexpr std::uint64_t kMaxExportFrames = 0x7fffffffu;

/// False when the range cannot be written: a frame or the step not finite, the step not
/// positive, the end before the start, more than kMaxExportFrames frames, or a step too small
/// to tell one frame from the next at the range's magnitude.
bool exportFrameRangeUsable(double start, double end, double step);

/// Writes the frames. std::invalid_argument for a bad request: "no output file", "the frame
/// step must be positive", "bad frame range" (a range exportFrameRangeUsable refuses), "the
/// end frame is before the start frame", "the density must be between 0 and 1", "the output
/// must be .abc, .usda, .usd or .vrscene", "scales must be mesh, instancer, both or none", "an
/// instancer goes to USD", "the layout must be neutral or unreal", "the unreal layout is written
/// to .abc". Before evaluating, a target that cannot be written gives "cannot
/// write '<output>': <system message>" (a directory, a missing or read-only folder).
/// Evaluation and writer failures propagate; the target is then left as it was.
/// "<output>.tmp" exists only from the first write on.
ExportResult exportFrames(GroomSession& session, const ExportRequest& request);

}  // namespace tressora
