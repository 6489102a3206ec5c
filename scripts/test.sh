#!/usr/bin/env bash
# Installs what is missing, builds everything with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test (unit, adapter and end-to-end tests against
# private instances of the real services, and a short run of each benchmark), after a short run of
# every fuzz target.
# Every test runs once: a test that fails fails the run. Under CI=true a test whose rig cannot
# start fails too; elsewhere it is skipped, and ctest's summary lists the skipped tests.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
failed=()

# Every parser of outside input under libFuzzer, 20 seconds each (scripts/fuzz.sh runs longer).
scripts/fuzz.sh 20 || failed+=("fuzzing")

build=build/sanitize
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DWRENHAVEN_SANITIZE=ON >/dev/null
cmake --build "$build"

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0:strict_string_checks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
# Quoted, so that a checkout whose path has spaces still finds its suppressions.
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions='$PWD/tests/lsan.supp':print_suppressions=0}"
# The suite closes the output, so that its summary is the last thing said.
ctest --test-dir "$build" --output-on-failure --timeout 300 -j "$(nproc)" || failed+=("the test suite")
if [ ${#failed[@]} -gt 0 ]; then
  echo "failed: ${failed[*]}" >&2
  exit 1
fi
