#!/usr/bin/env bash
# Builds the Debian package from a built tree, checks its contents and metadata, and runs the agent
# installed from it in a throw-away root.
# Usage: check_package.sh BUILD-DIR
set -euo pipefail
build=$1
for tool in cpack dpkg-deb dpkg-shlibdeps lintian desktop-file-validate systemd-analyze apt-get Xvfb; do
  if ! command -v "$tool" >/dev/null; then
    echo "SKIP: $tool is missing (scripts/install-deps.sh installs it)"
    # Under CI the package is part of what is tested: a missing tool fails the run.
    [ "${CI:-}" = true ] && exit 1
    exit 77
  fi
done
work=$(mktemp -d "${TMPDIR:-/tmp}/wrenhaven-package-XXXXXX")
settings=""
display=""
trap '[ -z "$settings" ] || kill "$settings" 2>/dev/null; [ -z "$display" ] || kill "$display" 2>/dev/null; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; fail "cpack"; }
deb=$(ls "$work"/out/wrenhaven_*.deb)

# Contents: every piece of the installed layout, at its place under /usr.
dpkg-deb -c "$deb" | awk '{print $NF}' | sed 's|^\./|/|' >"$work/files"
for path in /usr/bin/wrenhaven /usr/share/applications/com.quintelbarrows.wrenhaven.desktop \
            /usr/share/wrenhaven/autostart/com.quintelbarrows.wrenhaven.desktop \
            /usr/lib/systemd/user/wrenhaven.service /usr/share/wrenhaven/udev/70-wrenhaven-input.rules \
            /usr/share/man/man1/wrenhaven.1.gz /usr/share/doc/wrenhaven/copyright \
            /usr/share/doc/wrenhaven/changelog.Debian.gz /usr/share/doc/wrenhaven/fonts/InstrumentSans-OFL.txt \
            /usr/share/doc/wrenhaven/fonts/GeistMono-OFL.txt /usr/share/doc/wrenhaven/fonts/NotoSansSymbols-OFL.txt \
            /usr/bin/wrenhaven-settings \
            /usr/share/applications/com.quintelbarrows.wrenhaven.settings.desktop /usr/share/man/man1/wrenhaven-settings.1.gz \
            /usr/share/icons/hicolor/scalable/apps/com.quintelbarrows.wrenhaven.svg \
            /usr/share/icons/hicolor/16x16/apps/com.quintelbarrows.wrenhaven.png \
            /usr/share/icons/hicolor/256x256/apps/com.quintelbarrows.wrenhaven.png; do
  grep -qx "$path" "$work/files" || fail "the package lacks $path"
done
grep -v -e '^/usr/' -e '^/$' "$work/files" && fail "files outside /usr"

# Metadata: the libraries the binary links come from dpkg-shlibdeps, not from a hand-kept list.
[ "$(dpkg-deb -f "$deb" Package)" = wrenhaven ] || fail "package name"
depends=$(dpkg-deb -f "$deb" Depends)
for library in libpulse0 libpipewire-0.3-0 libqt6widgets6 libqt6dbus6 libc6; do
  [[ "$depends" == *"$library"* ]] || fail "Depends lacks $library: $depends"
done

lintian --fail-on error --suppress-tags initial-upload-closes-no-bugs "$deb" || fail "lintian"

