#pragma once
// Facts about the machine that the start line and reports show.

#include <filesystem>
#include <string>

#include "core/texts/PlatformTexts.h"

namespace wh::platform {

// The operating system's name and version, from /etc/os-release (or /usr/lib/os-release).
std::string systemVersion();

// Whether the agent may read the media keys and emit keys of its own: some event device that
// reports play/pause, next or previous (by its key capabilities in sysfs) is readable, and
// /dev/uinput is writable. The folders can be pointed elsewhere for tests.
texts::InputAccess inputAccess(const std::filesystem::path& sysClassInput = "/sys/class/input",
                               const std::filesystem::path& dev = "/dev");
inline bool inputAccessGranted() { return inputAccess().trusted(); }

// What the key access panel names: the udev rule beside the running program's installation
// (`<prefix>/share/wrenhaven/udev/`, else the package's /usr/share one), whether a copy is in
// `rulesFolder` already, and the user's name.
texts::KeyAccessSystem keyAccessSystem(const std::filesystem::path& program,
                                       const std::filesystem::path& rulesFolder = "/etc/udev/rules.d");

// Whether this is a Wayland session ($WAYLAND_DISPLAY set, or $XDG_SESSION_TYPE "wayland"): its
// X11 display, if any, is XWayland, whose key grabs see only keys typed into X11 windows.
bool waylandSession();

}  // namespace wh::platform
