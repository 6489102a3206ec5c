#pragma once
// Facts about the machine that the start line and reports show.

#include <string>

#include "core/texts/PlatformTexts.h"

namespace wh::platform {

// The operating system's name and version, from /etc/os-release (or /usr/lib/os-release).
std::string systemVersion();

// Whether the agent may read the keyboards' events and emit keys of its own: some event device
// under /dev/input is readable, and /dev/uinput is writable.
texts::InputAccess inputAccess();
inline bool inputAccessGranted() { return inputAccess().trusted(); }

}  // namespace wh::platform
