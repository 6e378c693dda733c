#include "io/usd_writer.h"

#include "io/usd_identifiers.h"
#include "io/usd_writer_state.h"

namespace tressora {
namespace {

[[noreturn]] void raiseUsd(const std::string& message) { throw UsdError(message); }

}  // namespace

double metersPerUnitFor(std::string_view unit) {
    if (unit == "m") return 1.0;
    if (unit == "mm") return 0.001;
    if (unit == "in") return 0.0254;
    if (unit == "ft") return 0.3048;
    return 0.01;
}

UsdWriter::UsdWriter(const std::string& outputPath, std::string_view primName, UsdWriterOptions options)
    : state_(std::make_unique<State>(outputPath, &raiseUsd)) {
    state_->prim = sanitizeIdentifier(primName.empty() ? std::string_view("groom") : primName);
    state_->options = std::move(options);
}

UsdWriter::~UsdWriter() {
    State& s = *state_;
    s.output.finishOrAbandon([&s](std::ostream& out) { return writeUsdLayer(s, out); });
}

std::uint64_t UsdWriter::frameCount() const noexcept { return state_->output.frames(); }

void UsdWriter::writeFrame(double time, const StrandSet& strands, const ScalpUvs* scalp, const ScaleMesh* scaleMesh) {
    State& s = *state_;
    s.output.checkFrame(time);
    const ExportView view = buildExportView(strands, scalp, kExportBounds | kExportDisplayColours, s.options.colouring);
    try {
        if (s.output.frames() == 0) declareUsdChannels(s, strands, view, scaleMesh);
        s.output.beginFrame(time);
        // From the second frame on, samples go to disk; the first frame's move there now.
        if (s.output.frames() == 2) {
            for (UsdChannel& channel : s.channels) {
                channel.spool->spill();
                s.output.check(*channel.spool);
            }
        }
        writeUsdSamples(s, time, strands, view, scaleMesh);
    } catch (...) {
        s.output.fail();
        throw;
    }
}

void UsdWriter::close() {
    State& s = *state_;
    s.output.finish([&s](std::ostream& out) { return writeUsdLayer(s, out); });
}

}  // namespace tressora
