#!/usr/bin/env bash
# Checks that every engine folder includes only its own folder and the folders below it.
# The order, bottom to top, is the one docs/architecture.md explains.
set -u
engine=${1:-$(dirname "$0")/../engine}
layers=(core expression graph maps simulation io library operators groom cli)
rank() { local i; for i in "${!layers[@]}"; do [ "${layers[$i]}" = "$1" ] && { echo "$i"; return; }; done; echo -1; }

bad=0
for layer in "${layers[@]}"; do
  [ -d "$engine/$layer" ] || continue
  own=$(rank "$layer")
  while IFS= read -r line; do
    file=${line%%:*}
    inc=$(sed -E 's/.*#include "([a-z_]+)\/.*/\1/' <<<"$line")
    r=$(rank "$inc")
    if [ "$r" -lt 0 ] || [ "$r" -gt "$own" ]; then
      echo "layering: ${file#$engine/} includes $inc/ (a layer above $layer)"
      bad=1
    fi
  done < <(grep -rHE '^#include "[a-z_]+/' "$engine/$layer" --include='*.h' --include='*.cpp')
done
if [ "$bad" -eq 0 ]; then echo "layering: 1 passed, 0 failed"; else echo "layering: 0 passed, 1 failed"; fi
exit "$bad"
