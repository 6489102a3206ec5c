#!/usr/bin/env bash
# Builds an optimised tree and runs the benchmarks whose figures docs/performance.md records.
# Pass Google Benchmark flags through, e.g. scripts/bench.sh --benchmark_filter=Settings
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DWRENHAVEN_TESTS=OFF >/dev/null
cmake --build build/bench --target wrenhaven_bench
exec build/bench/bench/wrenhaven_bench "$@"
