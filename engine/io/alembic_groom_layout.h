#pragma once
// The groom flavour's curves: the attribute set Unreal's groom importer reads (groom_version_*,
// groom_group_*, groom_id, groom_width, groom_guide, groom_root_uv and the look attributes
// groom_color, groom_roughness, groom_clump_id, groom_iridescence, groom_ao), with points in
// the importer's axes and centimetres. Private to AlembicWriter.

#include <cstdint>
#include <string>
#include <vector>

#include "core/strand_set.h"
#include "io/alembic/geom_writer.h"
#include "io/export_view.h"

namespace tressora::alembic_out {

/// The importer's space: Z up and centimetres, reached from the source's axes by a fixed swap.
struct GroomSpace {
    bool sourceZUp = false;
    double centimetersPerUnit = 1.0;
    float scale = 1.0f;  ///< the writer's own scale, applied on top
    /// The factor applied to points and widths, computed in double and stored as float.
    float factor() const { return static_cast<float>(centimetersPerUnit * static_cast<double>(scale)); }
};

/// A point in the importer's space: (s x, -s y, s z) from Z up, (s x, s z, s y) from Y up.
Vec3f toImporterSpace(Vec3f p, bool sourceZUp, float s);

/// The first frame's answer to which optional attributes a curves object carries.
struct GroomAttributes {
    bool rootUvs = false;
    enum class Colour { none, perStrand, perPoint } colour = Colour::none;
    bool roughness = false;
    bool clumpId = false;
    bool iridescence = false;
    bool ao = false;
};

/// Decides the optional attributes from the first frame's set (null: none). Guides never
/// carry iridescence or AO.
GroomAttributes groomAttributesOf(const StrandSet* set, const ExportView& view, bool guides, bool writeAo);

/// One curves object of the groom flavour ("strands", "guides", "strands_<name>"...).
class GroomCurves {
public:
    /// Creates the object under `parent` with the attributes, in the importer's order.
    GroomCurves(abc::ObjectWriter& parent, const std::string& name, std::uint32_t timeSampling, bool guides,
                const GroomAttributes& attributes);
    /// One sample: `set` (null: empty) of the group `groupName` with id `groupId` (a negative id
    /// takes each strand's "groupId" channel, 0 without one).
    void write(const StrandSet* set, const ExportView& view, const std::string& groupName, std::int32_t groupId,
               const GroomSpace& space);

private:
    abc::CurvesWriter* curves_;
    bool guides_;
    GroomAttributes attributes_;
    std::vector<abc::GeomParamWriter*> params_;  ///< in creation order
};

}  // namespace tressora::alembic_out
