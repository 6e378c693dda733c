#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs tressora-cli.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" build -DCMAKE_BUILD_TYPE=Release -DTRESSORA_BUILD_BENCH=OFF
cli="$root/build/bin/tressora-cli"
"$cli" --version
"$cli" --list-operators
