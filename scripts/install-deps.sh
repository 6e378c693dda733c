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
# clang builds the libFuzzer targets; nodejs and npm run the MCP client tests.
optional=(clang)

missing=()
for p in "${packages[@]}" "${optional[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if [ "${#missing[@]}" -eq 0 ]; then
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
