#include "platform/linux/mediakeys/LinuxMediaKeySource.h"

#include <cstdlib>

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
  if (inputAccessGranted()) return std::make_unique<EvdevCapture>(linuxKernelInput(), main_, std::move(handler));
  if (hasX11Display()) return X11KeyGrab::start(std::move(handler));
  return nullptr;
}

}  // namespace wh::platform
