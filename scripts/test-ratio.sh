#!/usr/bin/env bash
# Counts non-blank, non-comment lines of the tests against the code they test (engine/, whose
# cli/ is the program, and tools/), and prints the ratio. The suite aims at a quarter to a
# third: tests that catch faults, not tests that restate the code.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

count() {
  find "$@" -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.mjs' -o -name '*.sh' -o -name '*.py' \) \
    -not -path '*/node_modules/*' -print0 |
    xargs -0 awk '
      FNR == 1 { block = 0; shell = (FILENAME ~ /\.(sh|py)$/) }
      {
        line = $0
        sub(/^[ \t]+/, "", line)
        if (block) { if (line ~ /\*\//) block = 0; next }
        if (line == "") next
        if (line ~ /^\/\//) next
        if (line ~ /^\/\*/) { if (line !~ /\*\//) block = 1; next }
        if (shell && line ~ /^#/) next
        n++
      }
      END { print n + 0 }'
}

tests=$(count "$root/tests")
code=$(count "$root/engine" "$root/tools")
echo "tests $tests lines, code $code lines: $(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.1f%%", 100 * t / c }')"
