#pragma once
// The neutral flavour's objects: an xform holding a curves shape with widths, root uvs, strand
// ids and the strands' channels as geometry params, and the baked scales as a polygon mesh.
// Private to AlembicWriter.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/instances.h"
#include "core/strand_set.h"
#include "io/alembic/geom_writer.h"
#include "io/export_view.h"

namespace tressora::alembic_out {

/// An xform and its curves child "<name>Shape". The first sample fixes which params exist.
class NeutralCurves {
public:
    NeutralCurves(abc::ObjectWriter& parent, const std::string& name, std::uint32_t timeSampling);
    /// One sample of `strands` (null: an empty sample), positions and widths times `scale`.
    void write(const StrandSet* strands, const ScalpUvs* scalp, float scale);

private:
    struct Channel {
        std::string name;  ///< the strand set's channel
        bool perPoint = false;
        abc::GeomParamWriter* param = nullptr;
    };
    void declare(const StrandSet& strands, const ExportView& view);

    abc::XformWriter* xform_;
    abc::CurvesWriter* curves_;
    bool declared_ = false;
    bool hasUvs_ = false;
    abc::GeomParamWriter* strandId_ = nullptr;
    abc::GeomParamWriter* groupId_ = nullptr;
    abc::GeomParamWriter* clumpId_ = nullptr;
    std::vector<Channel> channels_;
};

/// The xform "scales" and its polygon mesh "scalesShape" with the scales' shading params.
class ScaleMeshObject {
public:
    ScaleMeshObject(abc::ObjectWriter& parent, std::uint32_t timeSampling);
    /// One sample (null: an empty mesh), positions times `scale`; triangles are written
    /// clockwise, as Alembic stores faces.
    void write(const ScaleMesh* mesh, float scale);

private:
    abc::XformWriter* xform_;
    abc::PolyMeshWriter* mesh_;
    abc::GeomParamWriter* colour_;
    abc::GeomParamWriter* rootColour_;
    abc::GeomParamWriter* scaleId_;
    abc::GeomParamWriter* scaleUv_;
    abc::GeomParamWriter* variant_;
};

/// A strand channel rounded to integers (ids such as "groupId"), one per strand; zeros when
/// the set lacks the channel, and for values that are not finite.
std::vector<std::int32_t> integerChannel(const StrandSet* strands, std::string_view name);

}  // namespace tressora::alembic_out
