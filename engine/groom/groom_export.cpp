#include "groom/groom_export.h"

#include <cmath>
#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "core/file_replace.h"
#include "core/guide_hierarchy.h"
#include "core/guide_set.h"
#include "core/instances.h"
#include "groom/export_writers.h"
#include "groom/prototypes_json.h"

namespace tressora {
namespace {

ScaleOutput scaleOutputOf(const std::string& text) {
    if (text == "mesh") return ScaleOutput::mesh;
    if (text == "instancer") return ScaleOutput::instancer;
    if (text == "both") return ScaleOutput::both;
    if (text == "none") return ScaleOutput::none;
    throw std::invalid_argument("scales must be mesh, instancer, both or none");
}

void checkRequest(const ExportRequest& r) {
    if (r.output.empty()) throw std::invalid_argument("no output file");
    if (!(r.step > 0.0) || !std::isfinite(r.step)) throw std::invalid_argument("the frame step must be positive");
    if (!std::isfinite(r.start) || !std::isfinite(r.end)) throw std::invalid_argument("bad frame range");
    if (r.start > r.end) throw std::invalid_argument("the end frame is before the start frame");
    if (!exportFrameRangeUsable(r.start, r.end, r.step)) throw std::invalid_argument("bad frame range");
    if (!(r.density >= 0.0f && r.density <= 1.0f)) throw std::invalid_argument("the density must be between 0 and 1");
    if (!isExportPath(r.output)) throw std::invalid_argument("the output must be .abc, .usda, .usd or .vrscene");
    const ScaleOutput scales = scaleOutputOf(r.scales);
    if ((scales == ScaleOutput::instancer || scales == ScaleOutput::both) && !isUsdPath(r.output))
        throw std::invalid_argument("an instancer goes to USD");
    if (r.layout != "neutral" && r.layout != "unreal") throw std::invalid_argument("the layout must be neutral or unreal");
    if (r.layout == "unreal" && !isAlembicPath(r.output)) throw std::invalid_argument("the unreal layout is written to .abc");
}

/// The groom's guides as they stand in this frame: the hierarchy's, else the flat ones.
std::shared_ptr<const GuideSet> currentGuides(const GroomSession& session) {
    if (const SceneItem* item = session.catalog().find("hierarchy"))
        if (const auto hierarchy = item->value.as<GuideHierarchy>())
            return std::make_shared<const GuideSet>(GuideSet::fromHierarchy(*hierarchy, {}));
    if (const SceneItem* item = session.catalog().find("guides")) return item->value.as<GuideSet>();
    return nullptr;
}

void report(std::ostream& out, double frame, std::size_t strands, GroomSession& session, const ExportRequest& r) {
    out << "frame " << frameText(frame) << ": " << strands << " strands\n";
    for (const std::string& message : session.messages()) out << "  note: " << message << '\n';
    for (const auto& [node, text] : session.notes()) out << "  note: " << node << ": " << text << '\n';
    if (r.stats) out << "stats: " << session.statsJson() << '\n';
    if (r.timings)
        for (const auto& [node, ms] : session.timings()) out << "  " << node << ": " << ms << " ms\n";
}

}  // namespace

std::string frameText(double frame) {
    std::ostringstream text;
    text.precision(10);
    text << frame;
    return text.str();
}

std::uint64_t exportFrameCount(double start, double end, double step) {
    return static_cast<std::uint64_t>(std::floor((end - start) / step + 0.000001)) + 1;
}

bool exportFrameRangeUsable(double start, double end, double step) {
    if (!std::isfinite(start) || !std::isfinite(end) || !std::isfinite(step) || !(step > 0.0) || start > end)
        return false;
    const double steps = std::floor((end - start) / step + 0.000001);
    if (!(steps < static_cast<double>(kMaxExportFrames))) return false;
    // Every frame must differ from the one before: a step lost in the frames' precision would
    // write the same time again and again.
    return steps == 0.0 || (start + step > start && end - step < end);
}

ExportResult exportFrames(GroomSession& session, const ExportRequest& request) {
    checkRequest(request);
    const ScaleOutput scales = scaleOutputOf(request.scales);
    const GroomScene& scene = session.scene();
    const PrototypeLookup prototypes = storedPrototypes(scene.prototypes);

    FrameWriterSetup setup;
    setup.path = request.output;
    setup.firstFrame = request.start;
    setup.step = request.step;
    setup.scales = scales;
    setup.application = request.application;
    setup.prototypes = prototypes;
    setup.groomLayout = request.layout == "unreal";
    // The writer, and with it "<target>.tmp", comes when the first frame is ready to be
    // written, so that an interrupted evaluation leaves no file behind; what would stop the
    // write is found now, before the work.
    if (const std::string problem = targetProblem(request.output); !problem.empty())
        throw std::runtime_error("cannot write '" + request.output + "': " + problem);
    std::unique_ptr<FrameWriter> writer;

    const std::uint64_t frames = exportFrameCount(request.start, request.end, request.step);
    // Nothing can move: the first frame's strands stand for every frame.
    const bool moves = session.hasMotion();
    const auto none = std::make_shared<const StrandSet>();
    std::shared_ptr<const StrandSet> strands;
    std::unique_ptr<ScaleMesh> scaleMesh;
    std::shared_ptr<const GuideSet> guides;
    ExportResult result;
    for (std::uint64_t i = 0; i < frames; ++i) {
        const double frame = request.start + static_cast<double>(i) * request.step;
        if (i == 0 || moves) {
            session.setFrame(frame);
            strands = session.evaluate(frame, request.density);
            scaleMesh.reset();
            if (strands && strands->instances() && scales != ScaleOutput::none)
                scaleMesh = std::make_unique<ScaleMesh>(bakeScaleMesh(*strands->instances(), prototypes));
            if (setup.groomLayout) guides = currentGuides(session);
        }
        if (!writer) {
            setup.look = session.hairLook();
            writer = openFrameWriter(setup, scene);
        }
        const std::shared_ptr<const ScalpMesh>& scalp = session.scalp();
        const ScalpUvs uvs{scalp && scalp->hasUvs() ? scalp->uvs() : std::span<const std::array<float, 2>>()};
        writer->write(frame, strands ? strands : none, scalp && scalp->hasUvs() ? &uvs : nullptr, scaleMesh.get(),
                      guides.get());
        const std::size_t count = strands ? strands->strandCount() : 0;
        result.strands += count;
        ++result.frames;
        if (request.progress) report(*request.progress, frame, count, session, request);
    }
    writer->close();
    return result;
}

}  // namespace tressora
