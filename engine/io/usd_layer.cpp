// The text of a USD layer around the samples: the header, the prims, each channel's
// declaration and time samples, the point instancers and their prototypes.

#include <ostream>

#include "core/number_text.h"
#include "io/usd_identifiers.h"
#include "io/usd_writer_state.h"

#ifndef TRESSORA_VERSION
#define TRESSORA_VERSION "0.0.0"
#endif

namespace tressora {
namespace {

const std::string kVersion = TRESSORA_VERSION;

std::string customData(std::string_view key) {
    return std::string("    ") + std::string(key) +
           " = {\n"
           "        dictionary tressora = {\n"
           "            int layoutVersion = 1\n"
           "            string version = \"" +
           kVersion +
           "\"\n"
           "        }\n"
           "    }\n";
}

std::string header(const UsdWriter::State& s) {
    const UsdWriterOptions& o = s.options;
    std::string text = "#usda 1.0\n(\n    defaultPrim = \"" + s.prim + "\"\n    doc = \"Tressora " + kVersion;
    if (!o.comment.empty()) text += ": " + cleanQuotedText(o.comment);
    text += "\"\n" + customData("customLayerData");
    if (s.output.frames() > 0) {
        text += "    startTimeCode = " + numberText(s.output.firstTime()) + "\n";
        text += "    endTimeCode = " + numberText(s.output.lastTime()) + "\n";
    }
    text += "    framesPerSecond = " + numberText(o.framesPerSecond) + "\n";
    text += "    timeCodesPerSecond = " + numberText(o.framesPerSecond) + "\n";
    text += "    metersPerUnit = " + numberText(o.metersPerUnit) + "\n";
    text += "    upAxis = \"" + cleanQuotedText(o.upAxis) + "\"\n)\n\n";
    text += "def Xform \"" + s.prim + "\" (\n" + customData("customData") + "    kind = \"component\"\n)\n{\n";
    return text;
}

bool writeChannels(UsdWriter::State& s, std::size_t begin, std::size_t end, std::ostream& out) {
    for (std::size_t i = begin; i < end; ++i) {
        UsdChannel& channel = s.channels[i];
        if (!channel.metadata.empty()) {
            out << "        " << channel.name << " (\n            " << channel.metadata << "\n        )\n";
        }
        out << "        " << channel.name << ".timeSamples = {\n";
        if (!channel.spool->copyTo(out)) return false;
        out << "        }\n";
    }
    return true;
}

void writeVec3List(std::ostream& out, const std::vector<Vec3f>& values) {
    out << listText(values.size(), [&values](std::string& text, std::size_t i) { appendVec3(text, values[i]); });
}

/// A stored prototype as a mesh, each line at a 16-blank indent.
void writePrototypeMesh(const InstancePrototype& p, std::ostream& out) {
    const std::string in(16, ' ');
    out << in << "uniform token subdivisionScheme = \"none\"\n";
    out << in << "int[] faceVertexCounts = ["
        << listText(p.triangles.size(), [](std::string& text, std::size_t) { text += '3'; }) << "]\n";
    out << in << "int[] faceVertexIndices = ["
        << listText(p.triangles.size() * 3,
                    [&p](std::string& text, std::size_t i) { appendInteger(text, p.triangles[i / 3][i % 3]); })
        << "]\n";
    out << in << "point3f[] points = [";
    writeVec3List(out, p.points);
    out << "]\n";
    Vec3f lo, hi;
    if (!p.points.empty()) lo = hi = p.points[0];
    for (const Vec3f& point : p.points) {
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], point[a]);
            hi[a] = std::max(hi[a], point[a]);
        }
    }
    out << in << "float3[] extent = [";
    writeVec3List(out, {lo, hi});
    out << "]\n";
    if (!p.uvs.empty() && p.uvs.size() == p.points.size()) {
        out << in << "texCoord2f[] primvars:st = ["
            << listText(p.uvs.size(), [&p](std::string& text, std::size_t i) { appendVec2(text, p.uvs[i].u, p.uvs[i].v); })
            << "] (\n"
            << in << "    interpolation = \"vertex\"\n"
            << in << ")\n";
    }
}

bool writeInstancer(UsdWriter::State& s, const std::string& name, const std::vector<std::string>& prototypes,
                    std::size_t begin, std::size_t end, std::ostream& out) {
    const std::vector<std::string> ids = uniqueIdentifiers(prototypes);
    out << "\n    def PointInstancer \"" << name << "\"\n    {\n        rel prototypes = [";
    for (std::size_t i = 0; i < ids.size(); ++i) {
        out << (i ? ", " : "") << "</" << s.prim << "/" << name << "/prototypes/" << ids[i] << ">";
    }
    out << "]\n";
    if (!writeChannels(s, begin, end, out)) return false;
    out << "\n        def Scope \"prototypes\"\n        {\n";
    for (std::size_t i = 0; i < prototypes.size(); ++i) {
        const std::string shown = cleanQuotedText(prototypes[i]);
        std::shared_ptr<const InstancePrototype> geometry;
        if (s.options.prototypes) geometry = s.options.prototypes(prototypes[i]);
        if (geometry && !geometry->triangles.empty()) {
            out << "            def Mesh \"" << ids[i] << "\" (\n                doc = \"Tressora prototype '" << shown
                << "'\"\n            )\n            {\n";
            writePrototypeMesh(*geometry, out);
            out << "            }\n";
        } else {
            out << "            def Xform \"" << ids[i] << "\" (\n                doc = \"Tressora prototype '" << shown
                << "': reference its geometry here\"\n            )\n            {\n            }\n";
        }
    }
    out << "        }\n    }\n";
    return true;
}

}  // namespace

bool writeUsdLayer(UsdWriter::State& s, std::ostream& out) {
    out << header(s);
    out << "    def BasisCurves \"strands\"\n    {\n"
           "        uniform token type = \"linear\"\n"
           "        uniform token wrap = \"nonperiodic\"\n";
    if (s.strandsInvisible) out << "        token visibility = \"invisible\"\n";
    if (!writeChannels(s, 0, s.strandEnd, out)) return false;
    out << "    }\n";
    if (s.instancer && !writeInstancer(s, "instances", s.instancePrototypes, s.strandEnd, s.instanceEnd, out)) {
        return false;
    }
    if (s.scaleMesh) {
        out << "\n    def Mesh \"scales\"\n    {\n        uniform token subdivisionScheme = \"none\"\n";
        if (!writeChannels(s, s.instanceEnd, s.scaleMeshEnd, out)) return false;
        out << "    }\n";
    }
    if (s.scaleInstancer &&
        !writeInstancer(s, "scaleInstances", s.scalePrototypes, s.scaleMeshEnd, s.channels.size(), out)) {
        return false;
    }
    out << "}\n";
    return out.good();
}

}  // namespace tressora
