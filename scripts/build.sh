#!/usr/bin/env bash
# Configures and builds one build folder: scripts/build.sh <folder> [cmake options...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$1; shift
# Let ccache share objects between clones of the repository in different folders.
export CCACHE_BASEDIR="$root"
# Debug info would otherwise tie the cached objects to the folder they were built in.
export CCACHE_NOHASHDIR=1
# Sources compiled against a precompiled header are cacheable only with these relaxed checks.
export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
# A folder configured earlier with another compiler cannot switch in place: start it afresh.
cache="$root/$dir/CMakeCache.txt"
if [ -n "${CXX:-}" ] && [ -f "$cache" ]; then
  want=$(command -v "$CXX" || echo "$CXX")
  have=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$cache")
  if [ -n "$have" ] && [ "$(readlink -f "$have")" != "$(readlink -f "$want")" ]; then
    rm -rf "$root/$dir"
  fi
fi
cmake -S "$root" -B "$root/$dir" -G Ninja "$@" >/dev/null
cmake --build "$root/$dir" --parallel "$(nproc)"
