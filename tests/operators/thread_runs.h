#pragma once
// Runs a piece of work on one thread and then on all cores, for the tests that check a node
// gives the same result whatever the thread count.

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "core/parallel.h"

namespace tressora::testing {

/// What fn gives with TRESSORA_THREADS=1, then with all cores; the variable is put back after.
template <class Fn>
auto oneThreadThenAll(Fn&& fn) {
    std::optional<std::string> saved;
    if (const char* value = std::getenv("TRESSORA_THREADS")) saved = value;
    decltype(fn()) one{}, all{};
    setenv("TRESSORA_THREADS", "1", 1);
    runWithThreads([&] { one = fn(); });
    unsetenv("TRESSORA_THREADS");
    runWithThreads([&] { all = fn(); });
    if (saved) setenv("TRESSORA_THREADS", saved->c_str(), 1);
    return std::pair{one, all};
}

}  // namespace tressora::testing
