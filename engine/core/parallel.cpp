#include "core/parallel.h"

#include <cstdlib>
#include <string>

#include <tbb/info.h>
#include <tbb/task_arena.h>

namespace tressora {

int threadLimit() {
    const int cores = tbb::info::default_concurrency();
    const char* text = std::getenv("TRESSORA_THREADS");
    if (!text || !*text) return cores;
    char* end = nullptr;
    const long n = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || n <= 0) return cores;
    return n > 4096 ? 4096 : static_cast<int>(n);
}

void runWithThreads(const std::function<void()>& fn) {
    tbb::task_arena arena(threadLimit());
    arena.execute(fn);
}

}  // namespace tressora
