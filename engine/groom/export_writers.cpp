#include "groom/export_writers.h"

#include <string_view>

#include "groom/groom_layout_groups.h"
#include "io/alembic_writer.h"
#include "io/vrscene_writer.h"

namespace tressora {
namespace {

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

class AlembicFrames final : public FrameWriter {
public:
    AlembicFrames(const FrameWriterSetup& setup, const GroomScene& scene)
        : writer_(setup.path, options(setup, scene)), scales_(setup.scales != ScaleOutput::none),
          groomLayout_(setup.groomLayout) {
        if (groomLayout_) writer_.setGroomSpace(scene.upAxis, metersPerUnitFor(scene.units) * 100.0);
    }
    void write(double, const std::shared_ptr<const StrandSet>& strands, const ScalpUvs* scalp, const ScaleMesh* scales,
               const GuideSet* guides) override {
        if (!groomLayout_) {
            writer_.writeFrame(*strands, scalp, scales_ ? scales : nullptr);
            return;
        }
        const GroomLayoutFrame frame = groomLayoutFrame(strands, guides, meanWidth(*strands));
        if (frame.grouped)
            writer_.writeGroomFrame(frame.groups, scalp);
        else
            writer_.writeGroomFrame(*frame.strands, frame.guides.get(), scalp);
    }
    void close() override { writer_.close(); }

private:
    static AlembicWriterOptions options(const FrameWriterSetup& setup, const GroomScene& scene) {
        AlembicWriterOptions o;
        o.rootName = "groom";
        o.framesPerSecond = scene.framesPerSecond;
        o.secondsPerFrame = setup.step / scene.framesPerSecond;
        o.startTime = setup.firstFrame / scene.framesPerSecond;
        if (!setup.application.empty()) o.application = setup.application;
        o.colouring = lookColouring();
        return o;
    }
    // Guides are drawn as thick as the hair they guide, on average.
    static float meanWidth(const StrandSet& strands) {
        const std::span<const float> widths = strands.widths();
        if (widths.empty()) return 0.01f;
        double sum = 0.0;
        for (const float w : widths) sum += w;
        return static_cast<float>(sum / static_cast<double>(widths.size()));
    }
    AlembicWriter writer_;
    bool scales_;
    bool groomLayout_;
};

class UsdFrames final : public FrameWriter {
public:
    UsdFrames(const FrameWriterSetup& setup, const GroomScene& scene) : writer_(setup.path, "groom", options(setup, scene)) {}
    void write(double frame, const std::shared_ptr<const StrandSet>& strands, const ScalpUvs* scalp,
               const ScaleMesh* scales, const GuideSet*) override {
        writer_.writeFrame(frame, *strands, scalp, scales);
    }
    void close() override { writer_.close(); }

private:
    static UsdWriterOptions options(const FrameWriterSetup& setup, const GroomScene& scene) {
        UsdWriterOptions o;
        o.framesPerSecond = scene.framesPerSecond;
        o.metersPerUnit = metersPerUnitFor(scene.units);
        o.upAxis = scene.upAxis;
        o.scales = setup.scales;
        o.prototypes = setup.prototypes;
        o.colouring = lookColouring();
        return o;
    }
    UsdWriter writer_;
};

class VrsceneFrames final : public FrameWriter {
public:
    VrsceneFrames(const FrameWriterSetup& setup, const GroomScene& scene)
        : writer_(setup.path, "groom", options(setup, scene)) {}
    void write(double frame, const std::shared_ptr<const StrandSet>& strands, const ScalpUvs* scalp, const ScaleMesh*,
               const GuideSet*) override {
        writer_.writeFrame(frame, *strands, scalp);
    }
    void close() override { writer_.close(); }

private:
    static VrsceneWriterOptions options(const FrameWriterSetup& setup, const GroomScene& scene) {
        VrsceneWriterOptions o;
        o.framesPerSecond = scene.framesPerSecond;
        o.metersPerUnit = metersPerUnitFor(scene.units);
        o.upAxis = scene.upAxis;
        applyHairLook(setup.look, o);
        return o;
    }
    VrsceneWriter writer_;
};

}  // namespace

bool isUsdPath(const std::string& path) { return endsWith(path, ".usda") || endsWith(path, ".usd"); }

bool isAlembicPath(const std::string& path) { return endsWith(path, ".abc"); }

bool isExportPath(const std::string& path) {
    return isUsdPath(path) || endsWith(path, ".vrscene") || isAlembicPath(path);
}

std::unique_ptr<FrameWriter> openFrameWriter(const FrameWriterSetup& setup, const GroomScene& scene) {
    if (isAlembicPath(setup.path)) return std::make_unique<AlembicFrames>(setup, scene);
    if (isUsdPath(setup.path)) return std::make_unique<UsdFrames>(setup, scene);
    return std::make_unique<VrsceneFrames>(setup, scene);
}

}  // namespace tressora
