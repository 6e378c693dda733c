#pragma once
// The inside of UsdWriter, shared by its source files: the channel list and what the first
// frame fixed. Not for use outside engine/io.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/errors.h"
#include "io/spool_file.h"
#include "io/usd_writer.h"

namespace tressora {

/// One attribute: its declaration ("float[] widths"), the text inside its metadata block
/// (may be empty) and its samples.
struct UsdChannel {
    UsdChannel(std::string name_, std::string metadata_, std::string spoolPath)
        : name(std::move(name_)), metadata(std::move(metadata_)), spool(std::move(spoolPath)) {}
    std::string name;
    std::string metadata;
    SpoolFile spool;
};

struct UsdWriter::State {
    std::string target;
    std::string temporary;
    std::string prim;
    UsdWriterOptions options;

    std::vector<std::unique_ptr<UsdChannel>> channels;
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

    std::uint64_t frames = 0;
    double firstTime = 0.0;
    double lastTime = 0.0;
    bool closed = false;
    bool failed = false;        ///< a spool write failed: the layer can no longer be finished
    int uncaughtAtOpen = 0;     ///< std::uncaught_exceptions() when the writer was made

    /// Adds a channel at the end of the list, with its spool path.
    void addChannel(std::string name, std::string metadata = {});
    /// Throws UsdError "cannot write '<spool path>'" when the channel's spool failed.
    void check(const UsdChannel& channel);
    /// Closes and deletes every spool and the temporary file.
    void removeFiles();
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
