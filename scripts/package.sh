#!/usr/bin/env bash
# Builds an optimised tree installed under /usr and makes the Debian package from it
# (build/package/wrenhaven_<version>_<arch>.deb), then checks it with lintian.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
build=build/package
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
  -DWRENHAVEN_TESTS=OFF -DWRENHAVEN_BENCHMARKS=OFF >/dev/null
cmake --build "$build"
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(ls "$build"/wrenhaven_*.deb)
lintian --fail-on error --suppress-tags initial-upload-closes-no-bugs "$deb"
echo "$deb"
