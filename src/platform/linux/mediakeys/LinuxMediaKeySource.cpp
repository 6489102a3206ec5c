#include "platform/linux/mediakeys/LinuxMediaKeySource.h"

#include <cstdlib>

#include "core/log/Log.h"
#include "platform/linux/app/SystemInfo.h"
#include "platform/linux/mediakeys/EvdevCapture.h"
#include "platform/linux/mediakeys/X11KeyGrab.h"

namespace wh::platform {

namespace {

bool hasX11Display() {
  const char* display = std::getenv("DISPLAY");
  return display && *display;
}

// On Wayland the X11 display is XWayland: grabs there miss every key typed into a Wayland window,
// so they are no access at all.
bool x11GrabsSeeEveryKey() { return hasX11Display() && !waylandSession(); }

}  // namespace

LinuxMediaKeySource::LinuxMediaKeySource(MainQueue& main) : main_(main) {
  if (waylandSession()) Log::info(texts::kMediaKeysNotOnXWayland);
}

std::optional<std::string> LinuxMediaKeySource::sessionProblem() {
  if (waylandSession() && !inputAccessGranted()) return texts::kMediaKeysNotOnXWayland;
  return std::nullopt;
}

bool LinuxMediaKeySource::accessGranted() const { return inputAccessGranted() || x11GrabsSeeEveryKey(); }

std::unique_ptr<KeyCapture> LinuxMediaKeySource::start(Handler handler) {
  if (inputAccessGranted()) {
    auto capture = std::make_unique<EvdevCapture>(linuxKernelInput(), main_, handler);
    // Every keyboard refused (keyd or interception-tools grabbed them first): no capture.
    const bool refused = !capture->isEnabled();
    if (refused && !devicesRefused_) {
      Log::info("no keyboard with media keys could be grabbed: another program holds them");
    }
    devicesRefused_ = refused;
    if (!refused) return capture;
  }
  if (x11GrabsSeeEveryKey()) return X11KeyGrab::start(std::move(handler), nullptr, heldElsewhere_);
  return nullptr;
}

}  // namespace wh::platform
