#pragma once
// AlembicWriter: animated strands in an Alembic archive (Ogawa), frame by frame, in one of two
// flavours. The neutral flavour is for DCC tools and renderers: an xform and a curves shape
// (per group, or one for all) with widths, root uvs, strand ids and every channel as a
// geometry param, plus the baked scales as a polygon mesh. The groom flavour is the layout
// Unreal's groom importer reads: curves named "strands" (and "guides") carrying the groom_*
// attributes, in the importer's axes and centimetres.
//
// The archive is written to "<target>.tmp" and moved over the target by close(); a writer
// destroyed without close() removes the temporary file and leaves the target alone. The first
// frame fixes the mode (flavour, grouped or not) and which optional attributes exist. One
// thread at a time; formatting inside a frame runs on the worker threads.

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "core/instances.h"
#include "core/strand_set.h"
#include "io/export_view.h"

namespace tressora {

struct AlembicWriterOptions {
    std::string rootName = "groom";  ///< the neutral flavour's xform; its shape is rootName + "Shape"
    double secondsPerFrame = 1.0 / 24.0;  ///< the uniform time sampling's step
    double startTime = 1.0 / 24.0;        ///< the first frame's time in seconds
    double framesPerSecond = 24.0;        ///< stored as the archive's "_ai_DCC_FPS"
    float scale = 1.0f;          ///< multiplies positions and widths; positive and finite
    int resampleCount = 0;       ///< 0: points as given; else every strand resampled to this count (>= 2)
    bool writeAo = false;        ///< the groom flavour's groom_ao on strands with iridescence
    std::string application = "tressora";  ///< stored as "_ai_Application"
    ExportColouring colouring;   ///< how melanin becomes groom_color; may be empty
};

/// A named strand set of the neutral flavour's grouped mode.
struct AlembicStrandGroup {
    std::string name;
    const StrandSet* strands = nullptr;  ///< null writes an empty sample
};

/// A group of the groom flavour: its name and id, its strands and its guides (either may be null).
struct AlembicGroomGroup {
    std::string name;
    std::int32_t id = 0;
    const StrandSet* strands = nullptr;
    const StrandSet* guides = nullptr;
};

/// The importer's schema version written as groom_version_major / groom_version_minor.
inline constexpr std::int32_t kGroomSchemaMajor = 1;
inline constexpr std::int32_t kGroomSchemaMinor = 5;

class AlembicWriter {
public:
    /// Opens "<path>.tmp" for the archive. Throws std::invalid_argument "the scale must be
    /// positive" or "strands need at least 2 points" (a resample count of 1 or below 0), and
    /// AlembicError when the file cannot be created.
    AlembicWriter(const std::string& path, AlembicWriterOptions options = {});
    ~AlembicWriter();
    AlembicWriter(const AlembicWriter&) = delete;
    AlembicWriter& operator=(const AlembicWriter&) = delete;

    /// The groom flavour's space: the source's up axis ("Y" or "Z") and its centimetres per
    /// unit (default 1). Only before the first frame (AlembicError "the space is set before
    /// the first frame"); std::invalid_argument for another axis or units that are not
    /// positive and finite.
    void setGroomSpace(const std::string& upAxis, double centimetersPerUnit);

    /// Neutral flavour, one shape for all strands; `scalp` (may be null) gives root uvs and
    /// `scaleMesh` (may be null) the baked scales of this frame.
    void writeFrame(const StrandSet& strands, const ScalpUvs* scalp = nullptr, const ScaleMesh* scaleMesh = nullptr);
    /// Neutral flavour in groups: one xform and shape per group, named by the sanitised group
    /// name (AlembicError "two groups named '<name>'" when two agree). Groups absent from a
    /// later frame write empty samples; a group new after the first frame is refused.
    void writeFrame(std::span<const AlembicStrandGroup> groups, const ScalpUvs* scalp = nullptr);
    /// Groom flavour, one "strands" object (and "guides" when guides are given on the first frame).
    void writeGroomFrame(const StrandSet& strands, const StrandSet* guides = nullptr, const ScalpUvs* scalp = nullptr);
    /// Groom flavour in groups: "strands_<name>" and "guides_<name>" per group (AlembicError
    /// "two groups with the id <id>" when two ids agree).
    void writeGroomFrame(std::span<const AlembicGroomGroup> groups, const ScalpUvs* scalp = nullptr);

    /// Finishes every object, closes the archive and moves it over the target (AlembicError
    /// "cannot replace '<target>': <system message>"). After a failed frame it discards the
    /// archive instead. Later calls of any function throw AlembicError "writer is closed".
    void close();

    /// Frames written so far.
    std::uint64_t frameCount() const;

    struct State;

private:
    std::unique_ptr<State> state_;
};

}  // namespace tressora
