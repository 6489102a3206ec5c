#!/usr/bin/env bash
# Builds the libFuzzer targets of the parsers (fuzz/, clang with AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for the given number of seconds (default 60), starting
# from its seed corpus in fuzz/corpus/<target>. The seeds are only read: each run grows a copy in a
# temporary folder. Prints the executions per second of every target and the input of any crash,
# kept in build/fuzz/crashes/, and fails when a target fails.
#   scripts/fuzz.sh [seconds]
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
case "$seconds" in
  '' | *[!0-9]*) echo "usage: scripts/fuzz.sh [seconds]" >&2; exit 2 ;;
esac

scripts/install-deps.sh
build=build/fuzz
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DWRENHAVEN_FUZZ=ON -DWRENHAVEN_TESTS=OFF -DWRENHAVEN_BENCHMARKS=OFF "${launcher[@]}" >/dev/null
cmake --build "$build" --target wrenhaven_fuzz

work="$(mktemp -d "${TMPDIR:-/tmp}/wrenhaven-fuzz.XXXXXX")"
trap 'rm -rf "$work"' EXIT
crashes="$PWD/$build/crashes"
logs="$PWD/$build/logs"
mkdir -p "$crashes" "$logs"

# Leaks fail a run as well; the sanitizers stop at the first fault.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

passed=0
failed=0
for seeds in fuzz/corpus/*/; do
  name="$(basename "$seeds")"
  target="$build/fuzz/fuzz_$name"
  log="$logs/$name.log"
  corpus="$work/$name"
  mkdir -p "$corpus"
  cp -R "$seeds." "$corpus/"
  status=0
  "$target" -max_total_time="$seconds" -timeout=30 -print_final_stats=1 \
    -artifact_prefix="$crashes/$name-" "$corpus" >"$log" 2>&1 || status=$?
  rate="$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)"
  runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)"
  if [ "$status" -eq 0 ]; then
    passed=$((passed + 1))
    echo "$name: passed, ${rate:-?} exec/s, ${runs:-?} runs, $(find "$corpus" -type f | wc -l) inputs in the corpus"
  else
    failed=$((failed + 1))
    echo "$name: FAILED (status $status), ${rate:-?} exec/s; log: $log"
    grep -E '^(==[0-9]+==ERROR|SUMMARY|.*check failed|.*runtime error)' "$log" | head -n 5 || true
    sed -n 's/.*Test unit written to \(.*\)$/crash input: \1/p' "$log"
  fi
done

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
