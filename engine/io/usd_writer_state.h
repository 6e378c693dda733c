#pragma once
// The inside of UsdWriter, shared by its source files: the channel list and what the first
// frame fixed. Not for use outside engine/io.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/errors.h"
#include "io/spooled_output.h"
#include "io/usd_writer.h"

namespace tressora {

/// One attribute: its declaration ("float[] widths"), the text inside its metadata block
/// (may be empty) and its samples.
struct UsdChannel {
    std::string name;
    std::string metadata;
    SpoolFile* spool = nullptr;  ///< owned by the state's output
};

struct UsdWriter::State {
    State(const std::string& target, SpooledOutput::Raise raise) : output(target, raise) {}

    SpooledOutput output;
    std::string prim;
    UsdWriterOptions options;

    std::vector<UsdChannel> channels;
    std::vector<std::string> strandChannels;  ///< source names fixed by the first frame
    std::vector<std::string> pointChannels;
    bool hasUvs = false;
    bool hasColours = false;
    bool instancer = false;
    bool scaleMesh = false;
    bool scaleInstancer = false;
    bool strandsInvisible = false;
    std::vector<std::string> instancePrototypes;
    std::vector<std::string> scalePrototypes;
    std::size_t strandEnd = 0;     ///< channels [0, strandEnd) belong to the curves
    std::size_t instanceEnd = 0;   ///< [strandEnd, instanceEnd) to the instancer
    std::size_t scaleMeshEnd = 0;  ///< [instanceEnd, scaleMeshEnd) to the scale mesh; the rest to the scale instancer

    /// Adds a channel at the end of the list, with its spool.
    void addChannel(std::string name, std::string metadata = {}) {
        channels.push_back({std::move(name), std::move(metadata), &output.addSpool()});
    }
};

/// Declares every channel from the first frame and fixes the flags and lists.
void declareUsdChannels(UsdWriter::State& state, const StrandSet& strands, const ExportView& view,
                        const ScaleMesh* scaleMesh);

/// Appends one frame's sample to every channel, in channel order.
void writeUsdSamples(UsdWriter::State& state, double time, const StrandSet& strands, const ExportView& view,
                     const ScaleMesh* scaleMesh);

/// Writes the whole layer text to `out`: header, prims, channels with their samples.
/// False when a spool cannot be read back.
bool writeUsdLayer(UsdWriter::State& state, std::ostream& out);

}  // namespace tressora
