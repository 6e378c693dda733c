#pragma once
// Asking the processor to start loading a cache line before it is needed, for walks whose
// next addresses are known a step ahead. A hint only: any address may be given.

namespace tressora {

/// Starts loading the line at p into all cache levels, to be read.
inline void prefetchRead(const void* p) {
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(p, 0, 3);
#else
    (void)p;
#endif
}

/// Starts loading the line at p, to be written.
inline void prefetchWrite(const void* p) {
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(p, 1, 3);
#else
    (void)p;
#endif
}

}  // namespace tressora
