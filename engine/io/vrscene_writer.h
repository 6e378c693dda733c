#pragma once
// VrsceneWriter: an animated groom as a V-Ray scene (.vrscene): one GeomMayaHair with a hair
// material, a units plugin and a node. Like UsdWriter, each animated param keeps a spool file
// ("<target>.spool<index>") to which every frame appends one sample; close() stitches them
// into "<target>.tmp" and moves that over the target. A param written at several frames
// becomes V-Ray's interpolate((time, value), ...); a one-frame file has plain values.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "core/strand_set.h"
#include "core/vec.h"
#include "io/export_view.h"

namespace tressora {

struct VrsceneWriterOptions {
    double framesPerSecond = 24.0;
    double metersPerUnit = 0.01;
    std::string upAxis = "Y";  ///< "Z" for a Z-up scene; anything else is Y up
    // The hair look (the groom's render data).
    float minPixelWidth = 0.5f;
    float glossiness = 0.8f;
    float softness = 0.0f;
    Vec3f primaryTint{1.0f, 1.0f, 1.0f};
    float highlightShift = 3.0f;
    float ior = 1.55f;
    int traceDepth = 5;
    ExportColouring colouring;  ///< how melanin becomes a colour; may be empty
};

class VrsceneWriter {
public:
    /// Opens a writer on `path` (UTF-8); plugins are named "<name>@<role>" with `name` as an
    /// identifier ("groom" when empty). Throws VrsceneError "cannot write '<path>'" when
    /// "<path>.tmp" cannot be created.
    VrsceneWriter(const std::string& path, std::string_view name, VrsceneWriterOptions options);

    /// Finishes the file as close() does, or abandons it (old target kept, no files left)
    /// when an exception passes through the scope that made the writer or a write failed.
    /// Never throws.
    ~VrsceneWriter();

    VrsceneWriter(const VrsceneWriter&) = delete;
    VrsceneWriter& operator=(const VrsceneWriter&) = delete;

    /// Adds one frame at `time`, later than the last; `scalp` (may be null) gives strand UVs.
    /// The first frame fixes which params exist (colours from "colorR/G/B" or melanin, per
    /// point or per strand; transparency from an "opacity" channel; UVs). Throws VrsceneError
    /// "writeFrame after close", "frames must increase" or "cannot write '<spool path>'".
    void writeFrame(double time, const StrandSet& strands, const ScalpUvs* scalp = nullptr);

    /// Stitches the file and replaces the target; does nothing when already closed. Throws
    /// VrsceneError "cannot write '<path>'" or "cannot replace '<path>': <system message>".
    void close();

    struct State;

private:
    std::unique_ptr<State> state_;
};

}  // namespace tressora
