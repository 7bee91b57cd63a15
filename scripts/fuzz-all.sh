#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer under AddressSanitizer and
# UndefinedBehaviorSanitizer, then fuzzes each for MINUTES minutes, two at a time.
#
#   scripts/fuzz-all.sh MINUTES [TARGET...]     e.g. scripts/fuzz-all.sh 10, or 2 hrtf wave
#
# The build goes to build-fuzz/ (QK_FUZZ_BUILD to change it). Each target starts from its seeds
# in fuzz/corpus/<name> and its dictionary fuzz/dict/<name>.dict when there is one; the inputs
# it finds go to a working corpus in the build folder, never into the source tree. An input
# that crashes, leaks, hangs or runs out of memory is copied to fuzz/regressions/<name>/, which
# ctest replays in every build. Ends with one line per target: executions, coverage, findings;
# exits 1 when anything was found.
set -euo pipefail

usage() {
  echo "usage: scripts/fuzz-all.sh MINUTES [TARGET...]" >&2
  exit 2
}
[ $# -ge 1 ] || usage
minutes=$1
shift
[[ "$minutes" =~ ^[0-9]+([.][0-9]+)?$ ]] || usage
seconds=$(awk -v m="$minutes" 'BEGIN { s = int(m * 60); print (s < 1 ? 1 : s) }')

root=$(cd "$(dirname "$0")/.." && pwd)
build=${QK_FUZZ_BUILD:-$root/build-fuzz}
parallel=${QK_FUZZ_PARALLEL:-2}

if [ $# -gt 0 ]; then
  targets=("$@")
else
  targets=()
  for f in "$root"/fuzz/fuzz_*.cpp; do
    n=$(basename "$f" .cpp)
    targets+=("${n#fuzz_}")
  done
fi

if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQK_FUZZ=ON -DQK_BENCH=OFF -DQK_TOOLS=OFF >/dev/null
fi
cmake --build "$build" -j "$parallel" --target "${targets[@]/#/fuzz_}"

work="$build/fuzz-work"
mkdir -p "$work"

# One target for the whole time; its log is $work/<name>.log.
run_one() {
  local name=$1
  local program="$build/fuzz/fuzz_$name"
  local dir="$work/$name"
  rm -rf "$dir/artifacts" "$dir/home"
  mkdir -p "$dir/corpus" "$dir/artifacts" "$dir/home"
  local args=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
              -artifact_prefix="$dir/artifacts/")
  if [ -f "$root/fuzz/dict/$name.dict" ]; then
    args+=(-dict="$root/fuzz/dict/$name.dict")
  fi
  local seeds=()
  [ -d "$root/fuzz/corpus/$name" ] && seeds+=("$root/fuzz/corpus/$name")
  [ -d "$root/fuzz/regressions/$name" ] && seeds+=("$root/fuzz/regressions/$name")
  # The engine's files (settings, tables) go to a folder of the run's own.
  QK_COMMON_ROOT="$dir/home" QK_SETTINGS_DIR="$dir/home" \
    ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$program" "${args[@]}" "$dir/corpus" "${seeds[@]}" >"$work/$name.log" 2>&1 || true
  local kept=0
  # Slow units are left out: on a busy machine they tell of the load, not of the input.
  for f in "$dir"/artifacts/{crash,leak,timeout,oom}-*; do
    [ -f "$f" ] || continue
    mkdir -p "$root/fuzz/regressions/$name"
    # crash-<hash> becomes crash_<hash>: the tree ignores libFuzzer's own names.
    local base
    base=$(basename "$f")
    cp "$f" "$root/fuzz/regressions/$name/${base/-/_}"
    kept=$((kept + 1))
  done
  echo "$kept" >"$dir/findings"
}

echo "fuzzing ${#targets[@]} targets for $minutes min each, $parallel at a time; logs in $work"
running=0
for name in "${targets[@]}"; do
  if [ ! -x "$build/fuzz/fuzz_$name" ]; then
    echo "fuzz-all: no fuzz target '$name'" >&2
    exit 2
  fi
  run_one "$name" &
  running=$((running + 1))
  if [ "$running" -ge "$parallel" ]; then
    wait -n
    running=$((running - 1))
  fi
done
wait

found=0
printf '%-14s %14s %10s %10s %9s %s\n' target executions "exec/s" coverage features findings
for name in "${targets[@]}"; do
  log="$work/$name.log"
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  ft=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  kept=$(cat "$work/$name/findings" 2>/dev/null || echo "?")
  printf '%-14s %14s %10s %10s %9s %s\n' "$name" "${execs:-?}" "${rate:-?}" "${cov:-?}" "${ft:-?}" "$kept"
  if [ "$kept" != "0" ]; then
    found=1
    echo "  kept in fuzz/regressions/$name/; see $log" >&2
  fi
done
exit "$found"
