#!/usr/bin/env bash
# Builds everything with clang and ThreadSanitizer (build/tsan) and runs the tests that exercise
# the agent's threads: every core test, and the adapter, ui and end-to-end tests of the serial
# queues, the sound server's loop threads, the gain taps' real-time thread, the key reader, the
# settings store and the agent itself (ctest labels "core" and "threads"). A race report fails its test.
# ctest arguments pass through, e.g. scripts/tsan.sh -R EvdevCapture
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
build=build/tsan
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
# -O1 keeps the instrumented code a few times faster than -O0 and its stacks still readable.
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
  -DCMAKE_CXX_COMPILER=clang++ -DWRENHAVEN_TSAN=ON "${launcher[@]}" >/dev/null
cmake --build "$build"

# Quoted, so that a clone in a folder whose path has spaces or colons still finds its suppressions.
# A report does not stop the process: the test ends and takes its rig down, then exits with 66, and
# the "threads" tests also fail on any report in their output (the agent and the other programs
# they start write theirs there). Halting at once would leave the rig's servers holding ctest's pipe.
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=0:exitcode=66:second_deadlock_stack=1:history_size=4:suppressions='$PWD/tests/tsan.supp'}"
ctest --test-dir "$build" -L "^(core|threads)$" --output-on-failure --timeout 600 -j "$(nproc)" "$@"
