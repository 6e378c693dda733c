#pragma once
// Parallel loops. Scheduling lives here, not in the algorithms: an algorithm hands
// parallelRange a body over a contiguous index range and writes only its own range,
// so its results never depend on the number of threads.

#include <cstddef>
#include <functional>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

namespace tressora {

/// Runs body(lo, hi) over [begin, end) split into ranges of about `grain` indices or more,
/// in parallel with TBB's auto partitioner. A count not above the grain runs serially
/// on the calling thread. The body must write only what belongs to its own range.
template <class Body>
void parallelRange(std::size_t begin, std::size_t end, std::size_t grain, Body&& body) {
    if (end <= begin) return;
    if (grain == 0) grain = 1;
    if (end - begin <= grain) {
        body(begin, end);
        return;
    }
    tbb::parallel_for(
        tbb::blocked_range<std::size_t>(begin, end, grain),
        [&body](const tbb::blocked_range<std::size_t>& r) { body(r.begin(), r.end()); },
        tbb::auto_partitioner());
}

/// The thread limit from TRESSORA_THREADS: a positive number limits the threads, anything
/// else (unset, empty, not a number, zero or less) means all cores.
int threadLimit();

/// Runs fn inside a task arena limited to threadLimit() threads, so every parallel loop it
/// starts obeys TRESSORA_THREADS. Exceptions from fn pass through.
void runWithThreads(const std::function<void()>& fn);

}  // namespace tressora
