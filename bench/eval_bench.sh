#!/usr/bin/env bash
# Whole-process benchmark of `tressora-cli eval`: the example groom at about 150k and 1M
# strands, written to Alembic, once for 10 frames with an animated param and once for 1 frame.
# Prints seconds, strands per second and peak memory (from /usr/bin/time -v) per run.
#
#   bash bench/eval_bench.sh [path/to/tressora-cli] [example.groom]
#
# Needs jq (to make the scaled copies of the groom) and GNU time (/usr/bin/time).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cli=${1:-"$root/build/bin/tressora-cli"}
groom=${2:-"$root/examples/nika.groom"}
for tool in jq /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "eval_bench: $tool is missing (apt-get install jq time)" >&2; exit 1; }
done
[ -x "$cli" ] || { echo "eval_bench: no program at $cli (build it first)" >&2; exit 1; }
[ -f "$groom" ] || { echo "eval_bench: no example groom at $groom" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The strands the example grows at its own density, from a one-frame run.
base=$("$cli" eval "$groom" -o "$work/probe.abc" | sed -n 's/^frame [^:]*: \([0-9]*\) strands$/\1/p' | head -1)
[ -n "$base" ] && [ "$base" -gt 0 ] || { echo "eval_bench: the example grew no strands" >&2; exit 1; }

# A copy of the groom with every Scatter's density scaled to reach `target` strands; with
# `animate`, the Width node's width (or Length's keep) follows the frame through an expression.
scaled_groom() {
  local target=$1 animate=$2 out=$3
  jq --argjson f "$(awk -v t="$target" -v b="$base" 'BEGIN { print t / b }')" --argjson animate "$animate" '
    .graph.nodes |= map(
      if .type == "Scatter" then .params.density = ((.params.density // 80) * $f)
      elif $animate and .type == "Width" then .params.width = {"expression": "0.004 + 0.0002 * frame"}
      elif $animate and .type == "Length" then .params.keep = {"expression": "0.8 + 0.02 * frame"}
      else . end)' "$groom" > "$out"
}

run() {
  local label=$1 target=$2 frames=$3 animate=$4
  local g="$work/$label.groom" log="$work/$label.time"
  scaled_groom "$target" "$animate" "$g"
  /usr/bin/time -v "$cli" eval "$g" -o "$work/$label.abc" -f "1-$frames" > "$work/$label.out" 2> "$log"
  local report strands seconds peak
  report=$(tail -1 "$work/$label.out")
  strands=$(echo "$report" | sed -n 's/.*frame(s), \([0-9]*\) strands per frame.*/\1/p')
  seconds=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$log" |
            awk -F: '{ s = 0; for (i = 1; i <= NF; i++) s = s * 60 + $i; print s }')
  peak=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$log")
  printf '%-22s %8s strands x %2s frames  %7.2f s  %10.0f strands/s  peak %6.0f MiB\n' \
    "$label" "$strands" "$frames" "$seconds" \
    "$(awk -v n="$strands" -v f="$frames" -v s="$seconds" 'BEGIN { print n * f / s }')" "$(awk -v k="$peak" 'BEGIN { print k / 1024 }')"
}

echo "example at its own density: $base strands; $(nproc) cores"
run 150k-10-animated 150000 10 true
run 150k-1-frame 150000 1 false
run 1M-10-animated 1000000 10 true
run 1M-1-frame 1000000 1 false
