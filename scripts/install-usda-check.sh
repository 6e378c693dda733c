#!/usr/bin/env bash
# Installs the independent USD text parser that tests/io/usda_check/check_usda.mjs uses to
# read written layers back. The io tests run that check when node and this install are
# present, and skip it otherwise. Needs node and npm.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
npm install --prefix "$here/tests/io/usda_check" --no-audit --no-fund
