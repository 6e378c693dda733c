#include "io/spooled_output.h"

#include <fstream>

#include "core/file_replace.h"
#include "core/signal_cleanup.h"

namespace tressora {

SpooledOutput::SpooledOutput(std::string target, Raise raise)
    : target_(std::move(target)), temporary_(target_ + ".tmp"), raise_(raise),
      temporaryOnSignal_(temporary_), uncaughtAtOpen_(std::uncaught_exceptions()) {
    std::ofstream probe(utf8Path(temporary_), std::ios::binary | std::ios::trunc);
    if (!probe.is_open()) raise_("cannot write '" + target_ + "'");
}

SpoolFile& SpooledOutput::addSpool() {
    spools_.push_back(std::make_unique<SpoolFile>(target_ + ".spool" + std::to_string(spools_.size())));
    spoolsOnSignal_.emplace_back(spools_.back()->path());
    return *spools_.back();
}

void SpooledOutput::checkFrame(double time) const {
    if (closed_) raise_("writeFrame after close");
    if (frames_ > 0 && !(time > lastTime_)) raise_("frames must increase");
    if (failed_) raise_("cannot write '" + target_ + "'");
}

void SpooledOutput::beginFrame(double time) {
    if (frames_ == 0) firstTime_ = time;
    lastTime_ = time;
    ++frames_;
}

void SpooledOutput::check(const SpoolFile& spool) {
    if (spool.good()) return;
    failed_ = true;
    raise_("cannot write '" + spool.path() + "'");
}

void SpooledOutput::removeFiles() noexcept {
    for (auto& spool : spools_) spool->remove();
    removeQuietly(temporary_);
}

void SpooledOutput::finish(const std::function<bool(std::ostream&)>& compose) {
    if (closed_) return;
    closed_ = true;
    bool whole = false;
    if (!failed_) {
        std::ofstream out(utf8Path(temporary_), std::ios::binary | std::ios::trunc);
        if (out.is_open()) {
            try {
                whole = compose(out);
            } catch (...) {
                whole = false;
            }
            out.close();
            whole = whole && !out.fail();
        }
    }
    for (auto& spool : spools_) spool->remove();
    if (!whole) {
        removeQuietly(temporary_);
        raise_("cannot write '" + target_ + "'");
    }
    const std::string error = replaceFile(temporary_, target_);
    if (!error.empty()) {
        removeQuietly(temporary_);
        raise_("cannot replace '" + target_ + "': " + error);
    }
}

void SpooledOutput::finishOrAbandon(const std::function<bool(std::ostream&)>& compose) noexcept {
    if (closed_) return;
    // A writer left behind by an exception, or by a failed write, holds a partial file: keep
    // the old target rather than replace it with that.
    if (failed_ || std::uncaught_exceptions() > uncaughtAtOpen_) {
        closed_ = true;
        removeFiles();
        return;
    }
    try {
        finish(compose);
    } catch (...) {
        removeFiles();
    }
}

}  // namespace tressora
