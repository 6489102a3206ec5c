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

}  // namespace

bool LinuxMediaKeySource::accessGranted() const { return inputAccessGranted() || hasX11Display(); }

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
  if (hasX11Display()) return X11KeyGrab::start(std::move(handler), nullptr, heldElsewhere_);
  return nullptr;
}

}  // namespace wh::platform
