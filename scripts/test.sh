#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds a release folder and a sanitizer
# folder (AddressSanitizer + UndefinedBehaviorSanitizer), runs every test in both, then runs
# the libFuzzer targets for a bounded time (scripts/fuzz.sh).
#
# With clang installed the sanitizer folder is built by clang and also holds the fuzz targets,
# so the engine is compiled twice rather than three times: once by the default compiler for
# release, once by clang with the sanitizers and coverage instrumentation.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"

"$root/scripts/build.sh" build -DCMAKE_BUILD_TYPE=Release
(cd "$root/build" && ctest --output-on-failure --timeout 900)

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
sanitize=(-DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1"
          -DTRESSORA_SANITIZE=ON -DTRESSORA_BUILD_BENCH=OFF)
if command -v clang++ >/dev/null; then
  CXX=clang++ CC=clang "$root/scripts/build.sh" build-asan "${sanitize[@]}" -DTRESSORA_BUILD_FUZZ=ON
else
  "$root/scripts/build.sh" build-asan "${sanitize[@]}"
fi
(cd "$root/build-asan" && ctest --output-on-failure --timeout 1800)

# The fuzz targets, each for a bounded time (TRESSORA_FUZZ_SECONDS, default 20), when clang is here.
"$root/scripts/fuzz.sh" build-asan
