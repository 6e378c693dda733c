#include "core/signal_cleanup.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace tressora {
namespace {

constexpr int kSlots = 64;
// Each slot holds a heap copy of a path, or null. The handler only reads the pointers and
// calls unlink, which is safe in a signal handler.
std::atomic<char*> slots[kSlots];

extern "C" void removeRegisteredAndReraise(int signal) {
    for (std::atomic<char*>& slot : slots)
        if (const char* path = slot.load(std::memory_order_acquire)) ::unlink(path);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

void installSignalCleanup() {
    struct sigaction action {};
    action.sa_handler = removeRegisteredAndReraise;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGINT, SIGTERM}) {
        struct sigaction previous {};
        // A signal the parent told us to ignore stays ignored.
        if (sigaction(signal, nullptr, &previous) == 0 && previous.sa_handler == SIG_IGN) continue;
        sigaction(signal, &action, nullptr);
    }
}

RemoveOnSignal::RemoveOnSignal(const std::string& path) {
    char* copy = static_cast<char*>(std::malloc(path.size() + 1));
    if (!copy) return;
    std::memcpy(copy, path.c_str(), path.size() + 1);
    for (int i = 0; i < kSlots; ++i) {
        char* expected = nullptr;
        if (slots[i].compare_exchange_strong(expected, copy, std::memory_order_acq_rel)) {
            slot_ = i;
            return;
        }
    }
    std::free(copy);
}

RemoveOnSignal::~RemoveOnSignal() {
    if (slot_ >= 0) std::free(slots[slot_].exchange(nullptr, std::memory_order_acq_rel));
}

RemoveOnSignal::RemoveOnSignal(RemoveOnSignal&& other) noexcept : slot_(other.slot_) { other.slot_ = -1; }

RemoveOnSignal& RemoveOnSignal::operator=(RemoveOnSignal&& other) noexcept {
    if (this != &other) {
        if (slot_ >= 0) std::free(slots[slot_].exchange(nullptr, std::memory_order_acq_rel));
        slot_ = other.slot_;
        other.slot_ = -1;
    }
    return *this;
}

}  // namespace tressora
