#!/usr/bin/env bash
# Installs what is missing, builds the agent and runs it. Without a desktop session there is no
# tray to live in, so it prints the diagnostics text instead (what `wrenhaven --diagnose` does).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DWRENHAVEN_TESTS=OFF -DWRENHAVEN_BENCHMARKS=OFF >/dev/null
# The settings program too: the agent opens it from its own folder on first run.
cmake --build build/release --target wrenhaven wrenhaven-settings

agent=build/release/src/app/wrenhaven
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ "$#" -eq 0 ]; then
  echo "starting $agent (it lives in the tray; its log is in \${XDG_STATE_HOME:-~/.local/state}/Wrenhaven/)"
  exec "$agent"
fi
if [ "$#" -eq 0 ]; then
  echo "no desktop session here: printing the diagnostics (run the agent itself with $agent)"
  set -- --diagnose
fi
exec "$agent" "$@"
