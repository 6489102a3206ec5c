#!/usr/bin/env bash
# Builds an optimised tree and runs the benchmarks whose figures docs/performance.md records, then
# measures the idle agent on the test rigs for a minute.
# Google Benchmark flags pass through, e.g. scripts/bench.sh --benchmark_filter=Settings
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build/optimised -G Ninja -DCMAKE_BUILD_TYPE=Release -DWRENHAVEN_TESTS=ON >/dev/null
cmake --build build/optimised --target wrenhaven_bench idle_agent
build/optimised/bench/wrenhaven_bench "$@"
build/optimised/bench/idle_agent "${WRENHAVEN_IDLE_SECONDS:-60}"
