#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and UndefinedBehaviorSanitizer on)
# and runs each for a bounded time, two at a time, from seed corpora: the small documents in
# fuzz/seeds/, an archive written by the release build, and the reference fixtures in
# ../shared when they are there. Fails when a target finds a crash; the input that caused it
# is left in <folder>/crashes/.
#   scripts/fuzz.sh [folder]   build folder (default build-fuzz); the test suite passes its
#                              clang sanitizer folder so the engine is not compiled again
#   TRESSORA_FUZZ_SECONDS      seconds per target (default 20)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${TRESSORA_FUZZ_SECONDS:-20}
if ! command -v clang++ >/dev/null; then
  echo "fuzz: clang++ is not installed; the fuzz targets are skipped"
  exit 0
fi

folder=${1:-build-fuzz}
out="$root/$folder"
if [ "$folder" = build-fuzz ]; then
  CXX=clang++ CC=clang "$root/scripts/build.sh" build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1" -DTRESSORA_BUILD_FUZZ=ON -DTRESSORA_SANITIZE=ON \
    -DTRESSORA_BUILD_TESTS=OFF -DTRESSORA_BUILD_BENCH=OFF
elif [ ! -d "$out/fuzz" ]; then
  echo "fuzz: $folder holds no fuzz targets; build it with clang and -DTRESSORA_BUILD_FUZZ=ON"
  exit 1
fi

work="$out/runs"
rm -rf "$work"
mkdir -p "$work/seeds/alembic" "$out/crashes"
# An archive of our own writing, in both layouts' reach of the strands reader.
if [ -x "$root/build/bin/tressora-cli" ]; then
  "$root/build/bin/tressora-cli" eval "$root/fuzz/seeds/groom/patch.groom" -o "$work/seeds/alembic/patch.abc" >/dev/null
fi
for d in alembic alembic-reference; do
  if [ -d "$root/../shared/fixtures/$d" ]; then
    find "$root/../shared/fixtures/$d" -name '*.abc' -size -64k -exec cp {} "$work/seeds/alembic/" \;
  fi
done

# The script language is the expression language with statements: both dictionaries.
cat "$root/fuzz/fuzz_expression.dict" "$root/fuzz/fuzz_script.dict" >"$work/script.dict"

# target, seed folder (may be empty), dictionary (may be empty)
targets=(
  "fuzz_groom_file $root/fuzz/seeds/groom $root/fuzz/json.dict"
  "fuzz_graph_json $root/fuzz/seeds/graph $root/fuzz/json.dict"
  "fuzz_guide_data $root/fuzz/seeds/guides $root/fuzz/json.dict"
  "fuzz_obj_mesh $root/fuzz/seeds/obj -"
  "fuzz_image_file $root/fuzz/seeds/image -"
  "fuzz_alembic_strands $work/seeds/alembic -"
  "fuzz_alembic_reader $work/seeds/alembic -"
  "fuzz_expression - $root/fuzz/fuzz_expression.dict"
  "fuzz_script $root/fuzz/seeds/script $work/script.dict"
)

run() {
  local name=$1 seeds=$2 dict=$3
  local corpus="$work/$name"
  mkdir -p "$corpus"
  local args=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=3072 -print_final_stats=1
              -artifact_prefix="$out/crashes/$name-")
  [ "$dict" != "-" ] && args+=(-dict="$dict")
  local dirs=("$corpus")
  [ "$seeds" != "-" ] && dirs+=("$seeds")
  if "$out/fuzz/$name" "${args[@]}" "${dirs[@]}" >"$work/$name.log" 2>&1; then
    echo "fuzz: $name: $(grep -E '^stat::number_of_executed_units' "$work/$name.log" | awk '{print $2}') runs, no crash"
  else
    echo "fuzz: $name FAILED; its log follows"
    tail -n 60 "$work/$name.log"
    return 1
  fi
}

failed=0
pids=()
for entry in "${targets[@]}"; do
  # shellcheck disable=SC2086
  run $entry &
  pids+=($!)
  if [ "${#pids[@]}" -ge 2 ]; then
    wait "${pids[0]}" || failed=1
    pids=("${pids[@]:1}")
  fi
done
for pid in "${pids[@]}"; do wait "$pid" || failed=1; done
exit $failed
