#!/usr/bin/env bash
# Installs the Debian packages the build needs, and only those that are missing.
# Runs apt-get directly as root, through sudo otherwise.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  nlohmann-json3-dev libtbb-dev libstb-dev
  googletest libgtest-dev libbenchmark-dev
  ccache
)
# clang builds the libFuzzer targets.
optional=(clang)

missing=()
for p in "${packages[@]}" "${optional[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
# node and npm run the agent server's tests through the official MCP client; a machine that
# has them from elsewhere (npm bundled with another node) keeps those.
command -v node >/dev/null || missing+=(nodejs)
command -v npm >/dev/null || missing+=(npm)

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
if [ "${#missing[@]}" -gt 0 ]; then
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The npm packages of the tests, at the versions of their locks: the MCP client SDK and inspector
# the agent server's tests drive, and the independent USD text parser the io tests read layers with.
here=$(cd "$(dirname "$0")/.." && pwd)
if command -v npm >/dev/null; then
  for pair in "tests/mcp:pngjs" "tests/io/usda_check:@kroxilon/usda-parser"; do
    dir="$here/${pair%%:*}"
    if [ ! -d "$dir/node_modules/${pair#*:}" ]; then
      (cd "$dir" && npm ci --no-audit --no-fund --loglevel=error)
    fi
  done
fi
