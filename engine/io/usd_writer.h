#pragma once
// UsdWriter: an animated groom as one USD text layer (.usda or .usd), composed by hand. One
// BasisCurves prim holds all strands; a point instancer carries rigid instances; scales become
// a mesh, an instancer or both. Every attribute is written as time samples.
//
// USD text wants all samples of one attribute together, while frames arrive one after the
// other, so each attribute keeps a spool file ("<target>.spool<index>") to which every frame
// appends one line; close() stitches them into "<target>.tmp" and moves that over the target.
// The first frame's samples stay in memory, so a one-frame export touches no spool.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "core/instances.h"
#include "core/strand_set.h"
#include "io/export_view.h"

namespace tressora {

/// Which scale output is wanted when the strands carry scales.
enum class ScaleOutput { mesh = 0, instancer = 1, both = 2, none = 3 };

struct UsdWriterOptions {
    double framesPerSecond = 24.0;  ///< written as framesPerSecond and timeCodesPerSecond
    double metersPerUnit = 0.01;
    std::string upAxis = "Y";
    std::string comment;            ///< appended to the layer's doc when not empty
    ScaleOutput scales = ScaleOutput::mesh;
    PrototypeLookup prototypes;     ///< the geometry of instance prototypes; may be empty
    ExportColouring colouring;      ///< how melanin becomes a display colour; may be empty
};

/// metersPerUnit for a unit name: "m" 1, "mm" 0.001, "in" 0.0254, "ft" 0.3048, else 0.01.
double metersPerUnitFor(std::string_view unit);

class UsdWriter {
public:
    /// Opens a writer on `outputPath` (UTF-8). The root prim is `primName` as an identifier
    /// ("groom" when empty). Creates and closes "<outputPath>.tmp" at once to test that it can
    /// be written; throws UsdError "cannot write '<outputPath>'" when it cannot.
    UsdWriter(const std::string& outputPath, std::string_view primName, UsdWriterOptions options);

    /// Finishes the layer as close() does. When an exception is passing through the scope
    /// that made the writer, or after a failed write, it abandons the layer instead: the
    /// target stays as it was and no spool or temporary file remains. Never throws.
    ~UsdWriter();

    UsdWriter(const UsdWriter&) = delete;
    UsdWriter& operator=(const UsdWriter&) = delete;

    /// Adds one frame at time code `time`, later than the last. `scalp` gives root UVs and
    /// `scaleMesh` the baked scales; both may be null. The first frame fixes the attributes
    /// (channels, UVs, colours, instancers) for the whole layer. Throws UsdError
    /// "writeFrame after close", "frames must increase" (the writer stays usable) or
    /// "cannot write '<spool path>'" (the writer can then only be closed or destroyed).
    /// Formats on the worker threads; call from one thread.
    void writeFrame(double time, const StrandSet& strands, const ScalpUvs* scalp = nullptr,
                    const ScaleMesh* scaleMesh = nullptr);

    /// Stitches the layer and replaces the target; does nothing when already closed. Throws
    /// UsdError "cannot write '<target>'" or "cannot replace '<target>': <system message>",
    /// having removed every spool and the temporary file.
    void close();

    /// Frames written so far.
    std::uint64_t frameCount() const noexcept;

    struct State;

private:
    std::unique_ptr<State> state_;
};

}  // namespace tressora
