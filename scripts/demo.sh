#!/usr/bin/env bash
# The main job: installs what is missing, builds, and grows the bundled example groom into an
# Alembic file with tressora-cli eval, printing its report and what the file holds.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" build -DCMAKE_BUILD_TYPE=Release -DTRESSORA_BUILD_BENCH=OFF
cli="$root/build/bin/tressora-cli"
groom="$root/examples/nika.groom"
out="$root/build/nika.abc"
if [ ! -f "$groom" ]; then
  echo "demo: the example groom $groom is not in this tree" >&2
  exit 1
fi
"$cli" --version
"$cli" eval "$groom" -o "$out" -f 1-3 --stats
"$cli" abc-info "$out"
"$cli" hash "$out"