# The installed files, unpacked into a throw-away root.
root="$work/root"
dpkg-deb -x "$deb" "$root"
desktop-file-validate "$root"/usr/share/applications/*.desktop "$root"/usr/share/wrenhaven/autostart/*.desktop ||
  fail "desktop entries"
for entry in "$root"/usr/share/applications/*.desktop "$root"/usr/share/wrenhaven/autostart/*.desktop; do
  grep -q '/usr/bin/wrenhaven' "$entry" || fail "$entry does not start the installed agent"
done
# systemd checks that the command exists: point it into the unpacked root.
sed "s|=/usr/bin/|=$root/usr/bin/|" "$root/usr/lib/systemd/user/wrenhaven.service" >"$work/wrenhaven.service"
analysis=$(systemd-analyze verify --man=no "$work/wrenhaven.service" 2>&1) || fail "systemd-analyze: $analysis"
[ -z "$analysis" ] || fail "systemd-analyze: $analysis"

# The installed agent runs: a home of its own, no session bus, no sound server.
home="$work/home"
mkdir -p "$home/runtime" && chmod 700 "$home/runtime"
# Runs an installed program in place of the calling shell: call it in a subshell, $(run ...) or
# (run ...) &, so that a background run's $! is the program itself.
run() {
  program=$1
  shift
  exec env -i PATH=/usr/bin:/bin HOME="$home" XDG_RUNTIME_DIR="$home/runtime" PULSE_SERVER="unix:$home/none" \
    DBUS_SYSTEM_BUS_ADDRESS="unix:path=$home/none" ASAN_OPTIONS="${ASAN_OPTIONS:-}" \
    UBSAN_OPTIONS="${UBSAN_OPTIONS:-}" LSAN_OPTIONS="${LSAN_OPTIONS:-}" QT_QPA_PLATFORM="${QT_QPA_PLATFORM:-}" ${DISPLAY:+DISPLAY="$DISPLAY"} "$root/usr/bin/$program" "$@"
}
packaged=$(dpkg-deb -f "$deb" Version)
for program in wrenhaven wrenhaven-settings; do
  version=$(run $program --version) || fail "$program --version exited with $?"
  [[ "$version" == "Wrenhaven "*"${packaged%-*} (${packaged##*-})" ]] || fail "$program --version says $version for package $packaged"
done
# The icon the entries name is in the theme, so menus and docks can find it.
for entry in "$root"/usr/share/applications/*.desktop; do
  icon=$(sed -n 's/^Icon=//p' "$entry")
  [ -s "$root/usr/share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "$entry names the icon $icon, which is not installed"
done
# The installed settings program starts and keeps its window open (drawn off screen), with no bus.
(QT_QPA_PLATFORM=offscreen run wrenhaven-settings >"$work/settings.log" 2>&1) &
settings=$!
sleep 3
kill -0 $settings 2>/dev/null || { cat "$work/settings.log"; fail "the settings program ended at start"; }
kill $settings && wait $settings 2>/dev/null || true
settings=
# What the programs load at run time comes with the package's dependencies alone. The packages
# that an install without recommends brings onto an empty system (apt's own solver, against an
# empty list of installed packages) must hold every Qt plugin either program loads on an X display.
apt-get -s -o Dir::State::status=/dev/null install --no-install-recommends "$deb" >"$work/closure.log" 2>&1 ||
  { cat "$work/closure.log"; fail "apt cannot install the package without recommends"; }
sed -n 's/^Inst \([^ ]*\).*/\1/p' "$work/closure.log" | sort -u >"$work/closure"
# A display number far above the ones desktops and other tests use (see tests/support/XvfbDisplay.h).
for _ in 1 2 3 4; do
  Xvfb ":$((1000 + RANDOM % 30000))" -displayfd 3 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
  display=$!
  for _ in $(seq 100); do { [ -s "$work/display" ] || ! kill -0 $display 2>/dev/null; } && break; sleep 0.1; done
  [ -s "$work/display" ] && break
done
[ -s "$work/display" ] || { cat "$work/xvfb.log"; fail "Xvfb did not start"; }
for program in wrenhaven-settings wrenhaven; do
  # Qt's X11 platform reads past a terminator in libxkbcommon-x11, which strict string checks report.
  (DISPLAY=":$(cat "$work/display")" ASAN_OPTIONS="${ASAN_OPTIONS:-}:strict_string_checks=0" run $program \
    >"$work/$program.log" 2>&1) &
  pid=$!
  # The platform plugin is loaded first; the others by the time the first window or icon is up.
  for _ in $(seq 100); do grep -q '/platforms/libqxcb' "/proc/$pid/maps" 2>/dev/null && break; sleep 0.1; done
  sleep 2
  grep -o '/[^ ]*/qt6/plugins/[^ ]*\.so' "/proc/$pid/maps" 2>/dev/null | sort -u >"$work/$program.plugins" || true
  kill $pid 2>/dev/null && wait $pid 2>/dev/null || true
  grep -q '/platforms/libqxcb' "$work/$program.plugins" || { cat "$work/$program.log"; fail "$program loaded no platform plugin"; }
  while read -r plugin; do
    owner=$(dpkg -S "$plugin" | cut -d: -f1)
    grep -qx "$owner" "$work/closure" || fail "$program loads $plugin from $owner, which an install without recommends lacks"
  done <"$work/$program.plugins"
done
kill $display && wait $display 2>/dev/null || true
display=
diagnostics=$(run wrenhaven --diagnose) || fail "--diagnose exited with $?"
[[ "$diagnostics" == "Wrenhaven "* ]] || fail "--diagnose printed: $diagnostics"
echo "package $(basename "$deb") checked"
