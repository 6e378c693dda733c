#pragma once
// What the spooling text writers share: the target and its "<target>.tmp", one spool per
// attribute ("<target>.spool<index>"), the rule that frames rise, and finishing or abandoning
// the file. A writer composes the text; this keeps the files and the order of events.

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "core/signal_cleanup.h"
#include "io/spool_file.h"

namespace tressora {

class SpooledOutput {
public:
    /// Throws the writer's own error class with the message given.
    using Raise = void (*)(const std::string& message);

    /// Creates and closes "<target>.tmp" to test that it can be written; raises
    /// "cannot write '<target>'" when it cannot. The temporary file and the spools are deleted
    /// if the process is interrupted.
    SpooledOutput(std::string target, Raise raise);
    SpooledOutput(const SpooledOutput&) = delete;
    SpooledOutput& operator=(const SpooledOutput&) = delete;

    const std::string& target() const noexcept { return target_; }

    /// A new spool at the end of the list, named by its index.
    SpoolFile& addSpool();

    /// Checks that a frame at `time` may come: raises "writeFrame after close", "frames must
    /// increase" (nothing changes; the writer stays usable) or, after a failed write,
    /// "cannot write '<target>'".
    void checkFrame(double time) const;
    /// Counts a frame whose writing begins; the first fixes firstTime.
    void beginFrame(double time);
    /// Raises "cannot write '<spool path>'" when the spool failed, and marks the output failed.
    void check(const SpoolFile& spool);
    /// Marks the output failed: it can then only be abandoned.
    void fail() noexcept { failed_ = true; }

    std::uint64_t frames() const noexcept { return frames_; }
    double firstTime() const noexcept { return firstTime_; }
    double lastTime() const noexcept { return lastTime_; }
    bool closed() const noexcept { return closed_; }

    /// Writes the file through `compose` (which copies the spools out) into "<target>.tmp",
    /// removes the spools and moves the file over the target. Does nothing when closed.
    /// Raises "cannot write '<target>'" when compose returns false, throws or the file fails,
    /// and "cannot replace '<target>': <system message>"; no spool or temporary file remains.
    void finish(const std::function<bool(std::ostream&)>& compose);

    /// For a writer's destructor: finishes as above, except that after a failure, or while an
    /// exception passes through the scope that made the output, it abandons the file (the
    /// target stays as it was). Removes every file it left when finishing fails. Never throws.
    void finishOrAbandon(const std::function<bool(std::ostream&)>& compose) noexcept;

private:
    void removeFiles() noexcept;

    std::string target_;
    std::string temporary_;
    Raise raise_;
    std::vector<std::unique_ptr<SpoolFile>> spools_;
    RemoveOnSignal temporaryOnSignal_;
    std::vector<RemoveOnSignal> spoolsOnSignal_;
    std::uint64_t frames_ = 0;
    double firstTime_ = 0.0;
    double lastTime_ = 0.0;
    bool closed_ = false;
    bool failed_ = false;
    int uncaughtAtOpen_ = 0;
};

}  // namespace tressora
