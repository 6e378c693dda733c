#include "io/vrscene_writer.h"

#include <ostream>

#include "core/errors.h"
#include "core/number_text.h"
#include "io/spooled_output.h"
#include "io/usd_identifiers.h"

#ifndef TRESSORA_VERSION
#define TRESSORA_VERSION "0.0.0"
#endif

namespace tressora {
namespace {

[[noreturn]] void raiseVrscene(const std::string& message) { throw VrsceneError(message); }

/// Where a per-point value of the hair comes from.
enum class Source { none, perStrand, perPoint };

/// The channel's values when it holds one value per `count` elements.
const StrandChannel* sized(const StrandChannel* channel, std::size_t count) {
    return channel && channel->size() == count ? channel : nullptr;
}

struct VrChannel {
    std::string param;  ///< "hair_vertices"
    SpoolFile* spool = nullptr;
};

void appendVector(std::string& out, const char* type, Vec3f v) {
    out += type;
    appendVec3(out, v);
}

}  // namespace

struct VrsceneWriter::State {
    State(const std::string& path) : output(path, &raiseVrscene) {}

    SpooledOutput output;
    std::string name;
    VrsceneWriterOptions options;
    std::vector<VrChannel> channels;
    Source colours = Source::none;
    Source opacity = Source::none;
    bool uvs = false;
    std::size_t firstStrands = 0;
    std::size_t firstPoints = 0;

    void declare(const StrandSet& strands, const ExportView& view) {
        const std::size_t points = strands.pointCount();
        if (sized(strands.pointChannel("colorR"), points) && sized(strands.pointChannel("colorG"), points) &&
            sized(strands.pointChannel("colorB"), points)) {
            colours = Source::perPoint;
        } else if (view.hasColours) {
            colours = Source::perStrand;
        }
        if (sized(strands.pointChannel("opacity"), points)) {
            opacity = Source::perPoint;
        } else if (sized(strands.strandChannel("opacity"), strands.strandCount())) {
            opacity = Source::perStrand;
        }
        uvs = view.hasUvs;
        firstStrands = strands.strandCount();
        firstPoints = points;
        for (const char* param : {"num_hair_vertices", "hair_vertices", "widths"}) add(param);
        if (colours != Source::none) add("colors");
        if (opacity != Source::none) add("transparency");
        if (uvs) add("strand_uvw");
    }

    void add(const char* param) { channels.push_back({param, &output.addSpool()}); }

    /// One value, "<List>(e0, e1, ...)", appended to the channel as this frame's sample.
    template <class Element>
    void sample(std::size_t index, double time, const char* list, std::size_t count, Element&& element) {
        SpoolFile& spool = *channels.at(index).spool;
        if (output.frames() > 1) {
            std::string head = ",\n    (";
            appendDouble(head, time);
            spool.write(head + ", ");
        }
        spool.write(list);
        spool.write("(");
        formatList(count, element, [&spool](std::string_view text) { spool.write(text); });
        spool.write(output.frames() > 1 ? "))" : ")");
        output.check(spool);
    }

    void writeSamples(double time, const StrandSet& strands, const ExportView& view) {
        const std::size_t points = strands.pointCount();
        const std::span<const Vec3f> positions = strands.points();
        const std::span<const float> widths = strands.widths();
        std::size_t next = 0;
        sample(next++, time, "ListInt", view.vertexCounts.size(),
               [&view](std::string& out, std::size_t i) { appendInteger(out, view.vertexCounts[i]); });
        sample(next++, time, "ListVector", points,
               [positions](std::string& out, std::size_t i) { appendVector(out, "Vector", positions[i]); });
        sample(next++, time, "ListFloat", points, [widths](std::string& out, std::size_t i) {
            appendFloat(out, i < widths.size() ? widths[i] : 1.0f);
        });

        // Per strand values reach every point of their strand.
        std::vector<std::uint32_t> strandOf;
        if (colours == Source::perStrand || opacity == Source::perStrand) {
            strandOf.resize(points);
            const std::span<const std::uint64_t> offsets = strands.offsets();
            for (std::size_t s = 0; s < strands.strandCount(); ++s) {
                for (std::uint64_t p = offsets[s]; p < offsets[s + 1]; ++p) strandOf[p] = static_cast<std::uint32_t>(s);
            }
        }
        if (colours != Source::none) {
            const StrandChannel* r = sized(strands.pointChannel("colorR"), points);
            const StrandChannel* g = sized(strands.pointChannel("colorG"), points);
            const StrandChannel* b = sized(strands.pointChannel("colorB"), points);
            const bool perPoint = colours == Source::perPoint && r && g && b;
            const bool perStrand = colours == Source::perStrand && view.hasColours;
            sample(next++, time, "ListColor", points, [&](std::string& out, std::size_t i) {
                Vec3f c;
                if (perPoint) c = {r->values()[i], g->values()[i], b->values()[i]};
                if (perStrand) c = view.colours[strandOf[i]];
                appendVector(out, "Color", c);
            });
        }
        if (opacity != Source::none) {
            const StrandChannel* byPoint = sized(strands.pointChannel("opacity"), points);
            const StrandChannel* byStrand = sized(strands.strandChannel("opacity"), strands.strandCount());
            sample(next++, time, "ListColor", points, [&](std::string& out, std::size_t i) {
                float o = 1.0f;
                if (opacity == Source::perPoint && byPoint) o = byPoint->values()[i];
                if (opacity == Source::perStrand && byStrand) o = byStrand->values()[strandOf[i]];
                appendVector(out, "Color", {1.0f - o, 1.0f - o, 1.0f - o});
            });
        }
        if (uvs) {
            sample(next++, time, "ListVector", strands.strandCount(), [&view](std::string& out, std::size_t i) {
                const MeshUv uv = view.hasUvs ? view.rootUvs[i] : MeshUv{};
                appendVector(out, "Vector", {uv.u, uv.v, 0.0f});
            });
        }
    }

