#pragma once
// The frame writers an export can drive, behind one small interface: Alembic (.abc), USD text
// (.usda, .usd) and V-Ray scenes (.vrscene), chosen by the output's extension.

#include <memory>
#include <string>

#include "core/guide_set.h"
#include "core/instances.h"
#include "core/strand_set.h"
#include "groom/groom_scene.h"
#include "groom/hair_look.h"
#include "io/export_view.h"
#include "io/usd_writer.h"

namespace tressora {

/// Takes frames in rising order and finishes the file on close().
class FrameWriter {
public:
    virtual ~FrameWriter() = default;
    /// One frame: the strands (never null: an empty set for none), the scalp's uvs, the baked
    /// scales and the groom's guides (each may be null; only the groom layout writes guides).
    virtual void write(double frame, const std::shared_ptr<const StrandSet>& strands, const ScalpUvs* scalp,
                       const ScaleMesh* scales, const GuideSet* guides) = 0;
    virtual void close() = 0;
};

/// What the writers take from the export besides the frames.
struct FrameWriterSetup {
    std::string path;          ///< ends in .abc, .usda, .usd or .vrscene
    double firstFrame = 1.0;
    double step = 1.0;
    ScaleOutput scales = ScaleOutput::mesh;
    std::string application;   ///< the Alembic archive's "_ai_Application"
    PrototypeLookup prototypes;
    /// The look of the groom's nodes: every writer colours melanin strands with it, and the
    /// V-Ray scene takes its hair material from it.
    HairLook look;
    /// Alembic only: the attribute layout of Unreal's groom importer instead of the neutral one.
    bool groomLayout = false;
};

/// Whether the path names an output an export can write (case-sensitive extensions).
bool isExportPath(const std::string& path);
bool isUsdPath(const std::string& path);
bool isAlembicPath(const std::string& path);

/// Opens the writer for the setup's extension. Alembic gets the root "groom", the scene's
/// frames per second and the first frame's time; USD and V-Ray get the scene's up axis and
/// its length unit in metres, USD also the scale mode. All colour melanin by the look. The
/// groom layout writes strands and guides (grouped by the strands' "groupId") in the
/// importer's space: centimetres, from the scene's up axis. The writers' own failures propagate.
std::unique_ptr<FrameWriter> openFrameWriter(const FrameWriterSetup& setup, const GroomScene& scene);

}  // namespace tressora
