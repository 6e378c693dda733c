#include "io/usd_writer.h"

#include <exception>
#include <fstream>

#include "core/file_replace.h"
#include "io/usd_identifiers.h"
#include "io/usd_writer_state.h"

namespace tressora {

double metersPerUnitFor(std::string_view unit) {
    if (unit == "m") return 1.0;
    if (unit == "mm") return 0.001;
    if (unit == "in") return 0.0254;
    if (unit == "ft") return 0.3048;
    return 0.01;
}

void UsdWriter::State::addChannel(std::string name, std::string metadata) {
    std::string spoolPath = target + ".spool" + std::to_string(channels.size());
    channels.push_back(std::make_unique<UsdChannel>(std::move(name), std::move(metadata), std::move(spoolPath)));
}

void UsdWriter::State::check(const UsdChannel& channel) {
    if (channel.spool.good()) return;
    failed = true;
    throw UsdError("cannot write '" + channel.spool.path() + "'");
}

void UsdWriter::State::removeFiles() {
    for (auto& channel : channels) channel->spool.remove();
    removeQuietly(temporary);
}

UsdWriter::UsdWriter(const std::string& outputPath, std::string_view primName, UsdWriterOptions options)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.target = outputPath;
    s.temporary = outputPath + ".tmp";
    s.prim = sanitizeIdentifier(primName.empty() ? std::string_view("groom") : primName);
    s.options = std::move(options);
    s.uncaughtAtOpen = std::uncaught_exceptions();
    std::ofstream probe(utf8Path(s.temporary), std::ios::binary | std::ios::trunc);
    if (!probe.is_open()) throw UsdError("cannot write '" + outputPath + "'");
    probe.close();
}

UsdWriter::~UsdWriter() {
    State& s = *state_;
    if (s.closed) return;
    // A writer left behind by an exception (or by a failed write) holds a partial groom:
    // keep the old target rather than replacing it with that.
    if (s.failed || std::uncaught_exceptions() > s.uncaughtAtOpen) {
        s.closed = true;
        s.removeFiles();
        return;
    }
    try {
        close();
    } catch (...) {
        s.removeFiles();
    }
}

std::uint64_t UsdWriter::frameCount() const noexcept { return state_->frames; }

void UsdWriter::writeFrame(double time, const StrandSet& strands, const ScalpUvs* scalp, const ScaleMesh* scaleMesh) {
    State& s = *state_;
    if (s.closed) throw UsdError("writeFrame after close");
    if (s.frames > 0 && !(time > s.lastTime)) throw UsdError("frames must increase");
    if (s.failed) throw UsdError("cannot write '" + s.target + "'");

    const ExportView view = buildExportView(strands, scalp, kExportBounds | kExportDisplayColours, s.options.colouring);
    try {
        if (s.frames == 0) {
            declareUsdChannels(s, strands, view, scaleMesh);
            s.firstTime = time;
        }
        s.lastTime = time;
        ++s.frames;
        if (s.frames == 2) {
            for (auto& channel : s.channels) {
                channel->spool.spill();
                s.check(*channel);
            }
        }
        writeUsdSamples(s, time, strands, view, scaleMesh);
    } catch (...) {
        s.failed = true;
        throw;
    }
}

void UsdWriter::close() {
    State& s = *state_;
    if (s.closed) return;
    s.closed = true;
    const std::string cannotWrite = "cannot write '" + s.target + "'";
    if (s.failed) {
        s.removeFiles();
        throw UsdError(cannotWrite);
    }
    bool whole = false;
    {
        std::ofstream out(utf8Path(s.temporary), std::ios::binary | std::ios::trunc);
        if (!out.is_open()) {
            s.removeFiles();
            throw UsdError(cannotWrite);
        }
        try {
            whole = writeUsdLayer(s, out);
        } catch (...) {
            whole = false;
        }
        out.close();
        whole = whole && !out.fail();
    }
    for (auto& channel : s.channels) channel->spool.remove();
    if (!whole) {
        removeQuietly(s.temporary);
        throw UsdError(cannotWrite);
    }
    const std::string error = replaceFile(s.temporary, s.target);
    if (!error.empty()) {
        removeQuietly(s.temporary);
        throw UsdError("cannot replace '" + s.target + "': " + error);
    }
}

}  // namespace tressora
