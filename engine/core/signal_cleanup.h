#pragma once
// Files to delete when the process is interrupted. A writer registers its "<target>.tmp" (and
// any spool files) while it writes them; when SIGINT or SIGTERM arrives, the handler deletes
// every registered file and lets the signal end the process as it would have, so a Ctrl-C or
// a farm's kill leaves neither a half-written target nor a stray temporary file.

#include <string>

namespace tressora {

/// Installs the handlers for SIGINT and SIGTERM. Called once by the program at start; tests
/// and library users that never call it keep the default behaviour.
void installSignalCleanup();

/// Registers a path for deletion on interruption for as long as the object lives. Holds at
/// most a fixed number of paths at once (64); beyond that a path is simply not registered.
class RemoveOnSignal {
public:
    RemoveOnSignal() = default;
    explicit RemoveOnSignal(const std::string& path);
    ~RemoveOnSignal();
    RemoveOnSignal(RemoveOnSignal&& other) noexcept;
    RemoveOnSignal& operator=(RemoveOnSignal&& other) noexcept;
    RemoveOnSignal(const RemoveOnSignal&) = delete;
    RemoveOnSignal& operator=(const RemoveOnSignal&) = delete;

private:
    int slot_ = -1;
};

}  // namespace tressora
