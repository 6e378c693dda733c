#include "groom/export_writers.h"

#include <string_view>

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
        : writer_(setup.path, options(setup, scene)), scales_(setup.scales != ScaleOutput::none) {}
    void write(double, const StrandSet& strands, const ScalpUvs* scalp, const ScaleMesh* scales) override {
        writer_.writeFrame(strands, scalp, scales_ ? scales : nullptr);
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
    AlembicWriter writer_;
    bool scales_;
};

class UsdFrames final : public FrameWriter {
public:
    UsdFrames(const FrameWriterSetup& setup, const GroomScene& scene) : writer_(setup.path, "groom", options(setup, scene)) {}
    void write(double frame, const StrandSet& strands, const ScalpUvs* scalp, const ScaleMesh* scales) override {
        writer_.writeFrame(frame, strands, scalp, scales);
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
    void write(double frame, const StrandSet& strands, const ScalpUvs* scalp, const ScaleMesh*) override {
        writer_.writeFrame(frame, strands, scalp);
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

bool isExportPath(const std::string& path) {
    return isUsdPath(path) || endsWith(path, ".vrscene") || endsWith(path, ".abc");
}

std::unique_ptr<FrameWriter> openFrameWriter(const FrameWriterSetup& setup, const GroomScene& scene) {
    if (endsWith(setup.path, ".abc")) return std::make_unique<AlembicFrames>(setup, scene);
    if (isUsdPath(setup.path)) return std::make_unique<UsdFrames>(setup, scene);
    return std::make_unique<VrsceneFrames>(setup, scene);
}

}  // namespace tressora
