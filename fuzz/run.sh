#!/bin/sh
# Runs the fuzz targets side by side, each for SECONDS, and prints their
# figures: executions, coverage (libFuzzer's cov and ft), crash files.
#
#   fuzz/run.sh BUILD_DIR SECONDS
#
# Each target reads the checked-in seeds (fuzz/corpus/NAME) and its working
# corpus BUILD_DIR/corpus/NAME, where new inputs go; crashes, leaks and
# timeouts go to BUILD_DIR/artifacts/NAME/ and the log to BUILD_DIR/logs/.
# Exits non-zero when a target fails.
set -eu
build=$1
seconds=$2
src=$(cd "$(dirname "$0")/.." && pwd)
targets="answer text document tree"

symbolizer=/usr/lib/llvm-14/bin/llvm-symbolizer
if [ -x "$symbolizer" ]; then
  ASAN_SYMBOLIZER_PATH=$symbolizer
  export ASAN_SYMBOLIZER_PATH
fi
UBSAN_OPTIONS=print_stacktrace=1
export UBSAN_OPTIONS

pids=""
for t in $targets; do
  mkdir -p "$build/corpus/$t" "$build/artifacts/$t" "$build/logs"
  "$build/fuzz/${t}_fuzzer" -dict="$src/fuzz/poiparse.dict" -max_total_time="$seconds" -timeout=10 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/$t/" \
    "$build/corpus/$t" "$src/fuzz/corpus/$t" >"$build/logs/$t.log" 2>&1 &
  pids="$pids $!"
done

failed=0
for pid in $pids; do
  wait "$pid" || failed=$((failed + 1))
done

total=0
for t in $targets; do
  log=$build/logs/$t.log
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  last=$(grep -E '^#[0-9]+' "$log" | tail -n 1)
  cov=$(echo "$last" | sed -n 's/.* cov: \([0-9]*\).*/\1/p')
  ft=$(echo "$last" | sed -n 's/.* ft: \([0-9]*\).*/\1/p')
  crashes=$(find "$build/artifacts/$t" -type f | wc -l)
  printf 'fuzz: %-6s %11s executions (%s/s), cov %s, ft %s, %s crash files\n' \
    "$t" "${execs:-?}" "${rate:-?}" "${cov:-?}" "${ft:-?}" "$crashes"
  total=$((total + ${execs:-0}))
done
echo "fuzz: $total executions in all"

if [ "$failed" -ne 0 ]; then
  for t in $targets; do
    echo "== $build/logs/$t.log (last lines)"
    tail -n 40 "$build/logs/$t.log"
  done
  exit 1
fi