    bool compose(std::ostream& out) {
        const VrsceneWriterOptions& o = options;
        out << "// Tressora " TRESSORA_VERSION " V-Ray scene\n// " << firstStrands << " strands, " << firstPoints
            << " points, frames " << numberText(output.firstTime()) << " to " << numberText(output.lastTime())
            << "\n\n";
        out << "SettingsUnitsInfo " << name << "@units {\n  meters_scale=" << numberText(o.metersPerUnit)
            << ";\n  frames_scale=" << numberText(o.framesPerSecond) << ";\n  scene_upDir="
            << (o.upAxis == "Z" ? "Vector(0, 0, 1)" : "Vector(0, 1, 0)") << ";\n}\n\n";

        out << "GeomMayaHair " << name << "@hair {\n";
        if (channels.empty()) out << "  num_hair_vertices=ListInt();\n  hair_vertices=ListVector();\n  widths=ListFloat();\n";
        for (VrChannel& channel : channels) {
            out << "  " << channel.param << "=";
            if (output.frames() > 1) out << "interpolate(\n";
            if (!channel.spool->copyTo(out)) return false;
            out << (output.frames() > 1 ? "\n);\n" : ";\n");
        }
        out << "  geom_splines=1;\n  min_pixel_width=" << numberText(o.minPixelWidth) << ";\n}\n\n";

        out << "TexHairSampler " << name << "@hairSampler {\n}\n\n";
        std::string tint;
        appendFloat(tint, o.primaryTint.x);
        tint += ", ";
        appendFloat(tint, o.primaryTint.y);
        tint += ", ";
        appendFloat(tint, o.primaryTint.z);
        out << "BRDFHair4 " << name << "@hairBrdf {\n  melanin=0;\n  pheomelanin=0;\n  dye_color=" << name
            << "@hairSampler::hair_color;\n  glossiness=" << numberText(o.glossiness) << ";\n  softness="
            << numberText(o.softness) << ";\n  primary_glossiness_boost=0;\n  primary_tint=AColor(" << tint
            << ", 1);\n  highlight_shift=" << numberText(o.highlightShift) << ";\n  ior=" << numberText(o.ior)
            << ";\n  trace_depth=" << o.traceDepth << ";\n  glint_strength=0;\n  glitter_strength=0;\n";
        if (opacity != Source::none) out << "  transparency=" << name << "@hairSampler::hair_transparency;\n";
        out << "}\n\n";
        out << "MtlSingleBRDF " << name << "@hairMtl {\n  brdf=" << name << "@hairBrdf;\n}\n\n";
        out << "Node " << name << "@node {\n  geometry=" << name << "@hair;\n  material=" << name
            << "@hairMtl;\n  visible=1;\n  transform=Transform(Matrix(Vector(1, 0, 0), Vector(0, 1, 0), "
               "Vector(0, 0, 1)), Vector(0, 0, 0));\n}\n";
        return out.good();
    }
};

VrsceneWriter::VrsceneWriter(const std::string& path, std::string_view name, VrsceneWriterOptions options)
    : state_(std::make_unique<State>(path)) {
    state_->name = sanitizeIdentifier(name.empty() ? std::string_view("groom") : name);
    state_->options = std::move(options);
}

VrsceneWriter::~VrsceneWriter() {
    State& s = *state_;
    s.output.finishOrAbandon([&s](std::ostream& out) { return s.compose(out); });
}

void VrsceneWriter::writeFrame(double time, const StrandSet& strands, const ScalpUvs* scalp) {
    State& s = *state_;
    s.output.checkFrame(time);
    const ExportView view = buildExportView(strands, scalp, 0, s.options.colouring);
    try {
        if (s.output.frames() == 0) s.declare(strands, view);
        const double first = s.output.firstTime();
        s.output.beginFrame(time);
        // The first frame's samples wait in memory: a one-frame file writes plain values.
        if (s.output.frames() == 2) {
            std::string head = "    (";
            appendDouble(head, first);
            head += ", ";
            for (VrChannel& channel : s.channels) {
                channel.spool->spill(head, ")");
                s.output.check(*channel.spool);
            }
        }
        s.writeSamples(time, strands, view);
    } catch (...) {
        s.output.fail();
        throw;
    }
}

void VrsceneWriter::close() {
    State& s = *state_;
    s.output.finish([&s](std::ostream& out) { return s.compose(out); });
}

}  // namespace tressora
