#!/usr/bin/env bash
# Installs the Debian packages that building, running and testing Wrenhaven need.
# Idempotent: when everything is present it only asks dpkg and returns.
set -euo pipefail

packages=(
  # build
  build-essential cmake ninja-build pkg-config
  # the thread-race build (scripts/tsan.sh): clang and its ThreadSanitizer runtime
  clang libclang-rt-dev
  # libraries
  qt6-base-dev libqt6dbus6 nlohmann-json3-dev libpulse-dev libpipewire-0.3-dev libsystemd-dev
  libevdev-dev libarchive-dev
  # media keys: root-window grabs (xcb, key symbols, XKB auto-repeat); key presses and MPRIS stand-ins in the tests
  libxcb1-dev libxcb-keysyms1-dev libxcb-xkb-dev libxkbcommon-dev xdotool python3-dbus
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
  # fuzzing (scripts/fuzz.sh): clang++, and libFuzzer with the sanitizer runtimes
  clang clang-14 libclang-rt-14-dev
  # the icons in the hicolor theme, drawn from the brand mark at build time
  qt6-svg-dev
  # packaging and its checks
  lintian desktop-file-utils systemd
  # test rig: real services on private sockets
  # (the rig starts its own PulseAudio, PipeWire and WirePlumber on private sockets)
  pulseaudio pulseaudio-utils pulseaudio-module-bluetooth pipewire pipewire-bin pipewire-pulse wireplumber util-linux dbus-daemon dbus-bin python3-dbusmock python3-gi libglib2.0-bin xvfb xauth
  # the tray's tests: the StatusNotifierWatcher stand-in (tests/support/sni_host.py)
  python3-dbus
  # the Wayland desktop of the tray's tests (tests/support/WaylandRig): sway on its headless
  # backend, waybar's bar and tray, grim for pictures, and Qt's Wayland platform for the agent
  sway waybar grim qt6-wayland hicolor-icon-theme
  # the desktop portal's frontend, for hotkeys through GlobalShortcuts (tests/support/PortalRig)
  xdg-desktop-portal
  # the settings program read as a screen reader reads it: AT-SPI's bus and its Python client
  at-spi2-core python3-pyatspi
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
