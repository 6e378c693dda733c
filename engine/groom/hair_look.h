#pragma once
// HairLook: the look of a groom as plain values, for hosts and render writers that build a
// hair shader rather than read channels: the HairColor nearest the output, what other colour
// nodes do, and the feather iridescence. Also how the writers turn look channels into colours
// and the V-Ray material's values.

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "core/vec.h"
#include "graph/graph.h"
#include "io/export_view.h"
#include "io/vrscene_writer.h"

namespace tressora {

struct HairLook {
    double melanin = 0.35;         ///< HairColor's pigment (a mapped one: the middle of its map's range)
    double specular = 0.3;         ///< highlight strength, 0-1
    double roughness = 0.5;        ///< highlight spread, 0-1
    double tilt = 3.0;             ///< cuticle tilt, degrees
    std::uint64_t colorNodes = 0;  ///< active HairColor, Bands and FeatherColor nodes
    std::uint64_t colorBlends = 0; ///< active Blend nodes (mixing two looks)
    double specularRandom = 0.0;
    double roughnessRandom = 0.0;
    /// The strands' colour channels carry more than the pigment (a picked colour, a colour
    /// map, tips, bands or feather patterns): a shader should read colorR/G/B, not melanin.
    bool colorsByRgb = false;
    bool iridescent = false;       ///< an active FeatherColor gives iridescence
    Vec3f iridescenceColor;        ///< its face-on colour, linear RGB
    double iridescenceShift = 0.3; ///< its hue turn face-on to edge-on, turns
    int lobes = 2;                 ///< highlight lobes: the primary and the coloured secondary; 0 without specular
    Vec3f specularTint{1, 1, 1};   ///< the primary highlight's tint: specular / 0.3 (0.3 is a full tint), at most 1
    double azimuthalRoughness = 0.5; ///< spread around the strand, as the roughness along it
    double shift = 3.0;            ///< the highlight's shift along the strand, degrees (the tilt)
    nlohmann::json hairColorParams = nlohmann::json::object();   ///< that HairColor's params, by name
    nlohmann::json renderDataParams = nlohmann::json::object();  ///< the nearest RenderData's params
};

/// The look of the nodes that work upstream of `output` (bypassed nodes left out). A graph
/// without HairColor gives its defaults with colorNodes 0.
HairLook hairLookOf(Graph& graph, NodeId output);

/// The record as JSON, keys in ascending order.
nlohmann::json hairLookToJson(const HairLook& look);

/// How writers colour strands from look channels: melanin with a white dye, and the
/// viewport's display mapping.
ExportColouring lookColouring();

/// The V-Ray hair material's values from the look (tint, glossiness, highlight shift) and
/// the colouring; other options are left as they are.
void applyHairLook(const HairLook& look, VrsceneWriterOptions& options);

}  // namespace tressora
